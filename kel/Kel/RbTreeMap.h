// Ordered maps: iteration in ascending key order.
//
// An iterator keeps the key that it is on. It stays valid whatever is inserted or deleted meanwhile. If the member that
// it is on is deleted, it can still be advanced. It must not outlive the map. Look-up costs O(log n); a step costs O(1)
// on average, and O(log n) after members were deleted.
#pragma once

#include <map>
#include <optional>

#include "Kel/HashMap.h"
#include "Kel/KeyLess.h"

namespace Kel {

// Values by key, in the order of the keys.
template <class K, class V>
class RbTreeMap {
  using Members = std::map<K, V, KeyLess>;

 public:
  RbTreeMap() = default;
  RbTreeMap(RbTreeMap const&) = delete;
  RbTreeMap& operator=(RbTreeMap const&) = delete;

  using key_type = K;
  using mapped_type = V;

  U32 members() const { return static_cast<U32>(map_.size()); }
  bool empty() const { return map_.empty(); }
  // The value under the key, or null.
  template <class Key>
  V const* find(Key const& key) const {
    auto const it = map_.find(key);
    return it == map_.end() ? nullptr : &it->second;
  }
  // The value under the key, or a default one.
  V value(K const& key) const {
    V const* v = find(key);
    return v ? *v : V();
  }
  // Sets or inserts; answers whether the map changed.
  bool set(K const& key, V const& value) {
    auto const [it, inserted] = map_.try_emplace(key, value);
    if (inserted) return true;
    if constexpr (requires { value == value; })
      if (it->second == value) return false;
    it->second = value;
    return true;
  }
  // Deletes a member; answers whether there was one.
  bool erase(K const& key) {
    bool const erased = map_.erase(key) != 0;
    erasures_ += erased ? 1 : 0;
    return erased;
  }
  // Whether some key begins with `prefix`. REQUIRES: the keys are strings.
  bool anyKeyBegins(std::string_view prefix) const {
    auto const it = map_.lower_bound(prefix);
    return it != map_.end() && it->first.view().substr(0, prefix.size()) == prefix;
  }
  void clear() {
    map_.clear();
    ++erasures_;
  }
  // Calls `visit` with each value, in the order of the keys.
  template <class Visit>
  void eachValue(Visit const& visit) {
    for (auto& member : map_) visit(member.second);
  }
  bool operator==(RbTreeMap const& o) const { return map_ == o.map_; }

  // Over keys and values.
  class Iterator {
   public:
    explicit Iterator(RbTreeMap const* map) : map_(map) { goTo(map_->map_.begin()); }
    Iterator(RbTreeMap const* map, K const& key) : map_(map) { goTo(map_->map_.find(key)); }
    explicit operator bool() const { return key_ && member() != map_->map_.end(); }
    K const& key() const { return *key_; }
    V const& value() const { return member()->second; }
    V const& operator*() const { return value(); }
    V const* operator->() const { return &value(); }
    Iterator& operator++() {
      if (!key_) return *this;
      auto const at = member();
      goTo(at == map_->map_.end() ? map_->map_.upper_bound(*key_) : std::next(at));
      return *this;
    }

   private:
    using Member = typename Members::const_iterator;

    // Where the key is. Erasing the member leaves that dangling; whatever else happens to the map does not.
    Member member() const {
      if (erasures_ != map_->erasures_ || at_ == map_->map_.end()) {
        at_ = map_->map_.find(*key_);
        erasures_ = map_->erasures_;
      }
      return at_;
    }
    void goTo(Member at) {
      at_ = at;
      erasures_ = map_->erasures_;
      if (at == map_->map_.end())
        key_.reset();
      else
        key_ = at->first;
    }

    RbTreeMap const* map_;
    std::optional<K> key_;
    mutable Member at_;
    mutable U64 erasures_;  // of the map, when `at_` was found
  };
  Iterator iterator() const { return Iterator(this); }
  Iterator iterator(K const& key) const { return Iterator(this, key); }

 private:
  Members map_;
  U64 erasures_ = 0;
};

// Owned entities, in the order of the key that they carry.
template <class T>
class EntityTree {
 public:
  using K = typename EntityKey<T>::type;
  using key_type = K;
  using entity_type = T;

  U32 members() const { return map_.members(); }
  bool empty() const { return map_.empty(); }
  // The member under the key, or null.
  template <class Key>
  T* find(Key const& key) const {
    Ptr<T> const* held = map_.find(key);
    return held ? held->ptr() : nullptr;
  }
  // REQUIRES: the key is free.
  void insert(Ptr<T> entity) {
    K const key = EntityKey<T>::key(*entity);
    map_.set(key, entity);
  }
  // Takes a member out; null if there is none.
  Ptr<T> take(K const& key) {
    Ptr<T> taken(find(key));
    if (taken) map_.erase(key);
    return taken;
  }
  // As in RbTreeMap.
  bool anyKeyBegins(std::string_view prefix) const { return map_.anyKeyBegins(prefix); }
  void clear() { map_.clear(); }
  // Moves every member out, in the order of the keys, into a call of `take`. Allocates nothing.
  template <class Taken>
  void takeAll(Taken const& take) {
    map_.eachValue([&](Ptr<T>& member) { take(std::move(member)); });
    map_.clear();
  }

  // Over members; `E` is T or T const.
  template <class E>
  class IteratorOf {
   public:
    explicit IteratorOf(EntityTree const* tree) : it_(tree->map_.iterator()) {}
    IteratorOf(EntityTree const* tree, K const& key) : it_(tree->map_.iterator(key)) {}
    explicit operator bool() const { return static_cast<bool>(it_); }
    K const& key() const { return it_.key(); }
    Ptr<E> ptr() const { return it_.value(); }
    E* operator->() const { return it_.value().ptr(); }
    E& operator*() const { return *it_.value(); }
    IteratorOf& operator++() {
      ++it_;
      return *this;
    }

   private:
    typename RbTreeMap<K, Ptr<T>>::Iterator it_;
  };
  using Iterator = IteratorOf<T>;
  using IteratorConst = IteratorOf<T const>;
  Iterator iterator() { return Iterator(this); }
  IteratorConst iteratorConst() const { return IteratorConst(this); }
  Iterator iterator(K const& key) { return Iterator(this, key); }
  IteratorConst iteratorConst(K const& key) const { return IteratorConst(this, key); }

 private:
  RbTreeMap<K, Ptr<T>> map_;
};

}  // namespace Kel
