// What maps and trees of owned entities share: the keys of their members, and the view of them as their own type.
#pragma once

#include <type_traits>

#include "Kel/Entity.h"

namespace Kel {

// The key is the entity's name. REQUIRES: the name was set when the entity was made.
struct NameKey {
  using type = Name;
  static Name const& key(Entity const& entity) { return entity.Entity::name_; }
};

// The key of an entity in its owner's collection: its first constructor parameter. Generated code specialises it for
// entities whose key is not their name.
template <class T>
struct EntityKey : NameKey {};

// The key of a T that is given as an Entity.
template <class T>
struct EntityKeyOf {
  using type = typename EntityKey<T>::type;
  static decltype(auto) key(Entity const& entity) { return EntityKey<T>::key(static_cast<T const&>(entity)); }
};

// How a collection of T reads its members' keys. All collections that are keyed by name share their code.
template <class T>
using KeyReader = std::conditional_t<std::is_base_of_v<NameKey, EntityKey<T>>, NameKey, EntityKeyOf<T>>;

// An iterator over owned entities that gives them as T (or T const).
template <class T, class It>
class EntityIterator {
 public:
  explicit EntityIterator(It it) : it_(std::move(it)) {}
  explicit operator bool() const { return static_cast<bool>(it_); }
  decltype(auto) key() const { return it_.key(); }
  Ptr<T> ptr() const { return Ptr<T>(&**this); }
  T* operator->() const { return &**this; }
  T& operator*() const { return static_cast<T&>(*it_.ptr()); }
  EntityIterator& operator++() {
    ++it_;
    return *this;
  }

 private:
  It it_;
};

// A collection that gives its members as T. `Storage` holds them as entities of any type.
template <class T, class Storage>
class EntitiesAs : public Storage {
 public:
  using storage_type = Storage;
  using entity_type = T;
  using typename Storage::K;

  // The member under the key, or null.
  template <class Key>
  T* find(Key const& key) const {
    return static_cast<T*>(Storage::find(key));
  }

  using Iterator = EntityIterator<T, typename Storage::Iterator>;
  using IteratorConst = EntityIterator<T const, typename Storage::Iterator>;
  Iterator iterator() { return Iterator(this->entities()); }
  IteratorConst iteratorConst() const { return IteratorConst(this->entities()); }
  Iterator iterator(K const& key) { return Iterator(this->entities(key)); }
  IteratorConst iteratorConst(K const& key) const { return IteratorConst(this->entities(key)); }
};

}  // namespace Kel
