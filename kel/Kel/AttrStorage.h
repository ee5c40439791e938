// The kinds of attribute storage; see AttrAccess.h. One template a kind, instantiated by the type of what is stored, so
// that attributes of the same type share code and differ in where in the object they lie. Here: values, pointers and
// singletons; collections are in AttrMaps.h and AttrQueues.h, operations in AttrCalls.h.
#pragma once

#include "Kel/AttrAccess.h"
#include "Kel/AttrLogStream.h"
#include "Kel/Box.h"

namespace Kel {

// After a write that changed something: reactors, then the operation that the model hangs on the attribute.
inline void changed(KelAttr const& attr, Entity& e, void const* key = nullptr) {
  e.notify(attr.id(), key);
  if (auto* after = attr.afterChange()) after(e);
}

[[noreturn]] KEL_API void throwKeyWanted(KelAttr const& attr);
[[noreturn]] KEL_API void throwKeyType(KelAttr const& attr, KelType const* expected);
[[noreturn]] KEL_API void throwNoKeyWanted(KelAttr const& attr);
[[noreturn]] KEL_API void throwNullMember(KelAttr const& attr);
[[noreturn]] KEL_API void throwTaken(KelAttr const& attr, String8 const& key);
[[noreturn]] KEL_API void throwWrongEntity(KelAttr const& attr, Entity const& given);
inline void wantNoKey(KelAttr const& attr, GenericIf const* key) {
  if (key) throwNoKeyWanted(attr);
}
// Whether two entities of the same type have the same constructor parameters; pointers are the same when their targets
// are.
KEL_API bool sameParams(Entity const& a, Entity const& b);
// For messages; a null key is the key of a collection keyed by pointers.
inline String8 keyText(GenericIf::PtrConst const& key) { return key ? key->text() : String8("<null>"); }
// The arguments of a creation: those of a list, the one value, or the key alone.
KEL_API std::vector<GenericIf::PtrConst> creationArgs(KelAttr const& attr, GenericIf const* key,
                                                      GenericIf const* value);

// A key to look something up by; a null reflective object is a null pointer key. To find what is held under a pointer a
// read-only handle to it will do.
template <class K>
K unboxKey(KelAttr const& attr, GenericIf const* key) {
  if constexpr (isPtrType<K>) {
    using Target = typename PtrTraits<K>::target;
    if constexpr (std::is_base_of_v<Entity, Target>)
      if (key && !(key->isEntity() && key->type()->isA(TypeOf<Target>::type()))) throwKeyType(attr, typeOfArg<K>());
    return K(const_cast<Target*>(unbox<Ptr<Target const>>(key, attr.fullName()).ptr()));
  } else {
    if (!key) throwKeyWanted(attr);
    if (key->type() != TypeOf<K>::type()) throwKeyType(attr, TypeOf<K>::type());
    return key->attrVal<K>();
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

// An entity that was read, as what the attribute owns.
template <class E>
Ptr<E> restored(KelAttr const& attr, Ptr<Entity> const& child) {
  if (!child->type()->isA(TypeOf<E>::type())) throwWrongEntity(attr, *child);
  return Ptr<E>(static_cast<E*>(child.ptr()));
}

// One value.
template <class V>
class KEL_API ValueAccess final : public AttrAccess {
 public:
  // Where in an entity the value lies, for loops that compare many.
  V Entity::*slot() const { return slot_; }
  V const& initial() const { return initial_; }

  ValueAccess(V Entity::*slot, V initial, bool counter)
      : slot_(slot), initial_(std::move(initial)), counter_(counter) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool) const override {
    wantNoKey(attr, key);
    return box(static_cast<Entity const*>(object)->*slot_);
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
      if (op == AttributeOp::increment && counter_) return assign(attr, e, static_cast<V>(e.*slot_ + 1));
    }
    AttrAccess::op(attr, e, op, key, value);
  }
  bool equal(Entity const& a, Entity const& b) const override {
    if constexpr (requires(V const& v) { v == v; })
      return a.*slot_ == b.*slot_;
    else
      return false;
  }
  void copyValue(KelAttr const& attr, Entity& dest, Entity const& src) const override {
    dest.*slot_ = src.*slot_;
    changed(attr, dest);
  }
  void write(void const* object, AttrLogOut& out) const override {
    streamOut(out, static_cast<Entity const*>(object)->*slot_);
  }
  void read(KelAttr const&, void* object, AttrLogIn& in) const override {
    static_cast<Entity*>(object)->*slot_ = streamIn<V>(in);
  }

 private:
  void assign(KelAttr const& attr, Entity& e, V value) const {
    if constexpr (requires { value == value; })
      if (e.*slot_ == value) return;
    e.*slot_ = std::move(value);
    changed(attr, e);
  }

  V Entity::*slot_;
  V initial_;
  bool counter_;
};

// What never changes: a constant, a constructor parameter, a field of a value.
template <class V>
class ConstantAccess final : public AttrAccess {
 public:
  explicit ConstantAccess(V value) : value_(std::move(value)) {}
  GenericIf::Ptr get(KelAttr const& attr, void const*, GenericIf const* key, bool) const override {
    wantNoKey(attr, key);
    return box(value_);
  }

 private:
  V value_;
};

template <class T, auto Getter>
class GetterAccess final : public AttrAccess {
 public:
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    wantNoKey(attr, key);
    return boxView(of(*static_cast<Entity const*>(object)), constView);
  }
  Entity* single(Entity const& e) const override {
    using P = std::decay_t<decltype(of(e))>;
    if constexpr (isPtrType<P>) {
      if constexpr (std::is_base_of_v<Entity, typename PtrTraits<P>::target>)
        return const_cast<Entity*>(static_cast<Entity const*>(of(e).ptr()));
    }
    return nullptr;
  }
  void write(void const* object, AttrLogOut& out) const override {
    streamOut(out, of(*static_cast<Entity const*>(object)));
  }
  // Parameters stay, but for one that points at an owner of its own entity: the two would keep each other alive.
  void dropPointers(Entity& e) const override {
    using P = std::decay_t<decltype(of(e))>;
    if constexpr (isPtrType<P> && std::is_lvalue_reference_v<decltype(of(e))>) {
      if constexpr (std::is_base_of_v<Entity, typename PtrTraits<P>::target>) {
        P& slot = const_cast<P&>(of(e));
        Entity const* owner = e.parent();
        while (owner && owner != slot.ptr()) owner = owner->parent();
        if (owner) slot = nullptr;
      }
    }
  }

 private:
  static decltype(auto) of(Entity const& e) { return (static_cast<T const&>(e).*Getter)(); }
};

template <class V, auto Getter, auto Setter>
class FieldAccess final : public AttrAccess {
 public:
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool) const override {
    wantNoKey(attr, key);
    return box((static_cast<V const*>(object)->*Getter)());
  }
  void write(void const* object, AttrLogOut& out) const override {
    streamOut(out, (static_cast<V const*>(object)->*Getter)());
  }
  void read(KelAttr const&, void* object, AttrLogIn& in) const override {
    using F = std::decay_t<decltype((std::declval<V const&>().*Getter)())>;
    (static_cast<V*>(object)->*Setter)(streamIn<F>(in));
  }
};

// A pointer to an entity held elsewhere (or to another counted object of the framework). `E` may be const.
template <class E>
class PtrAccess final : public AttrAccess {
 public:
  explicit PtrAccess(Ptr<E> Entity::*slot) : slot_(slot) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    wantNoKey(attr, key);
    return boxView(static_cast<Entity const*>(object)->*slot_, constView);
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    wantNoKey(attr, key);
    assign(attr, e, unbox<Ptr<E>>(value, attr.fullName()));
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    wantNoKey(attr, key);
    assign(attr, e, nullptr);
  }
  bool equal(Entity const& a, Entity const& b) const override { return a.*slot_ == b.*slot_; }
  Entity* single(Entity const& e) const override {
    if constexpr (std::is_base_of_v<Entity, E>)
      return const_cast<Entity*>(static_cast<Entity const*>((e.*slot_).ptr()));
    else
      return nullptr;
  }
  void point(KelAttr const& attr, Entity& e, Entity* target) const override {
    if constexpr (std::is_base_of_v<Entity, E>) assign(attr, e, Ptr<E>(static_cast<E*>(target)));
  }
  void dropPointers(Entity& e) const override { e.*slot_ = nullptr; }
  void write(void const* object, AttrLogOut& out) const override {
    streamOut(out, static_cast<Entity const*>(object)->*slot_);
  }
  void read(KelAttr const&, void* object, AttrLogIn& in) const override {
    static_cast<Entity*>(object)->*slot_ = streamIn<Ptr<E>>(in);
  }

 private:
  void assign(KelAttr const& attr, Entity& e, Ptr<E> target) const {
    if (e.*slot_ == target) return;
    e.*slot_ = std::move(target);
    changed(attr, e);
  }

  Ptr<E> Entity::*slot_;
};

// A single entity that its owner creates.
template <class E>
class SingletonAccess final : public AttrAccess {
 public:
  explicit SingletonAccess(Ptr<E> Entity::*slot) : slot_(slot) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    wantNoKey(attr, key);
    return boxView(static_cast<Entity const*>(object)->*slot_, constView);
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    wantNoKey(attr, key);
    Ptr<Entity> made = TypeOf<E>::type()->newEntity(creationArgs(attr, nullptr, value));
    if (e.*slot_ && sameParams(*(e.*slot_), *made)) return;
    put(attr, e, made);
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    wantNoKey(attr, key);
    if (!(e.*slot_)) return;
    Entity::leaveTree(std::exchange(e.*slot_, nullptr));
    changed(attr, e);
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if (op != AttributeOp::create) return AttrAccess::op(attr, e, op, key, value);
    if (e.*slot_) throwTaken(attr, (e.*slot_)->name());
    put(attr, e, TypeOf<E>::type()->newEntity(creationArgs(attr, nullptr, value)));
  }
  Entity* single(Entity const& e) const override { return (e.*slot_).ptr(); }
  Entity* newLike(KelAttr const& attr, Entity& owner, Entity const& like) const override {
    put(attr, owner, Ptr<Entity>(TypeOf<E>::type()->newLike()(like)));
    return (owner.*slot_).ptr();
  }
  Entity* child(Entity const& e, std::string_view key) const override {
    return key.empty() ? (e.*slot_).ptr() : nullptr;
  }
  void eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const override {
    if (e.*slot_) visit((e.*slot_).ptr(), context);
  }
  void takeChildren(Entity& e, AttrAccess::ChildTaken taken, void* context) const override {
    if (e.*slot_) taken(std::move(e.*slot_), context);
  }
  void write(void const*, AttrLogOut&) const override {}
  void read(KelAttr const&, void*, AttrLogIn&) const override {}
  void restore(KelAttr const& attr, Entity& owner, Ptr<Entity> const& child, U64) const override {
    if (owner.*slot_) throwTaken(attr, (owner.*slot_)->name());
    owner.*slot_ = restored<E>(attr, child);
    owner.adopt(*child, attr.id());
  }

 private:
  void put(KelAttr const& attr, Entity& e, Ptr<Entity> const& made) const {
    if (e.*slot_) Entity::leaveTree(std::exchange(e.*slot_, nullptr));
    e.*slot_ = Ptr<E>(static_cast<E*>(made.ptr()));
    e.adopt(*made, attr.id());
    changed(attr, e);
  }

  Ptr<E> Entity::*slot_;
};

}  // namespace Kel
