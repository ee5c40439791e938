// Counts by key, for logs that are written far more often than they are read.
//
// `increment` appends to a list and looks nothing up; for the same key as the last time it only compares two pointers.
// The counts are made from the list when the map is next read. A count has 8 bits and wraps.
#pragma once

#include <algorithm>
#include <vector>

#include "Kel/HashMap.h"
#include "Kel/MemPool.h"

namespace Kel {

// Counts by key.
template <class K>
class CounterMap {
 public:
  using key_type = K;
  using mapped_type = U8;
  using Iterator = typename HashMap<K, U8>::Iterator;

  // Adds 1 to the count of a key.
  void increment(K const& key) {
    if (deferred_.empty())
      deferred_.reserve(leastReserve);
    else if (same(deferred_.back().key, key))
      return static_cast<void>(++deferred_.back().value);
    deferred_.push_back({key, 1});
  }

  U32 members() const { return counts().members(); }
  bool empty() const { return deferred_.empty() && counts_.empty(); }
  // The count of the key, or null; `value` answers 0 for null.
  template <class Key>
  U8 const* find(Key const& key) const {
    return counts().find(key);
  }
  U8 value(K const& key) const { return counts().value(key); }
  // Sets a count; answers whether the map changed.
  bool set(K const& key, U8 value) { return counts().set(key, value); }
  // Deletes a count; answers whether there was one.
  bool erase(K const& key) { return counts().erase(key); }
  void clear() {
    deferred_.clear();
    counts_.clear();
  }
  bool operator==(CounterMap const& o) const { return counts() == o.counts(); }
  // Over keys and counts.
  Iterator iterator() const { return counts().iterator(); }
  Iterator iterator(K const& key) const { return counts().iterator(key); }

 private:
  static bool same(String8 const& a, String8 const& b) { return a.sharesBytes(b); }
  template <class T>
  static bool same(T const& a, T const& b) {
    return a == b;
  }
  static constexpr std::size_t leastReserve = 4;
  static constexpr std::size_t maxReserve = 1u << 24;

  // Counts the deferred increments.
  HashMap<K, U8>& counts() const {
    if (deferred_.empty()) return counts_;
    // Reserves for many increments only: reserving for a few each time would grow the map a few slots at a time.
    if (deferred_.size() > counts_.members())
      counts_.reserve(static_cast<U32>(std::min<std::size_t>(counts_.members() + deferred_.size(), maxReserve)));
    for (auto const& d : deferred_) counts_.set(d.key, static_cast<U8>(counts_.value(d.key) + d.value));
    deferred_ = {};
    return counts_;
  }

  mutable std::vector<KeyedSlot<K, U8>, PoolAllocator<KeyedSlot<K, U8>>> deferred_;
  mutable HashMap<K, U8> counts_;
};

}  // namespace Kel
