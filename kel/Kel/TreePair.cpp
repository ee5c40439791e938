#include "Kel/TreePair.h"

#include <algorithm>
#include <vector>

#include "Kel/AttrAccess.h"
#include "Kel/Dir.h"

namespace Kel {

Entity* heldLike(Entity const& owner, Entity const& e) {
  KelAttr const* const held = e.parentAttr();
  if (!held || owner.type() != e.parent()->type()) return nullptr;
  if (owner.type() == Dir::_fwkType()) {
    if (e.type() == Dir::EntryState::_fwkType()) return nullptr;
    return const_cast<Entity*>(static_cast<Dir const&>(owner).child(e.name()));
  }
  return held->isCollection() ? held->access().findCounterpart(owner, e, 0) : held->access().target(owner);
}

Nearest nearestCounterpart(Entity const& e, Entity const& top, Entity& otherTop) {
  // Down from the top; a tree may be deeper than the stack.
  struct Level {
    Entity const* entity;
  };
  std::vector<Level, PoolAllocator<Level>> way;
  for (Entity const* at = &e; at != &top; at = at->parent()) {
    if (!at->parent()) return {&otherTop, at};
    way.push_back({at});
  }
  Entity* other = &otherTop;
  for (; !way.empty(); way.pop_back()) {
    Entity const& sought = *way.back().entity;
    Entity* const held = heldLike(*other, sought);
    if (!held) return {other, &sought};
    other = held;
  }
  return {other, nullptr};
}

// --- Changes ---

namespace {

// Whether an entity has a position in its owner.
bool isPlaced(Entity const& e) { return e.parentAttr()->collectionKind() == KelAttr::Collection::hashMap; }

ChangedEntity::Owned ownedBy(Entity const& owner, Entity const& e) {
  KelAttr const& in = *e.parentAttr();
  return {in.id(), isPlaced(e) ? in.access().positionOf(owner, e) : 0, &e};
}

}  // namespace

ChangedEntity& ChangedEntities::at(Entity const& e, Entity const& root) {
  auto const [found, isNew] = changed_.try_emplace(&e);
  ChangedEntity& changed = found->second;  // stays valid while the map grows
  bool goesOn = isNew;
  for (Entity const* below = &e; goesOn && below != &root; below = below->parent()) {
    auto const [owner, ownerIsNew] = changed_.try_emplace(below->parent());
    auto& owned = owner->second.owned;
    owned.insert(owned.end(), ownedBy(*below->parent(), *below));  // usually the last
    goesOn = ownerIsNew;
  }
  return changed;
}

void ChangedEntities::note(Entity const& e, Entity const& root, Change change) {
  ChangedEntity& changed = at(e, root);
  changed.change = std::max(changed.change, static_cast<U8>(change));
}

// Adds a member of the counterpart's as one that may have no counterpart here.
void ChangedEntities::addUnpaired(Entity const& owner, Entity const& root, Entity const& theirs) {
  if (!isPlaced(theirs)) return;
  ChangedEntity::Owned const place = ownedBy(*theirs.parent(), theirs);
  at(owner, root).unpaired.insert({place.attr, place.position});
}

EqualTrees::EqualTrees(Entity const& root, Entity const& other) {
  ChangeJournal &a = ChangeJournal::attach(root), &b = ChangeJournal::attach(other);
  rootJournal_ = a.id();
  otherJournal_ = b.id();
  root_ = a.checkpoint();  // the epoch is one for all journals
  other_ = b.end();
  heldDepartures_ = ChangeJournal::heldDepartures();
}

namespace {

// Calls back with each member under a hash in the counterpart of an owner that has lost one.
template <class Visit>
void eachLikeLeft(ChangeJournal::Left const& left, Entity const& root, Entity const& other, Visit const& visit) {
  Nearest const owner = nearestCounterpart(*left.owner, root, const_cast<Entity&>(other));
  if (owner.missing || owner.entity->type() != left.owner->type()) return;
  AttrAccess const& members = owner.entity->type()->attr(left.attr)->access();
  U32 cursor = 0;
  while (Entity const* const e = members.nextOfHash(*owner.entity, left.hash, cursor)) visit(*e);
}

}  // namespace

// Whether both journals still have all entries since, and every pointer leads where it did.
bool EqualTrees::isKnown(Entity const& root, Entity const& other) const {
  ChangeJournal *const a = ChangeJournal::of(root), *const b = ChangeJournal::of(other);
  return a && b && a->id() == rootJournal_ && b->id() == otherJournal_ && a->holds(root_) && b->holds(other_) &&
         heldDepartures_ == ChangeJournal::heldDepartures();
}

bool EqualTrees::isNow(Entity const& root, Entity const& other) const {
  return isKnown(root, other) && ChangeJournal::of(root)->end() == root_ && ChangeJournal::of(other)->end() == other_;
}

bool EqualTrees::addChanges(Entity const& root, Entity const& other, ChangedEntities& to) const {
  if (!isKnown(root, other)) return false;
  ChangeJournal& journal = *ChangeJournal::of(root);
  to.at(root, root);
  for (auto const& entry : journal.since(root_)) to.note(*entry.entity, root, entry.change);
  for (auto const& left : journal.leftSince(root_))
    eachLikeLeft(left, root, other, [&](Entity const& theirs) { to.addUnpaired(*left.owner, root, theirs); });
  addOthersChanges(root, other, to);
  return true;
}

bool EqualTrees::addLaterChanges(Entity const& root, Entity const& other, ChangedEntities& to) const {
  if (!isKnown(root, other) || ChangeJournal::of(root)->end() != root_) return false;
  // Where members came or went, places that were noted before may now be those of other members.
  for (auto const& entry : ChangeJournal::of(other)->since(other_)) {
    if (entry.change == Change::content) continue;
    Nearest const mine = nearestCounterpart(*entry.entity, other, const_cast<Entity&>(root));
    ChangedEntity* const known = mine.missing ? nullptr : to.find(*mine.entity);
    if (known && !known->unpaired.empty()) to.note(*mine.entity, root, Change::whole);
  }
  addOthersChanges(root, other, to);
  return true;
}

void EqualTrees::addOthersChanges(Entity const& root, Entity const& other, ChangedEntities& to) const {
  ChangeJournal& journal = *ChangeJournal::of(other);
  for (auto const& left : journal.leftSince(other_))
    eachLikeLeft(left, other, root, [&](Entity const& mine) { to.at(mine, root); });
  for (auto const& entry : journal.since(other_)) {
    Nearest const mine = nearestCounterpart(*entry.entity, other, const_cast<Entity&>(root));
    // An entity without a counterpart is one too many in its nearest owner that has one. An item of a queue may have a
    // counterpart that was not found.
    if (!mine.missing) {
      to.note(*mine.entity, root, entry.change);
      // It may have other constructor parameters.
      if (entry.change == Change::whole && entry.entity != &other)
        to.addUnpaired(*mine.entity->parent(), root, *entry.entity);
    } else if (mine.missing->parentAttr()->isQueue()) {
      to.at(*mine.entity, root).owned.insert(ownedBy(*mine.missing->parent(), *mine.missing));
    } else {
      to.note(*mine.entity, root, Change::members);
      to.addUnpaired(*mine.entity, root, *mine.missing);
    }
  }
}

void EqualTrees::remember(Entity const& root, Entity const& other, Context const& context) const {
  ChangeJournal* const journal = ChangeJournal::of(other);
  if (!journal) return;  // they were never equal
  std::shared_ptr<void>& kept = journal->equalTrees_;
  if (!kept) kept = std::allocate_shared<Remembered>(PoolAllocator<Remembered>());
  auto& times = *static_cast<Remembered*>(kept.get());
  if (times.size() >= maxRemembered) times.clear();
  times.insert_or_assign({&root, context}, *this);
}

EqualTrees EqualTrees::remembered(Entity const& root, Entity const& other, Context const& context) {
  ChangeJournal const* const journal = ChangeJournal::of(other);
  if (!journal || !journal->equalTrees_) return {};
  auto const& times = *static_cast<Remembered const*>(journal->equalTrees_.get());
  auto const found = times.find({&root, context});
  return found == times.end() ? EqualTrees() : found->second;
}

}  // namespace Kel
