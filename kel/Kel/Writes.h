// The writes of each shape of attribute. They compare, store, and notify the change journals and the reactors.
// Generated accessors and reflection call the same functions.
//
// A function with a bool result answers whether something changed; the others always change something. After a change,
// the caller runs the model's `onChange` operation.
#pragma once

#include <type_traits>
#include <utility>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/EntityMap.h"
#include "Kel/HashMap.h"
#include "Kel/Offset.h"

namespace Kel {

// --- Single values and pointers ---

// A value without a comparison counts as different.
template <class Held, class V>
bool writeValue(Entity& owner, Held&& held, AttributeId id, V const& value) {
  if constexpr (requires { held == value; })
    if (held == value) return false;
  held = value;
  owner.notify(id);
  return true;
}

// --- Values and pointers by key ---

template <class Map>
bool writeMember(Entity& owner, Map& map, AttributeId id, typename Map::key_type const& key,
                 typename Map::mapped_type const& value) {
  if (!map.set(key, value)) return false;
  owner.notify(id, &key);
  return true;
}
template <class Map>
bool eraseValue(Entity& owner, Map& map, AttributeId id, typename Map::key_type const& key) {
  auto const gone = key;  // the argument may be a reference to the member's own key
  if (!map.erase(gone)) return false;
  owner.notify(id, &gone);
  return true;
}
// Adds 1 to a count. Only appends, and does not make the counts from earlier increments.
template <class Map>
void incrementCount(Entity& owner, Map& map, AttributeId id, typename Map::key_type const& key) {
  map.increment(key);
  owner.notify(id, &key);
}
// Notifies once for each key. The keys are collected first, because a reactor may change the collection.
template <class Map>
bool eraseValues(Entity& owner, Map& map, AttributeId id) {
  if (map.empty()) return false;
  std::vector<typename Map::key_type> keys;
  for (auto it = map.iterator(); it; ++it) keys.push_back(it.key());
  for (auto const& key : keys) eraseValue(owner, map, id, key);
  return true;
}

// --- Owned entities ---

[[noreturn, gnu::cold]] KEL_API void throwTaken(KelType const* owner, AttributeId id, String8 const& key);

// Puts a new entity into a singleton attribute; the old one leaves the tree.
KEL_API void putSingleton(Entity& owner, EntityHandleAt slot, AttributeId id, Ptr<Entity> const& made);
KEL_API bool eraseSingleton(Entity& owner, EntityHandleAt slot, AttributeId id);

// Owned entities by key. `M` is an EntityMapOf or an EntityTreeOf.
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
  static bool erase(Entity& owner, M& map, AttributeId id, K const& key) {
    K const sought = key;  // the argument may be a reference to the member's own key
    Ptr<Entity> gone = map.take(sought);
    if (!gone) return false;
    Entity::leaveTree(std::move(gone));
    owner.notify(id, &sought);
    return true;
  }
  // Notifies once for each key. The keys are collected first, because a reactor may change the collection.
  static bool eraseAll(Entity& owner, M& map, AttributeId id) {
    if (map.empty()) return false;
    std::vector<K> keys;
    for (auto it = map.entities(); it; ++it) keys.push_back(it.key());
    for (K const& key : keys) erase(owner, map, id, key);
    return true;
  }
};

// Writes of maps that are keyed by name are compiled once, in the framework.
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

// --- Queues ---

// The index of the oldest member; 0 if there is none.
template <class Queue>
typename Queue::key_type headIndex(Queue const& queue) {
  return queue.empty() ? typename Queue::key_type(0) : queue.iterator().key();
}

// Answers the index of the new member.
template <class Queue>
typename Queue::key_type enqueueValue(Entity& owner, Queue& queue, AttributeId id,
                                      typename Queue::mapped_type const& value) {
  auto const index = queue.enq(value);
  owner.notify(id, &index);
  return index;
}
// Takes the oldest member out. Raises RangeException if there is none.
template <class Queue>
typename Queue::mapped_type dequeueValue(Entity& owner, Queue& queue, AttributeId id) {
  auto const index = headIndex(queue);
  typename Queue::mapped_type value = queue.deq();
  owner.notify(id, &index);
  return value;
}
template <class Queue>
bool eraseQueuedValue(Entity& owner, Queue& queue, AttributeId id, typename Queue::key_type index) {
  if (!queue.erase(index)) return false;
  owner.notify(id, &index);
  return true;
}

// The same for owned entities. Raises RangeException if the queue is full.
template <class Queue>
void enqueueMember(Entity& owner, Queue& queue, AttributeId id, typename Queue::mapped_type const& made) {
  auto const index = queue.enq(made);
  owner.adopt(*made, id);
  owner.notify(id, &index);
}
// The member, which has left the tree. Raises RangeException if there is none.
template <class Queue>
typename Queue::mapped_type dequeueMember(Entity& owner, Queue& queue, AttributeId id) {
  auto const index = headIndex(queue);
  typename Queue::mapped_type gone = queue.deq();
  Entity::leaveTree(gone);
  owner.notify(id, &index);
  return gone;
}
template <class Queue>
bool eraseQueuedMember(Entity& owner, Queue& queue, AttributeId id, typename Queue::key_type index) {
  if (!queue.find(index)) return false;
  Entity::leaveTree(queue.take(index));
  owner.notify(id, &index);
  return true;
}

// --- Collections and queues of every kind ---

// Deletes all members, notifies once for each, and runs the model's `onChange` operation.
KEL_API void deleteAllMembers(Entity& owner, AttributeId id);

}  // namespace Kel
