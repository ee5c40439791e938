// Commits: the checks, the copy into running, the participants, the store.
#include <algorithm>

#include "CliSession/EntityCopyUtils.h"
#include "service/Differ.h"
#include "service/JsonTree.h"
#include "service/PathSet.h"
#include "service/References.h"
#include "service/ServiceImpl.h"
#include "service/Undo.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::Entity;
using Kel::KelAttr;

UnderWay::UnderWay(Service::Impl& service) : count_(service.underWay) { ++count_; }
UnderWay::~UnderWay() { --count_; }

std::string whatHappened() {
  try {
    throw;
  } catch (std::exception const& e) {
    return e.what();
  } catch (...) {
    return "an unknown exception";
  }
}

void reportTo(std::vector<std::string>& report, char const* before) noexcept {
  try {
    report.push_back(before + whatHappened());
  } catch (...) {
  }
}

// --- Checks ---

namespace {

// Finds pointers whose targets have left the tree.
class Dangling {
 public:
  explicit Dangling(Tree const& tree) : tree_(tree), top_(tree.dir->root()) {}

  void below(Entity const& top, Path const& at) {
    for (KelAttr const* attr : top.type()->ptrAttrs())
      if (attr->copiable()) attribute(top, *attr, at);
    if (!asDir(&top) && !top.type()->pointersBelow()) return;
    eachOwned(top, [&](Entity const& child) {
      if (asDir(&child) || child.type()->pointersBelow() || !child.type()->ptrAttrs().empty()) below(child, {});
    });
  }
  void attribute(Entity const& owner, KelAttr const& attr, Path const& at) {
    if (!attr.isCollection()) return target(attr.access().target(owner), owner, attr, at);
    eachMember(owner, attr, [&](Kel::AttrIterator const& it, std::size_t) {
      if (attr.keyIsPtr()) target(it.keyTarget(), owner, attr, at);
      if (attr.isPtr()) target(it.target(), owner, attr, at);
      return true;
    });
  }
  std::vector<CheckError::Finding> findings;

 private:
  void target(Entity const* to, Entity const& owner, KelAttr const& attr, Path const& at) {
    if (!to || to->root() == top_) return;
    Path place = at;
    if (place.empty()) {
      if (auto const found = pathOf(owner, *tree_.dir)) place = *found;
      place.steps.push_back(attributeStep(attr));
    }
    findings.push_back({place, "the target of the pointer, '" + to->name().str() + "', is not there any more"});
  }

  Tree tree_;
  Entity const* top_;
};

}  // namespace

std::vector<Difference> Service::Impl::partOf(Registration const& who, std::vector<Difference> const& differences) {
  if (!who.type && who.path.empty()) return differences;
  std::vector<Difference> part;
  auto const mayHold = [&](Difference const& d) {
    // Whether the attribute may own an entity of the type, at any depth.
    std::vector<Kel::KelType const*> seen, open;
    if (d.attr && d.attr->instantiating()) open.push_back(d.attr->type());
    if (!d.attr) return true;
    while (!open.empty()) {
      Kel::KelType const* const type = open.back();
      open.pop_back();
      if (type->isA(who.type) || who.type->isA(type)) return true;
      if (std::find(seen.begin(), seen.end(), type) != seen.end()) continue;
      seen.push_back(type);
      for (KelAttr const* attr : type->ownAttrs()) open.push_back(attr->type());
    }
    return false;
  };
  for (Difference const& d : differences) {
    if (who.type) {
      if ((d.type && d.type->isA(who.type)) || mayHold(d)) part.push_back(d);
      continue;
    }
    bool const isWithin = PathSet::eachTop(d.path, [&](Path const& above) { return above.text() == who.path; });
    // What was registered is a text: nothing but this tells whether it is below.
    std::string const at = d.path.text();
    bool const mayBeAbove = (!d.attr || d.attr->instantiating()) && who.path.starts_with(at) &&
                            who.path.find_first_of("./", at.size()) == at.size();
    if (isWithin || mayBeAbove) part.push_back(d);
  }
  return part;
}

std::vector<CheckError::Finding> Service::Impl::findings(Session::Impl& session,
                                                         std::vector<Difference> const& differences) const {
  std::vector<CheckError::Finding> all;
  for (std::string const& path : outerRoots(rootPaths)) {
    Entity const *const mine = rootAt(session.tree, path), *const theirs = rootAt(treeAt(running), path);
    if (!mine || !theirs || mine->type() != theirs->type())
      all.push_back({rootPath(path), "a session root is neither deleted nor replaced"});
  }
  if (!all.empty()) return all;  // what is missing cannot be looked at
  for (PendingReference const& reference : session.pending.list())
    all.push_back({reference.place, "'" + reference.target + "': " + reference.reason});
  Dangling dangling(session.tree);
  auto const changed = session.runningFrom.changedSince(treeAt(running), session.tree);
  if (changed) {
    for (Difference const& d : differences) {
      if (d.kind == DifferenceKind::deleted && !d.run) continue;
      Place const place = locate(session.tree.dir, d.run ? d.path.parent() : d.path);
      if (!place.entity) continue;
      if (place.attr && !place.attr->instantiating()) {
        if (place.attr->isPtr() || place.attr->keyIsPtr()) dangling.attribute(*place.entity, *place.attr, d.path);
      } else {
        dangling.below(*place.entity, {});
      }
    }
  } else {
    for (std::string const& path : outerRoots(rootPaths))
      if (Entity const* const root = rootAt(session.tree, path)) dangling.below(*root, {});
  }
  all.insert(all.end(), dangling.findings.begin(), dangling.findings.end());
  auto const add = [&](auto const& check) {
    try {
      check();
    } catch (CheckError const& e) {
      all.insert(all.end(), e.findings.begin(), e.findings.end());
    } catch (std::bad_alloc const&) {
      throw;
    } catch (std::exception const& e) {
      all.push_back({{}, e.what()});
    }
  };
  for (Constraint const& constraint : constraints) add([&] { constraint(session.tree, differences); });
  for (Registration const& who : participants)
    if (auto const part = partOf(who, differences); !part.empty()) add([&] { who.participant->verify(part); });
  return all;
}

// --- The copy ---

void Service::Impl::copy(Kel::Dir::Ptr const& src, Kel::Dir::Ptr const& dest,
                         Cli::Session::AttributeEditLog::Ptr const& log) {
  auto const ec = Cli::Session::entityCopyFactory();
  auto const handler = Cli::Session::entityCopyGlobalSessionHandlerFactory();
  handler->sessionStatusIs(manager);
  handler->handlerTableIs(manager->inHandlerTable());
  handler->copiedIs("commit");
  ec->handlerIs(handler);
  ec->attributeEditLogIs(log ? log : Cli::Session::attributeEditLogFactory());
  ec->attributeEditBypassCheckerIs(manager->attributeEditBypassTable());
  for (std::string const& path : rootPaths)
    if (Entity::PtrConst const root = Kel::Dir::PtrConst(src)->entity(Kel::String8(path)))
      ec->srcCopyRootIs(root, true);
  ec->srcIs(src);
  ec->ancestorIs(src);
  ec->destIs(dest);
  Cli::Session::drainPostCopies(*ec, *handler);
  if (ownsQueues) repair(treeAt(src), treeAt(dest));
}

// The engine pairs a queue's items by their indices, so pointers to items may lead to others. This corrects them.
void Service::Impl::repair(Tree const& src, Tree const& dest) {
  std::vector<Difference> const left = Differ(dest, src, nullptr).run();
  if (!left.empty()) Cli::Service::carryOut(left, dest);
}

// --- The commit ---

void Service::Impl::requireMayCommit(Session::Impl const& session, std::string const& persist) const {
  if (!unconfirmed) return;
  bool const own = unconfirmed->session == session.name;
  bool const byWord = !persist.empty() && persist == unconfirmed->persist;
  if (own || byWord) return;
  throw UnconfirmedError("commit " + std::to_string(unconfirmed->first) + " of " + unconfirmed->user + " (session " +
                         unconfirmed->session + ") waits to be confirmed for another " +
                         std::to_string(static_cast<long>(std::max(0.0, unconfirmed->until - now()))) + " s");
}

CommitRecord Service::Impl::record(CommitKind kind, std::string const& user, std::string const& session,
                                   std::string const& comment, std::vector<Difference> const& differences) const {
  return {last + 1, last, now(), user, session, comment, kind, bytesOf(differences)};
}

void Service::Impl::append(CommitRecord const& commitRecord) {
  if (owed) {
    // The undoing comes first.
    store->append(*owed);
    owed.reset();
  }
  store->append(commitRecord);
  last = commitRecord.number;
}

CommitResult Service::Impl::commit(Commit const& commit) {
  Session::Impl& s = commit.session;
  UnderWay const inProgress(*this);
  // (1) update
  std::vector<Difference> const mine = s.edits(), theirs = s.changes();
  Merged const merged = s.mergeWith(mine, theirs, Side::session);
  if (!merged.conflicts.empty()) {
    s.report(merged.conflicts);
    throw ConflictError(merged.conflicts);
  }
  Applying toSession(merged.changes, s.tree), toAncestor(theirs, s.ancestor);
  CommitResult result;
  Undo undo;
  try {
    toSession.write();
    toAncestor.write();
    retryOwned(s.pending, s.dir, undo);
    result.differences = s.edits();
    bool const confirms = unconfirmed && commit.kind != CommitKind::confirmed;
    if (!result.differences.empty() || confirms) carryOut(commit, result.differences, result);
    result.confirms = confirms;
  } catch (...) {
    undo.takeBack();
    toAncestor.takeBack();
    toSession.takeBack();
    throw;
  }
  // Nothing can fail from here on.
  Tree const runningTree = treeAt(running);
  s.changesFrom = Checkpoint(s.ancestor, runningTree);
  s.forgetSettled();
  if (!result.number) return result;
  s.editsFrom = Checkpoint(s.ancestor, s.tree);
  s.runningFrom = Checkpoint(runningTree, s.tree);
  return result;
}

// The copy engine may have written more than the differences name: it takes a NaN for another value than the same NaN.
void Service::Impl::makeRunningTheAncestor(Session::Impl const& s) noexcept {
  try {
    makeRunning(s.ancestor, inverse(s.changes()));
  } catch (...) {
    // makeRunning has tried several times.
  }
}

void Service::Impl::carryOut(Commit const& commit, std::vector<Difference> const& differences, CommitResult& result) {
  Session::Impl& s = commit.session;
  // (2) checks
  if (auto all = findings(s, differences); !all.empty()) throw CheckError(std::move(all));
  // (3) into running
  Applying toRunning(differences, treeAt(running)), toAncestor(differences, s.ancestor);
  std::vector<std::pair<Participant*, std::vector<Difference>>> acted;
  try {
    if (!differences.empty()) {
      Cli::Session::AttributeEditLog::Ptr const log =
          s.config->logAttributeEdits() ? s.status->attributeEditLogIs() : nullptr;
      copy(s.dir, running, log);
      toAncestor.write();
    }
    // (4) participants
    for (Registration const& who : participants) {
      auto part = partOf(who, differences);
      if (part.empty()) continue;
      acted.reserve(acted.size() + 1);
      who.participant->apply(part);
      acted.emplace_back(who.participant, std::move(part));
    }
    // (5) the store
    append(record(commit.kind, s.user, s.name, commit.comment, differences));
  } catch (...) {
    for (auto it = acted.rbegin(); it != acted.rend(); ++it) {
      try {
        it->first->undo(it->second);
      } catch (...) {
        reportTo(s.notices, "undoing failed: ");
      }
    }
    toAncestor.takeBack();
    toRunning.takeBack();
    makeRunningTheAncestor(s);
    throw;
  }
  // (6) it is final
  result.number = last;
  for (auto const& [participant, part] : acted) {
    try {
      participant->done(part);
    } catch (...) {
      reportTo(result.reports);
    }
  }
}

void Service::Impl::check(Session::Impl& s) {
  UnderWay const inProgress(*this);
  std::vector<Difference> const mine = s.edits(), theirs = s.changes();
  Merged const merged = s.mergeWith(mine, theirs, Side::session);
  if (!merged.conflicts.empty()) {
    s.report(merged.conflicts);
    throw ConflictError(merged.conflicts);
  }
  if (merged.changes.empty() && theirs.empty()) {
    if (auto all = findings(s, mine); !all.empty()) throw CheckError(std::move(all));
    return;
  }
  Applying toSession(merged.changes, s.tree), toAncestor(theirs, s.ancestor);
  std::vector<CheckError::Finding> all;
  Undo undo;
  try {
    toSession.write();
    toAncestor.write();
    retryOwned(s.pending, s.dir, undo);
    all = findings(s, s.edits());
  } catch (...) {
    undo.takeBack();
    toAncestor.takeBack();
    toSession.takeBack();
    throw;
  }
  undo.takeBack();
  toAncestor.takeBack();
  toSession.takeBack();
  if (!all.empty()) throw CheckError(std::move(all));
}

// --- Operations of a session ---

namespace {

// Publishes the result. Exceptions of reactors are ignored.
void publish(Session::Impl& s, bool success, bool committed, std::string const& error) noexcept {
  try {
    s.status->attemptedIs(s.status->attempted() + 1);
    s.status->successIs(success);
    if (success)
      s.status->errorDel("commit");
    else
      s.status->errorIs("commit", Kel::String8(error));
    if (committed) {
      s.config->committedIs(true);
      s.config->committedCountIs(s.config->committedCount() + 1);
    }
  } catch (...) {
  }
}

class InProgress {
 public:
  explicit InProgress(Cli::Session::Status& manager) : manager_(manager) { set(true); }
  ~InProgress() { set(false); }
  InProgress(InProgress const&) = delete;
  InProgress& operator=(InProgress const&) = delete;

 private:
  void set(bool on) noexcept {
    try {
      manager_.commitInProgressIs(on);
    } catch (...) {
    }
  }
  Cli::Session::Status& manager_;
};

// Runs a commit, and publishes its result.
CommitResult published(Session::Impl& s, std::function<CommitResult()> const& run) {
  InProgress const inProgress(*s.service.manager);
  try {
    CommitResult result = run();
    publish(s, true, result.number.has_value(), {});
    return result;
  } catch (...) {
    std::string error;
    try {
      error = whatHappened();
    } catch (...) {
    }
    publish(s, false, false, error);
    throw;
  }
}

}  // namespace

void Service::Impl::afterCommit(Session::Impl const& s) noexcept {
  updateOthers(s);
  servePostponed();
  // Twice as many commits as are usual: `poll` is not called.
  takeSnapshotAfter(2 * Kel::U64(options.snapshotEvery));
}

void Session::check() const { impl_->service.check(*impl_); }

CommitResult Session::commit(std::string const& comment) { return commitPersistent("", comment); }

CommitResult Session::commitPersistent(std::string const& persist, std::string const& comment) {
  Impl& s = *impl_;
  Service::Impl& service = s.service;
  if (service.tunables->rollbackCommitsAutomatically() && !service.unconfirmed)
    return commitConfirmed(service.options.confirmTimeout, "", comment);
  CommitResult result = published(s, [&] {
    if (!persist.empty() && !service.unconfirmed) throw Error("no commit waits to be confirmed");
    service.requireMayCommit(s, persist);
    return service.commit({s, comment});
  });
  service.unconfirmed.reset();  // this has confirmed it
  service.afterCommit(s);
  return result;
}

CommitResult Session::commitConfirmed(double seconds, std::string const& persist, std::string const& comment) {
  Impl& s = *impl_;
  Service::Impl& service = s.service;
  if (!(seconds > 0)) throw Error("a commit is confirmed within some seconds, not " + std::to_string(seconds));
  Service::Impl::Unconfirmed next{s.user, s.name, persist, service.last + 1, 0};
  CommitResult result = published(s, [&] {
    service.requireMayCommit(s, persist);
    return service.commit({s, comment, CommitKind::confirmed});
  });
  if (!result.number && !service.unconfirmed) return result;
  if (service.unconfirmed) next.first = service.unconfirmed->first;
  next.until = service.now() + seconds;
  service.unconfirmed = std::move(next);
  service.afterCommit(s);
  return result;
}

CommitResult Session::commitCancel(std::string const& persist) {
  Impl& s = *impl_;
  Service::Impl& service = s.service;
  if (!service.unconfirmed) throw Error("no commit waits to be confirmed");
  service.requireMayCommit(s, persist);
  CommitResult result;
  result.reports = service.undoUnconfirmed(true);
  result.number = service.last;
  return result;
}

}  // namespace Cli::Service
