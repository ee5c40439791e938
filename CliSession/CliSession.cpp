// The session manager: session roots, config replacement, the clean configuration.
#define KEL_SOURCE_NAME "CliSession"
#include "CliSession/CliSession.h"

#include <iostream>
#include <vector>

#include "Kel/Assert.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("CliSession")

namespace Cli::Session {

void Config::initialize() { pendingChangeConfigDirIs("pendingChangeConfig"); }

void Status::initialize() {
  pendingChangeStatusDirIs("pendingChangeStatus");
  rootTrieIs("root");
}

void Status::doCreateSession(Kel::String, Kel::Ptr<Kel::Dir> const&) {}

// --- Session roots ---

namespace {

// The components of a session root's path.
std::vector<Kel::Name> components(Kel::String const& path) {
  std::vector<Kel::Name> names;
  std::string_view rest = path;
  for (;;) {
    std::size_t const end = rest.find('/');
    names.emplace_back(rest.substr(0, end));
    if (end == std::string_view::npos) return names;
    rest.remove_prefix(end + 1);
  }
}

// One session root under way: two cursors that walk the ancestors of the root side by side. Traces and asserts as the
// operation.
class RootSkeleton {
 public:
  static constexpr char const* operation = "doCreateSessionRoot";
  static constexpr char const* signature =
      "void Cli::Session::Status::doCreateSessionRoot(const Kel::Ptr<Kel::Dir>&, const Kel::Ptr<Kel::Dir>&, "
      "Kel::String)";

  RootSkeleton(Kel::Ptr<Kel::Dir> const& src, Kel::Ptr<Kel::Dir> const& dest, Kel::String const& path,
               Kel::String const& typeName)
      : path_(path), typeName_(typeName), names_(components(path)), src_(src), dest_(dest) {
    for (Kel::Name const& name : names_)
      if (name.empty()) Kel::throwRangeException(Kel::String("session root '") + path + "': empty path component");
    Kel::validPtr(src);
    checkDestination(*Kel::validPtr(dest));
    Kel::KelType const* type = Kel::KelType::find(typeName_);
    if (!type || !type->isMadeByName())
      Kel::throwTypeException(Kel::String("session root '") + path_ + "'",
                              Kel::String("no entity type '") + typeName_ + "' that is made by a name");
  }

  void make() {
    for (std::size_t i = 0; i + 1 < names_.size(); ++i) descend(names_[i]);
    if (src_) checkSource(names_.back());
    makeFinal(names_.back());
  }

 private:
  void checkDestination(Kel::Dir& dest) const {
    Kel::Dir* cursor = &dest;
    for (std::size_t i = 0; cursor && i + 1 < names_.size(); ++i) {
      auto const state = cursor->entry(names_[i]);
      if (state && state->entityTypeName() != Kel::Dir::_fwkType()->fullTypeName().view())
        Kel::throwTypeException(
            Kel::String("session root '") + path_ + "' of type " + typeName_,
            cursor->fullName() + "/" + names_[i] + " is a " + state->entityTypeName() + ", no directory");
      cursor = state ? dynamic_cast<Kel::Dir*>(state->entityPtr().ptr()) : nullptr;
    }
  }

  void descend(Kel::Name const& name) {
    if (src_) {
      auto const state = Kel::Ptr<Kel::Dir const>(src_)->entry(name);
      bool const isDir = !state || state->entityTypeName() == Kel::Dir::_fwkType()->fullTypeName().view();
      KEL_ASSERT_AS(isDir, "systemSoFar && \"All sessionRoot's ancestors must be Kel::Dirs\"", signature);
      // A directory that is announced but not there yet has nothing to walk; the source is never written.
      src_ = state ? Kel::Ptr<Kel::Dir>(const_cast<Kel::Dir*>(dynamic_cast<Kel::Dir const*>(state->entityPtr().ptr())))
                   : Kel::Ptr<Kel::Dir>();
    }
    if (!dest_->entry(name)) dest_->newEntity("Kel::Dir", name);
    dest_ = Kel::ptrCast<Kel::Dir>(dest_->entityRef(name));
  }

  void checkSource(Kel::Name const& name) const {
    auto const e = Kel::Ptr<Kel::Dir const>(src_)->entry(name);
    if (!e) {
      std::cerr << "path " << path_ << " is not a mount point in src (" << src_ << ")" << std::endl;
      return;
    }
    KEL_ASSERT_AS(e->entityTypeName() == typeName_, "e->type() == typeName", signature);
  }

  void makeFinal(Kel::Name const& name) {
    if (auto const exists = dest_->entry(name)) {
      KEL_TRACE_AS(5, operation) << "doCreateSessionRoot final " << name << " of type " << typeName_
                                 << " already created in " << dest_;
      KEL_ASSERT_AS(exists->entityTypeName() == typeName_, "exists->typeName() == typeName", signature);
      dest_->entityRef(name);
      return;
    }
    KEL_TRACE_AS(5, operation) << "doCreateSessionRoot creating final " << name << " " << typeName_;
    Kel::Ptr<Kel::Entity> const made = dest_->newEntity(typeName_, name);
    KEL_TRACE_AS(5, operation) << "e type: " << made->type()->fullTypeName();
  }

  Kel::String const path_, typeName_;
  std::vector<Kel::Name> const names_;
  Kel::Ptr<Kel::Dir> src_, dest_;
};

}  // namespace

void Status::doCreateSessionRoots(Kel::Ptr<Kel::Dir> const& src, Kel::Ptr<Kel::Dir> const& dest) {
  KEL_TRACE(8) << "void Cli::Session::Status::doCreateSessionRoots(const Kel::Ptr<Kel::Dir>&, const "
                  "Kel::Ptr<Kel::Dir>&)"
               << name();
  for (auto it = rootIterator(); it; ++it) doCreateSessionRoot(src, dest, it.key());
}

void Status::doCreateSessionRoot(Kel::Ptr<Kel::Dir> const& src, Kel::Ptr<Kel::Dir> const& dest, Kel::String path) {
  KEL_TRACE(8) << RootSkeleton::signature << name() << " path: " << path;
  RootSkeleton(src, dest, path, Kel::validPtr(rootTrie())->prefixTypename(path)).make();
}

// --- Copies ---

namespace {

// A session handler set up for one run.
Kel::Ptr<EntityCopyGlobalSessionHandler> sessionHandler(Status& status, char const* copiedName) {
  Kel::Ptr<EntityCopyGlobalSessionHandler> handler = entityCopyGlobalSessionHandlerFactory();
  handler->sessionStatusIs(Kel::Ptr<Status>(&status));
  handler->handlerTableIs(status.inHandlerTable());
  handler->copiedIs(copiedName);
  return handler;
}

// Copies what custom handlers have put off to after the main copy.
void drainPostCopies(EntityCopy& ec, EntityCopyGlobalSessionHandler& handler) {
  if (handler.postAttributeCopys() == 0) return;
  while (handler.postAttributeCopys() > 0) {
    // The record drops its pointers when it leaves the queue.
    Kel::Ptr<PostCopyAttribute> const front = handler.postAttributeCopyIterator().value();
    Kel::Ptr<Kel::Entity> const dest = front->dest();
    Kel::Ptr<Kel::Entity const> const src = front->src();
    handler.postAttributeCopyDeq();
    ec.doCopyAttrByName(dest, src, front->path(), front->attrName());
  }
  if (ec.pendingAttrs() > 0) ec.doCopyPendingAttrs(false);
}

// The steps of doReplaceConfig trace in its name.
char const* const replaceOperation = "doReplaceConfig";
char const* const replaceSignature =
    "bool Cli::Session::Status::doReplaceConfig(const Kel::Ptr<Kel::Dir>&, Kel::String)";

// The session a configuration is to be copied into; null, with a trace, when there is none to be had.
Kel::Ptr<PendingChangeStatus> openSession(Status& status, Kel::String const& sessionName) {
  Kel::Ptr<PendingChangeStatus> session;
  if (status.pendingChangeStatusDir()) session = status.pendingChangeStatusDir()->status(sessionName);
  if (!session) {
    KEL_TRACE_AS(9, replaceOperation) << "No session found under name " << sessionName;
  } else if (session->completed()) {
    KEL_TRACE_AS(9, replaceOperation) << "Session " << sessionName << " already completed.";
    session = nullptr;
  }
  return session;
}

Kel::Ptr<Kel::Dir> sessionEntry(Kel::Ptr<Kel::Dir> const& dir, Kel::String const& sessionName) {
  return Kel::validPtr(Kel::ptrCast<Kel::Dir>(Kel::validPtr(dir)->entityRef(sessionName))).handle();
}

Kel::String orUnknown(Kel::String const& path) { return path.empty() ? Kel::String("<unknown>") : path; }

// A root that an earlier copy filled and that the source no longer has is to be made afresh, empty. All such roots go
// before any is made: one may lie in another.
void deleteVanishedRoots(Status const& status, Kel::Dir const& src, std::initializer_list<Kel::Dir*> dirs) {
  for (auto it = status.rootIterator(); it; ++it) {
    if (src.entity(it.key())) continue;
    std::vector<Kel::Name> const names = components(it.key());  // a malformed path leads nowhere; it is refused later
    for (Kel::Dir* at : dirs) {
      for (std::size_t i = 0; at && i + 1 < names.size(); ++i)
        at = dynamic_cast<Kel::Dir*>(const_cast<Kel::Entity*>(at->child(names[i])));
      if (at) at->entryDel(names.back());
    }
  }
}

// Builds the skeletons of all roots and registers what there is to copy.
void prepareRoots(Status& status, EntityCopy& ec, Kel::Ptr<Kel::Dir> const& src, Kel::Ptr<Kel::Dir> const& session,
                  Kel::Ptr<Kel::Dir> const& ancestor) {
  Kel::Ptr<Kel::Dir const> const readOnlySrc = src;
  deleteVanishedRoots(status, *readOnlySrc, {session.ptr(), ancestor.ptr()});
  for (auto it = status.rootIterator(); it; ++it) {
    Kel::String const path = it.key();
    KEL_TRACE_AS(9, replaceOperation) << "Adding CliSession root" << orUnknown(path);
    status.doCreateSessionRoot(src, session, path);
    status.doCreateSessionRoot(src, ancestor, path);
    if (Kel::Ptr<Kel::Entity const> const srcRoot = readOnlySrc->entity(path)) ec.srcCopyRootIs(srcRoot, true);
  }
}

void recordLocals(Status& status, PendingChangeStatus& session, Kel::Ptr<Kel::Dir> const& dir) {
  for (auto it = status.rootIterator(); it; ++it) {
    Kel::String const path = it.key();
    session.localIs(path, dir->entity(path));
    // The owner may have made it under a name of its own.
    if (!session.localPrefix()) session.newLocalPrefix("localPrefix");
    session.localPrefix()->prefixIs(path, Zuk::prefixTrieStateFactory());
  }
}

}  // namespace

bool Status::doReplaceConfig(Kel::Ptr<Kel::Dir> const& src, Kel::String sessionName) {
  if (!src) {
    KEL_TRACE(8) << replaceSignature << " for " << sessionName << " returning because srcRoot is NULL";
    return false;
  }
  KEL_TRACE(8) << replaceSignature << " for " << sessionName << " from " << src;
  Ptr const self(this);
  Kel::Ptr<PendingChangeStatus> const session = openSession(*this, sessionName);
  if (!session) return false;
  EntityCopy::Ptr const ec = entityCopyFactory();
  ec->attributeEditBypassCheckerIs(attributeEditBypassTable());
  Kel::Ptr<Kel::Dir> const sessionRoot = sessionEntry(sessionDir(), sessionName);
  Kel::Ptr<Kel::Dir> const ancestorRoot = sessionEntry(ancestorDir(), sessionName);
  prepareRoots(*this, *ec, src, sessionRoot, ancestorRoot);

  Kel::Ptr<EntityCopyGlobalSessionHandler> handler = sessionHandler(*this, "replace");
  ec->handlerIs(handler);
  bool const keepsLog = session->config() && session->config()->logAttributeEdits();
  if (keepsLog) ec->attributeEditLogIs(session->attributeEditLogIs());
  ec->srcIs(src);
  ec->ancestorIs(src);
  ec->destIs(sessionRoot);
  drainPostCopies(*ec, *handler);

  recordLocals(*this, *session, sessionRoot);

  handler = sessionHandler(*this, "replace");
  ec->handlerIs(handler);
  // The ancestor's copy repeats the session's: it is not counted in the session's log.
  if (keepsLog) ec->attributeEditLogIs(attributeEditLogFactory());
  ec->destIs(ancestorRoot);
  drainPostCopies(*ec, *handler);
  return true;
}

// --- Clean configuration ---

void Status::doCreateCleanConfig(Kel::Ptr<Kel::Dir> const& src, Kel::Ptr<Kel::Dir> const& dest) {
  KEL_TRACE(8) << "void Cli::Session::Status::doCreateCleanConfig(const Kel::Ptr<Kel::Dir>&, const "
                  "Kel::Ptr<Kel::Dir>&)";
  Ptr const self(this);
  Kel::validPtr(src);
  KEL_ASSERT(dest);
  Kel::Ptr<CleanConfigStatus> const progress = Kel::validPtr(cleanConfigStatus()).handle();
  EntityCopy::Ptr const ec = entityCopyFactory();
  ec->attributeEditBypassCheckerIs(attributeEditBypassTable());
  for (auto it = rootIterator(); it; ++it) {
    Kel::String const path = it.key();
    KEL_TRACE(9) << "Adding CliSession root " << orUnknown(path);
    if (Kel::Ptr<Kel::Entity const> const srcRoot = Kel::Ptr<Kel::Dir const>(src)->entity(path))
      ec->srcCopyRootIs(srcRoot, true);
    else
      KEL_TRACE(5) << " session root " << path << " not found; leave empty.";
    progress->cleanConfigRootIs(path, true);
    doCreateSessionRoot(src, dest, path);
  }
  Kel::Ptr<EntityCopyGlobalSessionHandler> const handler = sessionHandler(*this, "clean-config");
  handler->externalDestIs(dest);
  ec->handlerIs(handler);
  ec->srcIs(src);
  ec->ancestorIs(src);
  ec->destIs(dest);
  drainPostCopies(*ec, *handler);
  progress->cleanConfigCompleteIs(true);
}

bool Status::doCleanConfig(Kel::String sessionName) {
  KEL_TRACE(8) << "bool Cli::Session::Status::doCleanConfig(Kel::String) for " << sessionName;
  if (cleanConfig() && cleanConfigStatus() && cleanConfigStatus()->cleanConfigComplete())
    return doReplaceConfig(cleanConfig(), sessionName);
  KEL_TRACE(9) << "clean-config is not yet complete";
  return false;
}

}  // namespace Cli::Session
