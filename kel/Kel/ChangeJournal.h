// Change journals: which entities of a tree have changed.
//
// A journal is attached to an entity, its anchor. It notes every change of the anchor and of what is below it. Code
// that has made two trees equal takes a checkpoint in the journal of each. Later `since` tells what has changed in each
// tree, and only that needs to be compared again. Any entity can be an anchor. A journal does not depend on those of
// other anchors in the same tree.
//
// Noted are all writes that notify (Entity::notify), whether or not the entity has reactors; pointers that are dropped
// because their entity left its tree; and owned entities that come and go. Reading an attribute log is silent: its
// entities are new, and are noted as a whole when they come into a tree.
//
// Every entity carries a stamp of the epoch in which it last changed. Epochs are counted for the whole process, and
// each checkpoint begins one. An entity is noted once an epoch, and again for a stronger kind of change. A write costs
// one load and one comparison while no journal was ever attached, and so does each later write in the same epoch. The
// first write in an epoch costs a walk to the root of the tree. When a subtree leaves the tree, a journal with entries
// walks the subtree.
//
// A journal may forget its entries: when there are more than `maxEntries`, when memory runs out, when links to parents
// were moved by hand (Entity::parentIs), and when journals are switched off. Positions taken before are then no longer
// held, and the whole tree must be compared.
//
// A tree and its journals belong to one thread at a time; threads may work on different trees at the same time. They
// share the epoch and some counters, which are atomic. The order of relaxed operations is enough: a thread that gets a
// tree from another one also sees the epochs that the other one saw.
#pragma once

#include <vector>

#include "Kel/Entity.h"

namespace Kel {

class KEL_API ChangeJournal {
 public:
  struct Entry {
    Entity const* entity;
    Change change;
  };

  static constexpr std::size_t maxEntries = 16384;

  // The journal of an entity. Makes one when there is none, and then begins a new epoch. A journal is destroyed with
  // its entity.
  static ChangeJournal& attach(Entity const& anchor);
  // The same, but null when there is none.
  static ChangeJournal* of(Entity const& anchor);

  ChangeJournal(ChangeJournal const&) = delete;
  ChangeJournal& operator=(ChangeJournal const&) = delete;

  // Unique in the process; another journal never has it.
  U64 id() const { return id_; }

  // Begins a new epoch and returns `end`: every change from now on has an entry behind this position. To compare two
  // trees later, take both positions before either tree changes.
  U64 checkpoint();
  // The position behind the last entry. While it is the same as a checkpoint that is held, nothing has changed. It is
  // no checkpoint itself: an entity that has changed in this epoch before may change again without a new entry.
  U64 end();
  // Whether all entries behind a position are still there.
  bool holds(U64 from);
  // The entries behind a position that is held: each entity once, with its strongest change, in the order of first
  // entries. Entities that have left the anchor's tree are not among them. Raises RangeException when entries are
  // missing. Cost: sorts the entries.
  std::vector<Entry> since(U64 from);

  // Begins an epoch: every entity is noted again when it changes. After 2^30 epochs journals are switched off for the
  // rest of the process.
  static void newEpoch();
  // While journals are off, nothing is noted and no position is held. They are on at first unless the environment of
  // the process has KEL_CHANGE_JOURNAL=off.
  static bool enabled();
  static void enabledIs(bool on);

  // Counts the entities of the whole process that left their tree while another handle than their owner's pointed at
  // them: a pointer attribute somewhere may still do so.
  static U64 heldDepartures();
  // Counts what made all journals of the process forget.
  static U64 upheavals();

  // For tests: goes on to the epoch after which so many are left.
  static void lastEpochsLeftIs(U32 left);

 private:
  friend class Entity;
  friend class Dismantling;
  struct Epochs;
  struct Departure {
    Entity const* entity;
    U64 at;  // older entries of the entity are void
  };

  ChangeJournal();
  static Epochs& epochs();
  static void noteHeldDeparture() noexcept { heldDepartures_.fetch_add(1, std::memory_order_relaxed); }

  U64 position() const { return base_ + entries_.size(); }
  void append(Entity const& entity, Change change, U32 floor) noexcept;
  void depart(Entity const& top) noexcept;
  void departBelow(Entity const& top);
  void settle() noexcept;
  void forget() noexcept;
  void forgetAfterUpheaval() noexcept;
  template <class Visit>
  static void eachAbove(Entity const* e, U32 floor, Visit const& visit) noexcept;

  static std::atomic<U64> heldDepartures_;

  U64 const id_;
  U64 upheavals_;                      // how many this journal knows of
  U64 base_ = 0;                       // the position of the first entry
  U32 oldest_ = 0;                     // the epoch of the oldest entry, shifted as in a stamp
  bool wanted_ = false;                // a position was asked for since the journal last forgot
  std::vector<U64> entries_;           // addresses, with the change in the two lowest bits; 0: void
  std::vector<Departure> departures_;  // not settled yet
};

}  // namespace Kel
