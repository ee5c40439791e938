// Commits of the past: reading them, restoring them at start, undoing them.
#include <algorithm>

#include "Kel/AttrLog.h"
#include "service/Differ.h"
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

void Service::Impl::takeSnapshot(Kel::Dir const& dir) {
  if (options.snapshotEvery == 0 || last - lastSnapshot < options.snapshotEvery) return;
  store->snapshot({last, Kel::writeAttrLog(dir)});
  lastSnapshot = last;
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
  Unconfirmed const undone = *unconfirmed;
  Tree const runningTree = treeAt(running);
  auto const before = scratch();
  restore(undone.first - 1, before->tree);
  std::vector<Difference> const differences = Differ(runningTree, before->tree, nullptr).run();
  makeRunning(before->tree, differences);
  unconfirmed.reset();
  for (Registration const& who : participants) {
    auto const part = partOf(who, differences);
    if (part.empty()) continue;
    try {
      who.participant->apply(part);
      who.participant->done(part);
    } catch (...) {
      reports.push_back(whatHappened());
    }
  }
  CommitRecord const taken = record(CommitKind::undone, undone.user, undone.session, "", differences);
  try {
    append(taken);
  } catch (...) {
    // It is written before the next commit. If the service starts again before that, the commits are undone again.
    reports.push_back(whatHappened());
    owed = taken;
    last = taken.number;
  }
  // The undone changes become edits of their session.
  if (auto const found = sessions.find(undone.session); keepEdits && found != sessions.end()) {
    Session::Impl& s = *found->second->impl_;
    try {
      std::vector<Difference> const theirs = s.changes();
      Applying toAncestor(theirs, s.ancestor);
      toAncestor.write();
      s.changesFrom = EqualPoint(s.ancestor, runningTree);
    } catch (...) {
      reports.push_back(whatHappened());
    }
    s.notices.push_back("commit " + std::to_string(undone.first) +
                        " was undone, since it was not confirmed; what it held is back in the session as edits");
  }
  return reports;
}

// --- Other sessions ---

namespace {

// The changes that no conflict concerns.
std::vector<Difference> withoutConflicts(std::vector<Difference> changes, std::vector<Conflict> const& conflicts) {
  std::erase_if(changes, [&](Difference const& d) {
    return std::any_of(conflicts.begin(), conflicts.end(), [&](Conflict const& c) {
      auto const touch = [&](Path const& path) { return d.path.isWithin(path) || path.isWithin(d.path); };
      return touch(c.path) || (c.target && touch(*c.target));
    });
  });
  return changes;
}

}  // namespace

void Service::Impl::updateOthers(Session::Impl const& committed) {
  if (options.automaticUpdate == AutomaticUpdate::off) return;
  for (auto const& [name, session] : sessions) {
    Session::Impl& s = *session->impl_;
    if (&s == &committed) continue;
    try {
      if (options.automaticUpdate != AutomaticUpdate::revertOnConflict) {
        bool const candidate = options.automaticUpdate == AutomaticUpdate::preferCandidate;
        std::size_t const n =
            session->update(candidate ? UpdateMode::preferCandidate : UpdateMode::preferRunning).size();
        if (n > 0) s.notices.push_back("updated: " + std::to_string(n) + " changes came from running");
        continue;
      }
      std::vector<Difference> const mine = s.edits(), theirs = s.changes();
      Merged const merged = s.mergeWith(mine, theirs, Side::session);
      if (merged.conflicts.empty()) {
        if (std::size_t const n = session->update().size())
          s.notices.push_back("updated: " + std::to_string(n) + " changes came from running");
        continue;
      }
      s.report(merged.conflicts);
      s.notices.push_back(std::to_string(merged.conflicts.size()) + " conflicts with what " + committed.user +
                          " committed are to be resolved");
      std::vector<Difference> const harmless = withoutConflicts(theirs, merged.conflicts);
      Merged const part = s.mergeWith(mine, harmless, Side::session);
      if (!part.conflicts.empty() || harmless.empty()) continue;
      Applying toSession(part.changes, s.tree), toAncestor(harmless, s.ancestor);
      try {
        toSession.write();
        toAncestor.write();
        if (!toAncestor.dangling().empty()) throw Error("what is left out is needed");
      } catch (...) {
        toAncestor.takeBack();
        toSession.takeBack();
      }
    } catch (...) {
      s.notices.push_back("the update failed: " + whatHappened());
    }
  }
}

}  // namespace Cli::Service
