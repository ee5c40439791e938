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

 private:
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
  U32 count(KelAttr const&, Entity const& e) const override { return (e.*slot_).members(); }
  bool equal(Entity const& a, Entity const& b) const override {
    if constexpr (requires(V const& v) { v == v; })
      return a.*slot_ == b.*slot_;
    else
      return false;
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
      if (map.find(k)) in.bad(attr.fullName() + ": '" + keyText(box(k)) + "' is there twice");
      V const v = streamIn<V>(in);
      if (keyOf_ && !(keyOf_(v) == k)) in.bad(attr.fullName() + ": the key is not the member's own");
      if constexpr (isPtrType<V>)
        if (nonNull_ && !v) in.bad(attr.fullName() + ": a null member");
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
  U32 count(KelAttr const&, Entity const& e) const override { return (e.*slot_).members(); }

  U32 memberEnd(Entity const& e) const override {
    if constexpr (dense)
      return (e.*slot_).slotEnd();
    else
      return AttrAccess::memberEnd(e);
  }
  Entity* memberAt(Entity const& e, U32 position) const override {
    if constexpr (dense)
      return position < (e.*slot_).slotEnd() && (e.*slot_).slotLive(position) ? (e.*slot_).at(position).ptr() : nullptr;
    else
      return AttrAccess::memberAt(e, position);
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
  static K keyOf(Entity const& e) { return EntityKey<E>::key(static_cast<E const&>(e)); }
  Ptr<Entity> make(KelAttr const& attr, GenericIf const* key, GenericIf const* value) const {
    Ptr<Entity> made = TypeOf<E>::type()->newEntity(creationArgs(attr, key, value));
    if (key && !(keyOf(*made) == unboxKey<K>(attr, key)))
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
