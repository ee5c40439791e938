// A session: a private branch of the running configuration.
//
// Three trees belong to it: the running configuration (R), the session's own (S), and their common ancestor (A), which
// is R as it was when the session was opened or last updated. Its user edits S. See docs/service.md.
//
// Every operation that changes trees does so as a whole or not at all: when it raises, running, session, ancestor and
// store are as they were before.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CliSession/CliSession.h"
#include "service/CommitStore.h"
#include "service/Conflict.h"
#include "service/Difference.h"
#include "service/PendingReferences.h"

namespace Cli::Service {

class Service;

enum class UpdateMode { revertOnConflict, preferCandidate, preferRunning };

// Raised by an update or a commit with unresolved conflicts: all of them.
class CLI_SERVICE_API ConflictError : public Error {
 public:
  explicit ConflictError(std::vector<Conflict> conflicts);
  ~ConflictError() override;
  std::vector<Conflict> conflicts;
};

// Raised by a commit that the checks refuse: every reason, with its place.
class CLI_SERVICE_API CheckError : public Error {
 public:
  struct Finding {
    Path path;           // empty: of no one place
    std::string reason;  // "the target of the pointer is gone", or what a constraint or participant said
  };
  explicit CheckError(std::vector<Finding> findings);
  ~CheckError() override;
  std::vector<Finding> findings;
};

struct CommitResult {
  std::optional<Kel::U64> number;       // null: there was nothing to commit
  bool confirms = false;                // an earlier commit was confirmed by it
  std::vector<Difference> differences;  // what was committed
  std::vector<std::string> reports;     // what `done` and `undo` raised
};

class CLI_SERVICE_API Session {
 public:
  ~Session();
  Session(Session const&) = delete;
  Session& operator=(Session const&) = delete;

  std::string const& name() const;
  std::string const& user() const;
  // The tree that the user edits, and the ancestor. The directories stay the same while the session is open.
  Tree tree() const;
  Tree ancestor() const;
  // References in the tree whose targets are not there: whoever writes to the tree keeps this up to date. A session
  // with any of them cannot be committed.
  PendingReferences& pending() const;
  // What the library publishes of it.
  Cli::Session::PendingChangeStatus& status() const;
  Cli::Session::PendingChangeConfig& config() const;

  // --- Looking ---

  // The edits: what differs between A and S. Cost: proportional to what may differ.
  std::vector<Difference> differences() const;
  // What a commit would do to running, and what running has that the session does not.
  std::vector<Difference> differencesFromRunning() const;
  std::vector<Difference> differencesInRunning() const;
  // All unresolved conflicts with running as it is now.
  std::vector<Conflict> conflicts() const;
  // What has become of the session while nobody looked: automatic updates, commits undone. Each is returned once.
  std::vector<std::string> takeNotices();

  // --- Editing ---

  // Edits are made in `tree()` by whatever means. A user who is told of a conflict settles it by editing its nodes
  // again; an edit that sets a node to the content it has leaves no trace in the tree, and is announced here.
  void edited(Path const& path);
  // Settles the conflicts at a path, or listed under it, for one side, against what running has now. Raises Error where
  // there is no conflict.
  void resolve(Path const& path, Side side);
  // Makes S, or what is at or below a path, what it is in A. Answers how many edits are gone.
  std::size_t discard(std::optional<Path> const& path = std::nullopt);
  // Gives S the content of the clean configuration, of running after a commit, or of what the callback builds in an
  // empty tree; then A is R as it is now. What differs are edits, to be reviewed and committed. Each answers how many
  // earlier edits it dropped. What the callback raises goes on to the caller.
  std::size_t clear();
  std::size_t rollback(Kel::U64 number);
  using Load = std::function<void(Tree const& fresh)>;
  std::size_t loadReplace(Load const& load);
  // Edits like typed ones, of which all or none stay: the callback edits a copy of the session's tree (`base` null), or
  // what it builds takes the place of the entity at the path.
  void loadMerge(Load const& load);
  void loadReplace(Load const& load, Path const& path);

  // --- Running ---

  // R's changes since A come into S; then A is R. Unresolved conflicts: raises ConflictError, or takes a side of each.
  // Answers the changes that came.
  std::vector<Difference> update(UpdateMode mode = UpdateMode::revertOnConflict);
  // The same for what lies at or below a path. What A has elsewhere stays.
  std::vector<Difference> update(UpdateMode mode, Path const& path);
  // Raises ConflictError or CheckError for what a commit would raise; changes nothing.
  void check() const;
  // Updates, checks, and brings S into R. Confirms a commit of this session that waits for it.
  CommitResult commit(std::string const& comment = "");
  // The same, to be undone after `seconds` unless it is confirmed. `persist`: any session may confirm it by this word,
  // and it outlives the session.
  CommitResult commitConfirmed(double seconds, std::string const& persist = "", std::string const& comment = "");
  // Confirms the commit that waits under a word.
  CommitResult commitPersistent(std::string const& persist, std::string const& comment = "");
  // Undoes the commit that waits to be confirmed, at once; it must be this session's, or `persist` its word.
  CommitResult commitCancel(std::string const& persist = "");

  struct Impl;  // of the library

 private:
  friend class Service;
  explicit Session(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace Cli::Service
