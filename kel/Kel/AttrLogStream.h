// Writing and reading the bytes of an attribute log.
//
// Everything is in network byte order; docs/attribute-log.md has the format. A reader trusts nothing. If there are too
// few bytes, or bytes without a meaning, it raises AttrLogRecordException. If a reference leads nowhere, or to an
// entity of the wrong type, it raises AttrLogEntityException. Messages begin with the offset from the start of the log.
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

// The first byte of a reference to an entity.
enum class AttrLogReference : U8 { null = 0, id = 1, path = 2 };

template <class T>
using BitsOf =
    std::conditional_t<sizeof(T) == 1, U8,
                       std::conditional_t<sizeof(T) == 2, U16, std::conditional_t<sizeof(T) == 4, U32, U64>>>;

// Whether entities of a type can be in a log without an owner: the type neither owns entities nor has pointers, so that
// its entities cannot keep each other alive.
KEL_API bool attrLogMayBeUnowned(KelType const& type);

// The bytes of a log that is being written.
class KEL_API AttrLogOut {
 public:
  // References to entities without a number are paths in the tree of `treeRoot`.
  explicit AttrLogOut(Entity const* treeRoot) : treeRoot_(treeRoot) {}
  // Gives an entity the next number of the log.
  void number(Entity const& e) { ids_.emplace(&e, static_cast<U32>(ids_.size())); }

  // Writes an integer, a boolean, a character, or a floating-point number by its bits.
  template <class T>
  void put(T v) {
    putBits(std::bit_cast<BitsOf<T>>(v), sizeof(T));
  }
  // Writes a length and the characters.
  void put(String8 const& text) { putText(text); }
  void putText(std::string_view text);
  void putBytes(std::string_view bytes) { bytes_.append(bytes); }
  // Writes a reference: the number of an entity of the log, or the path of another entity of the tree. An entity
  // without an owner is numbered and added to `unowned`, if its type allows that. Raises EntityIdUnavailableException
  // for an entity that has neither number nor path, because it is in another tree, or because its path does not lead to
  // it.
  void reference(Entity const* target);
  // The entities without an owner that are part of the log.
  std::vector<Entity const*> const& unowned() const { return unowned_; }
  // Raises EntityIdUnavailableException: an object of that type cannot be referred to.
  [[noreturn, gnu::cold]] static void noEntity(KelType const* type);

  std::size_t size() const { return bytes_.size(); }
  std::string_view bytes() const { return bytes_; }
  // Replaces the number at an offset.
  void patch(std::size_t at, U32 v);
  std::string take() { return std::move(bytes_); }

 private:
  void putBits(U64 bits, std::size_t bytes);

  Entity const* treeRoot_;
  std::unordered_map<Entity const*, U32> ids_;
  std::vector<Entity const*> unowned_;
  std::string bytes_;
};

// The bytes of a log, or of a part of it, that is being read.
class KEL_API AttrLogIn {
 public:
  // Finds the targets of references.
  class Entities {
   public:
    // Both answer null if there is no such entity.
    virtual Entity* byId(U32 id) = 0;
    virtual Entity* byPath(String8 const& path) = 0;

   protected:
    ~Entities() = default;
  };

  // Reads the bytes from `from` to `end`. REQUIRES: `log` and `entities` outlive it.
  AttrLogIn(std::string_view log, std::size_t from, std::size_t end, Entities* entities = nullptr)
      : log_(log), at_(from), item_(from), end_(end), entities_(entities) {}

  template <class T>
  T get() {
    return std::bit_cast<T>(static_cast<BitsOf<T>>(getBits(sizeof(T))));
  }
  bool getBool();
  std::string_view getText();
  // Reads a reference to an entity of that type, or of a derived one.
  Entity* reference(KelType const* wanted);
  // The number in the next reference, if it has one. Reads nothing.
  std::optional<U32> referredId() const;
  // Reads a null reference, the only one that a pointer to a counted object other than an entity can have.
  void wantNull(KelType const* wanted);

  std::size_t offset() const { return at_; }
  bool atEnd() const { return at_ == end_; }
  // Raises AttrLogRecordException, or AttrLogEntityException, at the offset of what was read last.
  [[noreturn, gnu::cold]] void throwRecord(String8 const& what) const;
  [[noreturn, gnu::cold]] void throwEntity(String8 const& what) const;

 private:
  // The next bytes. Raises if there are fewer.
  char const* takeBytes(std::size_t bytes);
  U64 getBits(std::size_t bytes);

  std::string_view log_;
  std::size_t at_;
  std::size_t item_;  // the beginning of what was read last
  std::size_t end_;
  Entities* entities_;
};

[[noreturn, gnu::cold]] KEL_API void throwAttrLogRecord(std::size_t offset, String8 const& what);
[[noreturn, gnu::cold]] KEL_API void throwAttrLogEntity(std::size_t offset, String8 const& what);

// Write and read one value of a type.
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
    in.throwRecord("a character pointer cannot be read");
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
