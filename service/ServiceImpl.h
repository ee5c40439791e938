// The service's state. Not installed.
#pragma once

#include <deque>
#include <map>

#include "service/SessionImpl.h"

namespace Cli::Service {

struct CLI_SERVICE_HIDDEN Service::Impl {
  Impl(Service& facade, Kel::Dir::Ptr running, std::vector<SessionRoot> roots, Options options);

  struct Registration {
    Participant* participant;
    std::string path;
    Kel::KelType const* type = nullptr;  // null: registered for the path
  };
  // Commits that are undone unless they are confirmed.
  struct Unconfirmed {
    std::string user, session, persist;
    Kel::U64 first;
    double until;
  };
  // One commit under way.
  struct Commit {
    Session::Impl& session;
    std::string comment;
    CommitKind kind = CommitKind::commit;
    bool confirms = false;
  };

  // --- Trees ---
  Tree treeAt(Kel::Dir::Ptr const& dir) const { return {dir, &rootPaths}; }
  // A directory with empty session roots; it is deleted with the result.
  class Scratch;
  std::unique_ptr<Scratch> scratch();
  // Copies all session roots, by the copy engine.
  void copy(Kel::Dir::Ptr const& src, Kel::Dir::Ptr const& dest,
            Cli::Session::AttributeEditLog::Ptr const& log = nullptr);
  // Makes the pointers of a copy lead to the items that correspond to those of the source.
  void repair(Tree const& src, Tree const& dest);

  // --- Commits ---
  CommitResult commit(Commit const& commit);
  void carryOut(Commit const& commit, std::vector<Difference> const& differences, CommitResult& result);
  std::vector<CheckError::Finding> findings(Session::Impl& session, std::vector<Difference> const& differences) const;
  void check(Session::Impl& session);
  void requireMayCommit(Session::Impl const& session, std::string const& persist) const;
  void confirm(Session::Impl const& session, std::string const& comment);
  CommitRecord record(CommitKind kind, std::string const& user, std::string const& session, std::string const& comment,
                      std::vector<Difference> const& differences) const;
  void append(CommitRecord const& record);
  // Hands a snapshot to the store if there were so many commits since the last one; 0: never.
  void takeSnapshotAfter(Kel::U64 commits) noexcept;
  // What follows a commit that stands: other sessions are updated, requests served, an overdue snapshot taken.
  void afterCommit(Session::Impl const& session) noexcept;
  // Answers the failures that did not stop it.
  std::vector<std::string> undoUnconfirmed(bool keepEdits);
  void keepUndone(Session::Impl& session, Kel::U64 number, std::vector<std::string>& reports) noexcept;
  // Running after a commit, in a scratch tree.
  void restore(Kel::U64 number, Tree const& into) const;
  void makeRunning(Tree const& wanted, std::vector<Difference> const& differences);
  void makeRunningTheAncestor(Session::Impl const& session) noexcept;
  void updateOthers(Session::Impl const& committed) noexcept;
  void updateOther(Session& other, std::string const& committer);
  static std::vector<Difference> partOf(Registration const& who, std::vector<Difference> const& differences);

  // --- Sessions ---
  Session& make(std::string const& name, std::string const& user, std::string const& terminal);
  void end(Session::Impl& session, Cli::Session::SessionState state);
  void requireRoom(bool forSaved) const;
  void makeClean();
  void publishOpen(Session::Impl& session);
  void serve(Session::Impl& session, Kel::U32 channel, Kel::U32 id);
  void servePostponed() noexcept;
  std::string answer(Session::Impl& session, Cli::Session::SessionCommand command);
  double now() const { return options.clock(); }

  Service& facade;
  Kel::Dir::Ptr running, top, sessionDir, ancestorDir, cli, clean;
  Cli::Session::Status::Ptr manager;
  Cli::Session::Config::Ptr config;
  Cli::Session::CliConfig::Ptr tunables;
  Cli::Session::CleanConfigStatus::Ptr cleanStatus;
  Cli::Session::OpenSessionStatusDir::Ptr openStatus;
  Cli::Session::OpenSessionConfigDir::Ptr openConfig;
  Cli::Session::EntityCopyFilterDir::Ptr handlers;
  Cli::Session::EntityCopyCustomHandlerTable::Ptr tables;
  std::vector<SessionRoot> roots;
  std::vector<std::string> rootPaths;
  bool ownsQueues = false;  // some session root may own a queue of entities
  Options options;
  MemoryStore memory;
  CommitStore* store;
  Kel::U64 last = 0, lastSnapshot = 0;
  std::optional<Unconfirmed> unconfirmed;
  std::optional<CommitRecord> owed;  // an undoing that the store refused; it is appended before the next commit
  std::vector<Registration> participants;
  std::vector<Constraint> constraints;
  std::map<std::string, std::unique_ptr<Session>> sessions;
  std::vector<std::unique_ptr<Session>> ended;  // callers may still use them
  int underWay = 0;                             // how many updates and commits are running
  std::deque<std::tuple<std::string, Kel::U32, Kel::U32>> postponed;
  double lastProcessPoll = 0;
  unsigned scratches = 0;
};

class Service::Impl::Scratch {
 public:
  Scratch(Impl& service, Kel::Name name);
  ~Scratch();
  Scratch(Scratch const&) = delete;
  Scratch& operator=(Scratch const&) = delete;
  Tree tree;

 private:
  Impl& service_;
  Kel::Name const name_;  // the destructor must not allocate
};

// The message of the exception that is being handled.
std::string whatHappened();
// Adds the message of the exception that is being handled to a report. If there is no memory, leaves it out.
void reportTo(std::vector<std::string>& report, char const* before = "") noexcept;

// An update or commit in progress: requests have to wait for its end.
class UnderWay {
 public:
  explicit UnderWay(Service::Impl& service);
  ~UnderWay();
  UnderWay(UnderWay const&) = delete;
  UnderWay& operator=(UnderWay const&) = delete;

 private:
  int& count_;
};

}  // namespace Cli::Service
