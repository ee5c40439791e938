// Looking at a session, and settling conflicts.
#include "service/Session.h"

#include <algorithm>

#include "Kel/AttrAccess.h"
#include "service/Differ.h"
#include "service/JsonTree.h"
#include "service/Requests.h"
#include "service/ServiceImpl.h"

namespace Cli::Service {

// --- Exceptions ---

namespace {

std::string messageOf(std::vector<Conflict> const& conflicts) {
  std::string message = std::to_string(conflicts.size()) + (conflicts.size() == 1 ? " conflict" : " conflicts") +
                        " with the running configuration";
  for (Conflict const& c : conflicts) message += "\n" + text(c);
  return message;
}

std::string messageOf(std::vector<CheckError::Finding> const& findings) {
  std::string message = "the configuration cannot be committed";
  for (auto const& f : findings) message += "\n" + (f.path.empty() ? f.reason : f.path.text() + ": " + f.reason);
  return message;
}

}  // namespace

ConflictError::ConflictError(std::vector<Conflict> all) : Error(messageOf(all)), conflicts(std::move(all)) {}
ConflictError::~ConflictError() = default;
CheckError::CheckError(std::vector<Finding> all) : Error(messageOf(all)), findings(std::move(all)) {}
CheckError::~CheckError() = default;

// --- Contents and keys ---

namespace {

std::string keyOf(Path const& path, std::optional<Difference::Run> const& run) {
  std::string key = path.text();
  if (run) key += '\0' + std::to_string(run->from);
  return key;
}

}  // namespace

std::string keyOf(Conflict const& conflict) { return keyOf(conflict.path, conflict.run); }

Json contentAt(Tree const& tree, Path const& path) {
  Place const place = locate(tree.dir, path);
  if (!place.there()) return {};
  if (!place.attr) return exportEntity(*place.entity, *tree.dir);
  if (!place.isMember) return exportAttribute(*place.entity, *place.attr, *tree.dir);
  Kel::GenericIf::Ptr const member = place.attr->access().get(*place.attr, place.entity.ptr(), place.key.ptr(), true);
  return member ? exportValue(member.ptr(), *tree.dir) : Json();
}

Session::Impl::Impl(Service::Impl& s, std::string n, std::string u, std::string t)
    : service(s), name(std::move(n)), user(std::move(u)), terminal(std::move(t)) {}
Session::Impl::~Impl() = default;

// --- Differences ---

std::vector<Difference> Session::Impl::edits() const {
  auto const changed = editsFrom.changedSince(ancestor, tree);
  return Differ(ancestor, tree, changed.get()).run();
}

std::vector<Difference> Session::Impl::changes() const {
  Tree const running = service.treeAt(service.running);
  auto const changed = changesFrom.changedSince(ancestor, running);
  return Differ(ancestor, running, changed.get()).run();
}

Merged Session::Impl::mergeWith(std::vector<Difference> const& mine, std::vector<Difference> const& theirs,
                                Side otherwise) const {
  Positions const here(mine), there(theirs);
  return merge({ancestor, tree, service.treeAt(service.running), mine, theirs,
                [&](Conflict const& c) { return settledSide(c, here, there); },
                [this](Difference const& d) { return keepsOwn(d); }, otherwise});
}

std::vector<Conflict> Session::Impl::allConflicts(std::vector<Difference> const& mine,
                                                  std::vector<Difference> const& theirs) const {
  return merge({ancestor, tree, service.treeAt(service.running), mine, theirs, {}, {}, Side::session}).conflicts;
}

// --- Settled conflicts ---

namespace {

// The content at a place of the ancestor, in a tree whose items stand elsewhere.
Json contentAt(Tree const& tree, Positions const& positions, Path const& path) {
  auto const place = positions(path);
  return place ? contentAt(tree, *place) : Json();
}

}  // namespace

std::optional<Side> Session::Impl::settledSide(Conflict const& conflict, Positions const& here,
                                               Positions const& there) const {
  std::string const key = keyOf(conflict);
  if (auto const found = settled.find(key); found != settled.end() && found->second.running == conflict.running)
    return found->second.side;
  // A side that was chosen for an owner holds for the conflicts below it.
  for (Path at = conflict.path.parent(); !at.empty(); at = at.parent())
    if (auto const found = settled.find(at.text());
        found != settled.end() && found->second.running == contentAt(service.treeAt(service.running), there, at))
      return found->second.side;
  auto const known = reported.find(key);
  if (known == reported.end() || known->second.running != conflict.running) return std::nullopt;
  return editedSince(conflict, known->second, here) ? std::optional(Side::session) : std::nullopt;
}

bool Session::Impl::editedSince(Conflict const& conflict, Reported const& known, Positions const& here) const {
  if (known.edited.count(conflict.path.text())) return true;
  if (conflict.nodes.empty() || known.nodes.empty()) return conflict.session != known.session;
  // Nodes that were listed before and are not any more have been set back.
  return std::all_of(conflict.nodes.begin(), conflict.nodes.end(), [&](Path const& path) {
    auto const node = known.nodes.find(path.text());
    return node == known.nodes.end() || known.edited.count(node->first) || contentAt(tree, here, path) != node->second;
  });
}

bool Session::Impl::keepsOwn(Difference const& change) const {
  auto const found = settled.find(keyOf(change.path, change.run));
  return found != settled.end() && found->second.side == Side::session && found->second.running == change.after;
}

// A conflict that was reported before stays as it was first reported, unless running has changed since.
void Session::Impl::report(std::vector<Conflict> const& conflicts) {
  if (conflicts.empty()) return;
  Positions const here(edits());
  for (Conflict const& c : conflicts) {
    Reported known{c.path, c.running, c.session, {}, {}};
    for (Path const& node : c.nodes) known.nodes.emplace(node.text(), contentAt(tree, here, node));
    auto const [found, isNew] = reported.try_emplace(keyOf(c), known);
    if (!isNew && found->second.running != c.running) found->second = std::move(known);
  }
}

void Session::Impl::forgetSettled() {
  reported.clear();
  settled.clear();
}

// --- The session ---

Session::Session(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Session::~Session() = default;

std::string const& Session::name() const { return impl_->name; }
std::string const& Session::user() const { return impl_->user; }
Tree Session::tree() const { return impl_->tree; }
Tree Session::ancestor() const { return impl_->ancestor; }
PendingReferences& Session::pending() const { return impl_->pending; }
Cli::Session::PendingChangeStatus& Session::status() const { return *impl_->status; }
Cli::Session::PendingChangeConfig& Session::config() const { return *impl_->config; }

std::vector<Difference> Session::differences() const { return impl_->edits(); }

std::vector<Difference> Session::differencesFromRunning() const {
  Tree const running = impl_->service.treeAt(impl_->service.running);
  auto const changed = impl_->runningFrom.changedSince(running, impl_->tree);
  return Differ(running, impl_->tree, changed.get()).run();
}

std::vector<Difference> Session::differencesInRunning() const { return impl_->changes(); }

std::vector<Conflict> Session::conflicts() const {
  Merged merged = impl_->mergeWith(impl_->edits(), impl_->changes(), Side::session);
  impl_->report(merged.conflicts);
  return std::move(merged.conflicts);
}

std::vector<std::string> Session::takeNotices() { return std::exchange(impl_->notices, {}); }

void Session::edited(Path const& path) {
  Impl& s = *impl_;
  if (s.reported.empty()) return;
  auto const note = [&](Path const& at) {
    std::string const place = at.text();
    for (auto& [key, known] : s.reported)
      if (known.path == at || known.nodes.count(place)) known.edited.insert(place);
  };
  if (!isInQueue(path)) return note(path);
  std::vector<Difference> const mine = s.edits();
  if (auto const at = Positions(inverse(mine))(path)) note(*at);
  // An item of the run that is in conflict may be the session's alone.
  Positions const here(mine);
  for (Conflict const& c : s.allConflicts(mine, s.changes())) {
    auto const queue = c.run ? here(c.path) : std::nullopt;
    auto const found = queue ? s.reported.find(keyOf(c)) : s.reported.end();
    if (found == s.reported.end()) continue;
    for (std::size_t n = 0; n < c.session.size(); ++n)
      if (path.isWithin(queue->parent() / queueStep(*c.attr, c.run->to + n)))
        found->second.edited.insert(c.path.text());
  }
}

void Session::resolve(Path const& path, Side side) {
  Impl& s = *impl_;
  std::vector<Difference> const mine = s.edits(), theirs = s.changes();
  std::vector<Conflict> const all = s.allConflicts(mine, theirs);
  auto const lists = [&](Conflict const& c) {
    return !c.path.isWithin(path) && std::find(c.nodes.begin(), c.nodes.end(), path) != c.nodes.end();
  };
  for (Conflict const& c : all)
    if (side == Side::running && lists(c))
      throw Error("'" + path.text() + "' goes with '" + c.path.text() + "': name that to take what running has");
  bool any = false;
  for (Conflict const& c : all) {
    if (c.path.isWithin(path)) {
      s.settled.insert_or_assign(keyOf(c), Impl::Settled{c.path, c.running, side});
      any = true;
    } else if (lists(c)) {
      s.report({c});
      s.reported.at(keyOf(c)).edited.insert(path.text());
      any = true;
    }
  }
  // The session may also refuse a change that only running has made.
  bool const onlyRunning = !any;
  for (Difference const& d : theirs) {
    if (side != Side::session || !onlyRunning || !(d.path == path)) continue;
    s.settled.insert_or_assign(keyOf(d.path, d.run), Impl::Settled{d.path, d.after, side});
    any = true;
  }
  if (!any) throw Error("there is no conflict at '" + path.text() + "'");
}

}  // namespace Cli::Service
