// Hash maps of owned entities; see HashMap.h.
#pragma once

#include "Kel/EntityKey.h"
#include "Kel/HashMap.h"

namespace Kel {

// Owned entities of any type, by the key that they contain.
template <class KeyOf>
struct EntitySlotKey {
  static decltype(auto) key(Ptr<Entity> const& slot) { return KeyOf::key(*slot); }
};
// A hash map of owned entities. `KeyOf` reads the key of one.
template <class KeyOf>
class EntityMapOf : public DenseHash<typename KeyOf::type, Ptr<Entity>, EntitySlotKey<KeyOf>> {
  using Base = DenseHash<typename KeyOf::type, Ptr<Entity>, EntitySlotKey<KeyOf>>;

 public:
  using K = typename KeyOf::type;
  using key_reader = KeyOf;

  template <class Key>
  Entity* find(Key const& key) const {
    U32 const slot = this->findSlot(key);
    return slot == Base::none ? nullptr : this->at(slot).ptr();
  }
  // REQUIRES: the key is free.
  void insert(Ptr<Entity> entity) {
    U32 const hash = keyHash(static_cast<K const&>(KeyOf::key(*entity)));
    this->emplace(hash, std::move(entity));
  }
  // Removes and answers the member; null if there is none.
  Ptr<Entity> take(K const& key) {
    U32 const slot = this->findSlot(key);
    return slot == Base::none ? Ptr<Entity>() : this->takeSlot(slot);
  }
  // Moves every member out, into a call of `taken`. Allocates nothing.
  template <class Taken>
  void takeAll(Taken const& taken) {
    for (U32 s = this->nextSlot(0); s < this->slotEnd(); s = this->nextSlot(s + 1)) taken(std::move(this->at(s)));
    this->clear();
  }

  // Over the entities, in the order of their positions.
  class Iterator : public Base::SlotIterator {
   public:
    explicit Iterator(EntityMapOf const* map) : Base::SlotIterator(map, map->nextSlot(0)) {}
    Iterator(EntityMapOf const* map, K const& key) : Base::SlotIterator(map, map->findSlot(key)) {}
    K key() const { return KeyOf::key(*ptr()); }
    Ptr<Entity> const& ptr() const { return this->slot(); }
    Iterator& operator++() {
      this->advance();
      return *this;
    }
  };
  Iterator entities() const { return Iterator(this); }
  Iterator entities(K const& key) const { return Iterator(this, key); }
  Iterator entitiesAt(U32 slot) const {
    Iterator it(this);
    it.moveTo(slot);
    return it;
  }
};

// The map of entities that are keyed by name is compiled once, in the framework.
extern template class KEL_API EntityMapOf<NameKey>;

// Owned entities of type T.
template <class T>
class EntityMap : public EntitiesAs<T, EntityMapOf<KeyReader<T>>> {};

}  // namespace Kel
