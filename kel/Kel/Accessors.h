// What the bodies of generated accessors, hashes and comparisons share.
#pragma once

#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/HashMap.h"
#include "Kel/KeyLess.h"

namespace Kel {

// What generated accessors of owned entities share.
namespace Own {

[[noreturn]] KEL_API void taken(KelType const* owner, AttributeId id, String8 const& key);

// Enters a new member; raises NameInUseException when its key is taken.
template <class Map, class E>
Ptr<E> insert(Entity& owner, Map& map, AttributeId id, Ptr<E> const& member) {
  typename Map::key_type const key = EntityKey<E>::key(*member);
  if (map.find(key)) taken(owner.type(), id, member->name());
  map.insert(member);
  owner.adopt(*member, id);
  owner.notify(id, &key);
  return member;
}
template <class Map>
bool erase(Entity& owner, Map& map, AttributeId id, typename Map::key_type const& key) {
  auto gone = map.take(key);
  if (!gone) return false;
  Entity::leaveTree(std::move(gone));
  owner.notify(id, &key);
  return true;
}
template <class Map>
void eraseAll(Entity& owner, Map& map, AttributeId id) {
  std::vector<typename Map::key_type> keys;
  for (auto it = map.iteratorConst(); it; ++it) keys.push_back(it.key());
  for (auto const& key : keys) erase(owner, map, id, key);
}
// Puts a new entity into a singleton attribute; what was there leaves the tree.
template <class E>
void put(Entity& owner, Ptr<E>& slot, AttributeId id, Ptr<E> const& made) {
  if (slot) Entity::leaveTree(std::exchange(slot, nullptr));
  slot = made;
  if (made) owner.adopt(*made, id);
  owner.notify(id);
}

}  // namespace Own

// Empties a collection of values, one notification a key.
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
