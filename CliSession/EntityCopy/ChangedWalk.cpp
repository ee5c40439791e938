// The walk over what has changed.
#define KEL_SOURCE_NAME "EntityCopy"
#include <algorithm>
#include <utility>

#include "CliSession/EntityCopy/Walk.h"

namespace Cli::Session {

// Whether the handler has to be asked about a type, a type derived from it, or a type that these refer to.
bool Walk::asksForAnyType(Kel::KelType const& type, std::vector<Kel::KelType const*>& seen) {
  if (std::find(seen.begin(), seen.end(), &type) != seen.end()) return false;
  seen.push_back(&type);
  if (asksForType(type)) return true;
  for (Kel::KelType const* derived = type.firstDerived(); derived; derived = derived->nextDerived())
    if (asksForAnyType(*derived, seen)) return true;
  for (Kel::KelAttr const* attr : type.ownAttrs())
    if (attr->copiable() && asksForAnyType(*attr->type(), seen)) return true;
  return false;
}

// Whether nothing is registered or marked at this root or below it, so that what has not changed can be skipped.
bool Walk::mayKeepChanges(Frame& f) {
  if (!guide_ || !keeps_ || &f.plan.dest != &f.plan.src || !Kel::ChangeJournal::enabled()) return false;
  std::vector<Kel::KelType const*> seen;
  return guide_->walksThrough(f.path(), true) && !asksForAnyType(f.plan.src, seen);
}

bool Walk::root(Frame& f) {
  bool const isRoot = ec_.srcCopyRootHas(f.srcPtr()) || (ec_.srcCopyRoots() == 0 && ec_.src() == f.srcPtr());
  Kel::Ptr<Kel::Entity const> ground;
  if (isRoot && mayKeepChanges(f)) ground = guide_->ground();
  if (!ground) return attributes(f);
  WalkedRoot walked{f.destPtr(), f.srcPtr(), ground, {}};
  if (ec_.pendingAttrs() == 0) changes_ = changesSinceEqual(ec_, walked);
  walked.start = checkpointIfJournaled(ec_, walked);
  if (changes_) {
    changesAt_ = impl_.generation;
    Changed const* const here = changes_->find(f.src);
    if (!here->has(Kel::Change::whole)) f.changed = here;
  }
  bool const any = attributes(f);
  impl_.walked.push_back(std::move(walked));
  return any;
}

// Copies the members of one attribute that have changed, in the order of the walk.
bool Walk::changedMembers(Frame& f, Step const& s) {
  std::vector<std::pair<Kel::U32, Kel::Entity const*>> changed;
  for (Kel::Entity const* e : f.changed->owned)
    if (e->parentAttrId() == s.attr.id()) changed.emplace_back(s.dense ? s.access.positionOf(f.src, *e) : 0, e);
  bool const membership = f.changed->has(Kel::Change::members);
  if (!membership && changed.empty()) return false;
  if (membership && s.attr.isQueue()) {
    // The members may pair up differently now, so the whole queue is walked.
    Changed const* const here = std::exchange(f.changed, nullptr);
    bool const any = attribute(f, s);
    f.changed = here;
    return any;
  }
  // Otherwise every member is visited, and `descend` skips those that have not changed.
  bool const sameMembers = s.dense && (!membership || s.access.sameKeyHashes(f.dest, f.src)) && s.usualPlan->keyOnly;
  if (!sameMembers) return attribute(f, s);
  std::sort(changed.begin(), changed.end());
  Kel::IteratorRoom room;
  s.access.iterate(s.attr, f.src, room);  // keeps the positions as they are
  bool any = false;
  for (auto const& [position, src] : changed) {
    Kel::Entity* const dest = s.access.findCounterpart(f.dest, *src, position);
    if (!dest || dest->type() != src->type()) {
      any |= attribute(f, s);  // different keys have equal hashes
      break;
    }
    any |= child(f, s, *dest, *src);
    if (stopped()) break;
    if (!changesHold()) {
      any |= copyPairs(f, s, position + 1, true);
      break;
    }
  }
  return any;
}

}  // namespace Cli::Session
