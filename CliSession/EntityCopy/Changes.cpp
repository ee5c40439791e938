#include "CliSession/EntityCopy/Changes.h"

#include <algorithm>
#include <map>
#include <mutex>

#include "CliSession/EntityCopy/Counterparts.h"
#include "Kel/AttrAccess.h"

namespace Cli::Session {

using Kel::ChangeJournal;

// --- The changes of one pair ---

Changes::Changes(Kel::Entity const& dest, Kel::Entity const& src, std::vector<ChangeJournal::Entry> const& destEntries,
                 std::vector<ChangeJournal::Entry> const& srcEntries)
    : src_(src) {
  at(src);
  for (auto const& entry : srcEntries) note(*entry.entity, entry.change);
  for (auto const& entry : destEntries) {
    auto& top = const_cast<Kel::Entity&>(src);
    Nearest const counterpart = nearestCounterpart(*entry.entity, dest, top);
    Kel::Change change = entry.change;
    // An entity without a counterpart is an extra member of its nearest owner that has one. A queue's member may have
    // a counterpart that was not found, so all of the queue's owner is walked.
    if (counterpart.missing)
      change = counterpart.missing->parentAttr()->isQueue() ? Kel::Change::whole : Kel::Change::members;
    note(*counterpart.entity, change);
  }
}

Changed& Changes::at(Kel::Entity const& src) {
  auto const [found, isNew] = changed_.try_emplace(&src);
  Changed& changed = found->second;
  // References into the map stay valid while it grows.
  if (isNew && &src != &src_) {
    Kel::KelAttr const& in = *src.parentAttr();
    bool const placed = in.collectionKind() == Kel::KelAttr::Collection::hashMap;
    Kel::U32 const position = placed ? in.access().positionOf(*src.parent(), src) : 0;
    std::set<Changed::Owned>& owned = at(*src.parent()).owned;
    owned.insert(owned.end(), {in.id(), position, &src});  // usually the last
  }
  return changed;
}

void Changes::note(Kel::Entity const& src, Kel::Change change) {
  Changed& changed = at(src);
  changed.change = std::max(changed.change, static_cast<Kel::U8>(change));
}

// --- The memory ---

namespace {

// Keyed by the ids of the two journals. Ids are never used again, so entries of destroyed roots do no harm.
struct Memory {
  static constexpr std::size_t most = 4096;  // pairs; then all are forgotten
  std::mutex mutex;
  std::map<std::pair<Kel::U64, Kel::U64>, Checkpoint> equal;
};

Memory& memory() {
  static Memory& the = *new Memory;
  return the;
}

Ground groundOf(EntityCopy const& ec, ChangeJournal& ground) {
  return {ec.src().ptr(), ec.dest().ptr(), ground.id(), ground.end(), ChangeJournal::heldDepartures()};
}

}  // namespace

std::unique_ptr<Changes> changesSinceEqual(EntityCopy const& ec, RootPair const& root) {
  ChangeJournal* const src = ChangeJournal::of(root.src);
  ChangeJournal* const dest = ChangeJournal::of(root.dest);
  ChangeJournal* const ground = ChangeJournal::of(root.ground);
  if (!src || !dest || !ground) return nullptr;
  Checkpoint was;
  {
    Memory& all = memory();
    std::lock_guard const lock(all.mutex);
    auto const found = all.equal.find({src->id(), dest->id()});
    if (found == all.equal.end()) return nullptr;
    was = found->second;
  }
  if (was.ground != groundOf(ec, *ground) || !src->holds(was.src) || !dest->holds(was.dest)) return nullptr;
  return std::make_unique<Changes>(root.dest, root.src, dest->since(was.dest), src->since(was.src));
}

Checkpoint takeCheckpoint(EntityCopy const& ec, RootPair const& root) {
  ChangeJournal& src = ChangeJournal::attach(root.src);
  ChangeJournal& dest = ChangeJournal::attach(root.dest);
  ChangeJournal& ground = ChangeJournal::attach(root.ground);
  ChangeJournal::newEpoch();  // it is one for all journals
  return {src.end(), dest.end(), groundOf(ec, ground)};
}

std::optional<Checkpoint> checkpointIfJournaled(EntityCopy const& ec, RootPair const& root) {
  if (!ChangeJournal::of(root.src) || !ChangeJournal::of(root.dest)) return std::nullopt;
  return takeCheckpoint(ec, root);
}

void rememberEqual(RootPair const& root, Checkpoint const& at) {
  Memory& all = memory();
  std::lock_guard const lock(all.mutex);
  if (all.equal.size() >= Memory::most) all.equal.clear();
  // A root with a checkpoint has a journal.
  all.equal.insert_or_assign({ChangeJournal::of(root.src)->id(), ChangeJournal::of(root.dest)->id()}, at);
}

}  // namespace Cli::Session
