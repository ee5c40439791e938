// Queues: members in the order of insertion, each with an index.
//
// Indices are handed out upwards from 0 and wrap round (those of a signed type into its negative half); a member keeps
// its index for as long as it is in the queue, and no two members share one. Appending to a queue whose oldest and
// newest members are a whole index space apart raises RangeException "linkqueue index space full"; an index without a
// member raises "linkqueue index out of range" where one is needed. Iterators behave as those of the ordered map.
#pragma once

#include <limits>

#include "Kel/Exception.h"
#include "Kel/RbTreeMap.h"

namespace Kel {

template <class V, class I = U32>
class LinkQueue {
 public:
  using key_type = I;
  using mapped_type = V;

  U32 members() const { return map_.members(); }
  bool empty() const { return map_.empty(); }

  // The index that the next member will get.
  I nextIndex() const {
    if (!map_.empty() && next_ - head() > spaceMax) throwRangeException("linkqueue index space full");
    return static_cast<I>(next_);
  }
  I enq(V const& value) {
    I const index = nextIndex();
    map_.set(next_++, value);
    return index;
  }
  // Takes the oldest member out.
  V deq() {
    if (map_.empty()) throwRangeException("linkqueue index out of range");
    return takeAt(head());
  }
  V const* find(I index) const { return map_.find(sequence(index)); }
  V const& get(I index) const {
    V const* v = find(index);
    if (!v) throwRangeException("linkqueue index out of range");
    return *v;
  }
  V take(I index) {
    get(index);
    return takeAt(sequence(index));
  }
  bool erase(I index) { return map_.erase(sequence(index)); }
  void clear() { map_.clear(); }
  // The same members in the same order, whatever their indices.
  bool operator==(LinkQueue const& o) const {
    if (members() != o.members()) return false;
    Iterator b = o.iterator();
    for (Iterator a = iterator(); a; ++a, ++b)
      if (!(a.value() == b.value())) return false;
    return true;
  }

  class Iterator {
   public:
    explicit Iterator(typename RbTreeMap<U64, V>::Iterator it) : it_(it) {}
    explicit operator bool() const { return static_cast<bool>(it_); }
    I key() const { return static_cast<I>(it_.key()); }
    // The number in the order of insertion; the index is what shows of it.
    U64 sequence() const { return it_.key(); }
    V const& value() const { return it_.value(); }
    V const& operator*() const { return value(); }
    V const* operator->() const { return &value(); }
    Iterator& operator++() {
      ++it_;
      return *this;
    }

   private:
    typename RbTreeMap<U64, V>::Iterator it_;
  };
  // To put a queue back as it was: its members by their numbers in the order of insertion, and the number of the next.
  // Whether a member of that number can come behind those that are there; puts it there; sets the next number, or
  // answers that it is none that these members can be followed by.
  bool follows(U64 sequence) const {
    return map_.empty() || (sequence > *map_.lastKey() && sequence - head() <= spaceMax);
  }
  void restore(U64 sequence, V const& value) { map_.set(sequence, value); }
  U64 nextSequence() const { return next_; }
  bool nextSequenceIs(U64 next) {
    if (next > farthest || (!map_.empty() && (next <= *map_.lastKey() || next - 1 - head() > spaceMax))) return false;
    next_ = next;
    return true;
  }

  Iterator iterator() const { return Iterator(map_.iterator()); }
  Iterator iterator(I index) const { return Iterator(map_.iterator(sequence(index))); }

 private:
  using Space = std::make_unsigned_t<I>;
  static constexpr U64 spaceMax = std::numeric_limits<Space>::max();
  static constexpr U64 farthest = U64(1) << 63;  // no queue gets there by itself, and from there none comes to the end

  U64 head() const { return map_.iterator().key(); }
  // The number in the order of insertion that stands behind an index: the first from the head on that shows as it.
  U64 sequence(I index) const {
    U64 const start = map_.empty() ? next_ : head();
    return start + static_cast<Space>(static_cast<U64>(index) - start);
  }
  V takeAt(U64 sequence) {
    V taken = *map_.find(sequence);
    map_.erase(sequence);
    return taken;
  }

  RbTreeMap<U64, V> map_;
  U64 next_ = 0;
};

template <class V, class I = U32>
using LinkedQueue = LinkQueue<V, I>;

}  // namespace Kel
