// Callable attributes, and the creation of entities from their constructor arguments; see AttrStorage.h.
#pragma once

#include <tuple>
#include <utility>

#include "Kel/AttrAccess.h"
#include "Kel/Box.h"
#include "Kel/EntityKey.h"

namespace Kel {

// The n-th argument of an operation. Raises UnknownArgException if it is missing.
KEL_API GenericIf const* callArg(KelAttr const& attr, GenericIf::Args const& args, std::size_t n);
// Raises UnknownArgException for an argument that is unknown or given twice.
KEL_API void checkCallArgs(KelAttr const& attr, GenericIf::Args const& args);

// An operation, by a function that converts the arguments and calls it.
class KEL_API OpAccess final : public AttrAccess {
 public:
  using Function = GenericIf::Ptr (*)(KelAttr const& attr, Entity& e, GenericIf::Args const& args);
  OpAccess(Function function, bool isConst) : function_(function), isConst_(isConst) {}
  GenericIf::Ptr call(KelAttr const& attr, Entity const& e, bool constView, GenericIf::Args const& args) const override;

 private:
  Function function_;
  bool isConst_;
};

// The function for an operation.
template <auto function, class C, class R, class... A>
struct Call {
  static GenericIf::Ptr call(KelAttr const& attr, Entity& e, GenericIf::Args const& args) {
    return apply(attr, static_cast<C&>(e), args, std::index_sequence_for<A...>());
  }

 private:
  template <std::size_t... I>
  static GenericIf::Ptr apply([[maybe_unused]] KelAttr const& attr, C& object,
                              [[maybe_unused]] GenericIf::Args const& args, std::index_sequence<I...>) {
    // Braces: the arguments are checked in order before the call.
    std::tuple<std::decay_t<A>...> values{
        unbox<std::decay_t<A>>(callArg(attr, args, I), Place(attr.fullName(), attr.args()[I]))...};
    if constexpr (std::is_void_v<R>) {
      (object.*function)(std::get<I>(values)...);
      return nullptr;
    } else {
      return box(std::decay_t<R>((object.*function)(std::get<I>(values)...)));
    }
  }
};

// Compare the constructor parameters of types whose only parameter is the name: all of them, and all but the first.
KEL_API bool sameName(Entity const& a, Entity const& b);
KEL_API bool noFurtherParams(Entity const& a, Entity const& b);

// Whether a getter is that of the entity's name.
template <auto Getter>
constexpr bool isNameGetter() {
  if constexpr (std::is_same_v<decltype(Getter), Name const& (Entity::*)() const>)
    return Getter == &Entity::name;
  else
    return false;
}

// Whether an entity with these constructor parameters gets its name when it is made, not when the name is first read.
template <class First = Name, class...>
inline constexpr bool isNamedWhenMade = isPtrType<First> || std::is_same_v<First, String8>;

// Creating an entity of type T from its constructor arguments.
template <class T, auto... Getter>
struct Construct {
  template <auto G>
  using Param = std::decay_t<decltype((std::declval<T const&>().*G)())>;
  static constexpr bool comparable = !(isPtrType<Param<Getter>> || ...);
  // The name is the only parameter.
  static constexpr bool byName = sizeof...(Getter) == 1 && (isNameGetter<Getter>() && ...);
  // NameKey cannot read a name that is made later.
  static_assert(isNamedWhenMade<Param<Getter>...> || !std::is_base_of_v<NameKey, EntityKey<T>>);

  static Ptr<Entity> construct(std::vector<GenericIf::PtrConst> const& args, KelType const& type) {
    return constructWith(args, type, std::index_sequence_for<Param<Getter>...>());
  }
  static bool paramsEqual(Entity const& a, Entity const& b) {
    [[maybe_unused]] T const& x = static_cast<T const&>(a);
    [[maybe_unused]] T const& y = static_cast<T const&>(b);
    return (((x.*Getter)() == (y.*Getter)()) && ...);
  }
  // The same without the first parameter.
  static bool furtherParamsEqual(Entity const& a, Entity const& b) {
    T const& x = static_cast<T const&>(a);
    T const& y = static_cast<T const&>(b);
    (void)x, (void)y;
    [[maybe_unused]] unsigned n = 0;
    return ((n++ == 0 || (x.*Getter)() == (y.*Getter)()) && ...);
  }
  static Entity* createLike(Entity const& like) {
    T const& x = static_cast<T const&>(like);
    (void)x;
    return new T((x.*Getter)()...);
  }

 private:
  template <std::size_t... I>
  static Ptr<Entity> constructWith([[maybe_unused]] std::vector<GenericIf::PtrConst> const& args, KelType const& type,
                                   std::index_sequence<I...>) {
    std::tuple<Param<Getter>...> values{
        unbox<Param<Getter>>(args[I].ptr(), Place(type.fullTypeName(), type.ctorArgs()[I]))...};
    return Ptr<Entity>(new T(std::get<I>(values)...));
  }
};

}  // namespace Kel
