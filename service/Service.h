// The owner of a session manager: sessions as private candidates of one running configuration.
//
// A service and its trees belong to one thread at a time. It starts no thread: whoever owns it calls `poll` now and
// then, and gets what is due done.
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

// What other sessions do when a commit changed running.
enum class AutomaticUpdate {
  off,
  revertOnConflict,  // S keeps its side; conflicts are marked, and a commit fails until each is resolved
  preferCandidate,
  preferRunning
};

// A constraint of the model: raises what speaks against the configuration in a tree, by `CheckError` or any exception.
using Constraint = std::function<void(Tree const& tree, std::vector<Difference> const& differences)>;

struct Options {
  CommitStore* store = nullptr;           // outlives the service; null: commits are kept in memory
  std::function<double()> clock;          // seconds since 1970; null: the system's
  std::function<bool(Kel::U32)> isAlive;  // whether a process lives; null: asked of the system
  AutomaticUpdate automaticUpdate = AutomaticUpdate::off;
  unsigned snapshotEvery = 100;  // commits; taken by `poll`; 0: none
  double confirmTimeout = 600;   // of a commit under CliConfig::rollbackCommitsAutomatically
};

// Raised when a limit of CliConfig is reached.
class CLI_SERVICE_API LimitError : public Error {
 public:
  using Error::Error;
};
// Raised by commits while another's waits to be confirmed.
class CLI_SERVICE_API UnconfirmedError : public Error {
 public:
  using Error::Error;
};

class CLI_SERVICE_API Service {
 public:
  // `running` is an entry of a directory, in which the service makes the entries "session", "ancestor" and "cli". Roots
  // that running lacks are made, empty. Raises Error for a running without parent and for roots that cannot be.
  Service(Kel::Dir::Ptr running, std::vector<SessionRoot> roots, Options options = {});
  ~Service();
  Service(Service const&) = delete;
  Service& operator=(Service const&) = delete;

  // Restores the newest state of the store into running, undoes what was not confirmed, and gives every participant the
  // configuration as one `apply`. Called once, after the participants are registered and before any session is opened;
  // the clean configuration is running as it was before. A service without a store needs none.
  void start();

  Tree running() const;
  Cli::Session::Status& manager() const;
  Cli::Session::Config& config() const;
  Cli::Session::CliConfig& tunables() const;
  std::vector<SessionRoot> const& roots() const;

  // --- Sessions ---

  // A new session of that name for a user. Raises Error for a taken name, LimitError.
  Session& open(std::string const& name, std::string const& user, std::string const& terminal = "");
  // Attaches a session that was left. Raises Error for one that is not there or is attached elsewhere.
  Session& resume(std::string const& name, std::string const& user, std::string const& terminal = "");
  // Leaves a session, to be resumed. Raises LimitError when too many are saved.
  void leave(Session& session);
  // Ends it: its trees are dropped. Raises Error where it has edits and `discard` is not set.
  void close(Session& session, bool discard = false);
  // By name; null when there is none.
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

  // The commits from a number on, in their order.
  std::vector<CommitRecord> history(Kel::U64 from = 1) const;
  // One of them. Raises Error.
  CommitRecord commitRecord(Kel::U64 number) const;
  Kel::U64 lastCommit() const;
  // What a commit changed; what differs between running after two commits. Raises Error for a number that is not kept.
  std::vector<Difference> differencesOfCommit(Kel::U64 number) const;
  std::vector<Difference> differencesBetween(Kel::U64 from, Kel::U64 to) const;
  std::vector<Difference> differencesFromRunning(Kel::U64 number) const;

  struct Waiting {
    std::string user, session, persist;
    Kel::U64 number;  // of the first commit that is undone with it
    double until;
  };
  // The commit that waits to be confirmed.
  std::optional<Waiting> waiting() const;

  // --- Those who take part ---

  // For a path ("" or "network/ports") and what lies below, or for entities of a type wherever they are. Verified and
  // applied in the order of registration. Participants outlive the service.
  void registerForPath(Participant& participant, std::string const& path);
  void registerForType(Participant& participant, Kel::KelType const& type);
  void registerConstraint(Constraint constraint);

  // --- Time ---

  // Does what is due: commits that were not confirmed are undone, sessions expire, processes are looked after, requests
  // that came while something else was under way are served, a snapshot is handed to the store. Answers when it wants
  // to be called next.
  double poll();

  struct Impl;  // of the library

 private:
  friend class Session;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Cli::Service
