// A session's state. Not installed.
#pragma once

#include <map>
#include <set>

#include "service/Apply.h"
#include "service/Checkpoint.h"
#include "service/Merge.h"
#include "service/Positions.h"
#include "service/Service.h"

// A class within an exported one is exported unless it says that it is not.
#define CLI_SERVICE_HIDDEN __attribute__((visibility("hidden")))

namespace Cli::Service {

class Requests;

struct CLI_SERVICE_HIDDEN Session::Impl {
  Impl(Service::Impl& s, std::string n, std::string u, std::string t);
  ~Impl();

  // A conflict as it was when it was reported to its user.
  struct Reported {
    Path path;
    Json running, session;
    std::map<std::string, Json> nodes;  // the session's contents at the listed paths
    std::set<std::string> edited;       // the paths that `edited` has reported since; all as the ancestor has them
  };
  struct Settled {
    Path path;
    Json running;  // running's content when it was settled
    Side side;
  };

  // Merging.
  std::vector<Difference> edits() const;
  std::vector<Difference> changes() const;
  Merged mergeWith(std::vector<Difference> const& mine, std::vector<Difference> const& theirs, Side otherwise) const;
  // Settled or not.
  std::vector<Conflict> allConflicts(std::vector<Difference> const& mine, std::vector<Difference> const& theirs) const;
  // `here`, `there`: where the ancestor's items stand in the session, and in running.
  std::optional<Side> settledSide(Conflict const& conflict, Positions const& here, Positions const& there) const;
  bool editedSince(Conflict const& conflict, Reported const& known, Positions const& here) const;
  bool keepsOwn(Difference const& change) const;
  void report(std::vector<Conflict> const& conflicts);
  void forgetSettled();

  // Makes S equal to another tree, and A equal to running. Answers how many edits it dropped.
  std::size_t become(Tree const& wanted);
  // Applies differences to S, as a whole or not at all.
  void edit(std::vector<Difference> const& differences);

  Service::Impl& service;
  std::string name, user, terminal;
  bool attached = true, open = true;
  Kel::U32 processId = 0;
  double lastUse = 0;
  Kel::Dir::Ptr dir, ancestorDir;
  Tree tree, ancestor;
  Cli::Session::PendingChangeStatus::Ptr status;
  Cli::Session::PendingChangeConfig::Ptr config;
  // When two of the trees were equal: A and S, A and R, R and S.
  Checkpoint editsFrom, changesFrom, runningFrom;
  std::map<std::string, Reported> reported;
  std::map<std::string, Settled> settled;
  PendingReferences pending;
  std::vector<std::string> notices;
  std::unique_ptr<Requests> requests;
};

// The key of a conflict in `reported` and `settled`.
std::string keyOf(Conflict const& conflict);
// The content at a path of a tree; null if there is none.
Json contentAt(Tree const& tree, Path const& path);

}  // namespace Cli::Service
