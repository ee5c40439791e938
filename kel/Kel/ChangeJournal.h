// Change journals: which entities of a tree have changed.
//
// A journal is attached to an entity, its anchor. It notes every change of the anchor and of what is below it. Code
// that has made two trees equal takes a checkpoint in the journal of each. Later `since` tells what has changed in each
// tree, and only that needs to be compared again; TreePair.h does both. Any entity can be an anchor. A journal does not
// depend on those of other anchors in the same tree.
//
// A journal notes all writes that notify (Entity::notify), whether or not the entity has reactors; pointers that are
// dropped because their entity left its tree; and owned entities that come and go. Reading an attribute log is silent:
// its entities are new, and are noted as a whole when they come into a tree.
//
// Every entity carries a stamp of the epoch in which it last changed. Epochs are counted for the whole process, and
// each checkpoint begins one. An entity is noted once in each epoch, and again for a stronger kind of change. The first
// write in an epoch costs a walk to the root of the tree. Later writes in the same epoch, and all writes in a process
// that has never attached a journal, cost one load and one comparison. When a subtree leaves the tree, a journal with
// entries walks the subtree.
//
// A journal may forget its entries: when there are more than `maxEntries`, when memory runs out, when a link to a
// parent was set by Entity::parentIs, and when journals are switched off. Then it no longer holds positions from
// before, and the whole tree must be compared.
//
// A tree and its journals belong to one thread at a time. Threads may work on different trees at the same time; they
// share the epoch and some counters, which are atomic. Relaxed operations are enough: a thread that gets a tree from
// another one also sees the epochs that the other one saw.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "Kel/Entity.h"

namespace Kel {

// The journal of one anchor.
class KEL_API ChangeJournal : public KelMemPool {
 public:
  // An entity that has changed, and how.
  struct Entry {
    Entity const* entity;
    Change change;
  };

  // A member of a hash map that has left: its owner, the attribute, and the hash of its key.
  struct Left {
    Entity const* owner;
    AttributeId attr;
    U32 hash;
  };

  // A journal that would have more entries forgets them all. If more members have left, it notes their owners as a
  // whole instead, and forgets which members these were.
  static constexpr std::size_t maxEntries = 16384;

  // The journal of an entity. If there is none, makes one and begins a new epoch. The entity owns it.
  static ChangeJournal& attach(Entity const& anchor);
  // The journal of an entity, or null.
  static ChangeJournal* of(Entity const& anchor);

  ChangeJournal(ChangeJournal const&) = delete;
  ChangeJournal& operator=(ChangeJournal const&) = delete;

  // No other journal of the process ever has the same id.
  U64 id() const { return id_; }

  // Begins a new epoch and answers `end`: every change from now on has an entry after this position. To compare two
  // trees later, take both positions before either tree changes.
  U64 checkpoint();
  // The position after the last entry. While it equals a checkpoint that is held, nothing has changed. It is not itself
  // a checkpoint: an entity that has already changed in this epoch may change again without a new entry.
  U64 end();
  // Whether the journal still has all entries after a position.
  bool holds(U64 from);
  // The entries after a position: each entity once, with its strongest change, in the order of first entries, without
  // those that have left the anchor's tree. Raises RangeException if the position is not held. Cost: sorts the entries.
  std::vector<Entry> since(U64 from);
  // The members that have left after a position, in the order in which they left, without those of owners that have
  // left themselves. Their owners have entries. Raises RangeException if the position is not held.
  std::vector<Left> leftSince(U64 from);

  // Begins an epoch, in which every entity is noted again when it changes. After 2^30 epochs, journals are switched off
  // for the rest of the process.
  static void newEpoch();
  // Whether journals are on. While they are off, nothing is noted and no position is held. They are on at first, unless
  // the environment has KEL_CHANGE_JOURNAL=off.
  static bool enabled();
  // Switches all journals of the process on or off.
  static void enabledIs(bool on);

  // How many entities of the process have left their tree while a handle other than their owner's was on them. A
  // pointer attribute somewhere may still lead to such an entity.
  static U64 heldDepartures();
  // How often all journals of the process were made to forget.
  static U64 upheavals();

  // For tests: skips epochs until `left` are left.
  static void lastEpochsLeftIs(U32 left);

 private:
  friend class Entity;
  friend class Dismantling;
  friend class EqualTrees;
  struct Epochs;
  struct Departure {
    Entity const* entity;
    U64 at;  // older entries of the entity are void
  };
  struct LeftAt {
    Left left;
    U64 at;  // a position after that of the owner's entry
  };

  ChangeJournal();
  static Epochs& epochs();
  static void noteHeldDeparture() noexcept { heldDepartures_.fetch_add(1, Order::relaxed); }

  // Addresses, with the change in the two lowest bits; 0: void.
  std::span<U64> entries() { return {room_.data(), next_ ? static_cast<std::size_t>(next_ - room_.data()) : 0}; }
  U64 position() { return base_ + entries().size(); }
  static void noteAbove(Entity const* e, U64 entry, U32 stamp) noexcept;
  static void noteWithRoom(Entity const* e, U64 entry, U32 stamp) noexcept;
  bool makeRoom(U32 stamp) noexcept;
  void depart(Entity const& top) noexcept;
  void departBelow(Entity const& top);
  void noteLeft(Left const& left) noexcept;
  void noteOwnersOfLeft() noexcept;
  void settle() noexcept;
  void forget() noexcept;
  void forgetAfterUpheaval() noexcept;

  static Atomic<U64> heldDepartures_;

  U64 const id_;
  U64 upheavals_;                      // how many this journal knows of
  U64 base_ = 0;                       // the position of the first entry
  U32 oldest_ = 0;                     // the epoch of the oldest entry, shifted as in a stamp
  bool wanted_ = false;                // a position was asked for since the journal last forgot
  std::vector<U64> room_;              // for the entries
  U64* next_ = nullptr;                // behind the last entry; null until there is one
  U64* roomEnd_ = nullptr;             // null as long as `next_` is
  std::vector<Departure> departures_;  // not settled yet
  std::vector<LeftAt> left_;           // a null owner: void
  std::shared_ptr<void> equalTrees_;   // what EqualTrees::remember keeps; null: nothing
};

}  // namespace Kel
