// Functions that generated accessors, hashes and comparisons share.
#pragma once

#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/EntityMap.h"
#include "Kel/HashMap.h"
#include "Kel/KeyLess.h"
#include "Kel/Offset.h"

namespace Kel {

// Stores a value if it differs; answers whether it did. A value without a comparison counts as different.
template <class V>
bool storeValue(V& held, V const& value) {
  if constexpr (requires { value == value; })
    if (held == value) return false;
  held = value;
  return true;
}

[[noreturn]] KEL_API void throwTaken(KelType const* owner, AttributeId id, String8 const& key);

// Writes of an owned collection: they change the map and the tree, and notify. `M` is an EntityMapOf or an
// EntityTreeOf.
template <class M>
struct Members {
  using K = typename M::key_type;

  // Adds a new member. REQUIRES: its key is free.
  static void put(Entity& owner, M& map, AttributeId id, Ptr<Entity> const& member) {
    map.insert(member);
    owner.adopt(*member, id);
    if (!owner.hasReactors()) return;  // `adopt` told the change journals
    K const key = M::key_reader::key(*member);
    owner.notify(id, &key);
  }
  // The same; raises NameInUseException if the key is taken.
  static void insert(Entity& owner, M& map, AttributeId id, Ptr<Entity> const& member) {
    if (map.find(M::key_reader::key(*member))) throwTaken(owner.type(), id, member->name());
    put(owner, map, id, member);
  }
  // Removes the member under a key from the map and the tree; answers whether there was one.
  static bool erase(Entity& owner, M& map, AttributeId id, K const& key) {
    Ptr<Entity> gone = map.take(key);
    if (!gone) return false;
    Entity::leaveTree(std::move(gone));
    owner.notify(id, &key);
    return true;
  }
  // Notifies once for each key. The keys are collected first, because a reactor may change the collection.
  static void eraseAll(Entity& owner, M& map, AttributeId id) {
    std::vector<K> keys;
    for (auto it = map.entities(); it; ++it) keys.push_back(it.key());
    for (K const& key : keys) erase(owner, map, id, key);
  }
};

// Writes of collections that are keyed by name are compiled once, in the framework.
extern template struct KEL_API Members<EntityMapOf<NameKey>>;

// The same for accessors, which know the members' type.
template <class Map, class E>
Ptr<E> insertMember(Entity& owner, Map& map, AttributeId id, Ptr<E> const& member) {
  Members<typename Map::storage_type>::insert(owner, map, id, member);
  return member;
}
template <class Map>
bool eraseMember(Entity& owner, Map& map, AttributeId id, typename Map::key_type const& key) {
  return Members<typename Map::storage_type>::erase(owner, map, id, key);
}
template <class Map>
void eraseMembers(Entity& owner, Map& map, AttributeId id) {
  Members<typename Map::storage_type>::eraseAll(owner, map, id);
}
// Puts a new entity into a singleton attribute; the old one leaves the tree.
KEL_API void putSingleton(Entity& owner, EntityHandleAt slot, AttributeId id, Ptr<Entity> const& made);

// Empties a collection of values. Notifies once for each key; the keys are collected first, because a reactor may
// change the collection.
template <class Map>
void eraseAllValues(Entity& owner, Map& map, AttributeId id) {
  std::vector<typename Map::key_type> keys;
  for (auto it = map.iterator(); it; ++it) keys.push_back(it.key());
  for (auto const& key : keys)
    if (map.erase(key)) owner.notify(id, &key);
}

// Combines the hashes of a value's fields.
inline U32 combineHash(U32 seed, U32 hash) { return seed ^ (hash + 0x9e3779b9u + (seed << 6) + (seed >> 2)); }
// The hash of one field: strings by content, integers and enumerators themselves, values by their own.
template <class F>
U32 fieldHash(F const& field) {
  if constexpr (std::is_enum_v<F>)
    return static_cast<U32>(field);
  else if constexpr (std::is_integral_v<F>)
    return static_cast<U32>(field) ^ static_cast<U32>(static_cast<U64>(field) >> 32);
  else if constexpr (std::is_floating_point_v<F>)
    return keyHash(field);
  else
    return field.hash();
}
// Three-way comparison of one field.
template <class F>
int fieldCompare(F const& a, F const& b) {
  KeyLess const less;
  return less(a, b) ? -1 : less(b, a) ? 1 : 0;
}

}  // namespace Kel
