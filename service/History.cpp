// Commits of the past: reading them, restoring them at start, undoing them.
#include <algorithm>

#include "Kel/AttrLog.h"
#include "service/Differ.h"
#include "service/PathSet.h"
#include "service/ServiceImpl.h"

namespace Cli::Service {

namespace {

std::vector<Difference> differencesIn(CommitRecord const& record) {
  try {
    return differencesOf(record.differences);
  } catch (Kel::Exception const& e) {
    throw StoreError("commit " + std::to_string(record.number) + ": " + e.what());
  }
}

}  // namespace

// --- Looking ---

std::vector<CommitRecord> Service::history(Kel::U64 from) const { return impl_->store->read(from); }
Kel::U64 Service::lastCommit() const { return impl_->last; }

CommitRecord Service::commitRecord(Kel::U64 number) const {
  if (number > impl_->last) throw Error("there is no commit " + std::to_string(number));
  auto const records = impl_->store->read(number);
  if (number == 0 || records.empty() || records.front().number != number)
    throw Error("commit " + std::to_string(number) + " is not kept");
  return records.front();
}

std::vector<Difference> Service::differencesOfCommit(Kel::U64 number) const {
  return differencesIn(commitRecord(number));
}

std::vector<Difference> Service::differencesBetween(Kel::U64 from, Kel::U64 to) const {
  auto const a = impl_->scratch(), b = impl_->scratch();
  impl_->restore(from, a->tree);
  impl_->restore(to, b->tree);
  return differences(a->tree, b->tree);
}

std::vector<Difference> Service::differencesFromRunning(Kel::U64 number) const {
  auto const then = impl_->scratch();
  impl_->restore(number, then->tree);
  return differences(then->tree, running());
}

std::optional<Service::Waiting> Service::waiting() const {
  if (!impl_->unconfirmed) return std::nullopt;
  auto const& u = *impl_->unconfirmed;
  return Waiting{u.user, u.session, u.persist, u.first, u.until};
}

// --- Earlier states ---

// Starts from running as it is now, and takes commits back.
void Service::Impl::restore(Kel::U64 number, Tree const& into) const {
  if (number > last) throw Error("there is no commit " + std::to_string(number));
  auto const records = store->read(number + 1);
  bool const whole = records.size() == last - number && (records.empty() || records.front().number == number + 1);
  if (!whole) throw Error("what was committed after " + std::to_string(number) + " is not kept");
  const_cast<Impl*>(this)->copy(running, into.dir);
  for (auto it = records.rbegin(); it != records.rend(); ++it)
    Cli::Service::carryOut(inverse(differencesIn(*it)), into);
}

// --- Snapshots ---

// Its cost is proportional to the size of the tree, so `poll` takes it, and no commit waits for it while `poll` is
// called.
void Service::Impl::takeSnapshotAfter(Kel::U64 commits) noexcept {
  // A commit that `start` may undo must be later than the snapshot.
  if (commits == 0 || last - lastSnapshot < commits || unconfirmed || owed) return;
  lastSnapshot = last;  // of one that fails, too: a later one will do
  try {
    auto const state = scratch();
    copy(running, state->tree.dir);
    store->snapshot({last, Kel::writeAttrLog(*state->tree.dir)});
  } catch (...) {
  }
}

// --- At start ---

void Service::start() {
  Impl& i = *impl_;
  auto const snapshot = i.store->snapshotAt(~Kel::U64(0));
  auto const records = i.store->read(snapshot ? snapshot->number + 1 : 1);
  if (snapshot || !records.empty()) {
    auto const newest = i.scratch();
    if (snapshot) {
      Kel::Entity::Ptr const read = Kel::readAttrLog(snapshot->bytes, i.top.ptr());
      auto const dir = Kel::ptrCast<Kel::Dir>(read);
      if (!dir) throw StoreError("snapshot " + std::to_string(snapshot->number) + " is no directory");
      Kel::Dir::Ptr const holder(new Kel::Dir("snapshot", i.cli.ptr()));
      try {
        holder->entryIs(dir);
        i.copy(dir, newest->tree.dir);
      } catch (...) {
        i.cli->entryDel("snapshot");
        throw;
      }
      i.cli->entryDel("snapshot");
    } else {
      if (records.front().number != 1) throw StoreError("the first commits are missing, and there is no snapshot");
      i.copy(i.running, newest->tree.dir);
    }
    Kel::U64 expected = snapshot ? snapshot->number : 0;
    for (CommitRecord const& record : records) {
      if (record.parent != expected && !(expected == 0 && record.number == 1))
        throw StoreError("commit " + std::to_string(record.number) + " does not follow the one before");
      carryOut(differencesIn(record), newest->tree);
      expected = record.number;
    }
    i.makeRunning(newest->tree, Differ(i.treeAt(i.running), newest->tree, nullptr).run());
    i.last = expected;
    i.lastSnapshot = snapshot ? snapshot->number : 0;
  }
  // Every participant gets the whole configuration.
  {
    auto const empty = i.scratch();
    std::vector<Difference> const all = differences(empty->tree, i.treeAt(i.running));
    for (Impl::Registration const& who : i.participants)
      if (auto const part = Impl::partOf(who, all); !part.empty()) who.participant->apply(part);
  }
  auto first = std::find_if(records.rbegin(), records.rend(),
                            [](CommitRecord const& r) { return r.kind != CommitKind::confirmed; });
  if (first != records.rbegin()) {
    CommitRecord const& oldest = first == records.rend() ? records.front() : *std::prev(first);
    i.unconfirmed = Impl::Unconfirmed{oldest.user, oldest.session, "", oldest.number, 0};
    i.undoUnconfirmed(false);
  }
}

// --- Undoing ---

// Makes running equal to another tree. Tries again after an exception.
void Service::Impl::makeRunning(Tree const& wanted, std::vector<Difference> const& toDo) {
  constexpr int attempts = 4;
  Tree const runningTree = treeAt(running);
  std::vector<Difference> left = toDo;
  for (int attempt = 1; !left.empty(); ++attempt) {
    try {
      Applying(left, runningTree).write();
      return;
    } catch (...) {
      if (attempt == attempts) throw;
      left = Differ(runningTree, wanted, nullptr).run();
    }
  }
}

std::vector<std::string> Service::Impl::undoUnconfirmed(bool keepEdits) {
  UnderWay const inProgress(*this);
  std::vector<std::string> reports;
  Kel::U64 const first = unconfirmed->first;
  auto const before = scratch();
  restore(first - 1, before->tree);
  std::vector<Difference> const differences = Differ(treeAt(running), before->tree, nullptr).run();
  CommitRecord taken = record(CommitKind::undone, unconfirmed->user, unconfirmed->session, "", differences);
  makeRunning(before->tree, differences);
  // Nothing can stop it from here on.
  unconfirmed.reset();
  for (Registration const& who : participants) {
    try {
      auto const part = partOf(who, differences);
      if (part.empty()) continue;
      who.participant->apply(part);
      who.participant->done(part);
    } catch (...) {
      reportTo(reports);
    }
  }
  if (auto const found = sessions.find(taken.session); keepEdits && found != sessions.end())
    keepUndone(*found->second->impl_, first, reports);
  try {
    append(taken);
  } catch (...) {
    // It is written before the next commit. If the service starts again before that, the commits are undone again.
    reportTo(reports);
    last = taken.number;
    owed = std::move(taken);
  }
  return reports;
}

// Makes the undone changes edits of their session.
void Service::Impl::keepUndone(Session::Impl& s, Kel::U64 number, std::vector<std::string>& reports) noexcept {
  try {
    std::vector<Difference> const theirs = s.changes();
    Applying toAncestor(theirs, s.ancestor);
    try {
      toAncestor.write();
    } catch (...) {
      toAncestor.takeBack();
      throw;
    }
    s.changesFrom = Checkpoint(s.ancestor, treeAt(running));
    s.notices.push_back("commit " + std::to_string(number) +
                        " was undone, since it was not confirmed; what it held is back in the session as edits");
  } catch (...) {
    reportTo(reports);
  }
}

// --- Other sessions ---

namespace {

// The changes that no conflict concerns.
std::vector<Difference> withoutConflicts(std::vector<Difference> changes, std::vector<Conflict> const& conflicts) {
  PathSet places, owners;
  auto const note = [&](Path const& place) {
    places.add(place);
    PathSet::eachTop(place, [&](Path const& top) { return (owners.add(top), false); });
  };
  for (Conflict const& c : conflicts) {
    note(c.path);
    if (c.target) note(*c.target);
  }
  std::erase_if(changes, [&](Difference const& d) { return places.isAround(d.path) || owners.has(d.path); });
  return changes;
}

}  // namespace

void Service::Impl::updateOthers(Session::Impl const& committed) noexcept {
  if (options.automaticUpdate == AutomaticUpdate::off) return;
  for (auto const& [name, session] : sessions) {
    if (session->impl_.get() == &committed) continue;
    try {
      updateOther(*session, committed.user);
    } catch (...) {
      reportTo(session->impl_->notices, "the update failed: ");
    }
  }
}

void Service::Impl::updateOther(Session& session, std::string const& committer) {
  Session::Impl& s = *session.impl_;
  auto const updated = [&](std::size_t changes) {
    if (changes > 0) s.notices.push_back("updated: " + std::to_string(changes) + " changes came from running");
  };
  if (options.automaticUpdate == AutomaticUpdate::preferCandidate)
    return updated(session.update(UpdateMode::preferCandidate).size());
  if (options.automaticUpdate == AutomaticUpdate::preferRunning)
    return updated(session.update(UpdateMode::preferRunning).size());
  std::vector<Difference> const mine = s.edits(), theirs = s.changes();
  Merged const merged = s.mergeWith(mine, theirs, Side::session);
  if (merged.conflicts.empty()) return updated(session.update().size());
  s.report(merged.conflicts);
  s.notices.push_back(std::to_string(merged.conflicts.size()) + " conflicts with what " + committer +
                      " committed are to be resolved");
  std::vector<Difference> const harmless = withoutConflicts(theirs, merged.conflicts);
  Merged const part = s.mergeWith(mine, harmless, Side::session);
  if (!part.conflicts.empty() || harmless.empty()) return;
  Applying toSession(part.changes, s.tree), toAncestor(harmless, s.ancestor);
  try {
    toSession.write();
    toAncestor.write();
    if (!toAncestor.dangling().empty()) throw Error("what is left out is needed");
  } catch (...) {
    toAncestor.takeBack();
    toSession.takeBack();
  }
}

}  // namespace Cli::Service
