// A session manager and the tree that it works on: directories that hold configurations, sessions, their ancestors.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "CliSession/CliSession.h"
#include "Kel/Dir.h"

namespace Bench {

using Cli::Session::AttributeEdit;
using Cli::Session::AttributeEditLog;
using Cli::Session::AttributeEditType;

struct SessionRoot {
  std::string path;
  std::string typeName;
};

// One kind of edit at one path, as text; and what a log counts.
std::string editText(AttributeEdit const& edit, Kel::String const& path);
std::map<std::string, unsigned> editsOf(AttributeEditLog const& log);

class Manager {
 public:
  // The roots are copied in this order.
  explicit Manager(std::vector<SessionRoot> roots);

  // Further rules for all copies that follow.
  void bypassDefaults();  // deletions of entities that hold nothing but defaults stay out of the log
  void debugIs(AttributeEdit const& edit) { debug_.push_back(edit); }  // edits of that kind are traced
  void handlerIs(Kel::String const& typeName);  // entities of that type get a handler of their own, which copies all

  // A new directory in the tree, empty or with empty session roots. What stood under the name before is gone.
  Kel::Dir& makeDir(Kel::Name const& name);
  Kel::Dir& makeRoots(Kel::Name const& name);
  void removeDir(Kel::Name const& name) { top_->entryDel(name); }
  // The directory of that name; null when there is none.
  Kel::Dir::Ptr dir(Kel::Name const& name) { return Kel::ptrCast<Kel::Dir>(top_->entityRef(name)); }

  // Copies one directory to another, or compares it with another, with a new EntityCopy; answers the log.
  AttributeEditLog::Ptr copy(Kel::Dir& src, Kel::Dir& dest, bool compare = false);

  // Makes an empty session that keeps a log; one of that name that is there is gone.
  void makeSession(Kel::Name const& name);
  bool hasSession(Kel::Name const& name) { return pending(name) != nullptr; }
  // Fills it from a directory.
  void replace(Kel::Dir& src, Kel::Name const& sessionName);
  AttributeEditLog& sessionLog(Kel::Name const& name) { return *pending(name)->attributeEditLog(); }
  Kel::Dir& sessionDir(Kel::Name const& name) { return *Kel::ptrCast<Kel::Dir>(sessions_->entityRef(name)); }
  Kel::Dir& ancestorDir(Kel::Name const& name) { return *Kel::ptrCast<Kel::Dir>(ancestors_->entityRef(name)); }

 private:
  void addDebugActions(AttributeEditLog& log) const;
  Cli::Session::PendingChangeStatus::Ptr pending(Kel::Name const& name) {
    return status_->pendingChangeStatusDir()->status(name);
  }

  std::vector<SessionRoot> roots_;
  std::vector<AttributeEdit> debug_;
  Kel::Dir::Ptr top_, sessions_, ancestors_;
  Cli::Session::Status::Ptr status_;
  Cli::Session::EntityCopyCustomHandlerTable::Ptr handlers_;
};

}  // namespace Bench
