// The trees of a service, and its sessions.
#include "service/Service.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "service/Requests.h"
#include "service/ServiceImpl.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::Entity;

namespace {

double systemTime() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

Kel::Dir::Ptr dirIn(Kel::Dir& top, char const* name) {
  if (Entity::Ptr const there = top.entityRef(name)) {
    if (auto dir = Kel::ptrCast<Kel::Dir>(there)) return dir;
    throw Error(std::string("'") + name + "' beside the running configuration is no directory");
  }
  return Kel::Dir::Ptr(new Kel::Dir(name, &top));
}

template <class T>
Kel::Ptr<T> entryIn(Kel::Dir& dir, char const* name) {
  Entity::Ptr made = dir.entityRef(name);
  if (!made) made = dir.newEntity(T::_fwkType()->fullTypeName(), name);
  if (auto entry = Kel::ptrCast<T>(made)) return entry;
  throw Error("'" + made->fullName().str() + "' is a " + made->typeName().str());
}

// Whether an entity of a type, or one that it may own at any depth, has an owning attribute that satisfies `wanted`.
template <class Wanted>
bool ownsAny(Kel::KelType const& type, Wanted const& wanted, std::vector<Kel::KelType const*>& seen) {
  if (std::find(seen.begin(), seen.end(), &type) != seen.end()) return false;
  seen.push_back(&type);
  for (Kel::KelAttr const* attr : type.ownAttrs())
    if (wanted(*attr) || ownsAny(*attr->type(), wanted, seen)) return true;
  return false;
}

}  // namespace

// --- The trees ---

Service::Impl::Impl(Service& f, Kel::Dir::Ptr r, std::vector<SessionRoot> rs, Options o)
    : facade(f), running(std::move(r)), roots(std::move(rs)), options(std::move(o)), store(options.store) {
  if (!store) store = &memory;
  if (!options.clock) options.clock = systemTime;
  if (!options.isAlive)
    options.isAlive = [](Kel::U32 process) { return ::kill(static_cast<pid_t>(process), 0) == 0 || errno == EPERM; };
  top = running && running->parent() ? Kel::Dir::Ptr(dynamic_cast<Kel::Dir*>(running->parent())) : nullptr;
  if (!top) throw Error("the running configuration is no entry of a directory");
  sessionDir = dirIn(*top, "session");
  ancestorDir = dirIn(*top, "ancestor");
  cli = dirIn(*top, "cli");
  manager = entryIn<Cli::Session::Status>(*cli, "status");
  config = entryIn<Cli::Session::Config>(*cli, "config");
  tunables = entryIn<Cli::Session::CliConfig>(*cli, "user");
  cleanStatus = entryIn<Cli::Session::CleanConfigStatus>(*cli, "clean");
  openStatus = entryIn<Cli::Session::OpenSessionStatusDir>(*cli, "openStatus");
  openConfig = entryIn<Cli::Session::OpenSessionConfigDir>(*cli, "openConfig");
  openConfig->openSessionDirIs(dirIn(*cli, "open"));
  if (!manager->pendingChangeStatusDir()) manager->initialize();
  if (!config->pendingChangeConfigDir()) config->initialize();
  config->userConfigIs(tunables);
  manager->sessionDirIs(sessionDir);
  manager->ancestorDirIs(ancestorDir);
  manager->cleanConfigStatusIs(cleanStatus);

  bool ownsDirectories = false;
  for (SessionRoot const& root : roots) {
    Kel::KelType const* const type = Kel::KelType::find(root.typeName);
    if (!type || !type->isMadeByName()) throw Error("there is no entity type '" + root.typeName + "' for " + root.path);
    auto const state = Zuk::prefixTrieStateFactory();
    state->pTypenameIs(Kel::String8(root.typeName));
    manager->rootIs(Kel::String8(root.path), true);
    manager->rootTrie()->prefixIs(Kel::String8(root.path), state);
    rootPaths.push_back(root.path);
    std::vector<Kel::KelType const*> seen;
    ownsQueues |= ownsAny(
        *type, [](Kel::KelAttr const& attr) { return attr.isQueue(); }, seen);
    seen.clear();
    ownsDirectories |=
        isDirType(type) || ownsAny(
                               *type, [](Kel::KelAttr const& attr) { return isDirType(attr.type()); }, seen);
  }
  manager->rootsCompleteIs(true);
  for (std::string const& path : rootPaths)
    if (!rootAt(treeAt(running), path)) manager->doCreateSessionRoot(running, running, Kel::String8(path));
  if (ownsDirectories) {
    // Without this handler, the engine copies only the names and types of a directory's entries.
    auto const table = Cli::Session::entityCopyCustomHandlerTableFactory("handlers", cli);
    handlers = Cli::Session::entityCopyFilterDirFactory("handlers");
    auto const handler = handlers->newDirHandler();
    handler->sessionStatusIs(manager);
    table->registerCustomCopyHandler(Cli::Session::EntityPath(""), "Kel::Dir", handler);
    manager->inHandlerTableIs(table);
    tables = table;
  }
  clean = dirIn(*cli, "cleanConfig");
  manager->cleanConfigIs(clean);
  makeClean();
  auto const known = store->read(1);
  if (!known.empty()) last = known.back().number;
}

void Service::Impl::makeClean() {
  for (std::string const& path : rootPaths) manager->doCreateSessionRoot(running, clean, Kel::String8(path));
  copy(running, clean);
  for (std::string const& path : rootPaths) cleanStatus->cleanConfigRootIs(Kel::String8(path), true);
  cleanStatus->cleanConfigCompleteIs(true);
  manager->cleanConfigCompleteIs(true);
  manager->cleanConfigCompletedIs(now());
}

Service::Impl::Scratch::Scratch(Impl& service, Kel::Name name) : service_(service), name_(std::move(name)) {
  Kel::Dir::Ptr const dir(new Kel::Dir(name_, service.cli.ptr()));
  tree = service.treeAt(dir);
  try {
    service.manager->doCreateSessionRoots(service.running, dir);
  } catch (...) {
    service.cli->entryDel(name_);
    throw;
  }
}

Service::Impl::Scratch::~Scratch() {
  tree.dir = nullptr;
  service_.cli->entryDel(name_);
}

std::unique_ptr<Service::Impl::Scratch> Service::Impl::scratch() {
  return std::make_unique<Scratch>(*this, Kel::Name("scratch" + std::to_string(++scratches)));
}

// --- The service ---

Service::Service(Kel::Dir::Ptr running, std::vector<SessionRoot> roots, Options options)
    : impl_(std::make_unique<Impl>(*this, std::move(running), std::move(roots), std::move(options))) {}

Service::~Service() {
  // Reactors unbind before the trees go.
  impl_->sessions.clear();
  impl_->ended.clear();
}

Tree Service::running() const { return impl_->treeAt(impl_->running); }
Cli::Session::Status& Service::manager() const { return *impl_->manager; }
Cli::Session::Config& Service::config() const { return *impl_->config; }
Cli::Session::CliConfig& Service::tunables() const { return *impl_->tunables; }
std::vector<SessionRoot> const& Service::roots() const { return impl_->roots; }

void Service::registerForPath(Participant& participant, std::string const& path) {
  impl_->participants.push_back({&participant, path, nullptr});
}
void Service::registerForType(Participant& participant, Kel::KelType const& type) {
  impl_->participants.push_back({&participant, "", &type});
}
void Service::registerConstraint(Constraint constraint) { impl_->constraints.push_back(std::move(constraint)); }

// --- Sessions ---

void Service::Impl::requireRoom(bool forSaved) const {
  std::size_t attached = 0, saved = 0;
  for (auto const& [name, session] : sessions) ++(session->impl_->attached ? attached : saved);
  if (forSaved && saved >= tunables->maxSavedSessions())
    throw LimitError("there are " + std::to_string(saved) + " saved sessions, and no more are allowed");
  if (!forSaved && attached >= tunables->maxOpenSessions())
    throw LimitError("there are " + std::to_string(attached) + " open sessions, and no more are allowed");
}

// Publishes who has a session open, or removes that.
void Service::Impl::publishOpen(Session::Impl& s) {
  Kel::Dir& dir = *openConfig->openSessionDir();
  Kel::Name const name(s.name);
  bool const shown = s.attached && s.open;
  if (!shown) {
    dir.entryDel(name);
    bool others = false;
    for (auto const& [n, session] : sessions)
      others |= session->impl_.get() != &s && session->impl_->attached && session->impl_->processId == s.processId;
    if (!others) openStatus->openSessionDel(s.processId);
    return;
  }
  auto const entry = entryIn<Cli::Session::OpenSessionConfig>(dir, s.name.c_str());
  entry->userIs(Kel::String8(s.user));
  entry->terminalIs(Kel::String8(s.terminal));
  entry->sessionIs(Kel::String8(s.name));
  openStatus->openSessionIs(s.processId)->sessionIs(s.config);
}

Session& Service::Impl::make(std::string const& name, std::string const& user, std::string const& terminal) {
  auto impl = std::make_unique<Session::Impl>(*this, name, user, terminal);
  Session::Impl& s = *impl;
  Kel::Name const key(name);
  auto const dropAll = [&] {
    sessionDir->entryDel(key);
    ancestorDir->entryDel(key);
    manager->pendingChangeStatusDir()->statusDel(key);
    config->pendingChangeConfigDir()->configDel(key);
  };
  dropAll();  // what an ended session of that name has left to be read
  try {
    double const time = now();
    s.config = config->pendingChangeConfigDir()->newConfig(key, false, false, false, time);
    s.config->userStringIs(Kel::String8(user));
    for (std::string const& path : rootPaths) s.config->targetIs(Kel::String8(path), true);
    manager->pendingChangeStatusDir()->globalVersionInc();
    s.status = manager->pendingChangeStatusDir()->newStatus(key, s.config, time,
                                                            manager->pendingChangeStatusDir()->globalVersion());
    s.dir = Kel::Dir::Ptr(new Kel::Dir(key, sessionDir.ptr()));
    s.ancestorDir = Kel::Dir::Ptr(new Kel::Dir(key, ancestorDir.ptr()));
    if (!manager->doReplaceConfig(running, Kel::String8(name))) throw Error("session '" + name + "' cannot be filled");
    s.tree = treeAt(s.dir);
    s.ancestor = treeAt(s.ancestorDir);
    Tree const runningTree = treeAt(running);
    if (ownsQueues) {
      repair(runningTree, s.tree);
      repair(runningTree, s.ancestor);
    }
    // This copy finds everything equal. After it, the next copy looks only at what has changed.
    copy(s.dir, running);
    s.editsFrom = Checkpoint(s.ancestor, s.tree);
    s.changesFrom = Checkpoint(s.ancestor, runningTree);
    s.runningFrom = Checkpoint(runningTree, s.tree);
    s.status->sessionRootsIs(true);
    s.status->ancestorRootsIs(true);
    s.processId = static_cast<Kel::U32>(::getpid());
    s.lastUse = time;
    s.requests = std::make_unique<Requests>(s);
    auto session = std::unique_ptr<Session>(new Session(std::move(impl)));
    auto const made = sessions.emplace(name, std::move(session)).first;
    publishOpen(s);
    return *made->second;
  } catch (...) {
    sessions.erase(name);
    dropAll();
    throw;
  }
}

Session& Service::open(std::string const& name, std::string const& user, std::string const& terminal) {
  if (name.empty()) throw Error("a session needs a name");
  if (impl_->sessions.count(name)) throw Error("there is a session '" + name + "' already");
  impl_->requireRoom(false);
  impl_->ended.clear();
  return impl_->make(name, user, terminal);
}

Session& Service::resume(std::string const& name, std::string const& user, std::string const& terminal) {
  Session* const found = session(name);
  if (!found) throw Error("there is no session '" + name + "'");
  Session::Impl& s = *found->impl_;
  if (s.attached)
    throw Error("session '" + name + "' is in use by " + s.user + (s.terminal.empty() ? "" : " at " + s.terminal));
  impl_->requireRoom(false);
  s.user = user;
  s.terminal = terminal;
  s.attached = true;
  s.processId = static_cast<Kel::U32>(::getpid());
  s.lastUse = impl_->now();
  s.status->stateIs(Cli::Session::SessionState::pending);
  impl_->publishOpen(s);
  return *found;
}

void Service::leave(Session& session) {
  Session::Impl& s = *session.impl_;
  if (!s.attached) return;
  impl_->requireRoom(true);
  s.attached = false;
  s.lastUse = impl_->now();
  s.status->stateIs(Cli::Session::SessionState::preempted);
  impl_->publishOpen(s);
}

void Service::close(Session& session, bool discard) {
  Session::Impl& s = *session.impl_;
  if (!discard)
    if (std::size_t const edits = s.edits().size())
      throw Error("session '" + s.name + "' has " + std::to_string(edits) + (edits == 1 ? " edit" : " edits"));
  impl_->end(s, Cli::Session::SessionState::completed);
}

// What the session published can be read until a session of its name is opened.
void Service::Impl::end(Session::Impl& s, Cli::Session::SessionState state) {
  if (!s.open) return;
  if (unconfirmed && unconfirmed->session == s.name && unconfirmed->persist.empty()) undoUnconfirmed(false);
  Kel::Name const key(s.name);
  ended.reserve(ended.size() + 1);
  // From here on the session ends, even if reactors raise.
  auto const quietly = [](auto const& step) {
    try {
      step();
    } catch (...) {
    }
  };
  s.open = false;
  quietly([&] { publishOpen(s); });
  s.requests.reset();
  s.pending.clear();
  quietly([&] { s.status->completedIs(true); });
  quietly([&] { s.status->stateIs(state); });
  quietly([&] { s.status->sessionRootsIs(false); });
  quietly([&] { s.status->ancestorRootsIs(false); });
  quietly([&] { s.status->localDelAll(); });
  s.tree = s.ancestor = {};
  s.dir = s.ancestorDir = nullptr;
  quietly([&] { sessionDir->entryDel(key); });
  quietly([&] { ancestorDir->entryDel(key); });
  auto node = sessions.extract(s.name);
  if (!node.empty()) ended.push_back(std::move(node.mapped()));
}

Session* Service::session(std::string const& name) const {
  auto const found = impl_->sessions.find(name);
  return found == impl_->sessions.end() ? nullptr : found->second.get();
}

std::vector<Service::Listed> Service::list() const {
  std::vector<Listed> all;
  for (auto const& [name, session] : impl_->sessions) {
    Session::Impl const& s = *session->impl_;
    all.push_back({name, s.user, s.terminal, s.attached, s.status->startTime(), s.config->expirationTime(),
                   s.status->state(), s.config->committedCount()});
  }
  return all;
}

// --- Time ---

double Service::poll() {
  Impl& i = *impl_;
  i.ended.clear();
  double const time = i.now();
  if (i.underWay > 0) return time;
  if (i.unconfirmed && time >= i.unconfirmed->until) i.undoUnconfirmed(true);
  i.servePostponed();
  bool const looksAtProcesses = time - i.lastProcessPoll >= i.tunables->processPollInterval();
  if (looksAtProcesses) i.lastProcessPoll = time;
  std::vector<Session::Impl*> expired;
  double next = i.lastProcessPoll + i.tunables->processPollInterval();
  if (i.unconfirmed) next = std::min(next, i.unconfirmed->until);
  for (auto const& [name, session] : i.sessions) {
    Session::Impl& s = *session->impl_;
    double const expiration = s.config->expirationTime();
    if (s.status->expirationTime() != expiration) s.status->expirationTimeIs(expiration);
    bool const gone = looksAtProcesses && s.attached && !i.options.isAlive(s.processId);
    bool const idle = !s.attached && time - s.lastUse >= i.tunables->sessionProcessTimeout();
    if (time >= expiration || gone || idle)
      expired.push_back(&s);
    else
      next = std::min({next, expiration, s.attached ? expiration : s.lastUse + i.tunables->sessionProcessTimeout()});
  }
  for (Session::Impl* s : expired) i.end(*s, Cli::Session::SessionState::dead);
  i.takeSnapshotAfter(i.options.snapshotEvery);
  return next;
}

}  // namespace Cli::Service
