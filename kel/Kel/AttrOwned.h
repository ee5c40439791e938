// Attribute storage: owned entities by key; see AttrStorage.h.
#pragma once

#include <algorithm>
#include <charconv>
#include <optional>

#include "Kel/AttrIterators.h"
#include "Kel/AttrStorage.h"
#include "Kel/EntityMap.h"
#include "Kel/EntityTree.h"
#include "Kel/Writes.h"

namespace Kel {

// The integer that prints as `text`; empty if there is none.
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

// Owned entities by key. `M` is an EntityMapOf or an EntityTreeOf, with entities of any type.
template <class M>
class OwnedAccess final : public AttrAccess {
  using KeyOf = typename M::key_reader;
  using K = typename M::key_type;

 public:
  // The members take `memberBytes` each.
  OwnedAccess(Offset at, std::size_t memberBytes) : at_(at), memberBytes_(memberBytes) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    M const& map = of(*static_cast<Entity const*>(object));
    return boxView(Ptr<Entity>(map.find(unboxKey<K>(attr, key))), constView);
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    Ptr<Entity> const made = make(attr, key, value);
    K const k = keyOf(*made);
    if (Entity* old = of(e).find(k)) {
      if (sameParams(*old, *made)) return;
      Entity::leaveTree(of(e).take(k));
    }
    put(attr, e, made);
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    if (Members<M>::erase(e, of(e), attr.id(), unboxKey<K>(attr, key))) afterChange(attr, e);
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    if (op == AttributeOp::create) {
      Ptr<Entity> const made = make(attr, key, value);
      if (of(e).find(keyOf(*made))) throwTaken(attr, made->name());
      return put(attr, e, made);
    }
    if (op == AttributeOp::deleteAll) {
      if (Members<M>::eraseAll(e, of(e), attr.id())) afterChange(attr, e);
      return;
    }
    if (op == AttributeOp::notify) {
      K const k = unboxKey<K>(attr, key);
      return e.notify(attr.id(), &k);
    }
    AttrAccess::op(attr, e, op, key, value);
  }
  AttrIterator& iterate(KelAttr const& attr, Entity const& e, GenericIf const* key, IteratorRoom& room) const override {
    M const& map = of(e);
    return iteratorIn<MemberPtr>(room, key ? map.entities(unboxKey<K>(attr, key)) : map.entities());
  }
  AttrIterator& iterateAt(Entity const& e, U32 position, IteratorRoom& room) const override {
    if constexpr (dense)
      return iteratorIn<MemberPtr>(room, of(e).entitiesAt(position));
    else
      return AttrAccess::iterateAt(e, position, room);
  }
  U32 count(KelAttr const&, Entity const& e) const override { return of(e).members(); }
  bool equalThrough(Entity const& dest, Entity const& src, SameTarget&) const override {
    return of(dest).members() == 0 && of(src).members() == 0;
  }

  Entity* findCounterpart(Entity const& e, Entity const& member, U32 hint) const override {
    auto const& key = KeyOf::key(member);
    M const& map = of(e);
    if constexpr (dense) {
      if (map.empty()) return nullptr;
      U32 const slot = map.findSlotNear(key, keyHash(key), hint);
      return slot == HashMapGeneric::none ? nullptr : map.at(slot).ptr();
    } else {
      return map.find(key);
    }
  }
  U32 hashOfKey(Entity const& member) const override {
    if constexpr (dense)
      return keyHash(static_cast<K const&>(KeyOf::key(member)));
    else
      return AttrAccess::hashOfKey(member);
  }
  Entity* nextOfHash(Entity const& e, U32 hash, U32& cursor) const override {
    if constexpr (dense) {
      U32 const slot = of(e).nextSlotOf(hash, cursor);
      return slot == HashMapGeneric::none ? nullptr : of(e).at(slot).ptr();
    } else {
      return AttrAccess::nextOfHash(e, hash, cursor);
    }
  }
  U32 positionOf(Entity const& e, Entity const& member) const override {
    if constexpr (dense)
      return of(e).findSlot(KeyOf::key(member));
    else
      return AttrAccess::positionOf(e, member);
  }
  bool membersEqual(Entity const& dest, Entity const& src, PlainDifferences differences) const override {
    if constexpr (dense) {
      M const& a = of(dest);
      M const& b = of(src);
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
        Entity const &x = *a.at(i), &y = *b.at(i);
        if (!sameKey(KeyOf::key(x), KeyOf::key(y)) || differences(x, y) != 0) return false;
      }
      return true;
    } else {
      return AttrAccess::membersEqual(dest, src, differences);
    }
  }
  U32 gatherPairs(Entity const& dest, Entity const& src, U32& position, AttrAccess::Pair* pairs,
                  U32 most) const override {
    if constexpr (dense) {
      M const& a = of(dest);
      M const& b = of(src);
      U32 const end = b.slotEnd(), both = std::min(a.slotEnd(), end);
      // Prefetches what the next call will collect.
      U32 ahead = position + most;
      U32 const last = ahead + most;
      for (; ahead < std::min(both, last); ++ahead) {
        prefetch(a, ahead);
        prefetch(b, ahead);
      }
      for (; ahead < std::min(end, last); ++ahead) prefetch(b, ahead);
      U32 count = 0;
      for (; position < both && count < most; ++position) {
        if (a.slotHash(position) != b.slotHash(position)) break;
        if (!b.slotLive(position)) continue;
        Entity *const x = a.at(position).ptr(), *const y = b.at(position).ptr();
        if (!sameKey(KeyOf::key(*x), KeyOf::key(*y))) break;
        pairs[count++] = {x, y, position};
      }
      if (count > 0) return count;
      for (; position < end && count < most; ++position)
        if (b.slotLive(position)) {
          Entity* const member = b.at(position).ptr();
          pairs[count++] = {findCounterpart(dest, *member, position), member, position};
        }
      return count;
    } else {
      return AttrAccess::gatherPairs(dest, src, position, pairs, most);
    }
  }
  Entity* createLike(KelAttr const& attr, Entity& owner, Entity const& like) const override {
    Ptr<Entity> const made(attr.type()->createLike()(like));
    put(attr, owner, made);
    return made.ptr();
  }
  void reserveMembers(Entity& e, U32 count) const override {
    if constexpr (dense) of(e).reserve(count);
  }
  bool sameKeyHashes(Entity const& a, Entity const& b) const override {
    if constexpr (dense)
      return of(a).sameHashes(of(b));
    else
      return false;
  }
  Entity* child(Entity const& e, std::string_view key) const override {
    M const& map = of(e);
    if constexpr (std::is_same_v<K, String8>) {
      return map.find(key);
    } else if constexpr (isIntegerKey<K>) {
      auto const number = printedInteger<K>(key);
      return number ? map.find(*number) : nullptr;
    } else {
      for (auto it = map.entities(); it; ++it)
        if (it.ptr()->name() == key) return it.ptr().ptr();
      return nullptr;
    }
  }
  void eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const override {
    for (auto it = of(e).entities(); it; ++it) visit(it.ptr().ptr(), context);
  }
  void takeChildren(Entity& e, AttrAccess::ChildTaken taken, void* context) const override {
    of(e).takeAll([&](Ptr<Entity> member) { taken(std::move(member), context); });
  }
  void write(KelAttr const&, void const*, AttrLogOut&) const override {}
  void read(KelAttr const&, void*, AttrLogIn&) const override {}
  void restore(KelAttr const& attr, Entity& owner, Ptr<Entity> const& child, U64) const override {
    wantOwnable(attr, *child);
    M& map = of(owner);
    if (map.find(KeyOf::key(*child))) throwTaken(attr, child->name());
    map.insert(child);
    owner.adopt(*child, attr.id());
  }

 private:
  M& of(Entity& e) const { return at_.in<M>(e); }
  M const& of(Entity const& e) const { return at_.in<M>(e); }
  static constexpr bool dense = std::is_base_of_v<HashMapGeneric, M>;
  // Fetches what a comparison of the member will read: all of it, up to four cache lines.
  void prefetch(M const& map, U32 position) const {
    if constexpr (dense) {
      if (!map.slotLive(position)) return;
      auto const* bytes = reinterpret_cast<char const*>(map.at(position).ptr());
      for (std::size_t at = 0; at < std::min<std::size_t>(memberBytes_, 256); at += 64) __builtin_prefetch(bytes + at);
    }
  }
  static K keyOf(Entity const& e) { return KeyOf::key(e); }
  static Ptr<Entity> make(KelAttr const& attr, GenericIf const* key, GenericIf const* value) {
    Ptr<Entity> made = attr.type()->newEntity(creationArgs(attr, key, value));
    if (key && !sameKey(keyOf(*made), unboxKey<K>(attr, key))) throwForeignKey(attr);
    return made;
  }
  void put(KelAttr const& attr, Entity& e, Ptr<Entity> const& made) const {
    Members<M>::put(e, of(e), attr.id(), made);
    afterChange(attr, e);
  }

  Offset at_;
  std::size_t memberBytes_;
};

// The storage of entities that are keyed by name is compiled once, in the framework.
extern template struct KEL_API Members<EntityTreeOf<NameKey>>;
extern template class KEL_API OwnedAccess<EntityMapOf<NameKey>>;
extern template class KEL_API OwnedAccess<EntityTreeOf<NameKey>>;

}  // namespace Kel
