// What a walk may skip: two roots that were equal differ only in what has changed since. See docs/copy-engine.md for
// what counts as a change, and for the proof.
#include <algorithm>

#include "CliSession/EntityCopy/Walk.h"

namespace Cli::Session {

// Whether nothing is registered or marked at this root or below it, so that what has not changed can be skipped. The
// handler is asked about all types that the root's type refers to, and about those that are derived from these.
bool Walk::mayKeepChanges(Frame& f) {
  if (!guide_ || !byPosition_ || &f.plan.dest != &f.plan.src || !Kel::ChangeJournal::enabled()) return false;
  if (!guide_->walksThrough(f.path(), true)) return false;
  f.walkedThroughIs(true, nullptr, impl_.generation);
  if (guide_->walksThroughType("")) return true;
  std::vector<Kel::KelType const*> reached{&f.plan.src};
  auto const reach = [&](Kel::KelType const* type) {
    if (std::find(reached.begin(), reached.end(), type) == reached.end()) reached.push_back(type);
  };
  for (std::size_t i = 0; i < reached.size(); ++i) {
    Kel::KelType const& type = *reached[i];
    if (asksForType(type)) return false;
    for (Kel::KelType const* derived = type.firstDerived(); derived; derived = derived->nextDerived()) reach(derived);
    for (Kel::KelAttr const* attr : type.ownAttrs())
      if (attr->copiable()) reach(attr->type());
  }
  return true;
}

bool Walk::root(Frame& f) {
  bool const isRoot = ec_.srcCopyRootHas(&f.src) || (ec_.srcCopyRoots() == 0 && ec_.src().ptr() == &f.src);
  Kel::Ptr<Kel::Entity const> const ground = isRoot && mayKeepChanges(f) ? guide_->ground() : nullptr;
  if (!ground) return attributes(f);
  Kel::ChangeJournal& journal = Kel::ChangeJournal::attach(*ground);
  // What the handler's answers and the targets of pointers depend on, besides the two trees.
  Kel::EqualTrees::Context const context{ec_.dest().ptr(), ec_.src().ptr(), journal.id(), journal.end()};
  Kel::U64 const begun = impl_.generation;
  if (ec_.pendingAttrs() == 0 &&
      Kel::EqualTrees::remembered(f.src, f.dest, context).addChanges(f.src, f.dest, changes_)) {
    changesAt_ = begun;
    f.changed = changes_.find(f.src);
  }
  bool const any = attributes(f);
  // Foreign code may have changed what was walked already, or how the rest was walked. What was remembered before still
  // holds.
  if (stopped() || impl_.generation != begun) return any;
  Kel::EqualTrees(f.src, f.dest).remember(f.src, f.dest, context);
  for (auto const& [e, as] : unsettled_) e->mark(as);
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
