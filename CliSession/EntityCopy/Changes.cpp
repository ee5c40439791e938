// What a walk may skip: two roots that were equal differ only in what has changed since. See docs/copy-engine.md for
// what counts as a change, and for the proof.
#include <new>

#include "CliSession/EntityCopy/Walk.h"

namespace Cli::Session {

std::optional<Kel::EqualTrees::Context> Walk::context(Frame& root) {
  if (!guide_ || !byPosition_ || &root.plan.dest != &root.plan.src || !Kel::ChangeJournal::enabled()) return {};
  Kel::Ptr<Kel::Entity const> const ground = guide_->ground(root.path());
  if (!ground) return {};
  auto const table = guide_->handlerTable();
  if (!table) root.walkedThroughIs(true, nullptr, impl_.generation);
  Kel::ChangeJournal& journal = Kel::ChangeJournal::attach(*ground);
  Kel::ChangeJournal* const ofTable = table ? &Kel::ChangeJournal::attach(*table) : nullptr;
  return Kel::EqualTrees::Context(ec_.dest().ptr(), ec_.src().ptr(), journal.id(), journal.end(),
                                  ofTable ? ofTable->id() : 0, ofTable ? ofTable->end() : 0);
}

bool Walk::root(Frame& f) {
  bool const isRoot = ec_.srcCopyRootHas(&f.src) || (ec_.srcCopyRoots() == 0 && ec_.src().ptr() == &f.src);
  auto const known = isRoot ? context(f) : std::nullopt;
  if (!known) return attributes(f);
  context_ = *known;
  compares_ = compare_;
  root_ = &f;
  skips_ = ec_.pendingAttrs() == 0 &&
           Kel::EqualTrees::remembered(f.src, f.dest, context_).addChanges(f.src, f.dest, changes_);
  if (skips_) f.changed = changes_.find(f.src);
  bool const any = attributes(f);
  if (stopped() || !root_) return any;
  // What foreign code has changed, perhaps where the walk had been already, counts as changed since it ran first.
  (checkpoints_ > 0 ? beforeFirst_ : Kel::EqualTrees(f.src, f.dest)).remember(f.src, f.dest, context_);
  for (auto const& [e, as] : unsettled_) e->mark(as);
  return any;
}

void Walk::beforeForeignCode() {
  if (!root_ || (checkpoints_ > 0 && (!skips_ || beforeLast_.isNow(root_->src, root_->dest)))) return;
  beforeLast_ = Kel::EqualTrees(root_->src, root_->dest);
  if (checkpoints_++ == 0) beforeFirst_ = beforeLast_;
}

// After foreign code: adds what it has changed in the destination. If it may have changed how the rest is walked, the
// rest is walked in full, and nothing is remembered.
void Walk::renewChanges() noexcept {
  constexpr Kel::U32 maxCheckpoints = 256;  // each of them begins an epoch
  try {
    if (root_ && (compare_ != compares_ || context(*root_) != context_)) root_ = nullptr;
    skips_ = skips_ && root_ && checkpoints_ < maxCheckpoints &&
             beforeLast_.addLaterChanges(root_->src, root_->dest, changes_);
  } catch (std::bad_alloc const&) {
    root_ = nullptr;
    skips_ = false;
  }
}

void Walk::unsettle(Kel::Entity& dest, Kel::Change as) {
  if (!root_) return;
  unsettled_.emplace_back(&dest, as);
  if (unsettled_.size() == Kel::ChangeJournal::maxEntries) root_ = nullptr;  // the journal would forget them
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
