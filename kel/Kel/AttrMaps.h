// Attribute storage: values and pointers by key, and owned entities by key; see AttrStorage.h.
#pragma once

#include <charconv>
#include <optional>

#include "Kel/AttrStorage.h"
#include "Kel/CounterMap.h"
#include "Kel/HashMap.h"
#include "Kel/RbTreeMap.h"

namespace Kel {

// The integer that prints as `text`: nothing where no integer does.
template <class I>
std::optional<I> printedInteger(std::string_view text) {
  I value{};
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  bool const plain = text == "0" || text.find_first_of("123456789") == (text.substr(0, 1) == "-" ? 1u : 0u);
  if (error != std::errc() || end != text.data() + text.size() || !plain) return std::nullopt;
  return value;
}
template <class K>
inline constexpr bool isIntegerKey = std::is_integral_v<K> && !std::is_same_v<K, bool> && !std::is_same_v<K, char>;

// The iterator of a collection behind the reflective interface; `Member` gives the member of the iterator's position.
template <class It, class Member>
class BoxedIterator final : public AttrIterator {
 public:
  explicit BoxedIterator(It it) : it_(std::move(it)) {}
  bool nonNull() const override { return static_cast<bool>(it_); }
  GenericIf::Ptr key() const override { return box(static_cast<std::decay_t<decltype(it_.key())>>(it_.key())); }
  GenericIf::Ptr obj(bool constView) const override { return boxView(Member::of(it_), constView); }
  void inc() override { ++it_; }
  std::unique_ptr<AttrIterator> clone() const override { return std::make_unique<BoxedIterator>(it_); }
  Entity* keyTarget() const override { return entityIn(it_.key()); }
  Entity* target() const override { return entityIn(Member::of(it_)); }
  It const& it() const { return it_; }

 private:
  template <class T>
  static Entity* entityIn(T const& held) {
    if constexpr (isPtrType<T>) {
      if constexpr (std::is_base_of_v<Entity, typename PtrTraits<T>::target>)
        return const_cast<Entity*>(static_cast<Entity const*>(held.ptr()));
    }
    return nullptr;
  }

  It it_;
};
struct MemberValue {
  template <class It>
  static decltype(auto) of(It const& it) {
    return it.value();
  }
};
struct MemberPtr {
  template <class It>
  static auto of(It const& it) {
    return it.ptr();
  }
};
template <class Member, class It>
std::unique_ptr<AttrIterator> boxedIterator(It it) {
  return std::make_unique<BoxedIterator<It, Member>>(std::move(it));
}
template <class Member, class It>
AttrIterator& iteratorIn(IteratorRoom& room, It it) {
  return room.emplace(BoxedIterator<It, Member>(std::move(it)));
}
// The entity behind a pointer, as the pointer that a collection holds.
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
  MapAccess(M Entity::*slot, K (*keyOf)(V const&), bool nonNull) : slot_(slot), keyOf_(keyOf), nonNull_(nonNull) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    M const& map = static_cast<Entity const*>(object)->*slot_;
    V const* v = map.find(unboxKey<K>(attr, key));
    return v ? boxView(*v, constView) : GenericIf::Ptr();
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    V const v = unbox<V>(value, attr.fullName());
    K const k = key || !keyOf_ ? unboxNewKey<K>(attr, key) : keyOf_(v);
    if (keyOf_ && !(keyOf_(v) == k)) throwBadIndexAttrException(attr.fullName(), "the key is not the member's own");
    if constexpr (isPtrType<V>)
      if (nonNull_ && !v) throwNullMember(attr);
    if ((e.*slot_).set(k, v)) changed(attr, e, &k);
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    K const k = unboxKey<K>(attr, key);
    if ((e.*slot_).erase(k)) changed(attr, e, &k);
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if (op == AttributeOp::deleteAll) return deleteAll(attr, e);
    K const k = key || !keyOf_ || !value ? unboxKey<K>(attr, key) : keyOf_(unbox<V>(value, attr.fullName()));
    if (op == AttributeOp::notify) return e.notify(attr.id(), &k);
    if (op == AttributeOp::create) {
      if ((e.*slot_).find(k)) throwTaken(attr, keyText(box(k)));
      return set(attr, e, key, value);
    }
    if constexpr (requires(M & m) { m.increment(k); }) {
      (e.*slot_).increment(k);
      return changed(attr, e, &k);
    }
    AttrAccess::op(attr, e, op, key, value);
  }
  std::unique_ptr<AttrIterator> iterator(KelAttr const& attr, Entity const& e, GenericIf const* key) const override {
    M const& map = e.*slot_;
    return boxedIterator<MemberValue>(key ? map.iterator(unboxKey<K>(attr, key)) : map.iterator());
  }
  AttrIterator& iterate(KelAttr const&, Entity const& e, IteratorRoom& room) const override {
    return iteratorIn<MemberValue>(room, (e.*slot_).iterator());
  }
  U32 count(KelAttr const&, Entity const& e) const override { return (e.*slot_).members(); }
  bool equal(Entity const& a, Entity const& b) const override {
    if constexpr (requires(V const& v) { v == v; })
      return a.*slot_ == b.*slot_;
    else
      return false;
  }
  bool equalThrough(Entity const& dest, Entity const& src, SameTarget& same) const override {
    if constexpr (hasEntities<K> || hasEntities<V>) {
      M const& a = dest.*slot_;
      M const& b = src.*slot_;
      if (a.members() != b.members()) return false;
      if (a.empty()) return true;
      auto j = b.iterator();
      for (auto i = a.iterator(); i; ++i, ++j)
        if (!alike(i.key(), j.key(), same) || !alike(i.value(), j.value(), same)) return false;
      return true;
    } else {
      return false;
    }
  }
  Found findMember(Entity const& e, AttrIterator const& at, Entity* key, Entity** target) const override {
    auto const& it = position(at);
    V const* held = (e.*slot_).find(keyAt(it, key));
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
    bool changes = false;
    if constexpr (hasEntities<V>)
      changes = (dest.*slot_).set(k, pointerTo<V>(target));
    else
      changes = (dest.*slot_).set(k, it.value());
    if (changes) changed(attr, dest, &k);
  }
  void dropPointers(Entity& e) const override {
    if constexpr (isPtrType<K> || isPtrType<V>) (e.*slot_).clear();
  }
  void write(void const* object, AttrLogOut& out) const override {
    M const& map = static_cast<Entity const*>(object)->*slot_;
    out.put(map.members());
    for (auto it = map.iterator(); it; ++it) {
      streamOut<K>(out, it.key());
      streamOut<V>(out, it.value());
    }
  }
  void read(KelAttr const& attr, void* object, AttrLogIn& in) const override {
    M& map = static_cast<Entity*>(object)->*slot_;
    for (U32 left = in.get<U32>(); left > 0; --left) {
      K const k = streamIn<K>(in);
      if (map.find(k)) in.throwRecord(attr.fullName() + ": '" + keyText(box(k)) + "' is there twice");
      V const v = streamIn<V>(in);
      if (keyOf_ && !(keyOf_(v) == k)) in.throwRecord(attr.fullName() + ": the key is not the member's own");
      if constexpr (isPtrType<V>)
        if (nonNull_ && !v) in.throwRecord(attr.fullName() + ": a null member");
      map.set(k, v);
    }
  }

 private:
  // Keys are gathered first: a reactor may change the collection.
  void deleteAll(KelAttr const& attr, Entity& e) const {
    std::vector<K> keys;
    for (auto it = (e.*slot_).iterator(); it; ++it) keys.push_back(it.key());
    for (K const& k : keys)
      if ((e.*slot_).erase(k)) e.notify(attr.id(), &k);
    if (auto* after = attr.afterChange(); after && !keys.empty()) after(e);
  }

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

  M Entity::*slot_;
  K (*keyOf_)(V const&);
  bool nonNull_;
};

// Owned entities by key.
template <class M>
class OwnedMapAccess final : public AttrAccess {
  using E = typename M::entity_type;
  using K = typename M::key_type;

 public:
  explicit OwnedMapAccess(M Entity::*slot) : slot_(slot) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    M const& map = static_cast<Entity const*>(object)->*slot_;
    return boxView(Ptr<E>(map.find(unboxKey<K>(attr, key))), constView);
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    Ptr<Entity> const made = make(attr, key, value);
    K const k = keyOf(*made);
    if (E* old = (e.*slot_).find(k)) {
      if (sameParams(*old, *made)) return;
      Entity::leaveTree((e.*slot_).take(k));
    }
    put(attr, e, made);
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    K const k = unboxKey<K>(attr, key);
    if (take(e, k)) changed(attr, e, &k);
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if (op == AttributeOp::create) {
      Ptr<Entity> const made = make(attr, key, value);
      if ((e.*slot_).find(keyOf(*made))) throwTaken(attr, made->name());
      return put(attr, e, made);
    }
    if (op == AttributeOp::deleteAll) {
      std::vector<K> keys;
      for (auto it = (e.*slot_).iteratorConst(); it; ++it) keys.push_back(it.key());
      for (K const& k : keys)
        if (take(e, k)) e.notify(attr.id(), &k);
      if (auto* after = attr.afterChange(); after && !keys.empty()) after(e);
      return;
    }
    if (op == AttributeOp::notify) {
      K const k = unboxKey<K>(attr, key);
      return e.notify(attr.id(), &k);
    }
    AttrAccess::op(attr, e, op, key, value);
  }
  std::unique_ptr<AttrIterator> iterator(KelAttr const& attr, Entity const& e, GenericIf const* key) const override {
    auto& map = const_cast<Entity&>(e).*slot_;
    return boxedIterator<MemberPtr>(key ? map.iterator(unboxKey<K>(attr, key)) : map.iterator());
  }
  AttrIterator& iterate(KelAttr const&, Entity const& e, IteratorRoom& room) const override {
    return iteratorIn<MemberPtr>(room, (const_cast<Entity&>(e).*slot_).iterator());
  }
  U32 count(KelAttr const&, Entity const& e) const override { return (e.*slot_).members(); }

  U32 memberEnd(Entity const& e) const override {
    if constexpr (dense)
      return (e.*slot_).slotEnd();
    else
      return AttrAccess::memberEnd(e);
  }
  Entity* memberAt(Entity const& e, U32 position) const override {
    if constexpr (dense) {
      M const& map = e.*slot_;
      constexpr U32 ahead = 4;  // whoever asks for one goes on to the next
      if (position + ahead < map.slotEnd()) prefetch(map, position + ahead);
      return position < map.slotEnd() && map.slotLive(position) ? map.at(position).ptr() : nullptr;
    } else {
      return AttrAccess::memberAt(e, position);
    }
  }
  Entity* memberLike(Entity const& e, Entity const& member, U32 hint) const override {
    auto const& key = EntityKey<E>::key(static_cast<E const&>(member));
    M const& map = e.*slot_;
    if constexpr (dense) {
      if (map.empty()) return nullptr;
      U32 const slot = map.findSlotNear(key, keyHash(key), hint);
      return slot == HashMapGeneric::none ? nullptr : map.at(slot).ptr();
    } else {
      return map.find(key);
    }
  }
  U32 positionOf(Entity const& e, Entity const& member) const override {
    if constexpr (dense)
      return (e.*slot_).findSlot(EntityKey<E>::key(static_cast<E const&>(member)));
    else
      return AttrAccess::positionOf(e, member);
  }
  bool membersEqual(Entity const& dest, Entity const& src, bool (*alike)(Entity const&, Entity const&)) const override {
    if constexpr (dense) {
      M const& a = dest.*slot_;
      M const& b = src.*slot_;
      U32 const end = a.slotEnd();
      if (end != b.slotEnd()) return false;
      constexpr U32 ahead = 8;
      for (U32 i = 0; i < end; ++i) {
        if (i + ahead < end) {
          prefetch(a, i + ahead);
          prefetch(b, i + ahead);
        }
        if (a.slotHash(i) != b.slotHash(i)) return false;
        if (!a.slotLive(i)) continue;
        E const &x = *a.at(i), &y = *b.at(i);
        if (!sameKey(EntityKey<E>::key(x), EntityKey<E>::key(y)) || !alike(x, y)) return false;
      }
      return true;
    } else {
      return AttrAccess::membersEqual(dest, src, alike);
    }
  }
  U32 gatherPairs(Entity const& dest, Entity const& src, U32& position, AttrAccess::Pair* pairs) const override {
    if constexpr (dense) {
      M const& a = dest.*slot_;
      M const& b = src.*slot_;
      U32 const end = std::min(a.slotEnd(), b.slotEnd());
      // What the next call will gather.
      for (U32 i = position + AttrAccess::maxPairs; i < std::min(end, position + 2 * AttrAccess::maxPairs); ++i) {
        prefetch(a, i);
        prefetch(b, i);
      }
      U32 count = 0;
      for (; position < end && count < AttrAccess::maxPairs; ++position) {
        if (a.slotHash(position) != b.slotHash(position)) break;
        if (!a.slotLive(position)) continue;
        E *const x = a.at(position).ptr(), *const y = b.at(position).ptr();
        if (!sameKey(EntityKey<E>::key(*x), EntityKey<E>::key(*y))) break;
        pairs[count++] = {x, y, position};
      }
      return count;
    } else {
      return AttrAccess::gatherPairs(dest, src, position, pairs);
    }
  }
  Entity* newLike(KelAttr const& attr, Entity& owner, Entity const& like) const override {
    Ptr<Entity> made(TypeOf<E>::type()->newLike()(like));
    put(attr, owner, made);
    return made.ptr();
  }
  void reserveMembers(Entity& e, U32 count) const override {
    if constexpr (dense) (e.*slot_).reserve(count);
  }
  bool sameShape(Entity const& a, Entity const& b) const override {
    if constexpr (dense)
      return (a.*slot_).sameHashes(b.*slot_);
    else
      return false;
  }
  Entity* child(Entity const& e, std::string_view key) const override {
    M const& map = e.*slot_;
    if constexpr (std::is_same_v<K, String8>) {
      return map.find(key);
    } else if constexpr (isIntegerKey<K>) {
      auto const number = printedInteger<K>(key);
      return number ? map.find(*number) : nullptr;
    } else {
      for (auto it = map.iteratorConst(); it; ++it)
        if (it->name() == key) return const_cast<E*>(it.ptr().ptr());
      return nullptr;
    }
  }
  void eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const override {
    for (auto it = (e.*slot_).iteratorConst(); it; ++it) visit(const_cast<E*>(it.ptr().ptr()), context);
  }
  void takeChildren(Entity& e, AttrAccess::ChildTaken taken, void* context) const override {
    M& map = e.*slot_;
    if constexpr (dense) {
      for (U32 s = map.nextSlot(0); s < map.slotEnd(); s = map.nextSlot(s + 1)) taken(std::move(map.at(s)), context);
      map.clear();
    } else {
      map.takeAll([&](Ptr<E> member) { taken(std::move(member), context); });
    }
  }
  void write(void const*, AttrLogOut&) const override {}
  void read(KelAttr const&, void*, AttrLogIn&) const override {}
  void restore(KelAttr const& attr, Entity& owner, Ptr<Entity> const& child, U64) const override {
    Ptr<E> const member = restored<E>(attr, child);
    M& map = owner.*slot_;
    if (map.find(EntityKey<E>::key(*member))) throwTaken(attr, child->name());
    map.insert(member);
    owner.adopt(*child, attr.id());
  }

 private:
  static constexpr bool dense = std::is_base_of_v<HashMapGeneric, M>;
  // Fetches what a comparison of the member will read: all of it, up to four cache lines.
  static void prefetch(M const& map, U32 position) {
    if (!map.slotLive(position)) return;
    auto const* bytes = reinterpret_cast<char const*>(map.at(position).ptr());
    for (std::size_t at = 0; at < std::min<std::size_t>(sizeof(E), 256); at += 64) __builtin_prefetch(bytes + at);
  }
  static K keyOf(Entity const& e) { return EntityKey<E>::key(static_cast<E const&>(e)); }
  Ptr<Entity> make(KelAttr const& attr, GenericIf const* key, GenericIf const* value) const {
    Ptr<Entity> made = TypeOf<E>::type()->newEntity(creationArgs(attr, key, value));
    if (key && !sameKey(keyOf(*made), unboxKey<K>(attr, key)))
      throwBadIndexAttrException(attr.fullName(), "the key is not the member's own");
    return made;
  }
  void put(KelAttr const& attr, Entity& e, Ptr<Entity> const& made) const {
    (e.*slot_).insert(Ptr<E>(static_cast<E*>(made.ptr())));
    e.adopt(*made, attr.id());
    if (!e.hasReactors() && !attr.afterChange()) return;
    K const k = keyOf(*made);
    changed(attr, e, &k);
  }
  bool take(Entity& e, K const& k) const {
    Ptr<E> gone = (e.*slot_).take(k);
    if (!gone) return false;
    Entity::leaveTree(std::move(gone));
    return true;
  }

  M Entity::*slot_;
};

}  // namespace Kel
