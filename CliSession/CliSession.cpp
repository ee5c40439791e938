// The session manager: session roots, config replacement, the clean configuration.
#define KEL_SOURCE_NAME "CliSession"
#include "CliSession/CliSession.h"

#include <algorithm>
#include <functional>
#include <iostream>
#include <optional>
#include <unordered_set>
#include <vector>

#include "CliSession/AsMade.h"
#include "CliSession/EntityCopy/EngineImpl.h"
#include "CliSession/EntityCopyUtils.h"
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
  std::string_view rest = path;
  std::vector<Kel::Name> names;
  names.reserve(static_cast<std::size_t>(std::count(rest.begin(), rest.end(), '/')) + 1);
  for (;;) {
    std::size_t const end = rest.find('/');
    names.emplace_back(rest.substr(0, end));
    if (end == std::string_view::npos) return names;
    rest.remove_prefix(end + 1);
  }
}

bool isDir(Kel::Dir::EntryState const& entry) {
  return entry.entityTypeName() == Kel::Dir::_fwkType()->fullTypeName().view();
}

// Whether the entry at a path, which is on the way to a root, is going to be deleted and made again.
using GoesFirst = std::function<bool(Kel::String const& path)>;

// The type of a session root; empty if none is recorded.
Kel::String rootType(Status const& status, Kel::String const& path) {
  if (!status.rootTrie()) Kel::throwRangeException(status.name() + " has no rootTrie: initialize() makes it");
  return status.rootTrie()->prefixTypename(path);
}

// A session root that is to be made in one or more destinations. Traces and asserts under the name of the operation.
class RootSkeleton {
 public:
  static constexpr char const* operation = "doCreateSessionRoot";
  static constexpr char const* signature =
      "void Cli::Session::Status::doCreateSessionRoot(const Kel::Ptr<Kel::Dir>&, const Kel::Ptr<Kel::Dir>&, "
      "Kel::String)";

  RootSkeleton(Kel::String const& path, Kel::String const& typeName)
      : path_(path), typeName_(typeName), names_(components(path)) {}

  Kel::String const& path() const { return path_; }

  // Raises an exception if the root cannot be made in `dest`; changes nothing.
  void check(Kel::Ptr<Kel::Dir> const& src, Kel::Ptr<Kel::Dir> const& dest, GoesFirst const& goesFirst = {}) const {
    for (Kel::Name const& name : names_)
      if (name.empty()) Kel::throwRangeException(Kel::String("session root '") + path_ + "': empty path component");
    Kel::validPtr(src);
    checkDestination(*Kel::validPtr(dest), goesFirst);
    if (typeName_.empty())
      Kel::throwTypeException(Kel::String("session root '") + path_ + "'", "rootTrie has no type for it");
    Kel::KelType const* type = Kel::KelType::find(typeName_);
    if (!type || !type->isMadeByName())
      Kel::throwTypeException(Kel::String("session root '") + path_ + "'",
                              Kel::String("no entity type '") + typeName_ + "' that can be made from a name");
  }

  // REQUIRES: it is checked. Two cursors walk down to the root side by side, in the source and in the destination.
  void make(Kel::Ptr<Kel::Dir> const& src, Kel::Ptr<Kel::Dir> const& dest) const {
    Kel::Ptr<Kel::Dir> srcDir = src, destDir = dest;
    for (std::size_t i = 0; i + 1 < names_.size(); ++i) {
      if (srcDir) srcDir = sourceBelow(*srcDir, names_[i]);
      if (!destDir->entry(names_[i])) destDir->newEntity("Kel::Dir", names_[i]);
      destDir = Kel::ptrCast<Kel::Dir>(destDir->entityRef(names_[i]));
    }
    if (srcDir) checkSource(*srcDir, src);
    makeFinal(destDir);
  }

 private:
  void checkDestination(Kel::Dir& dest, GoesFirst const& goesFirst) const {
    Kel::Dir* cursor = &dest;
    std::size_t walked = 0;
    for (std::size_t i = 0; cursor && i + 1 < names_.size(); ++i) {
      walked += names_[i].chars() + 1;
      auto const state = cursor->entry(names_[i]);
      if (state && !isDir(*state)) {
        if (goesFirst && goesFirst(path_.view().substr(0, walked - 1))) return;
        Kel::throwTypeException(
            Kel::String("session root '") + path_ + "' of type " + typeName_,
            cursor->fullName() + "/" + names_[i] + " is a " + state->entityTypeName() + ", not a directory");
      }
      cursor = state ? dynamic_cast<Kel::Dir*>(state->entityPtr().ptr()) : nullptr;
    }
  }

  // A directory that is announced but does not exist yet is not walked, and not made: the source is never written.
  static Kel::Ptr<Kel::Dir> sourceBelow(Kel::Dir const& dir, Kel::Name const& name) {
    auto const state = dir.entry(name);
    KEL_ASSERT_AS(!state || isDir(*state), "systemSoFar && \"All sessionRoot's ancestors must be Kel::Dirs\"",
                  signature);
    if (!state) return nullptr;
    return Kel::Ptr<Kel::Dir>(const_cast<Kel::Dir*>(dynamic_cast<Kel::Dir const*>(state->entityPtr().ptr())));
  }

  void checkSource(Kel::Dir const& dir, Kel::Ptr<Kel::Dir> const& src) const {
    auto const e = dir.entry(names_.back());
    if (!e) {
      std::cerr << "path " << path_ << " is not a mount point in src (" << src << ")" << std::endl;
      return;
    }
    KEL_ASSERT_AS(e->entityTypeName() == typeName_, "e->type() == typeName", signature);
  }

  void makeFinal(Kel::Ptr<Kel::Dir> const& dest) const {
    Kel::Name const& name = names_.back();
    if (auto const exists = dest->entry(name)) {
      KEL_TRACE_AS(5, operation) << "doCreateSessionRoot final " << name << " of type " << typeName_
                                 << " already created in " << dest;
      KEL_ASSERT_AS(exists->entityTypeName() == typeName_, "exists->typeName() == typeName", signature);
      dest->entityRef(name);
      return;
    }
    KEL_TRACE_AS(5, operation) << "doCreateSessionRoot creating final " << name << " " << typeName_;
    Kel::Ptr<Kel::Entity> const made = dest->newEntity(typeName_, name);
    KEL_TRACE_AS(5, operation) << "e type: " << made->type()->fullTypeName();
  }

  Kel::String path_, typeName_;
  std::vector<Kel::Name> names_;
};

void traceCreation(Status const& status, Kel::String const& path) {
  KEL_TRACE_AS(8, RootSkeleton::operation) << RootSkeleton::signature << status.name() << " path: " << path;
}

}  // namespace

void Status::doCreateSessionRoots(Kel::Ptr<Kel::Dir> const& src, Kel::Ptr<Kel::Dir> const& dest) {
  KEL_TRACE(8) << "void Cli::Session::Status::doCreateSessionRoots(const Kel::Ptr<Kel::Dir>&, const "
                  "Kel::Ptr<Kel::Dir>&)"
               << name();
  for (auto it = rootIterator(); it; ++it) doCreateSessionRoot(src, dest, it.key());
}

void Status::doCreateSessionRoot(Kel::Ptr<Kel::Dir> const& src, Kel::Ptr<Kel::Dir> const& dest, Kel::String path) {
  traceCreation(*this, path);
  RootSkeleton const root(path, rootType(*this, path));
  root.check(src, dest);
  root.make(src, dest);
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

// Whether a checker or a custom handler takes part in copies. They may look at the log of a copy that has no other
// reader.
bool logHasReaders(Status const& status) {
  auto const table = status.inHandlerTable();
  bool const handled = table && (table->pathSpecificHandlers() > 0 || table->typeSpecificHandlerss() > 0);
  return handled || status.attributeEditBypassTable();
}

// The steps of doReplaceConfig trace under its name.
char const* const replaceOperation = "doReplaceConfig";
char const* const replaceSignature =
    "bool Cli::Session::Status::doReplaceConfig(const Kel::Ptr<Kel::Dir>&, Kel::String)";

// The session into which a configuration is copied; null, with a trace, if it does not exist or is completed.
Kel::Ptr<PendingChangeStatus> openSession(Status& status, Kel::String const& sessionName) {
  auto const& sessions = status.pendingChangeStatusDir();
  Kel::Ptr<PendingChangeStatus> session = sessions ? sessions->status(sessionName) : nullptr;
  if (!session) {
    if (!sessions)
      KEL_TRACE_AS(9, replaceOperation) << status.name() << " has no pendingChangeStatusDir: initialize() makes it";
    KEL_TRACE_AS(9, replaceOperation) << "No session found under name " << sessionName;
    return nullptr;
  }
  if (session->completed()) {
    KEL_TRACE_AS(9, replaceOperation) << "Session " << sessionName << " already completed.";
    return nullptr;
  }
  return session;
}

// The session's entry in `dir`, which is the value of the manager's attribute `holder`. Raises RangeException, after a
// trace of the reason, if there is none.
Kel::Ptr<Kel::Dir> sessionEntry(Kel::Ptr<Kel::Dir> const& dir, PendingChangeStatus& session, char const* holder) {
  Kel::String const& name = session.name();
  Kel::Ptr<Kel::Dir> const entry = dir ? Kel::ptrCast<Kel::Dir>(dir->entityRef(name)) : nullptr;
  if (!entry) {
    Kel::String const reason =
        Kel::String(holder) + (dir ? Kel::String(" has no directory '") + name + "'" : " is null");
    KEL_TRACE_AS(9, replaceOperation) << "Session " << name << ": " << reason;
  }
  return Kel::validPtr(entry).handle();
}

Kel::String orUnknown(Kel::String const& path) { return path.empty() ? Kel::String("<unknown>") : path; }

// The session roots of a replacement. Those that the source lacks must be empty in the destination: one that an earlier
// copy has filled is deleted, so that it is made again; one that equals a new one is kept.
class ReplacedRoots {
 public:
  ReplacedRoots(Status& status, Kel::Dir const& src) : status_(status), src_(src) {}

  // The roots' skeletons. Raises an exception if any cannot be made in one of the destinations; changes nothing.
  std::vector<RootSkeleton> check(Kel::Ptr<Kel::Dir> const& src, Kel::Ptr<Kel::Dir> const& dest,
                                  Kel::Ptr<Kel::Dir> const& otherDest) {
    GoesFirst const goesFirst = [this](Kel::String const& above) {
      return status_.rootHas(above) && typeOf(above) == Kel::Dir::_fwkType()->fullTypeName() && !src_.entity(above);
    };
    std::vector<RootSkeleton> skeletons;
    for (auto it = status_.rootIterator(); it; ++it) {
      Kel::String const path = it.key();
      try {
        Kel::String const type = typeOf(path);
        RootSkeleton const& root = skeletons.emplace_back(path, type);
        root.check(src, dest, goesFirst);
        root.check(src, otherDest, goesFirst);
        checkAbove(path, type);
      } catch (...) {
        KEL_TRACE_AS(9, replaceOperation) << "Adding CliSession root" << orUnknown(path);
        throw;
      }
      if (!src_.entity(path)) vanished_.push_back(path);
    }
    return skeletons;
  }
  // Deletes those that the source lacks, all before any is made, because one may lie in another. REQUIRES: they are
  // checked.
  void deleteVanished(Kel::Dir& dest) {
    for (Kel::String const& path : vanished_) {
      std::vector<Kel::Name> const names = components(path);
      Kel::Dir* at = &dest;
      for (std::size_t i = 0; at && i + 1 < names.size(); ++i)
        at = dynamic_cast<Kel::Dir*>(const_cast<Kel::Entity*>(at->child(names[i])));
      Kel::Ptr<Kel::Dir::EntryState> const entry = at ? at->entry(names.back()) : nullptr;
      if (entry && !isEmpty(*at, *entry, path)) at->entryDel(names.back());
    }
  }

 private:
  Kel::String typeOf(Kel::String const& path) const { return rootType(status_, path); }
  // The roots above a root must be directories.
  void checkAbove(Kel::String const& path, Kel::String const& type) const {
    for (std::size_t end = path.view().find('/'); end != std::string_view::npos; end = path.view().find('/', end + 1)) {
      Kel::String const above = path.view().substr(0, end);
      if (status_.rootHas(above) && typeOf(above) != Kel::Dir::_fwkType()->fullTypeName())
        Kel::throwTypeException(
            Kel::String("session root '") + path + "' of type " + type,
            Kel::String("session root '") + above + "' is a " + typeOf(above) + ", not a directory");
    }
  }

  // Whether a root equals a new one. A directory may also contain the directories on the way to other roots; those
  // roots are checked separately.
  bool isEmpty(Kel::Dir& dir, Kel::Dir::EntryState& root, Kel::String const& path) {
    if (root.entityTypeName() != typeOf(path)) return false;
    if (!root.entityPtr()) return true;
    return isDir(root) ? leadsToRootsOnly(root, path) : isAsMade(*root.entityPtr(), dir);
  }
  bool leadsToRootsOnly(Kel::Dir::EntryState& root, Kel::String const& path) {
    struct Open {
      Kel::Dir* dir;  // null: announced, but does not exist
      Kel::String path;
    };
    std::vector<Open> open{{dynamic_cast<Kel::Dir*>(root.entityPtr().ptr()), path}};
    while (!open.empty()) {
      Open const at = open.back();
      open.pop_back();
      if (!at.dir) continue;
      for (auto it = at.dir->entryStateIterator(); it; ++it) {
        Kel::String const below = at.path + "/" + it.key();
        if (status_.rootHas(below)) continue;
        if (!isDir(*it) || !leadsToRoots(below)) return false;
        open.push_back({dynamic_cast<Kel::Dir*>(it->entityPtr().ptr()), below});
      }
    }
    return true;
  }
  bool leadsToRoots(Kel::String const& path) {
    if (!ways_) {
      ways_.emplace();
      for (auto it = status_.rootIterator(); it; ++it) {
        std::string_view way = rootPaths_.emplace_back(it.key());
        for (std::size_t end = way.rfind('/'); end != std::string_view::npos; end = way.rfind('/'))
          ways_->insert(way = way.substr(0, end));
      }
    }
    return ways_->count(path) != 0;
  }

  Status& status_;
  Kel::Dir const& src_;
  std::vector<Kel::String> vanished_;                         // the source lacks them
  std::optional<std::unordered_set<std::string_view>> ways_;  // the directories above roots; made on demand
  std::vector<Kel::String> rootPaths_;                        // the texts behind `ways_`
};

// Makes all roots, and adds those that the source has to the copy.
void prepareRoots(Status& status, EntityCopy& ec, Kel::Ptr<Kel::Dir> const& src, Kel::Ptr<Kel::Dir> const& session,
                  Kel::Ptr<Kel::Dir> const& ancestor) {
  Kel::Ptr<Kel::Dir const> const readOnlySrc = src;
  ReplacedRoots roots(status, *readOnlySrc);
  std::vector<RootSkeleton> const skeletons = roots.check(src, session, ancestor);
  for (auto const& dest : {session, ancestor}) roots.deleteVanished(*dest);
  auto next = skeletons.begin();
  for (auto it = status.rootIterator(); it; ++it) {
    Kel::String const path = it.key();
    KEL_TRACE_AS(9, replaceOperation) << "Adding CliSession root" << orUnknown(path);
    bool const isChecked = next != skeletons.end() && next->path() == path;  // else a reactor has changed the roots
    for (auto const& dest : {session, ancestor}) {
      if (isChecked) {
        traceCreation(status, path);
        next->make(src, dest);
      } else {
        status.doCreateSessionRoot(src, dest, path);
      }
    }
    if (isChecked) ++next;
    if (Kel::Ptr<Kel::Entity const> const srcRoot = readOnlySrc->entity(path)) ec.srcCopyRootIs(srcRoot, true);
  }
}

void recordLocals(Status& status, PendingChangeStatus& session, Kel::Ptr<Kel::Dir> const& dir) {
  for (auto it = status.rootIterator(); it; ++it) {
    Kel::String const path = it.key();
    session.localIs(path, dir->entity(path));
    // The application may have made it under another name.
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
  Kel::Ptr<Kel::Dir> const sessionRoot = sessionEntry(sessionDir(), *session, "sessionDir");
  Kel::Ptr<Kel::Dir> const ancestorRoot = sessionEntry(ancestorDir(), *session, "ancestorDir");
  prepareRoots(*this, *ec, src, sessionRoot, ancestorRoot);

  Kel::Ptr<EntityCopyGlobalSessionHandler> handler = sessionHandler(*this, "replace");
  ec->handlerIs(handler);
  bool const keepsLog = session->config() && session->config()->logAttributeEdits();
  bool const readsLog = logHasReaders(*this);
  EntityCopy::Impl::of(*ec).unlogged = !readsLog;
  if (keepsLog) ec->attributeEditLogIs(session->attributeEditLogIs());
  ec->srcIs(src);
  ec->ancestorIs(src);
  ec->destIs(sessionRoot);
  drainPostCopies(*ec, *handler);

  recordLocals(*this, *session, sessionRoot);

  handler = sessionHandler(*this, "replace");
  ec->handlerIs(handler);
  // The copy into the ancestor repeats the edits of the session's copy, so they are not counted again.
  if (keepsLog) ec->attributeEditLogIs(readsLog ? attributeEditLogFactory() : nullptr);
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
  EntityCopy::Impl::of(*ec).unlogged = !logHasReaders(*this);
  ec->srcIs(src);
  ec->ancestorIs(src);
  ec->destIs(dest);
  drainPostCopies(*ec, *handler);
  progress->cleanConfigCompleteIs(true);
}

bool Status::doCleanConfig(Kel::String sessionName) {
  KEL_TRACE(8) << "bool Cli::Session::Status::doCleanConfig(Kel::String) for " << sessionName;
  bool const complete = cleanConfig() && cleanConfigStatus() && cleanConfigStatus()->cleanConfigComplete();
  if (complete) return doReplaceConfig(cleanConfig(), sessionName);
  KEL_TRACE(9) << "clean-config is not yet complete";
  return false;
}

}  // namespace Cli::Session
