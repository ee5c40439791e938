#include "Workspace.h"

#include "EditPolicy.h"
#include "Kel/Exception.h"
#include "Reflect.h"

namespace Shell {

using Kel::GenericIf;
namespace Session = Cli::Session;

// The session manager is driven by name, as its owner would.
Workspace::Workspace() : top_(Kel::dirFactory("")) {
  running_ = Kel::Dir::Ptr(new Kel::Dir("running", top_.ptr()));
  sessions_ = Kel::Dir::Ptr(new Kel::Dir("session", top_.ptr()));
  ancestors_ = Kel::Dir::Ptr(new Kel::Dir("ancestor", top_.ptr()));
  Kel::Dir::Ptr const cli(new Kel::Dir("cli", top_.ptr()));
  manager_ = cli->newEntity("Cli::Session::Status", "status");
  config_ = cli->newEntity("Cli::Session::Config", "config");
  userConfig_ = Kel::ptrCast<Session::CliConfig>(cli->newEntity("Cli::Session::CliConfig", "user"));
  bypass_ = Kel::ptrCast<Session::AttributeEditBypassTable>(
      cli->newEntity("Cli::Session::AttributeEditBypassTable", "bypass"));
  call(manager_, "initialize");
  call(config_, "initialize");
  write(manager_, "sessionDir", GenericIf::ofEntity(Kel::Entity::Ptr(sessions_)));
  write(manager_, "ancestorDir", GenericIf::ofEntity(Kel::Entity::Ptr(ancestors_)));
  write(config_, "userConfig", GenericIf::ofEntity(Kel::Entity::Ptr(userConfig_)));
}

void Workspace::sessionRootIs(std::string const& path, std::string const& typeName) {
  Zuk::PrefixTrieState::Ptr const state = Zuk::prefixTrieStateFactory();
  state->pTypenameIs(typeName);
  call(read(manager_, "rootTrie")->entity(), "prefixIs",
       {{"path", GenericIf::of(Kel::String(path))}, {"state", GenericIf::ofEntity(Kel::Entity::Ptr(state))}});
  write(manager_, "root", GenericIf::of(true), GenericIf::of(Kel::String(path)));
  if (Kel::KelType const* type = Kel::KelType::find(typeName); type && type->isEntity())
    bypassDefaults(*bypass_, *type, sessions_->fullName() + "/");
}

std::vector<std::string> Workspace::sessionRoots() const {
  std::vector<std::string> paths;
  GenericIf::Ptr const gif = GenericIf::ofEntity(manager_);
  for (auto it = gif->attributeIteratorConst(gif->attributeId("root")); it; ++it)
    paths.push_back(it.key()->text().str());
  return paths;
}

Kel::Entity::Ptr Workspace::status(std::string const& name) const {
  GenericIf::Ptr const found =
      read(read(manager_, "pendingChangeStatusDir")->entity(), "status", GenericIf::of(Kel::Name(name)));
  return found ? found->entity() : nullptr;
}

void Workspace::sessionOpen(std::string const& name) {
  if (name.empty()) Kel::throwRangeException("a session needs a name");
  if (!status(name)) {
    GenericIf::PtrConst const key = GenericIf::of(Kel::Name(name)), no = GenericIf::of(false);
    GenericIf::PtrConst const now = GenericIf::of(Kel::Seconds(0));
    Kel::Entity::Ptr const config =
        create(read(config_, "pendingChangeConfigDir")->entity(), "config", {key, no, no, no, now});
    write(config, "logAttributeEdits", GenericIf::of(true));
    create(read(manager_, "pendingChangeStatusDir")->entity(), "status",
           {key, GenericIf::ofEntity(config), now, GenericIf::of(Kel::U32(1))});
    sessions_->newEntity("Kel::Dir", Kel::Name(name));
    ancestors_->newEntity("Kel::Dir", Kel::Name(name));
    replace(name);
  }
  session_ = name;
}

Kel::Dir::Ptr Workspace::sessionDir() const {
  if (session_.empty()) Kel::throwRangeException("no session is open: 'session open NAME' first");
  return Kel::ptrCast<Kel::Dir>(sessions_->entityRef(Kel::Name(session_)));
}

namespace {

// Deletes what stands in a session where a root belongs and is of another type, which the session manager takes for a
// mistake of its owner's.
void makeRoomFor(std::string const& path, Kel::String const& typeName, Kel::Dir::Ptr dir) {
  for (std::size_t from = 0, end; dir; from = end + 1) {
    end = path.find('/', from);
    bool const last = end == std::string::npos;
    Kel::Name const name(path.substr(from, last ? std::string::npos : end - from));
    auto const entry = dir->entry(name);
    if (!entry) return;
    bool const fits = entry->entityTypeName() == (last ? typeName : Kel::Dir::_fwkType()->fullTypeName());
    if (!fits) dir->entryDel(name);
    if (!fits || last) return;
    dir = Kel::ptrCast<Kel::Dir>(dir->entityRef(name));
  }
}

}  // namespace

void Workspace::replace(std::string const& name) {
  Kel::Entity::Ptr const trie = read(manager_, "rootTrie")->entity();
  for (std::string const& path : sessionRoots())
    makeRoomFor(path,
                call(trie, "prefixTypename", {{"path", GenericIf::of(Kel::String(path))}})->attrVal<Kel::String>(),
                Kel::ptrCast<Kel::Dir>(sessions_->entityRef(Kel::Name(name))));
  auto const log = create(status(name), "attributeEditLog", {});
  debugActionsIs(*Kel::ptrCast<Session::AttributeEditLog>(log), *userConfig_);
  GenericIf::Ptr const done = call(
      manager_, "doReplaceConfig",
      {{"src", GenericIf::ofEntity(Kel::Entity::Ptr(running_))}, {"sessionName", GenericIf::of(Kel::String(name))}});
  if (!done->attrVal<bool>()) Kel::throwRangeException(Kel::String("session ") + name + " cannot be filled");
}

void Workspace::sessionReplace() {
  sessionDir();
  replace(session_);
}

void Workspace::bypassIs(bool on) {
  write(manager_, "attributeEditBypassTable", on ? GenericIf::ofEntity(Kel::Entity::Ptr(bypass_)) : nullptr);
}

void Workspace::debugActionIs(Session::AttributeEdit const& edit, std::string const& path,
                              Session::AttributeDebugAction action) {
  if (path.empty())
    userConfig_->debugPerTypeEntityCopyIs(edit)->actionIs("", action);
  else
    userConfig_->debugEntityCopyIs(path)->debugConfigIs(edit)->actionIs(action);
}

Session::AttributeEditLog::PtrConst Workspace::sessionLog() const {
  sessionDir();
  GenericIf::Ptr const log = read(status(session_), "attributeEditLog");
  return log ? Kel::ptrCast<Session::AttributeEditLog const>(log->entityConst()) : nullptr;
}

Workspace::Difference Workspace::compare() const {
  Kel::Dir::Ptr const session = sessionDir();
  Session::EntityCopy::Ptr const comparison = Session::entityCopyFactory();
  auto const handler = Session::entityCopyGlobalSessionHandlerFactory();
  handler->sessionStatusIs(Kel::ptrCast<Session::Status>(manager_));
  comparison->handlerIs(handler);
  comparison->stopAtFirstDiffIs(true);
  Difference difference;
  for (std::string const& path : sessionRoots())
    if (auto const root = session->entity(Kel::String(path)); root && running_->entity(Kel::String(path)))
      comparison->srcCopyRootIs(root, true);
  if (comparison->srcCopyRoots() == 0) return difference;
  comparison->srcIs(session);
  comparison->destIs(running_);
  auto const entry = comparison->attributeEditLog()->attributeEditEntryIterator();
  if (!entry) return difference;
  difference.found = true;
  difference.edit = entry->attributeEdit();
  difference.path = entry->pathCounterIterator().key().str();
  return difference;
}

}  // namespace Shell
