// The kinds of attribute storage; see AttrAccess.h. Attributes of the same kind share their code; each access object
// has the attribute's offset in the entity. Single entities, enumerators and fields of values need no code of their own
// types; the storage of builtin types is compiled once, in the framework; a value type adds code to compare and copy
// it.
//
// Here: single values. Pointers and singletons are in AttrEntity.h, collections in AttrOwned.h, AttrMaps.h and
// AttrQueues.h, operations in AttrCalls.h.
#pragma once

#include "Kel/AttrAccess.h"
#include "Kel/AttrLogStream.h"
#include "Kel/Box.h"
#include "Kel/Offset.h"
#include "Kel/Writes.h"

namespace Kel {

// Calls the model's `onChange` operation. Call it after a write that changed something (Writes.h).
inline void afterChange(KelAttr const& attr, Entity& e) {
  if (auto* after = attr.afterChange()) after(e);
}

[[noreturn, gnu::cold]] KEL_API void throwKeyWanted(KelAttr const& attr);
[[noreturn, gnu::cold]] KEL_API void throwKeyType(KelAttr const& attr, KelType const* expected);
[[noreturn, gnu::cold]] KEL_API void throwNoKeyWanted(KelAttr const& attr);
[[noreturn, gnu::cold]] KEL_API void throwNullMember(KelAttr const& attr);
[[noreturn, gnu::cold]] KEL_API void throwForeignKey(KelAttr const& attr);
// The same, for a member that is read from a log.
[[noreturn, gnu::cold]] KEL_API void throwTakenInLog(AttrLogIn const& in, KelAttr const& attr,
                                                     GenericIf::PtrConst const& key);
[[noreturn, gnu::cold]] KEL_API void throwForeignKeyInLog(AttrLogIn const& in, KelAttr const& attr);
[[noreturn, gnu::cold]] KEL_API void throwNullMemberInLog(AttrLogIn const& in, KelAttr const& attr);
[[noreturn, gnu::cold]] KEL_API void throwTaken(KelAttr const& attr, String8 const& key);
[[noreturn, gnu::cold]] KEL_API void throwWrongEntity(KelAttr const& attr, Entity const& given);
// Raises TypeException if an entity that was read is not of the type that the attribute owns.
KEL_API void wantOwnable(KelAttr const& attr, Entity const& given);
inline void wantNoKey(KelAttr const& attr, GenericIf const* key) {
  if (key) throwNoKeyWanted(attr);
}
// Raises BadIndexAttrException if a key is missing or of another type.
KEL_API void wantKey(KelAttr const& attr, GenericIf const* key, KelType const* type);
// Whether two entities have equal constructor parameters; pointers are equal if their targets are the same. REQUIRES:
// the entities are of one type.
KEL_API bool sameParams(Entity const& a, Entity const& b);
// For messages; a null key is the key of a collection keyed by pointers.
inline String8 keyText(GenericIf::PtrConst const& key) { return key ? key->text() : String8("<null>"); }
// The constructor arguments for a new member: the items of a list, a single value, or the key alone.
KEL_API std::vector<GenericIf::PtrConst> creationArgs(KelAttr const& attr, GenericIf const* key,
                                                      GenericIf const* value);

// A key for a look-up; a null reflective object is a null pointer key. For a look-up, a read-only handle is enough.
template <class K>
K unboxKey(KelAttr const& attr, GenericIf const* key) {
  if constexpr (isPtrType<K>) {
    using Target = typename PtrTraits<K>::target;
    if constexpr (std::is_base_of_v<Entity, Target>)
      if (key && !(key->isEntity() && key->type()->isA(TypeOf<Target>::type()))) throwKeyType(attr, typeOfArg<K>());
    return K(const_cast<Target*>(unbox<Ptr<Target const>>(key, attr.fullName()).ptr()));
  } else {
    wantKey(attr, key, TypeOf<K>::type());
    return key->held<K>();
  }
}
// A key to be stored.
template <class K>
K unboxNewKey(KelAttr const& attr, GenericIf const* key) {
  K const any = unboxKey<K>(attr, key);
  if constexpr (isPtrType<K>)
    return unbox<K>(key, attr.fullName());
  else
    return any;
}

// One value of a builtin type.
template <class V>
class ValueAccess final : public AttrAccess {
 public:
  ValueAccess(Offset at, V initial, bool counter) : at_(at), initial_(std::move(initial)), counter_(counter) {}
  V const& initial() const { return initial_; }

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool) const override {
    wantNoKey(attr, key);
    return box(of(*static_cast<Entity const*>(object)));
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    wantNoKey(attr, key);
    assign(attr, e, unbox<V>(value, attr.fullName()));
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    wantNoKey(attr, key);
    assign(attr, e, initial_);
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if constexpr (std::is_integral_v<V> && !std::is_same_v<V, bool>) {
      if (op == AttributeOp::increment && counter_) return assign(attr, e, static_cast<V>(of(e) + 1));
    }
    AttrAccess::op(attr, e, op, key, value);
  }
  bool equal(Entity const& a, Entity const& b) const override { return of(a) == of(b); }
  void copyValue(KelAttr const& attr, Entity& dest, Entity const& src) const override { assign(attr, dest, of(src)); }
  void write(KelAttr const&, void const* object, AttrLogOut& out) const override {
    streamOut(out, of(*static_cast<Entity const*>(object)));
  }
  void read(KelAttr const&, void* object, AttrLogIn& in) const override {
    at_.in<V>(*static_cast<Entity*>(object)) = streamIn<V>(in);
  }

 private:
  V const& of(Entity const& e) const { return at_.in<V>(e); }
  void assign(KelAttr const& attr, Entity& e, V const& value) const {
    if (writeValue(e, at_.in<V>(e), attr.id(), value)) afterChange(attr, e);
  }

  Offset at_;
  V initial_;
  bool counter_;
};
// Compiled in the framework.
extern template class KEL_API ValueAccess<bool>;
extern template class KEL_API ValueAccess<char>;
extern template class KEL_API ValueAccess<S8>;
extern template class KEL_API ValueAccess<U8>;
extern template class KEL_API ValueAccess<S16>;
extern template class KEL_API ValueAccess<U16>;
extern template class KEL_API ValueAccess<S32>;
extern template class KEL_API ValueAccess<U32>;
extern template class KEL_API ValueAccess<S64>;
extern template class KEL_API ValueAccess<U64>;
extern template class KEL_API ValueAccess<F32>;
extern template class KEL_API ValueAccess<F64>;
extern template class KEL_API ValueAccess<String8>;

// One enumerator, of any enumeration.
class KEL_API EnumAccess final : public AttrAccess {
 public:
  EnumAccess(Offset at, S32 initial) : at_(at), initial_(initial) {}
  S32 const& initial() const { return initial_; }
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override;
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override;
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override;
  bool equal(Entity const& a, Entity const& b) const override;
  void copyValue(KelAttr const& attr, Entity& dest, Entity const& src) const override;
  void write(KelAttr const&, void const* object, AttrLogOut& out) const override;
  void read(KelAttr const& attr, void* object, AttrLogIn& in) const override;

 private:
  // Enumerations are based on S32; `may_alias` tells the compiler that an enumerator is accessed as an S32.
  struct [[gnu::may_alias]] Cell {
    S32 value;
  };
  S32 of(Entity const& e) const { return at_.in<Cell>(e).value; }
  void assign(KelAttr const& attr, Entity& e, S32 value) const;

  Offset at_;
  S32 initial_;
};

// One value of a value type: the part that does not depend on the type.
class KEL_API AnyStructAccess : public AttrAccess {
 public:
  explicit AnyStructAccess(Offset at) : at_(at) {}
  // The initial value.
  virtual void const* initial() const = 0;
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override;
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override;
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override;
  void copyValue(KelAttr const& attr, Entity& dest, Entity const& src) const override;
  void write(KelAttr const&, void const* object, AttrLogOut& out) const override;
  void read(KelAttr const& attr, void* object, AttrLogIn& in) const override;

 protected:
  template <class V>
  V const& of(Entity const& e) const {
    return at_.in<V>(e);
  }
  virtual bool writeTo(Entity& e, AttributeId id, void const* value) const = 0;
  // Stores a value without notifying.
  virtual void store(Entity& e, void const* value) const = 0;

  Offset at_;

 private:
  void assign(KelAttr const& attr, Entity& e, void const* value) const;
};
template <class V>
class StructAccess final : public AnyStructAccess {
 public:
  StructAccess(Offset at, V initial) : AnyStructAccess(at), initial_(std::move(initial)) {}
  void const* initial() const override { return &initial_; }
  bool equal(Entity const& a, Entity const& b) const override {
    if constexpr (requires(V const& v) { v == v; })
      return of<V>(a) == of<V>(b);
    else
      return false;
  }

 private:
  bool writeTo(Entity& e, AttributeId id, void const* value) const override {
    return writeValue(e, at_.in<V>(e), id, *static_cast<V const*>(value));
  }
  void store(Entity& e, void const* value) const override { at_.in<V>(e) = *static_cast<V const*>(value); }
  V initial_;
};

// The access to a value of any kind, and the address of its initial value.
struct NewValueAccess {
  AttrAccess const* access;
  void const* initial;
};
template <class V>
NewValueAccess newValueAccess(Offset at, V const& initial, bool counter) {
  if constexpr (BuiltinType<V>) {
    auto const* made = new ValueAccess<V>(at, initial, counter);
    return {made, &made->initial()};
  } else if constexpr (std::is_enum_v<V>) {
    static_assert(sizeof(V) == sizeof(S32));
    auto const* made = new EnumAccess(at, static_cast<S32>(initial));
    return {made, &made->initial()};
  } else {
    auto const* made = new StructAccess<V>(at, initial);
    return {made, made->initial()};
  }
}

// A constant.
class KEL_API ConstantAccess final : public AttrAccess {
 public:
  explicit ConstantAccess(GenericIf::Ptr value) : value_(std::move(value)) {}
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override;

 private:
  GenericIf::Ptr value_;
};

// The constructor parameter that is the entity's name.
class KEL_API NameAccess final : public AttrAccess {
 public:
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override;
  bool equal(Entity const& a, Entity const& b) const override;
  void write(KelAttr const&, void const* object, AttrLogOut& out) const override;
};

// A constructor parameter in a member variable: it is read like an attribute, and never written.
class KEL_API ParamAccess final : public AttrAccess {
 public:
  explicit ParamAccess(AttrAccess const* kept) : kept_(kept) {}
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override;
  bool equal(Entity const& a, Entity const& b) const override;
  Entity* target(Entity const& e) const override;
  void write(KelAttr const&, void const* object, AttrLogOut& out) const override;
  // Clears only a pointer to an owner of its own entity, because the two would keep each other alive.
  bool dropPointers(Entity& e) const override;

 private:
  AttrAccess const* kept_;
};

// A field of a value type, by functions that box it, write it to a log and read it back.
class KEL_API FieldAccess final : public AttrAccess {
 public:
  struct Functions {
    GenericIf::Ptr (*box)(void const* value);
    void (*write)(void const* value, AttrLogOut& out);
    void (*read)(void* value, AttrLogIn& in);
  };
  explicit FieldAccess(Functions const& functions) : functions_(functions) {}
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override;
  void write(KelAttr const&, void const* object, AttrLogOut& out) const override;
  void read(KelAttr const& attr, void* object, AttrLogIn& in) const override;

 private:
  Functions functions_;
};
template <class V, auto Getter, auto Setter>
constexpr FieldAccess::Functions fieldFunctions() {
  using F = std::decay_t<decltype((std::declval<V const&>().*Getter)())>;
  return {[](void const* value) { return box((static_cast<V const*>(value)->*Getter)()); },
          [](void const* value, AttrLogOut& out) { streamOut(out, (static_cast<V const*>(value)->*Getter)()); },
          [](void* value, AttrLogIn& in) { (static_cast<V*>(value)->*Setter)(streamIn<F>(in)); }};
}

}  // namespace Kel
