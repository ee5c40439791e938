// Updates, and operations that replace the content of a session.
#include <algorithm>

#include "service/Differ.h"
#include "service/References.h"
#include "service/ServiceImpl.h"
#include "service/Undo.h"

namespace Cli::Service {

namespace {

// Applies two lists, each to its tree: both or none.
void writeBoth(Applying& first, Applying& second) {
  try {
    first.write();
    second.write();
  } catch (...) {
    second.takeBack();
    first.takeBack();
    throw;
  }
}

Side sideOf(UpdateMode mode) { return mode == UpdateMode::preferRunning ? Side::running : Side::session; }

std::vector<Difference> within(std::vector<Difference> list, Path const& path) {
  std::erase_if(list, [&](Difference const& d) { return !d.path.isWithin(path); });
  return list;
}

}  // namespace

std::vector<Difference> Session::update(UpdateMode mode) { return update(mode, Path()); }

std::vector<Difference> Session::update(UpdateMode mode, Path const& path) {
  Impl& s = *impl_;
  UnderWay const underWay(s.service);
  std::vector<Difference> const mine = s.edits();
  std::vector<Difference> const theirs = path.empty() ? s.changes() : within(s.changes(), path);
  if (theirs.empty()) return {};
  Merged merged = s.mergeWith(mine, theirs, sideOf(mode));
  if (mode == UpdateMode::revertOnConflict && !merged.conflicts.empty()) {
    s.report(merged.conflicts);
    throw ConflictError(merged.conflicts);
  }
  Applying toSession(merged.changes, s.tree), toAncestor(theirs, s.ancestor);
  writeBoth(toSession, toAncestor);
  Undo undo;
  try {
    if (toAncestor.dangling().empty()) retryOwned(s.pending, s.dir, undo);
  } catch (...) {
    undo.takeBack();
    toAncestor.takeBack();
    toSession.takeBack();
    throw;
  }
  // Nothing can fail from here on.
  if (path.empty()) {
    s.changesFrom = Checkpoint(s.ancestor, s.service.treeAt(s.service.running));
    s.forgetSettled();
  } else if (auto const missing = toAncestor.dangling(); !missing.empty()) {
    toAncestor.takeBack();
    toSession.takeBack();
    throw Error("'" + missing.front().text() + "' leads to what running has elsewhere: update more than '" +
                path.text() + "'");
  }
  return std::move(merged.changes);
}

// --- Editing ---

void Session::Impl::edit(std::vector<Difference> const& differences) {
  Applying applying(differences, tree);
  try {
    applying.write();
  } catch (...) {
    applying.takeBack();
    throw;
  }
}

std::size_t Session::Impl::become(Tree const& wanted) {
  UnderWay const underWay(service);
  std::size_t const dropped = edits().size();
  std::vector<Difference> const toSession = Differ(tree, wanted, nullptr).run(), theirs = changes();
  Applying session(toSession, tree), toAncestor(theirs, ancestor);
  writeBoth(session, toAncestor);
  changesFrom = Checkpoint(ancestor, service.treeAt(service.running));
  forgetSettled();
  pending.clear();
  return dropped;
}

std::size_t Session::discard(std::optional<Path> const& path) {
  Impl& s = *impl_;
  UnderWay const underWay(s.service);
  std::vector<Difference> mine = s.edits();
  std::vector<Difference> back;
  std::optional<Path> place;  // the path, as the ancestor has it
  if (path && !path->empty()) {
    place = Positions(inverse(mine))(*path);
    if (!place) throw Error("'" + path->text() + "' is in an item that the session has added: name the queue");
    // A part of an entity that was created or deleted as a whole cannot be discarded.
    std::vector<Difference> const chosen = within(mine, *place);
    back = within(Differ(s.tree, s.ancestor, nullptr).run(), *path);
    if (chosen.empty()) {
      for (Difference const& d : mine)
        if (place->isWithin(d.path) && !d.run)
          throw Error("'" + d.path.text() + "' is " + text(d.kind) + " as a whole: name that");
      s.pending.erase(*path);
      return 0;
    }
    mine = chosen;
  } else {
    back = inverse(mine);
  }
  Applying applying(back, s.tree);
  std::vector<Path> missing;
  try {
    applying.write();
    if (place) missing = applying.dangling();
    if (!missing.empty())
      throw Error("'" + missing.front().text() + "' leads to what the session has deleted: discard that, too");
  } catch (...) {
    applying.takeBack();
    throw;
  }
  if (place) {
    auto const isWithin = [&](auto const& known) { return known.second.path.isWithin(*place); };
    std::erase_if(s.settled, isWithin);
    std::erase_if(s.reported, isWithin);
    s.pending.erase(*path);
  } else {
    s.forgetSettled();
    s.pending.clear();
    s.editsFrom = Checkpoint(s.ancestor, s.tree);
  }
  return mine.size();
}

std::size_t Session::clear() {
  Impl& s = *impl_;
  std::size_t const dropped = s.become(s.service.treeAt(s.service.clean));
  try {
    s.status->clearsInc();
    s.status->clearedIs(true);
  } catch (...) {
    // Exceptions of reactors are ignored here.
  }
  return dropped;
}

std::size_t Session::rollback(Kel::U64 number) {
  Impl& s = *impl_;
  auto const scratch = s.service.scratch();
  s.service.restore(number, scratch->tree);
  return s.become(scratch->tree);
}

std::size_t Session::loadReplace(Load const& load) {
  Impl& s = *impl_;
  auto const fresh = s.service.scratch();
  load(fresh->tree);
  return s.become(fresh->tree);
}

void Session::loadMerge(Load const& load) {
  Impl& s = *impl_;
  auto const copy = s.service.scratch();
  s.service.copy(s.dir, copy->tree.dir);
  load(copy->tree);
  s.edit(Differ(s.tree, copy->tree, nullptr).run());
}

void Session::loadReplace(Load const& load, Path const& path) {
  if (path.empty()) {
    loadReplace(load);
    return;
  }
  Impl& s = *impl_;
  auto const fresh = s.service.scratch();
  load(fresh->tree);
  s.edit(within(Differ(s.tree, fresh->tree, nullptr).run(), path));
}

}  // namespace Cli::Service
