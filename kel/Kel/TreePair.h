// Pairs of trees of the same shape, such as a tree and its copy: where the counterpart of an entity is, and what has
// changed in either tree since both were equal.
#pragma once

#include <map>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "Kel/ChangeJournal.h"
#include "Kel/KelType.h"
#include "Kel/MemPool.h"

namespace Kel {

// The entity that `owner` has under the attribute and key of `e`; null if there is none, if the owners have different
// types, or if `e` is in a queue, where an index says nothing about another queue's item.
KEL_API Entity* heldLike(Entity const& owner, Entity const& e);

// The entity below `otherTop` at the position that `e` has below `top`: from each owner, the same attribute and key
// lead to the next. If there is none: the same for the nearest owner of `e` that has a counterpart. Cost: a look-up for
// each owner on the way; no path is made.
struct Nearest {
  Entity* entity;
  Entity const* missing;  // the first on the way down to `e` that has no counterpart; null: all have one
};
KEL_API Nearest nearestCounterpart(Entity const& e, Entity const& top, Entity& otherTop);

// How an entity or its counterpart has changed, and what is below it.
struct ChangedEntity {
  // An entity that it owns and that has changed, has changes below it, or may have lost its counterpart. A queue's may
  // be one of either tree.
  struct Owned {
    AttributeId attr;
    U32 position;  // in a hash map; else 0
    Entity const* entity;
    bool operator<(Owned const& o) const {
      return std::tie(attr, position, entity) < std::tie(o.attr, o.position, o.entity);
    }
  };

  // A place in a hash map.
  struct Place {
    AttributeId attr;
    U32 position;
    bool operator<(Place const& o) const { return std::tie(attr, position) < std::tie(o.attr, o.position); }
  };

  U8 change = 0;  // 0: nothing of its own; else a Change
  std::set<Owned> owned;
  // The members of the counterpart's hash maps that may have no counterpart here. The counterparts of all others were
  // there and have not left. A walk takes out those that it has looked at.
  std::set<Place> unpaired;

  bool has(Change least) const { return change >= static_cast<U8>(least); }
  // Whether an attribute, or what it owns, may have changed.
  bool concerns(KelAttr const& attr) const {
    if (has(attr.instantiating() ? Change::members : Change::content)) return true;
    auto const first = owned.lower_bound({attr.id(), 0, nullptr});
    return first != owned.end() && first->attr == attr.id();  // an unpaired member is one of `members`
  }
};

// The entities of the first tree at which two trees may differ, with all their owners. Of what is in a queue, only the
// queue's owner is sure to be there, because it is not known which items are counterparts.
class ChangedEntities {
 public:
  ChangedEntity const* find(Entity const& e) const {
    auto const found = changed_.find(&e);
    return found == changed_.end() ? nullptr : &found->second;
  }
  ChangedEntity* find(Entity const& e) { return const_cast<ChangedEntity*>(std::as_const(*this).find(e)); }

 private:
  friend class EqualTrees;
  ChangedEntity& at(Entity const& e, Entity const& root);
  void note(Entity const& e, Entity const& root, Change change);
  void addUnpaired(Entity const& owner, Entity const& root, Entity const& theirs);

  std::unordered_map<Entity const*, ChangedEntity> changed_;
};

// A time when two trees were equal. It may also be the time before one was made equal to the other: what that changed
// counts as changed since.
class KEL_API EqualTrees {
 public:
  // They were never equal.
  EqualTrees() = default;
  // Now. Attaches change journals where there are none.
  EqualTrees(Entity const& root, Entity const& other);

  // Adds the root, and what has changed at or below both since. Answers false, and adds nothing, if that is not known:
  // if a journal has forgotten it, if this was made for other trees, or if an entity of any tree has left it while a
  // pointer may have held it. Cost: sorts the changes; a look-up for each entity and owner.
  bool addChanges(Entity const& root, Entity const& other, ChangedEntities& to) const;
  // Brings changes up to date that were added before this time: adds what has changed in the other tree since. Answers
  // false if that is not known, or if the first tree has changed, of which `to` may name entities that are gone.
  bool addLaterChanges(Entity const& root, Entity const& other, ChangedEntities& to) const;
  // Whether nothing has changed since in either tree, and no entity of any tree has left it while a pointer may have
  // held it.
  bool isNow(Entity const& root, Entity const& other) const;

  // Remembers this time with the journal of `other`, for a context: whatever else it depends on that the two are equal.
  // With more than `maxRemembered` times, a journal forgets those that it has. REQUIRES: this was made for the two,
  // or says that they were never equal.
  using Context = std::tuple<Entity const*, Entity const*, U64, U64, U64, U64>;  // no entity is dereferenced
  static constexpr std::size_t maxRemembered = 4096;
  void remember(Entity const& root, Entity const& other, Context const& context) const;
  // The time that was remembered last for the same two and the same context. If there is none: they were never equal.
  static EqualTrees remembered(Entity const& root, Entity const& other, Context const& context);

 private:
  using Key = std::pair<Entity const*, Context>;
  bool isKnown(Entity const& root, Entity const& other) const;
  void addOthersChanges(Entity const& root, Entity const& other, ChangedEntities& to) const;

  using Remembered = std::map<Key, EqualTrees, std::less<Key>, PoolAllocator<std::pair<Key const, EqualTrees>>>;

  U64 rootJournal_ = 0, otherJournal_ = 0, root_ = 0, other_ = 0, heldDepartures_ = 0;
};

}  // namespace Kel
