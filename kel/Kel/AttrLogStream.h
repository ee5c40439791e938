// The bytes of an attribute log: what AttrLog.h and the storage of attributes write and read them with.
//
// Everything is in network byte order; docs/attribute-log.md has the format. A reader trusts nothing: what runs out of
// bytes, or holds what it cannot know, raises AttrLogRecordException; a reference that leads nowhere, or to an entity
// of the wrong type, AttrLogEntityException. Messages begin with the offset from the log's start.
#pragma once

#include <bit>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Kel/Box.h"
#include "Kel/Entity.h"
#include "Kel/Exception.h"

namespace Kel {

// How a reference to an entity begins.
enum class AttrLogReference : U8 { null = 0, id = 1, path = 2 };

template <class T>
using BitsOf =
    std::conditional_t<sizeof(T) == 1, U8,
                       std::conditional_t<sizeof(T) == 2, U16, std::conditional_t<sizeof(T) == 4, U32, U64>>>;

// Whether entities of a type can be in a log without an owner: those that neither own nor point at anything, so that
// they cannot keep each other alive.
KEL_API bool attrLogLoose(KelType const& type);

class KEL_API AttrLogOut {
 public:
  // Gives an entity the next number of the log. References to entities without one lead by path through the tree of
  // `treeRoot`.
  explicit AttrLogOut(Entity const* treeRoot) : treeRoot_(treeRoot) {}
  void number(Entity const& e) { ids_.emplace(&e, static_cast<U32>(ids_.size())); }

  // An integer, a boolean, a character, a floating-point number by its bits.
  template <class T>
  void put(T v) {
    putBits(std::bit_cast<BitsOf<T>>(v), sizeof(T));
  }
  // A length and as many bytes.
  void put(String8 const& text) { putText(text); }
  void putText(std::string_view text);
  void putBytes(std::string_view bytes) { bytes_.append(bytes); }
  // The number of an entity of the log, else the path of one of the same tree. One that nobody owns is numbered and
  // added to `loose` where it can come along. Raises EntityIdUnavailableException for an entity that has neither number
  // nor path: one of another tree, or one that its path does not lead to.
  void reference(Entity const* target);
  std::vector<Entity const*> const& loose() const { return loose_; }
  [[noreturn]] static void noEntity(KelType const* type);

  std::size_t size() const { return bytes_.size(); }
  std::string_view bytes() const { return bytes_; }
  // Replaces what was put at an offset.
  void patch(std::size_t at, U32 v);
  std::string take() { return std::move(bytes_); }

 private:
  void putBits(U64 bits, std::size_t bytes);

  Entity const* treeRoot_;
  std::unordered_map<Entity const*, U32> ids_;
  std::vector<Entity const*> loose_;
  std::string bytes_;
};

class KEL_API AttrLogIn {
 public:
  // Where references lead.
  class Entities {
   public:
    // Both answer null for what is not there.
    virtual Entity* byId(U32 id) = 0;
    virtual Entity* byPath(String8 const& path) = 0;

   protected:
    ~Entities() = default;
  };

  AttrLogIn(std::string_view log, std::size_t from, std::size_t end, Entities* entities = nullptr)
      : log_(log), at_(from), item_(from), end_(end), entities_(entities) {}

  template <class T>
  T get() {
    return std::bit_cast<T>(static_cast<BitsOf<T>>(getBits(sizeof(T))));
  }
  bool getBool();
  std::string_view getText();
  // A reference to an entity of that type, or of one derived from it.
  Entity* reference(KelType const* wanted);
  // The id, when a reference by id is what comes next; takes nothing.
  std::optional<U32> referredId() const;
  // Takes the null reference; nothing else can be read where a counted object is wanted that is no entity.
  void wantNull(KelType const* wanted);

  std::size_t offset() const { return at_; }
  bool atEnd() const { return at_ == end_; }
  // Raises: what was read last is not what belongs there.
  [[noreturn]] void bad(String8 const& what) const;
  [[noreturn]] void badEntity(String8 const& what) const;

 private:
  char const* need(std::size_t bytes);
  U64 getBits(std::size_t bytes);

  std::string_view log_;
  std::size_t at_;
  std::size_t item_;  // where what was read last began
  std::size_t end_;
  Entities* entities_;
};

[[noreturn]] KEL_API void throwAttrLogRecord(std::size_t offset, String8 const& what);
[[noreturn]] KEL_API void throwAttrLogEntity(std::size_t offset, String8 const& what);

// One value, or one pointer.
KEL_API void writeAttrLogValue(AttrLogOut& out, KelType const& type, void const* value);
KEL_API void readAttrLogValue(AttrLogIn& in, KelType const& type, void* value);
KEL_API S32 readAttrLogEnumerator(AttrLogIn& in, KelType const& type);

template <class T>
void streamOut(AttrLogOut& out, T const& v) {
  if constexpr (isPtrType<T>) {
    if constexpr (std::is_base_of_v<Entity, typename PtrTraits<T>::target>)
      out.reference(v.ptr());
    else if (v)
      out.noEntity(typeOfArg<T>());
    else
      out.put(AttrLogReference::null);
  } else if constexpr (std::is_pointer_v<T>) {
    out.noEntity(TypeOf<T>::type());
  } else if constexpr (BuiltinType<T>) {
    out.put(v);
  } else if constexpr (std::is_enum_v<T>) {
    out.put(static_cast<S32>(v));
  } else {
    writeAttrLogValue(out, *TypeOf<T>::type(), &v);
  }
}

template <class T>
T streamIn(AttrLogIn& in) {
  if constexpr (isPtrType<T>) {
    using Target = typename PtrTraits<T>::target;
    if constexpr (std::is_base_of_v<Entity, Target>) {
      return T(static_cast<Target*>(in.reference(TypeOf<Target>::type())));
    } else {
      in.wantNull(typeOfArg<T>());
      return nullptr;
    }
  } else if constexpr (std::is_pointer_v<T>) {
    in.bad("a character pointer cannot be read");
  } else if constexpr (std::is_same_v<T, bool>) {
    return in.getBool();
  } else if constexpr (std::is_same_v<T, String8>) {
    return String8(in.getText());
  } else if constexpr (BuiltinType<T>) {
    return in.get<T>();
  } else if constexpr (std::is_enum_v<T>) {
    return static_cast<T>(readAttrLogEnumerator(in, *TypeOf<T>::type()));
  } else {
    return T(in);
  }
}

}  // namespace Kel
