// Ordered maps of owned entities; see RbTreeMap.h.
#pragma once

#include "Kel/EntityKey.h"
#include "Kel/RbTreeMap.h"

namespace Kel {

// Owned entities of any type, in the order of the key that they contain.
template <class KeyOf>
class EntityTreeOf {
 public:
  using K = typename KeyOf::type;
  using key_type = K;
  using key_reader = KeyOf;

  U32 members() const { return map_.members(); }
  bool empty() const { return map_.empty(); }
  template <class Key>
  Entity* find(Key const& key) const {
    Ptr<Entity> const* held = map_.find(key);
    return held ? held->ptr() : nullptr;
  }
  void insert(Ptr<Entity> const& entity) {
    K const key = KeyOf::key(*entity);
    map_.set(key, entity);
  }
  Ptr<Entity> take(K const& key) {
    Ptr<Entity> taken(find(key));
    if (taken) map_.erase(key);
    return taken;
  }
  bool anyKeyBegins(std::string_view prefix) const { return map_.anyKeyBegins(prefix); }
  void clear() { map_.clear(); }
  // Moves every member out, in key order, into a call of `taken`. Allocates nothing.
  template <class Taken>
  void takeAll(Taken const& taken) {
    map_.eachValue([&](Ptr<Entity>& member) { taken(std::move(member)); });
    map_.clear();
  }

  // Over the entities, in key order.
  class Iterator {
   public:
    explicit Iterator(EntityTreeOf const* tree) : it_(tree->map_.iterator()) {}
    Iterator(EntityTreeOf const* tree, K const& key) : it_(tree->map_.iterator(key)) {}
    explicit operator bool() const { return static_cast<bool>(it_); }
    K const& key() const { return it_.key(); }
    Ptr<Entity> const& ptr() const { return it_.value(); }
    Iterator& operator++() {
      ++it_;
      return *this;
    }

   private:
    typename RbTreeMap<K, Ptr<Entity>>::Iterator it_;
  };
  Iterator entities() const { return Iterator(this); }
  Iterator entities(K const& key) const { return Iterator(this, key); }

 private:
  RbTreeMap<K, Ptr<Entity>> map_;
};

// Owned entities of type T.
template <class T>
class EntityTree : public EntitiesAs<T, EntityTreeOf<KeyReader<T>>> {};

}  // namespace Kel
