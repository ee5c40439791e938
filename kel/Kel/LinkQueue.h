// Queues: members in the order of insertion, each with an index.
//
// Indices are handed out upwards from 0 and wrap round (those of a signed type into its negative half); one that a
// member still has is passed over. A member keeps its index for as long as it is in the queue. Appending to a queue
// whose every index is taken raises RangeException "linkqueue index space full"; an index without a member raises
// "linkqueue index out of range" where one is needed. Iterators behave as those of the hash map, and walk in the order
// of insertion.
//
// Cost: all operations take constant time on average, but an append takes a look-up for each taken index that it passes
// over.
#pragma once

#include <limits>

#include "Kel/Exception.h"
#include "Kel/HashMap.h"

namespace Kel {

// The number of a member in the order of insertion; its lowest bits are the index.
template <class V, class I>
struct LinkQueueSlot {
  U64 sequence;
  V value;
};
template <class I>
struct LinkQueueKey {
  template <class Slot>
  static I key(Slot const& slot) {
    return static_cast<I>(slot.sequence);
  }
};

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
  I enq(V const& value) {
    U64 const sequence = nextFree();
    append(sequence, value);
    next_ = sequence + 1;
    return static_cast<I>(sequence);
  }
  // Takes the oldest member out.
  V deq() {
    if (empty()) throwRangeException("linkqueue index out of range");
    return takeAt(head());
  }
  V const* find(I index) const {
    U32 const slot = this->findSlot(index);
    return slot == Base::none ? nullptr : &this->at(slot).value;
  }
  V const& get(I index) const { return this->at(slotOf(index)).value; }
  V take(I index) { return takeAt(slotOf(index)); }
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
  // Moves every member out, oldest first, to be handed on. Takes no memory.
  template <class Taken>
  void takeAll(Taken const& take) {
    for (U32 slot = head(); slot < this->slotEnd(); slot = this->nextSlot(slot + 1))
      take(std::move(this->at(slot).value));
    clear();
  }
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
    explicit Iterator(LinkQueue const* queue) : Iterator(queue, queue->head()) {}
    Iterator(LinkQueue const* queue, U32 slot) : queue_(queue), pin_(queue), slot_(slot) {}
    explicit operator bool() const { return slot_ < queue_->slotEnd() && queue_->slotLive(slot_); }
    I key() const { return static_cast<I>(sequence()); }
    // The number in the order of insertion; the index is what shows of it.
    U64 sequence() const { return queue_->at(slot_).sequence; }
    V const& value() const { return queue_->at(slot_).value; }
    V const& operator*() const { return value(); }
    V const* operator->() const { return &value(); }
    Iterator& operator++() {
      if (slot_ < queue_->slotEnd()) slot_ = queue_->nextSlot(slot_ + 1);
      return *this;
    }

   private:
    LinkQueue const* queue_;
    HashMapGeneric::Pin pin_;
    U32 slot_;
  };
  Iterator iterator() const { return Iterator(this); }
  Iterator iterator(I index) const { return Iterator(this, this->findSlot(index)); }

  // Of a queue of entities: hands them out as const.
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

  // To put a queue back as it was: its members by their numbers in the order of insertion, and the number of the next.
  // Whether a member of that number can come behind those that are there; puts it there; sets the next number, or
  // answers that it is none that these members can be followed by.
  bool follows(U64 sequence) const {
    return sequence >= afterLast() && sequence < farthest && !find(static_cast<I>(sequence));
  }
  void restore(U64 sequence, V const& value) { append(sequence, value); }
  U64 nextSequence() const { return next_; }
  bool nextSequenceIs(U64 next) {
    if (next > farthest || next < afterLast()) return false;
    next_ = next;
    return true;
  }

 private:
  static constexpr U64 spaceMax = std::numeric_limits<std::make_unsigned_t<I>>::max();
  static constexpr U64 farthest = U64(1) << 63;  // no queue gets there by itself, and from there none comes to the end
  static constexpr U32 worthReleasing = 64;      // slots

  // The next number whose index no member has.
  U64 nextFree() const {
    if (members() > spaceMax) throwRangeException("linkqueue index space full");
    U64 sequence = next_;
    while (find(static_cast<I>(sequence))) ++sequence;
    return sequence;
  }
  // The slot of the oldest member; the end when there is none.
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
    V taken = this->takeSlot(slot).value;
    if (empty() && !this->pinned() && this->slotEnd() > worthReleasing) clear();
    return taken;
  }

  mutable U32 first_ = 0;  // no member is in a slot before this one
  U64 next_ = 0;
};

template <class V, class I = U32>
using LinkedQueue = LinkQueue<V, I>;

}  // namespace Kel
