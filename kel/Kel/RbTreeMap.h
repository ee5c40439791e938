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
#include "Kel/MemPool.h"

namespace Kel {

// Values by key, in the order of the keys.
template <class K, class V>
class RbTreeMap {
  using Members = std::map<K, V, KeyLess, PoolAllocator<std::pair<K const, V>>>;

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

    // The member under the key. Only an erasure can invalidate `at_`.
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

}  // namespace Kel
