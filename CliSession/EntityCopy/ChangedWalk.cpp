// The walk over what has changed.
#define KEL_SOURCE_NAME "EntityCopy"
#include <algorithm>

#include "CliSession/EntityCopy/Changes.h"
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
  RootPair const roots{f.dest, f.src, *ground};
  Kel::U64 const begun = impl_.generation;
  bool const compared = compare_;
  if (ec_.pendingAttrs() == 0 && addChanges(ec_, roots, changes_)) {
    changesAt_ = begun;
    Kel::ChangedEntity const* const here = changes_.find(f.src);
    if (!here->has(Kel::Change::whole)) f.changed = here;
  }
  std::optional<Checkpoint> equal;
  if (Kel::ChangeJournal::of(f.src) && Kel::ChangeJournal::of(f.dest)) equal = takeCheckpoint(ec_, roots);
  bool const any = attributes(f);
  if (stopped()) return any;
  // Foreign code may have changed what was walked already. That has an entry after the first checkpoint. In a
  // comparison, it may have let a difference pass.
  if (impl_.generation == begun)
    equal = takeCheckpoint(ec_, roots);
  else if (compared || compare_ || !mayKeepChanges(f))
    return any;
  if (!equal) return any;
  rememberEqual(roots, *equal);
  for (Kel::Ptr<Kel::Entity> const& e : unsettled_) e->mark(Kel::Change::members);
  return any;
}

// Collects the next members that have changed, with their counterparts, as AttrAccess::gatherPairs does.
Kel::U32 Walk::gatherChanged(Frame& f, Step const& s, Kel::U32& position, Kel::AttrAccess::Pair* pairs, Kel::U32 most) {
  Kel::U32 count = 0;
  auto next = f.changed->owned.lower_bound({s.attr.id(), position, nullptr});
  for (; count < most && next != f.changed->owned.end() && next->attr == s.attr.id(); ++next) {
    Kel::Entity* const dest = s.access.findCounterpart(f.dest, *next->entity, next->position);
    pairs[count++] = {dest, const_cast<Kel::Entity*>(next->entity), next->position};
    position = next->position + 1;
  }
  return count;
}

}  // namespace Cli::Session
