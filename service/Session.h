// A session: a private branch of the running configuration.
//
// Three trees belong to it: the running configuration (R), the session's own (S), and their common ancestor (A), which
// is R as it was when the session was opened or last updated. Its user edits S. See docs/service.md.
//
// Every operation that changes trees does so as a whole or not at all: if it raises, running, session, ancestor and
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

// Raised by an update or a commit with unresolved conflicts; lists all of them.
class CLI_SERVICE_API ConflictError : public Error {
 public:
  explicit ConflictError(std::vector<Conflict> conflicts);
  ~ConflictError() override;
  std::vector<Conflict> conflicts;
};

// Raised by a commit that the checks refuse; lists every reason, with its place.
class CLI_SERVICE_API CheckError : public Error {
 public:
  struct Finding {
    Path path;           // empty: it has no single place
    std::string reason;  // one line; of a constraint or participant: the message of its exception
  };
  explicit CheckError(std::vector<Finding> findings);
  ~CheckError() override;
  std::vector<Finding> findings;
};

struct CommitResult {
  std::optional<Kel::U64> number;       // null: there was nothing to commit
  bool confirms = false;                // it confirmed an earlier commit
  std::vector<Difference> differences;  // what was committed
  std::vector<std::string> reports;     // failures that did not stop it: of participants, of the snapshot
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
  // References in the tree whose targets do not exist. Code that writes to the tree keeps this up to date. A session
  // with such references cannot be committed.
  PendingReferences& pending() const;
  // The session as libCliSession publishes it.
  Cli::Session::PendingChangeStatus& status() const;
  Cli::Session::PendingChangeConfig& config() const;

  // --- Looking ---

  // The edits: what differs between A and S. Cost: proportional to what may differ.
  std::vector<Difference> differences() const;
  // What differs between R and S, and what R has changed since A.
  std::vector<Difference> differencesFromRunning() const;
  std::vector<Difference> differencesInRunning() const;
  // All unresolved conflicts with running as it is now.
  std::vector<Conflict> conflicts() const;
  // What other commits did to the session: automatic updates, undone commits. Each notice is returned once.
  std::vector<std::string> takeNotices();

  // --- Editing ---

  // Edits are made in `tree()` by any means. Once a conflict has been reported, editing its nodes again settles it. An
  // edit that sets a node to the content that it has leaves no trace in the tree: report it here. Paths below queues
  // count items as the session has them, and so do those of `discard`; a conflict's count them as the ancestor does.
  void edited(Path const& path);
  // Settles the conflicts at or below a path, or one that lists the path among its nodes, for one side, against what
  // running has now. Raises Error if there is no conflict.
  void resolve(Path const& path, Side side);
  // Makes S, or what is at or below a path, equal to A. Answers how many edits it dropped. Raises Error if the path
  // lies in an entity that was created or deleted as a whole.
  std::size_t discard(std::optional<Path> const& path = std::nullopt);
  // Gives S the content of the clean configuration, of running after a commit, or of what the callback builds in an
  // empty tree; then A is R as it is now. The differences are edits, to be reviewed and committed. Each answers how
  // many earlier edits it dropped. Exceptions of the callback pass through.
  std::size_t clear();
  std::size_t rollback(Kel::U64 number);
  using Load = std::function<void(Tree const& fresh)>;
  std::size_t loadReplace(Load const& load);
  // Edits like typed ones, all or none. With loadMerge, the callback edits a copy of the session's tree. With
  // loadReplace, what it builds in an empty tree at the path replaces what the session has there.
  void loadMerge(Load const& load);
  void loadReplace(Load const& load, Path const& path);

  // --- Running ---

  // Brings R's changes since A into S; then A is R. If there are unresolved conflicts, raises ConflictError, or takes
  // the side that the mode names. Answers the changes of S.
  std::vector<Difference> update(UpdateMode mode = UpdateMode::revertOnConflict);
  // The same for what is at or below a path; A stays as it is elsewhere. Raises Error if that would need more of R.
  std::vector<Difference> update(UpdateMode mode, Path const& path);
  // Raises the ConflictError or CheckError that a commit would raise. It tries the update and takes it back, so
  // reactors on S and A are called.
  void check() const;
  // Updates, checks, and brings S into R. Confirms a commit of this session that waits to be confirmed. Raises
  // ConflictError, CheckError, UnconfirmedError, StoreError, and what participants raise.
  CommitResult commit(std::string const& comment = "");
  // The same, to be undone after `seconds` unless it is confirmed. With a word in `persist`, any session may confirm it
  // by that word, and the commit is not undone when this session ends. Raises Error for `seconds` that are not
  // positive.
  CommitResult commitConfirmed(double seconds, std::string const& persist = "", std::string const& comment = "");
  // Commits, and confirms the commit that waits under the word `persist`. Raises Error if no commit waits.
  CommitResult commitPersistent(std::string const& persist, std::string const& comment = "");
  // Undoes the commit that waits to be confirmed now. It must be this session's, or wait under `persist`. Raises Error
  // if no commit waits.
  CommitResult commitCancel(std::string const& persist = "");

  struct Impl;  // private to the library

 private:
  friend class Service;
  explicit Session(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace Cli::Service
