// The owner of a session manager: sessions are private branches of one running configuration. See docs/service.md.
//
// A service and its trees belong to one thread at a time. It starts no thread: its owner calls `poll` regularly.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CliSession/CliSession.h"
#include "service/CommitStore.h"
#include "service/Participant.h"
#include "service/Session.h"

namespace Cli::Service {

struct SessionRoot {
  std::string path;      // relative to the running directory, without a leading separator
  std::string typeName;  // of an entity type that is made by a name
};

// How other sessions are updated after a commit.
enum class AutomaticUpdate {
  off,
  revertOnConflict,  // without the changes in conflict, which are reported; a commit fails until each is resolved
  preferCandidate,   // conflicts are settled for the session
  preferRunning      // conflicts are settled for running
};

// A constraint of the model: raises CheckError, or any other exception, if the configuration in a tree must not be
// committed. `differences` are those of the commit.
using Constraint = std::function<void(Tree const& tree, std::vector<Difference> const& differences)>;

struct Options {
  CommitStore* store = nullptr;           // must outlive the service; null: commits are kept in memory
  std::function<double()> clock;          // seconds since 1970; null: the system's clock
  std::function<bool(Kel::U32)> isAlive;  // whether the process of that id exists; null: the system's answer
  AutomaticUpdate automaticUpdate = AutomaticUpdate::off;
  // How many commits are between two snapshots; 0: there are none. `poll` takes a snapshot when it is due. A commit
  // takes it, once it stands, when twice as many commits have come without a `poll`.
  unsigned snapshotEvery = 100;
  double confirmTimeout = 600;  // seconds, for commits under CliConfig::rollbackCommitsAutomatically
};

// Raised when a limit of CliConfig is reached.
class CLI_SERVICE_API LimitError : public Error {
 public:
  using Error::Error;
};
// Raised by a commit while a commit of another session waits to be confirmed.
class CLI_SERVICE_API UnconfirmedError : public Error {
 public:
  using Error::Error;
};

class CLI_SERVICE_API Service {
 public:
  // `running` must be an entry of a directory, in which the service makes the entries "session", "ancestor" and "cli".
  // Makes the roots that running lacks, empty. Raises Error if `running` has no parent, or if a root has no type that
  // can be made from a name.
  Service(Kel::Dir::Ptr running, std::vector<SessionRoot> roots, Options options = {});
  ~Service();
  Service(Service const&) = delete;
  Service& operator=(Service const&) = delete;

  // Restores the newest state of the store into running, gives every participant the configuration as one `apply`, and
  // undoes what was not confirmed. The clean configuration stays what running was at construction. A service without a
  // store or participants does not need it. Raises StoreError, and what participants raise.
  // REQUIRES: called once, after the participants are registered and before any session is opened.
  void start();

  Tree running() const;
  Cli::Session::Status& manager() const;
  Cli::Session::Config& config() const;
  Cli::Session::CliConfig& tunables() const;
  std::vector<SessionRoot> const& roots() const;

  // --- Sessions ---

  // The service owns its sessions. After a session has ended (`close`, `poll`, or a request), a reference to it is
  // valid until the next `open` or `poll`.
  //
  // A new session for a user. Raises Error if the name is empty or taken, and LimitError.
  Session& open(std::string const& name, std::string const& user, std::string const& terminal = "");
  // Attaches a session that was left. Raises Error if there is none or if it is in use, and LimitError.
  Session& resume(std::string const& name, std::string const& user, std::string const& terminal = "");
  // Leaves a session, to be resumed later. Raises LimitError if too many are left already.
  void leave(Session& session);
  // Ends a session, and drops its trees. Raises Error if it has edits and `discard` is not set.
  void close(Session& session, bool discard = false);
  // By name; null if there is none.
  Session* session(std::string const& name) const;
  struct Listed {
    std::string name, user, terminal;
    bool attached = false;
    double startTime = 0, expirationTime = 0;
    Cli::Session::SessionState state = Cli::Session::SessionState::pending;
    Kel::U32 committedCount = 0;
  };
  std::vector<Listed> list() const;

  // --- History ---

  // The commits from a number on, oldest first.
  std::vector<CommitRecord> history(Kel::U64 from = 1) const;
  // One of them. Raises Error if it is not kept.
  CommitRecord commitRecord(Kel::U64 number) const;
  Kel::U64 lastCommit() const;  // its number; 0: none
  // What a commit changed; what differs between running after two commits; what differs between running after a commit
  // and running now. Number 0 is running before the first commit. Each raises Error for a number that is not kept.
  std::vector<Difference> differencesOfCommit(Kel::U64 number) const;
  std::vector<Difference> differencesBetween(Kel::U64 from, Kel::U64 to) const;
  std::vector<Difference> differencesFromRunning(Kel::U64 number) const;

  struct Waiting {
    std::string user, session, persist;
    Kel::U64 number;  // of the first commit that is undone with it
    double until;     // seconds since 1970
  };
  // The commit that waits to be confirmed, if there is one.
  std::optional<Waiting> waiting() const;

  // --- Participants ---

  // For a path ("": everything, or "network/ports") and what is below it, or for all entities of a type. Participants
  // verify and apply in the order of registration, and must outlive the service.
  void registerForPath(Participant& participant, std::string const& path);
  void registerForType(Participant& participant, Kel::KelType const& type);
  void registerConstraint(Constraint constraint);

  // --- Time ---

  // Undoes a commit that was not confirmed in time, ends sessions that have expired or whose process is gone, serves
  // postponed requests, and hands a snapshot to the store if one is due. Answers when to call it next, in seconds since
  // 1970.
  double poll();

  struct Impl;  // private to the library

 private:
  friend class Session;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Cli::Service
