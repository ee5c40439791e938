// Queues: members in the order of insertion, each with an index.
//
// Indices count from 0 upwards and wrap around; those of a signed type wrap into its negative half. An index that a
// member still has is skipped. A member keeps its index for as long as it is in the queue. Appending to a queue in
// which every index is taken raises RangeException "linkqueue index space full". Naming an index without a member
// raises RangeException "linkqueue index out of range", except in `find` and `erase`. Iterators behave like those of
// the hash map, and follow the order of insertion.
//
// Cost: all operations take constant time on average; an append also takes a look-up for each index that it skips.
// Finding a position is constant while nothing was erased but the oldest members; otherwise it takes the distance to
// the oldest member, the newest one, or the one asked for last.
#pragma once

#include <limits>

#include "Kel/Exception.h"
#include "Kel/HashMap.h"

namespace Kel {

// A member, and its number in the order of insertion. The lowest bits of the number are the index.
template <class V, class I>
struct LinkQueueSlot {
  U64 sequence;
  V value;
};
// The index of a slot.
template <class I>
struct LinkQueueKey {
  template <class Slot>
  static I key(Slot const& slot) {
    return static_cast<I>(slot.sequence);
  }
};

// A queue of values.
template <class V, class I = U32>
class LinkQueue : private DenseHash<I, LinkQueueSlot<V, I>, LinkQueueKey<I>> {
  using Base = DenseHash<I, LinkQueueSlot<V, I>, LinkQueueKey<I>>;

 public:
  using key_type = I;
  using mapped_type = V;
  using Base::empty;
  using Base::members;

  // The index that the next member will get.
  I nextIndex() const { return static_cast<I>(nextFree()); }
  // Appends; answers the index.
  I enq(V const& value) {
    U64 const sequence = nextFree();
    append(sequence, value);
    next_ = sequence + 1;
    return static_cast<I>(sequence);
  }
  // Takes the oldest member out. Raises RangeException if there is none.
  V deq() {
    if (empty()) throwRangeException("linkqueue index out of range");
    return takeAt(head());
  }
  // The member under an index, or null.
  V const* find(I index) const {
    U32 const slot = this->findSlot(index);
    return slot == Base::none ? nullptr : &this->at(slot).value;
  }
  // The member under an index; raises RangeException if there is none.
  V const& get(I index) const { return this->at(slotOf(index)).value; }
  // Takes the member under an index out; raises RangeException if there is none.
  V take(I index) { return takeAt(slotOf(index)); }
  // Deletes a member; answers whether there was one.
  bool erase(I index) {
    U32 const slot = this->findSlot(index);
    if (slot == Base::none) return false;
    takeAt(slot);
    return true;
  }
  void clear() {
    Base::clear();
    first_ = this->slotEnd();
  }
  // The position of a member, counted from 0, the oldest one's. REQUIRES: there is a member under the index.
  U32 positionOf(I index) const { return place(&Place::slot, this->findSlot(index)).position; }
  // Moves every member out, oldest first, into a call of `take`. Allocates nothing.
  template <class Taken>
  void takeAll(Taken const& take) {
    for (U32 slot = head(); slot < this->slotEnd(); slot = this->nextSlot(slot + 1))
      take(std::move(this->at(slot).value));
    clear();
  }
  // Whether both have the same members in the same order, whatever their indices.
  bool operator==(LinkQueue const& o) const {
    if (members() != o.members()) return false;
    Iterator b = o.iterator();
    for (Iterator a = iterator(); a; ++a, ++b)
      if (!(a.value() == b.value())) return false;
    return true;
  }

  // Over indices and members.
  class Iterator : public Base::SlotIterator {
   public:
    explicit Iterator(LinkQueue const* queue) : Iterator(queue, queue->head()) {}
    Iterator(LinkQueue const* queue, U32 slot) : Base::SlotIterator(queue, slot) {}
    I key() const { return static_cast<I>(sequence()); }
    // The number in the order of insertion, of which the index is the lowest bits.
    U64 sequence() const { return this->slot().sequence; }
    V const& value() const { return this->slot().value; }
    V const& operator*() const { return value(); }
    V const* operator->() const { return &value(); }
    Iterator& operator++() {
      this->advance();
      return *this;
    }
  };
  Iterator iterator() const { return Iterator(this); }
  Iterator iterator(I index) const { return Iterator(this, this->findSlot(index)); }
  // On the member at a position; null if there are not so many.
  Iterator iteratorAt(U32 position) const {
    return Iterator(this, position < members() ? place(&Place::position, position).slot : this->slotEnd());
  }

  // For a queue of entities: gives const members.
  class IteratorConst : private Iterator {
    using Member = Ptr<typename V::element_type const>;
    struct Arrow {
      Member member;
      Member const* operator->() const { return &member; }
    };

   public:
    explicit IteratorConst(LinkQueue const* queue) : Iterator(queue) {}
    using Iterator::operator bool;
    using Iterator::key;
    using Iterator::sequence;
    Member value() const { return Iterator::value(); }
    Member operator*() const { return value(); }
    Arrow operator->() const { return {value()}; }
    IteratorConst& operator++() {
      Iterator::operator++();
      return *this;
    }
  };
  IteratorConst iteratorConst() const { return IteratorConst(this); }

  // For attribute logs, which restore a queue with the numbers that its members had.
  // Whether a member of that number can follow the present ones.
  bool follows(U64 sequence) const {
    return sequence >= afterLast() && sequence < farthest && !find(static_cast<I>(sequence));
  }
  // Appends a member under that number; the next one gets a higher number. REQUIRES: follows( sequence ).
  void restore(U64 sequence, V const& value) {
    append(sequence, value);
    if (next_ <= sequence) next_ = sequence + 1;
  }
  U64 nextSequence() const { return next_; }
  // Sets the number of the next member; false, and no change, if it cannot follow the present ones.
  bool nextSequenceIs(U64 next) {
    if (next > farthest || next < afterLast()) return false;
    next_ = next;
    return true;
  }

 private:
  static constexpr U64 spaceMax = std::numeric_limits<std::make_unsigned_t<I>>::max();
  static constexpr U64 farthest = U64(1) << 63;  // the highest number to restore, so that numbers never overflow
  static constexpr U32 worthReleasing = 64;      // an empty queue keeps up to so many slots

  struct Place {
    U32 slot, position;
  };
  static constexpr Place nowhere{Base::none, Base::none};

  // The place of the member at a slot or position.
  Place place(U32 Place::*by, U32 wanted) const {
    Place at{head(), 0};
    if (this->slotEnd() - at.slot == members()) {  // no gaps
      U32 const distance = wanted - at.*by;
      return {at.slot + distance, distance};
    }
    auto const distance = [&](Place const& from) { return from.*by < wanted ? wanted - from.*by : from.*by - wanted; };
    for (Place const& other : {Place{this->slotEnd(), members()}, lastPlace_})
      if (distance(other) < distance(at)) at = other;
    for (; at.*by < wanted; ++at.position) at.slot = this->nextSlot(at.slot + 1);
    while (at.*by > wanted) {
      --at.position;
      do {
        --at.slot;
      } while (!this->slotLive(at.slot));
    }
    return lastPlace_ = at;
  }
  // The next number whose index no member has.
  U64 nextFree() const {
    if (members() > spaceMax) throwRangeException("linkqueue index space full");
    U64 sequence = next_;
    while (find(static_cast<I>(sequence))) ++sequence;
    return sequence;
  }
  // The slot of the oldest member; the end if there is none.
  U32 head() const { return first_ = this->nextSlot(first_); }
  U64 afterLast() const {
    U32 slot = this->slotEnd();
    while (slot > 0 && !this->slotLive(slot - 1)) --slot;
    return slot == 0 ? 0 : this->at(slot - 1).sequence + 1;
  }
  U32 slotOf(I index) const {
    U32 const slot = this->findSlot(index);
    if (slot == Base::none) throwRangeException("linkqueue index out of range");
    return slot;
  }
  void append(U64 sequence, V const& value) {
    U32 const end = this->slotEnd();
    this->emplace(keyHash(static_cast<I>(sequence)), sequence, value);
    if (this->slotEnd() <= end) first_ = 0;  // gaps were closed
  }
  V takeAt(U32 slot) {
    lastPlace_ = nowhere;
    V taken = this->takeSlot(slot).value;
    if (empty() && !this->pinned() && this->slotEnd() > worthReleasing) clear();
    return taken;
  }

  mutable U32 first_ = 0;              // no member is in a slot before this one
  mutable Place lastPlace_ = nowhere;  // the place asked for last; used while there are gaps
  U64 next_ = 0;
};

template <class V, class I = U32>
using LinkedQueue = LinkQueue<V, I>;

}  // namespace Kel
