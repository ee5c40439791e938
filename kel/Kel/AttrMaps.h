// Attribute storage: values and pointers by key; see AttrStorage.h.
#pragma once

#include "Kel/AttrIterators.h"
#include "Kel/AttrStorage.h"
#include "Kel/CounterMap.h"
#include "Kel/HashMap.h"
#include "Kel/RbTreeMap.h"

namespace Kel {

// An entity as the type of pointer that a collection holds.
template <class P>
P pointerTo(Entity* e) {
  return P(static_cast<typename PtrTraits<P>::target*>(e));
}

// Values or pointers by key.
template <class M>
class MapAccess final : public AttrAccess {
  using K = typename M::key_type;
  using V = typename M::mapped_type;

 public:
  MapAccess(Offset at, K (*keyOf)(V const&), bool nonNull) : at_(at), keyOf_(keyOf), nonNull_(nonNull) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    M const& map = of(*static_cast<Entity const*>(object));
    V const* v = map.find(unboxKey<K>(attr, key));
    return v ? boxView(*v, constView) : GenericIf::Ptr();
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    V const v = unbox<V>(value, attr.fullName());
    K const k = key || !keyOf_ ? unboxNewKey<K>(attr, key) : keyOf_(v);
    if (keyOf_ && !(keyOf_(v) == k)) throwForeignKey(attr);
    if constexpr (isPtrType<V>)
      if (nonNull_ && !v) throwNullMember(attr);
    put(attr, e, k, v);
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    if (eraseValue(e, of(e), attr.id(), unboxKey<K>(attr, key))) afterChange(attr, e);
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if (op == AttributeOp::deleteAll) {
      if (eraseValues(e, of(e), attr.id())) afterChange(attr, e);
      return;
    }
    K const k = key || !keyOf_ || !value ? unboxKey<K>(attr, key) : keyOf_(unbox<V>(value, attr.fullName()));
    if (op == AttributeOp::notify) return e.notify(attr.id(), &k);
    if (op == AttributeOp::create) {
      if (of(e).find(k)) throwTaken(attr, keyText(box(k)));
      return set(attr, e, key, value);
    }
    if constexpr (requires(M & m) { m.increment(k); }) {
      incrementCount(e, of(e), attr.id(), k);
      return afterChange(attr, e);
    }
    AttrAccess::op(attr, e, op, key, value);
  }
  AttrIterator& iterate(KelAttr const& attr, Entity const& e, GenericIf const* key, IteratorRoom& room) const override {
    M const& map = of(e);
    return iteratorIn<MemberValue>(room, key ? map.iterator(unboxKey<K>(attr, key)) : map.iterator());
  }
  U32 count(KelAttr const&, Entity const& e) const override { return of(e).members(); }
  bool equal(Entity const& a, Entity const& b) const override {
    if constexpr (requires(V const& v) { v == v; })
      return of(a) == of(b);
    else
      return false;
  }
  bool equalThrough(Entity const& dest, Entity const& src, SameTarget& same) const override {
    if constexpr (hasEntities<K> || hasEntities<V>) {
      M const& a = of(dest);
      M const& b = of(src);
      if constexpr (requires { a.equalInOrder(b, nullptr); }) {
        return a.equalInOrder(b, [&same](auto const& x, auto const& y) {
          return alike(x.key, y.key, same) && alike(x.value, y.value, same);
        });
      } else {
        if (a.members() != b.members()) return false;
        auto j = b.iterator();
        for (auto i = a.iterator(); i; ++i, ++j)
          if (!alike(i.key(), j.key(), same) || !alike(i.value(), j.value(), same)) return false;
        return true;
      }
    } else {
      return equal(dest, src);
    }
  }
  Found findMember(Entity const& e, AttrIterator const& at, Entity* key, Entity** target) const override {
    auto const& it = position(at);
    V const* held = of(e).find(keyAt(it, key));
    if (!held) return Found::absent;
    if constexpr (hasEntities<V>)
      *target = const_cast<Entity*>(static_cast<Entity const*>(held->ptr()));
    else if constexpr (requires(V const& v) { v == v; })
      return *held == it.value() ? Found::equal : Found::different;
    return Found::different;
  }
  void copyMember(KelAttr const& attr, Entity& dest, AttrIterator const& at, Entity* key,
                  Entity* target) const override {
    auto const& it = position(at);
    K const k = keyAt(it, key);
    if constexpr (hasEntities<V>)
      put(attr, dest, k, pointerTo<V>(target));
    else
      put(attr, dest, k, it.value());
  }
  void deleteMember(KelAttr const& attr, Entity& e, AttrIterator const& at) const override {
    K const k = position(at).key();
    if (eraseValue(e, of(e), attr.id(), k)) afterChange(attr, e);
  }
  bool dropPointers(Entity& e) const override {
    if constexpr (isPtrType<K> || isPtrType<V>) {
      bool const any = !of(e).empty();
      of(e).clear();
      return any;
    } else {
      return false;
    }
  }
  void write(KelAttr const&, void const* object, AttrLogOut& out) const override {
    M const& map = of(*static_cast<Entity const*>(object));
    out.put(map.members());
    for (auto it = map.iterator(); it; ++it) {
      streamOut<K>(out, it.key());
      streamOut<V>(out, it.value());
    }
  }
  void read(KelAttr const& attr, void* object, AttrLogIn& in) const override {
    M& map = of(*static_cast<Entity*>(object));
    for (U32 left = in.get<U32>(); left > 0; --left) {
      K const k = streamIn<K>(in);
      if (map.find(k)) throwTakenInLog(in, attr, box(k));
      V const v = streamIn<V>(in);
      if (keyOf_ && !(keyOf_(v) == k)) throwForeignKeyInLog(in, attr);
      if constexpr (isPtrType<V>)
        if (nonNull_ && !v) throwNullMemberInLog(in, attr);
      map.set(k, v);
    }
  }

 private:
  void put(KelAttr const& attr, Entity& e, K const& key, V const& value) const {
    if (writeMember(e, of(e), attr.id(), key, value)) afterChange(attr, e);
  }
  M& of(Entity& e) const { return at_.in<M>(e); }
  M const& of(Entity const& e) const { return at_.in<M>(e); }

  template <class T>
  static constexpr bool hasEntities = isPtrType<T>&& std::is_base_of_v<Entity, typename PtrTraits<T>::target>;
  template <class T>
  static bool alike(T const& dest, T const& src, SameTarget& same) {
    if constexpr (hasEntities<T>) {
      using Target = typename PtrTraits<T>::target;
      if (!dest || !src) return !dest && !src;
      return same(*const_cast<Target*>(dest.ptr()), *const_cast<Target*>(src.ptr()));
    } else if constexpr (requires { dest == src; }) {
      return dest == src;
    } else {
      return false;
    }
  }
  using Position = decltype(std::declval<M const&>().iterator());
  static Position const& position(AttrIterator const& at) {
    return static_cast<BoxedIterator<Position, MemberValue> const&>(at).it();
  }
  static K keyAt(Position const& it, [[maybe_unused]] Entity* key) {
    if constexpr (hasEntities<K>)
      return pointerTo<K>(key);
    else
      return it.key();
  }

  Offset at_;
  K (*keyOf_)(V const&);
  bool nonNull_;
};

}  // namespace Kel
