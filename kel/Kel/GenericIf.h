// The reflective interface.
//
// A `GenericIf` is a counted object that stands for a value (builtin, enumerator, value type), an entity (mutable or
// const), another counted object of the framework, or a list of these. It holds scalars, enumerators and strings
// inline, and refers to entities and larger values. It reads and writes any attribute of any type by id, with the same
// effects, reactors included, as the generated accessors. Look an id up once, with `attributeId`.
//
// The message of an exception names the type and the attribute. UnknownAttrException: there is no such attribute.
// TypeException: the value is of another type. BadIndexAttrException: the key is missing, not wanted, or of another
// type. ConstException: a write through a handle to const. OpNotSupportedException: this kind of attribute does not
// have the operation. UnknownArgException: wrong arguments of a call. Also NameInUseException and RangeException. A
// failed write changes nothing.
#pragma once

#include <utility>
#include <vector>

#include "Kel/Exception.h"
#include "Kel/KelType.h"

namespace Kel {

class IteratorRoom;
struct DebugLayout;

// Holds a value of a value type behind a GenericIf.
struct KEL_API ValueHolder : VFPtrInterface {
  // The value, of the type that its GenericIf has.
  virtual void const* value() const = 0;
};

// An operation on an attribute beyond set and delete.
enum class AttributeOp : U8 {
  increment,  // xInc(), or a counter collection's member
  deleteAll,  // xDelAll()
  notify,     // xNotify()
  create,     // newX: as attributeIs, but a taken key raises NameInUseException
};

// An object of any type, seen without its C++ type.
class KEL_API GenericIf final : public VFPtrInterface {
 public:
  using Ptr = Kel::Ptr<GenericIf>;
  using PtrConst = Kel::Ptr<GenericIf const>;
  class List;
  class AttributeIterator;
  // The arguments of a call, by name, in any order.
  using Args = std::vector<std::pair<String8, PtrConst>>;

  // Makes one from a builtin, an enumerator or a value of a value type, which is copied. The type is exactly T: for an
  // attribute of type U32, `of(Kel::U32(1))`.
  template <class T>
  static Ptr of(T const& value);
  // Makes one from an entity or another counted object, which it keeps alive; null gives null.
  static Ptr ofEntity(Kel::Ptr<Entity> const& entity);
  static PtrConst ofEntity(Kel::Ptr<Entity const> const& entity);
  static Ptr ofObject(KelType const* type, Kel::Ptr<PtrInterface const> const& object);
  // Makes one from an enumerator. REQUIRES: `type` is an enumeration.
  static Ptr ofEnum(KelType const* type, S32 value);
  // For the framework: one that shares a value that is held already.
  static Ptr ofHolder(KelType const* type, Kel::Ptr<ValueHolder> const& holder);

  // The type of what it holds; for an entity, its own, most derived type. Null for a list.
  KelType const* type() const { return type_; }
  // Whether it is read-only.
  bool isConst() const { return const_; }
  bool isEntity() const { return entity_ != nullptr; }
  bool isList() const { return list_ != nullptr; }
  // The entity; null for anything else. `entity` is also null for a const entity.
  Kel::Ptr<Entity> entity() const;
  Kel::Ptr<Entity const> entityConst() const;
  // The counted object that it keeps alive: the entity, the holder of a value, or another object; null for none.
  PtrInterface const* object() const { return object_.ptr(); }
  // The number of the enumerator. REQUIRES: the type is an enumeration.
  S32 enumValue() const { return scalar_.s32; }
  // The list, or null.
  List const* list() const { return list_; }

  // A pointer to the builtin if it is exactly of type T, else null.
  template <class T>
  T const* attrValPtr() const;
  // The value. Raises TypeException if it is not exactly of type T.
  template <class T>
  T attrVal() const;
  // The value. REQUIRES: it is exactly of type T.
  template <class T>
  T held() const;
  // The bytes of a value of a value type.
  void const* heldValue() const { return static_cast<ValueHolder const*>(object_.ptr())->value(); }

  // Compares two values of one type by the type's own comparison. Raises NoImplementationException if it has none,
  // TypeException if the types differ.
  bool valueEqual(GenericIf const& other) const;
  // The plain text of a value, the full name of an entity.
  String8 text() const;
  // The text form that can be parsed again; see Strep.h.
  String8 strep() const;

  // The id of the attribute of that name. Raises UnknownAttrException.
  AttributeId attributeId(String8 const& name) const;
  // The record of the attribute, or null.
  KelAttr const* attr(AttributeId id) const;
  // The value of an attribute, or the member under a key; null for a null pointer and for a member that is not there.
  // The key is null if the attribute is not a collection. The key of a queue is its index.
  Ptr attribute(AttributeId id, PtrConst const& key = nullptr);
  PtrConst attribute(AttributeId id, PtrConst const& key = nullptr) const;
  // Sets the attribute, or sets or creates the member under the key. A null value clears a pointer. For an
  // instantiating attribute, the value is a `List` of the constructor arguments, or null if the key is the only one. A
  // member with the same parameters is kept; one with other parameters is replaced.
  void attributeIs(AttributeId id, PtrConst const& key, PtrConst const& value) const;
  // Deletes the member under the key, resets a value to its default, clears a pointer, or deletes a singleton. If there
  // is nothing to delete, does nothing.
  void attributeDel(AttributeId id, PtrConst const& key = nullptr) const;
  // Appends to a queue. For owned entities, `value` is a List of the constructor arguments that follow the index.
  void attributeSQEnq(AttributeId id, PtrConst const& value) const;
  // Removes the oldest member of a queue. Raises RangeException "linkqueue index out of range" if it is empty.
  void attributeSQDeq(AttributeId id) const;
  // Performs one of the operations of `AttributeOp`.
  void attributeOp(AttributeOp op, AttributeId id, PtrConst const& key = nullptr,
                   PtrConst const& value = nullptr) const;
  // Calls an operation. Answers its result; null if it has none.
  Ptr attributeCall(AttributeId id, Args const& args) const;

  // Over the members of a collection. `...Const` gives members that are read-only.
  AttributeIterator attributeIterator(AttributeId id);
  AttributeIterator attributeIterator(AttributeId id) const;
  AttributeIterator attributeIteratorConst(AttributeId id) const;
  // The same, on the member under a key; on no member if the key is absent. Where keys are pointers, null is a key,
  // too; finding it takes time in proportion to the members.
  AttributeIterator attributeIteratorKey(AttributeId id, PtrConst const& key) const;
  AttributeIterator attributeIteratorKeyConst(AttributeId id, PtrConst const& key) const;
  // The number of members of a collection.
  U32 attributeCount(AttributeId id) const;

  // Prints an attribute: the text of a value, the full name of a pointer's target, the members of a collection in
  // brackets.
  String8 attributeString(AttributeId id) const;

  ~GenericIf() override;

 protected:
  explicit GenericIf(KelType const* type, bool isConst) : type_(type), const_(isConst) {}

 private:
  friend struct DebugLayout;
  friend class List;
  struct Attr;  // an attribute of this object, checked
  [[noreturn, gnu::cold]] void throwNotOfType(KelType const* expected) const;
  KelAttr const& checked(AttributeId id) const;
  KelAttr const& checkedCollection(AttributeId id) const;
  Entity& writableEntity(KelAttr const& attr) const;
  void const* base() const;

  KelType const* type_;
  Entity const* entity_ = nullptr;
  List* list_ = nullptr;
  bool const_;
  Kel::Ptr<PtrInterface const> object_;  // keeps the entity, the value or the object
  String8 string_;
  union Scalar {
    bool boolT;
    char charT;
    Kel::S8 s8;
    Kel::U8 u8;
    Kel::S16 s16;
    Kel::U16 u16;
    Kel::S32 s32;
    Kel::U32 u32;
    long longT;
    Kel::S64 s64;
    Kel::U64 u64 = 0;
    Kel::F32 f32;
    Kel::F64 f64;
    char* charPtr;
    char const* constCharPtr;
  } scalar_;

  template <class T, class Self>
  static auto* slot(Self* self);
};

// An ordered list of reflective objects, such as the constructor arguments of an entity to be made.
class KEL_API GenericIf::List : public VFPtrInterface {
 public:
  using Ptr = Kel::Ptr<List>;
  List() = default;
  // Appends.
  void objectEnq(GenericIf::PtrConst const& object) { objects_.push_back(object); }
  std::vector<GenericIf::PtrConst> const& objects() const { return objects_; }
  U32 size() const { return static_cast<U32>(objects_.size()); }
  // The list as a reflective object, for attributeIs. REQUIRES: the list does not change afterwards.
  static GenericIf::Ptr genericIf(Ptr const& list);

 private:
  friend struct Kel::DebugLayout;
  std::vector<GenericIf::PtrConst> objects_;
};

// An iterator over a collection attribute. It keeps the owner alive. If the member that it is on is deleted, in
// whatever way, it can still be advanced.
class KEL_API GenericIf::AttributeIterator {
 public:
  // For the framework. On the member under the key, or on the first one if there is no key.
  AttributeIterator(GenericIf::PtrConst owner, KelAttr const* attr, GenericIf const* key, bool isConst);
  AttributeIterator(AttributeIterator const& o);
  AttributeIterator(AttributeIterator&& o) noexcept;
  AttributeIterator& operator=(AttributeIterator o) noexcept;
  ~AttributeIterator();

  // Whether it is on a member.
  bool attributeIterator_nonNull() const;
  GenericIf::PtrConst attributeIterator_iterKey() const;  // null for a null pointer key
  GenericIf::Ptr attributeIterator_iterObj() const;       // null for a null pointer member
  // Moves on to the next member.
  void attributeIterator_iterInc();
  AttributeIterator attributeIterator_iterClone() const { return *this; }
  // Deletes the member that it is on. Raises ConstException for a read-only iterator.
  void attributeIterator_iterDel();

  // The same, in short.
  explicit operator bool() const { return attributeIterator_nonNull(); }
  GenericIf::PtrConst key() const { return attributeIterator_iterKey(); }
  GenericIf::Ptr obj() const { return attributeIterator_iterObj(); }
  AttributeIterator& operator++() {
    attributeIterator_iterInc();
    return *this;
  }

 private:
  GenericIf::PtrConst owner_;
  KelAttr const* attr_;
  IteratorRoom* room_;  // owned; null when it was moved from
  bool const_;
};

// Prints the text of a value, the full name of an entity, or "<null>".
KEL_API std::ostream& operator<<(std::ostream& out, GenericIf::PtrConst const& object);

// --- Implementation of the templates ---

// Holds a V.
template <class V>
struct ValueHolderOf final : ValueHolder {
  explicit ValueHolderOf(V const& v) : held(v) {}
  void const* value() const override { return &held; }
  V held;
};

template <class T, class Self>
auto* GenericIf::slot(Self* self) {
  auto& s = self->scalar_;
  if constexpr (std::is_same_v<T, String8>)
    return &self->string_;
  else if constexpr (std::is_same_v<T, bool>)
    return &s.boolT;
  else if constexpr (std::is_same_v<T, char>)
    return &s.charT;
  else if constexpr (std::is_same_v<T, Kel::S8>)
    return &s.s8;
  else if constexpr (std::is_same_v<T, Kel::U8>)
    return &s.u8;
  else if constexpr (std::is_same_v<T, Kel::S16>)
    return &s.s16;
  else if constexpr (std::is_same_v<T, Kel::U16>)
    return &s.u16;
  else if constexpr (std::is_same_v<T, Kel::S32>)
    return &s.s32;
  else if constexpr (std::is_same_v<T, Kel::U32>)
    return &s.u32;
  else if constexpr (std::is_same_v<T, long>)
    return &s.longT;
  else if constexpr (std::is_same_v<T, Kel::S64>)
    return &s.s64;
  else if constexpr (std::is_same_v<T, Kel::U64>)
    return &s.u64;
  else if constexpr (std::is_same_v<T, Kel::F32>)
    return &s.f32;
  else if constexpr (std::is_same_v<T, Kel::F64>)
    return &s.f64;
  else if constexpr (std::is_same_v<T, char*>)
    return &s.charPtr;
  else
    return &s.constCharPtr;
}

template <class T>
GenericIf::Ptr GenericIf::of(T const& value) {
  if constexpr (BuiltinType<T>) {
    Ptr made(new GenericIf(TypeOf<T>::type(), false));
    *slot<T>(made.ptr()) = value;
    return made;
  } else if constexpr (std::is_enum_v<T>) {
    return ofEnum(TypeOf<T>::type(), static_cast<Kel::S32>(value));
  } else {
    return ofHolder(TypeOf<T>::type(), Kel::Ptr<ValueHolder>(new ValueHolderOf<T>(value)));
  }
}

template <class T>
T const* GenericIf::attrValPtr() const {
  static_assert(BuiltinType<T>);
  return type_ == TypeOf<T>::type() ? slot<T>(this) : nullptr;
}

template <class T>
T GenericIf::attrVal() const {
  if (type_ != TypeOf<T>::type()) throwNotOfType(TypeOf<T>::type());
  return held<T>();
}

template <class T>
T GenericIf::held() const {
  if constexpr (BuiltinType<T>)
    return *slot<T>(this);
  else if constexpr (std::is_enum_v<T>)
    return static_cast<T>(scalar_.s32);
  else
    return *static_cast<T const*>(heldValue());
}

}  // namespace Kel
