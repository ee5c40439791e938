// What the framework's tests share: values at random, and a reactor that writes down what it is told.
#pragma once

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

#include "Kel/AttrStorage.h"
#include "MessageOf.h"
#include "kel_test/Gadgets.h"

namespace Gadgets {

using namespace Kel;
using Tests::messageOf;

// Repeats from run to run.
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}

  // 0 <= result < end.
  unsigned below(unsigned end) { return static_cast<unsigned>(engine_() % end); }
  bool once(unsigned in) { return below(in) == 0; }
  U64 bits() { return engine_(); }

  // A value of any type of the test model; boundaries come up often.
  template <class T>
  T of();

 private:
  template <class T>
  T integer() {
    switch (below(4)) {
      case 0: return std::numeric_limits<T>::min();
      case 1: return std::numeric_limits<T>::max();
      case 2: return static_cast<T>(below(4));
      default: return static_cast<T>(bits());
    }
  }
  template <class T>
  T floating() {
    static constexpr T special[] = {T(0),
                                    T(-0.0),
                                    T(0.1),
                                    std::numeric_limits<T>::infinity(),
                                    -std::numeric_limits<T>::infinity(),
                                    std::numeric_limits<T>::denorm_min(),
                                    std::numeric_limits<T>::max(),
                                    std::numeric_limits<T>::lowest()};
    return once(2) ? special[below(8)] : static_cast<T>(static_cast<S64>(bits())) / T(3);
  }
  String8 text() {
    static char const alphabet[] = "ab/.'\\\n\t\x01\x7f\xff\0 ,:{})(*\"";
    std::string s;
    for (unsigned n = below(3) * below(9); n > 0; --n) s += alphabet[below(sizeof alphabet - 1)];
    return String8(s);
  }

  std::mt19937_64 engine_;
};

// Targets for pointers.
inline std::vector<Part::Ptr> const& someParts() {
  static std::vector<Part::Ptr> const parts{partFactory("p0"), partFactory("p1"), partFactory("p2"), nullptr};
  return parts;
}

template <class T>
T Random::of() {
  if constexpr (std::is_same_v<T, bool>)
    return once(2);
  else if constexpr (std::is_integral_v<T>)
    return integer<T>();
  else if constexpr (std::is_floating_point_v<T>)
    return floating<T>();
  else if constexpr (std::is_same_v<T, String8>)
    return text();
  else if constexpr (std::is_enum_v<T>) {
    auto const& all = TypeOf<T>::type()->enumerators();
    return static_cast<T>(all[below(static_cast<unsigned>(all.size()))].value);
  } else if constexpr (std::is_same_v<T, Point>)
    return Point(of<S32>(), of<S32>());
  else if constexpr (std::is_same_v<T, Segment>)
    return Segment(of<Point>(), of<Color>(), of<String8>());
  else if constexpr (std::is_same_v<T, Label>)
    return Label(of<String8>());
  else if constexpr (std::is_same_v<T, Count>)
    return Count(of<U16>());
  else if constexpr (std::is_same_v<T, Opaque>)
    return Opaque(of<U32>());
  else if constexpr (std::is_same_v<T, Every>)
    return Every(of<bool>(), of<char>(), of<U8>(), of<U16>(), of<U32>(), of<U64>(), of<S8>(), of<S16>(), of<S32>(),
                 of<S64>(), of<F32>(), of<F64>(), of<F64>(), of<String8>(), of<Color>(), of<Level>(), of<Point>());
  else if constexpr (std::is_same_v<T, Ptr<KelAttr const>>)
    return Part::_fwkType()->attributeQ(below(4));
  else
    return someParts()[below(4)];
}

using Gif = GenericIf::PtrConst;

// A value or a pointer for an attribute of that type.
inline Gif anyValue(Random& random, KelType const* type) {
  auto const any = [&]<class... Ts>() {
    Gif made;
    (void)((type == TypeOf<Ts>::type() && (made = box(random.of<Ts>()), true)) || ...);
    return made;
  };
  if (type == TypeOf<KelAttr>::type()) return box(random.of<Ptr<KelAttr const>>());
  if (type->isEntity()) return box(random.of<Part::Ptr>());
  return any.template operator()<bool, char, U8, U16, U32, U64, S8, S16, S32, S64, F32, F64, Seconds, String8, Color,
                                 Level, Point, Segment, Every, Opaque, Label, Count>();
}

// The types of the test model, and the framework's own entities.
inline std::vector<KelType const*> const& allTypes() {
  static std::vector<KelType const*> const types = [] {
    std::vector<KelType const*> all{Dir::_fwkType(), Dir::EntryState::_fwkType(), Entity::_fwkType()};
    for (char const* name :
         {"Color", "Level",    "Point",   "Segment",  "Every",  "Opaque",     "Label",      "Count",
          "Part",  "Numbered", "Colored", "Placed",   "Queued", "Plain",      "Even",       "Odd",
          "Bound", "Binder",   "Housed",  "Defaults", "Values", "MoreValues", "SameValues", "Pointers",
          "Maps",  "Owner",    "Queues",  "Shape",    "Square"})
      all.push_back(KelType::find(String8("Gadgets::") + name));
    return all;
  }();
  return types;
}

// Writes down which attributes it is told of.
struct Watch : EntityNotifiee {
  explicit Watch(Entity::PtrConst const& e) {
    isNondestructingIs(true);
    bind(e);
  }
  ~Watch() override { bind(nullptr); }
  void dispatch(AttributeId id, void const*) override { told.push_back(id); }
  std::vector<AttributeId> take() { return std::exchange(told, {}); }
  std::vector<AttributeId> told;
};

template <class T>
GenericIf::Ptr boxed(Ptr<T> const& e) {
  return GenericIf::ofEntity(Ptr<Entity>(e));
}

// The constructor arguments of a member, without the index that a queue supplies.
template <class Value>
std::vector<Gif> constructorArgs(KelAttr const& attr, Value const& value) {
  std::vector<Gif> list;
  for (unsigned n = attr.isQueue() ? 1 : 0; n < attr.constraint().args(); ++n)
    list.push_back(value(attr.constraint().argPtr(n)->type()));
  return list;
}

inline GenericIf::Ptr listOf(std::vector<GenericIf::PtrConst> const& objects) {
  GenericIf::List::Ptr const list(new GenericIf::List);
  for (auto const& object : objects) list->objectEnq(object);
  return GenericIf::List::genericIf(list);
}

}  // namespace Gadgets
