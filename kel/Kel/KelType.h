// Type and attribute records.
//
// Every type of the framework and of a model has one `KelType`. It is made on first use and registered by name; after
// that it is never changed or destroyed, and may be read on any thread. It lists the type's attributes by id, and in
// the order of the *attribute queue*: constructor parameters first, then the others in the order of declaration,
// inherited attributes before own ones. Ids count from 0; a derived type continues the ids of its base.
#pragma once

#include <iosfwd>
#include <vector>

#include "Kel/Atomic.h"
#include "Kel/Ptr.h"
#include "Kel/String8.h"

namespace Kel {

class AttrAccess;
class AttrLogIn;
class Dir;
class Entity;
class GenericIf;
class KelAttr;
class KelNboAttrLogSa;
class KelType;

// Operations on the values of a type, for code that does not know the type at compile time.
struct ValueOps {
  void (*print)(void const* value, std::ostream& out);
  String8 (*strep)(void const* value);
  // Reads a value's strep and advances `begin`; raises RangeException.
  Ptr<GenericIf> (*parse)(char const*& begin, char const* end);
  Ptr<GenericIf> (*box)(void const* value);
  bool (*equal)(void const* a, void const* b);  // null: the type has no comparison operator
  Ptr<GenericIf> (*initial)();                  // the value that a declaration without one starts with
  Ptr<GenericIf> (*read)(AttrLogIn& in);        // from an attribute log
};

// In what plain content two entities of one type differ: a bit for each attribute, see plainBit.
using PlainDifferences = U64 (*)(Entity const& a, Entity const& b);

// Operations on the entries of a type. Entries are children that a path names without an attribute, "/name"; they may
// be of any type. Directories have entries.
struct EntryOps {
  // Whether a child of an entity of the type is an entry.
  bool (*isEntry)(Entity const& child);
  // The entry of that name, or null.
  Entity const* (*find)(Entity const& owner, std::string_view name);
  // Whether the name of some entry begins with `prefix`.
  bool (*anyNameBegins)(Entity const& owner, std::string_view prefix);
};

// A function that answers a record. Records refer to each other in cycles, so a record keeps such functions, and looks
// up the other record when it is first needed.
using TypeFunction = KelType const* (*)();

// An argument of a callable attribute or of a constructor.
struct KelArg {
  String8 name;
  TypeFunction typeFunction;
  bool pointer;
  KelType const* type() const { return typeFunction(); }
};

// The constructor arguments of what an instantiating attribute creates.
class KEL_API KelConstraint {
 public:
  explicit KelConstraint(std::vector<KelArg> const& args) : args_(args) {}
  // The n-th argument, or null past the last.
  KelArg const* argPtr(unsigned int n) const { return n < args_.size() ? &args_[n] : nullptr; }
  unsigned int args() const { return static_cast<unsigned int>(args_.size()); }

 private:
  std::vector<KelArg> const& args_;
};

// A link to the record of another type, which is looked up once.
class TypeLink {
 public:
  TypeLink() = default;
  void functionIs(TypeFunction function) { function_ = function; }
  KelType const* get() const {
    KelType const* type = type_.load(Order::acquire);
    if (!type && function_) type_.store(type = function_(), Order::release);
    return type;
  }

 private:
  friend struct DebugLayout;
  TypeFunction function_ = nullptr;
  mutable Atomic<KelType const*> type_{nullptr};
};

// The flags of an attribute that the reflective interface shows.
class KEL_API KelAttrIntrospectionFlags {
 public:
  enum Flag : U8 { writable = 1, logging = 2, instantiating = 4, pointer = 8, function = 16, ctorParam = 32 };
  // Raises RangeException "KelAttrIntrospectionFlags::value > 0x3f not allowed".
  KelAttrIntrospectionFlags(unsigned int value);
  U8 value() const { return value_; }
  bool has(Flag flag) const { return (value_ & flag) != 0; }

 private:
  U8 value_;
};

// The record of an attribute.
class KEL_API KelAttr final : public PtrInterface {
 public:
  using Ptr = Kel::Ptr<KelAttr>;
  using PtrConst = Kel::Ptr<KelAttr const>;
  enum class Collection : U8 { none, hashMap, orderedMap, queue };

  String8 const& name() const { return name_; }
  // "Cli::Session::Status::root", for messages.
  String8 const& fullName() const { return fullName_; }
  AttributeId id() const { return id_; }
  KelType const* ownerType() const { return owner_; }

  // The type of the value, or of the entity that is owned or pointed at; of a collection's members; of a call's result
  // (null: none).
  KelType const* type() const { return type_.get(); }
  // The type of a collection's keys (a queue's index); null for anything else.
  KelType const* keyType() const { return keyType_.get(); }
  // Whether the keys are pointers to entities.
  bool keyIsPtr() const { return keyIsPtr_; }

  Collection collectionKind() const { return collection_; }
  bool isCollection() const { return collection_ != Collection::none; }
  bool isQueue() const { return collection_ == Collection::queue; }
  // Whether the attribute holds values: builtins, enumerators or values of value types.
  bool isValue() const;
  // Whether it owns entities.
  bool isEntity() const;
  // Whether it holds pointers to entities that are owned elsewhere.
  bool isPtr() const { return flags_.has(KelAttrIntrospectionFlags::pointer); }
  // Whether it is an operation, which can be called.
  bool isFunction() const { return flags_.has(KelAttrIntrospectionFlags::function); }
  // Whether its pointers lead to const entities.
  bool isConstPtr() const { return constPtr_; }
  // Whether the model declares it `const`.
  bool isConstant() const { return constant_; }

  // Whether it creates and owns its entities.
  bool instantiating() const { return flags_.has(KelAttrIntrospectionFlags::instantiating); }
  bool writable() const { return flags_.has(KelAttrIntrospectionFlags::writable); }
  // Whether copies and attribute logs carry it.
  bool logging() const { return flags_.has(KelAttrIntrospectionFlags::logging); }
  // Whether it is a constructor parameter.
  bool ctorParam() const { return flags_.has(KelAttrIntrospectionFlags::ctorParam); }
  // Logging, writable and no constructor parameter.
  bool copiable() const { return logging() && writable() && !ctorParam(); }
  // Its bit in `KelType::plainDifferences` of its owner; 0 if it does not take part.
  U64 plainBit() const { return plain_ ? Kel::plainBit(id_) : 0; }
  KelAttrIntrospectionFlags flags() const { return flags_; }

  // The constructor arguments of what the attribute creates. REQUIRES: instantiating().
  KelConstraint constraint() const;
  // The arguments of an operation; empty for any other attribute.
  std::vector<KelArg> const& args() const { return args_; }

  // How the attribute of an object is reached; for the framework's own use.
  AttrAccess const& access() const { return *access_; }
  // The model's `onChange` operation; null if there is none.
  void (*afterChange() const)(Entity&) { return afterChange_; }

 private:
  friend struct DebugLayout;
  friend class TypeBuilderBase;
  KelAttr(AttrAccess const* access) : access_(access) { isNondestructingIs(true); }

  String8 name_, fullName_;
  KelType const* owner_ = nullptr;
  TypeLink type_, keyType_;
  AttributeId id_ = noAttribute;
  KelAttrIntrospectionFlags flags_ = 0;
  Collection collection_ = Collection::none;
  bool keyIsPtr_ = false, constPtr_ = false, constant_ = false, plain_ = false;
  // For debuggers, which cannot call `access_`: where in the object the content lies, whether that is a CounterMap, and
  // the value that the attribute starts with.
  bool counts_ = false;
  static constexpr U32 nowhere = 0xffffffff;
  U32 offset_ = nowhere;
  void const* initial_ = nullptr;
  std::vector<KelArg> args_;
  AttrAccess const* access_;
  void (*afterChange_)(Entity&) = nullptr;
};

// Prints the attribute's full name.
KEL_API std::ostream& operator<<(std::ostream& out, KelAttr const& attr);

// The record of a type.
class KEL_API KelType final : public PtrInterface {
 public:
  enum class Kind : U8 { builtin, enumeration, value, entity, object };
  enum class Builtin : U8 {
    none,
    boolT,
    charT,
    s8,
    u8,
    s16,
    u16,
    s32,
    u32,
    longT,
    s64,
    u64,
    f32,
    f64,
    charPtr,
    constCharPtr,
    string
  };

  // The registered type of that full name, or null.
  static KelType const* find(String8 const& fullTypeName);

  String8 const& name() const { return name_; }
  String8 const& fullTypeName() const { return fullName_; }
  Kind kind() const { return kind_; }
  Builtin builtin() const { return builtin_; }
  bool isEntity() const { return kind_ == Kind::entity; }
  bool isEnum() const { return kind_ == Kind::enumeration; }
  bool isBuiltin() const { return kind_ == Kind::builtin; }
  // A builtin, an enumeration or a value type.
  bool isValue() const { return kind_ <= Kind::value; }
  // Whether it is an entity type that cannot be created.
  bool isAbstract() const { return !construct_ && isEntity(); }
  // The type from which an entity type is derived; null for none.
  KelType const* base() const { return base_; }
  // The types that are derived directly from this one, as a list: the first, and from each the next; null at the end.
  // The list has all types that have a record by now, so the type of every entity that exists is in its base's list.
  KelType const* firstDerived() const { return firstDerived_.load(Order::acquire); }
  KelType const* nextDerived() const { return nextDerived_; }
  bool hasDerived() const { return firstDerived() != nullptr; }
  // Whether this type is `other` or derived from it. Cost: the number of bases.
  bool isA(KelType const* other) const;

  // The n-th attribute of the attribute queue, null past the end.
  KelAttr const* attributeQ(unsigned int n) const { return n < queue_.size() ? queue_[n] : nullptr; }
  std::vector<KelAttr const*> const& attributeQ() const { return queue_; }
  // By id; null when there is none.
  KelAttr const* attr(AttributeId id) const { return id < attrs_.size() ? attrs_[id] : nullptr; }
  // By name. If there is none, `findAttr` answers null, and `getAttr` raises UnknownAttrException. Cost: a hash
  // look-up.
  KelAttr const* findAttr(std::string_view name) const;
  KelAttr const* getAttr(std::string_view name) const;

  // The constructor parameters of an entity type, in order.
  std::vector<KelArg> const& ctorArgs() const { return ctorArgs_; }
  // The types that are declared inside this one.
  std::vector<KelType const*> const& nestedTypes() const { return nested_; }

  // Whether a value type converts implicitly to the type of its representation.
  bool autoconvertToRepType() const { return autoconvert_; }
  // The representation of a `rep value`, or null.
  KelAttr const* valAttr() const { return valAttr_; }
  ValueOps const& valueOps() const { return ops_; }

  // An enumerator.
  struct Enumerator {
    String8 name;
    S32 value;
  };
  // The enumerators, in the order of the model.
  std::vector<Enumerator> const& enumerators() const { return enumerators_; }

  // Whether an entity of the type can be made from a name.
  bool isMadeByName() const;
  // A new entity of this type with that name. If a directory is given, the entity becomes an entry of it. Further
  // constructor parameters get their defaults, except that a second one of type `ref Kel::Dir` gets the directory.
  // Raises TypeException if the type cannot be made from a name, NameInUseException if the name is taken.
  Ptr<Entity> newEntity(Name const& name, Dir* dir = nullptr) const;
  // The same, but the entity does not become an entry.
  Ptr<Entity> newEntityFor(Name const& name, Dir* dir) const;
  // A new entity whose constructor arguments are all defaults: null pointers, first enumerators, default values.
  Ptr<Entity> newDefault() const;
  // A new entity from all its constructor arguments in order. Raises TypeException, UnknownArgException.
  Ptr<Entity> newEntity(std::vector<Ptr<GenericIf const>> const& args) const;

  // How objects of the type are streamed; see AttrLog.h.
  KelNboAttrLogSa const& attrLogSa() const { return *attrLogSa_; }

  // The reflective interface of an object of this type; null for null. Raises TypeException if it is of another type.
  Ptr<GenericIf> genericIf(Ptr<Entity> const& object) const;
  Ptr<GenericIf const> genericIf(Ptr<Entity const> const& object) const;
  // The reflective interface of a value of this type, which is copied. REQUIRES: `isValue` is true, and `value` points
  // at a value of exactly this type.
  Ptr<GenericIf> genericIf(void const* value, bool isValue = true) const;
  // Reads plain text, without quotes: a number, the name of an enumerator, a boolean ("true", "false", "True",
  // "False"). Reads a value type from its strep. Raises RangeException, whose message says what was expected.
  Ptr<GenericIf> genericFromText(std::string_view text) const;

  // For the framework and the copy engine. Whether two entities of this type, or of types derived from it, have equal
  // constructor parameters of this type; a new entity with the parameters of another one. Null if a parameter is a
  // pointer.
  bool (*paramsEqual() const)(Entity const& a, Entity const& b) { return paramsEqual_; }
  Entity* (*createLike() const)(Entity const& like) { return createLike_; }
  // As paramsEqual, but without the first parameter, which a queue gives its members.
  bool (*furtherParamsEqual() const)(Entity const& a, Entity const& b) { return furtherParamsEqual_; }
  // In what plain content two entities of this type differ: a bit for each copiable attribute that holds values, single
  // or in collections, inherited ones included. Left out are attributes without a comparison, attributes that are keyed
  // by pointers, and `counter` collections; KelAttr::plainBit tells. Null if the type has no plain content.
  PlainDifferences plainDifferences() const { return plainDifferences_; }
  // The attributes that own entities; those that hold pointers; whether anything below may hold pointers.
  std::vector<KelAttr const*> const& ownAttrs() const { return ownAttrs_; }
  std::vector<KelAttr const*> const& ptrAttrs() const { return ptrAttrs_; }
  bool pointersBelow() const noexcept;
  // How the entries of an entity of this type are found; null if it has none.
  EntryOps const* entries() const { return entries_; }

 private:
  friend struct DebugLayout;
  friend class TypeBuilderBase;
  friend struct TypeRegistration;
  KelType() { isNondestructingIs(true); }

  static void makeFrameworkTypes();
  // Orders and indexes the attributes, and registers the record.
  void complete();
  // Looks up the types that the attributes refer to; see KelAttr::type.
  void resolveLinks() const;
  // The name, then defaults for the further parameters. Raises TypeException if the type cannot be made from a name.
  std::vector<Ptr<GenericIf const>> argsForName(Name const& name) const;

  String8 name_, fullName_;
  Kind kind_ = Kind::builtin;
  Builtin builtin_ = Builtin::none;
  bool autoconvert_ = false;
  mutable Atomic<S8> pointersBelow_{-1};
  mutable Atomic<KelType const*> firstDerived_{nullptr};
  KelType const* nextDerived_ = nullptr;
  KelType const* base_ = nullptr;
  std::vector<KelAttr const*> attrs_, queue_, ownAttrs_, ptrAttrs_;
  std::vector<KelArg> ctorArgs_;
  std::vector<KelType const*> nested_;
  std::vector<Enumerator> enumerators_;
  KelAttr const* valAttr_ = nullptr;
  ValueOps ops_{};
  EntryOps const* entries_ = nullptr;
  struct NameIndex;
  NameIndex const* index_ = nullptr;
  KelNboAttrLogSa const* attrLogSa_ = nullptr;
  Ptr<Entity> (*construct_)(std::vector<Ptr<GenericIf const>> const& args, KelType const& type) = nullptr;
  bool (*paramsEqual_)(Entity const&, Entity const&) = nullptr;
  bool (*furtherParamsEqual_)(Entity const&, Entity const&) = nullptr;
  Entity* (*createLike_)(Entity const&) = nullptr;
  PlainDifferences plainDifferences_ = nullptr;
};

// Prints the type's full name.
KEL_API std::ostream& operator<<(std::ostream& out, KelType const& type);

// Registers a type when its library is loaded, so that it can be found by name. Its record is made before the first
// entity of the process, so that no operation on entities, least of all their destruction, has to make one.
struct KEL_API TypeRegistration {
  explicit TypeRegistration(TypeFunction fwkType);
  // Whether some registered types may have no record yet.
  static bool pending() { return pending_.load(Order::acquire); }
  // Makes the records of all registered types.
  static void makeRecords();

 private:
  static Atomic<bool> pending_;
};

// The record of a C++ type: a builtin, a value type or enumeration of a model, an entity type, or a counted object of
// the framework.
template <class T>
struct TypeOf {
  static KelType const* type() {
    if constexpr (std::is_enum_v<T>)
      return _fwkType(T{});
    else
      return T::_fwkType();
  }
};

KEL_API KelType const* builtinType(KelType::Builtin builtin);
template <>
struct KEL_API TypeOf<KelAttr> {
  static KelType const* type();
};
template <>
struct KEL_API TypeOf<GenericIf> {
  static KelType const* type();
};
template <>
struct TypeOf<void> {
  static KelType const* type() { return nullptr; }
};

// clang-format off
#define KEL_BUILTIN(T, which)                                                              \
  template <> struct TypeOf<T> {                                                           \
    static constexpr KelType::Builtin builtin = KelType::Builtin::which;                   \
    static KelType const* type() { return builtinType(builtin); }                          \
  };
KEL_BUILTIN(bool, boolT) KEL_BUILTIN(char, charT) KEL_BUILTIN(S8, s8) KEL_BUILTIN(U8, u8) KEL_BUILTIN(S16, s16)
KEL_BUILTIN(U16, u16) KEL_BUILTIN(S32, s32) KEL_BUILTIN(U32, u32) KEL_BUILTIN(long, longT) KEL_BUILTIN(S64, s64)
KEL_BUILTIN(U64, u64) KEL_BUILTIN(F32, f32) KEL_BUILTIN(F64, f64) KEL_BUILTIN(char*, charPtr)
KEL_BUILTIN(char const*, constCharPtr) KEL_BUILTIN(String8, string)
#undef KEL_BUILTIN
    // clang-format on

    template <class T>
    concept BuiltinType = requires {
  TypeOf<T>::builtin;
};

}  // namespace Kel
