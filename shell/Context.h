// The context of commands: the device, the current session, the output, and the question to the user.
#pragma once

#include <functional>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "Device.h"
#include "Paint.h"
#include "service/Commands.h"
#include "service/Session.h"

namespace Shell {

// How a command ended. The outcome of the last command is the exit status of the process.
enum class Outcome {
  ok = 0,
  differs = 1,  // differences, or conflicts
  failed = 2,
  quit = 3
};

// A command cannot be carried out; the message is for the user. Nothing was changed.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Context {
 public:
  explicit Context(Device& given) : device(given) {}

  Device& device;
  std::ostringstream out;  // the output of the running command
  Paint paint;
  std::size_t width = 100;                                   // columns for tables
  std::function<bool(std::string const& question)> confirm;  // empty: no user can be asked
  bool terminal = false;

  Cli::Service::Service& service() const { return device.service(); }
  bool hasSession() const { return session_ != nullptr; }
  // The current session. Raises CommandError if there is none.
  Cli::Service::Session& session() const;
  Cli::Service::Tree tree() const { return session().tree(); }
  Kel::Dir::Ptr base() const { return tree().dir; }
  // The path below which commands work (`edit`).
  Cli::Service::Path& at();

  // The session's pending references.
  Cli::Service::PendingReferences& pending();
  // Those of any session.
  Cli::Service::PendingReferences const& pendingOf(std::string const& session) const;
  // Those of its ancestor, which has them from running.
  Cli::Service::PendingReferences& ancestorPending();
  // Those that came into the session with a file. They do not keep a commit from being made.
  Cli::Service::PendingReferences& loaded();
  // Those that were made by edits.
  Cli::Service::PendingReferences typedPending();

  void sessionIs(Cli::Service::Session* session);
  // Forgets the state of a session that has ended.
  void forget(std::string const& session);
  // Call it after the session's whole tree was replaced: its pending references become those of `source` that still
  // lead nowhere.
  void refreshPending(Cli::Service::PendingReferences const& source);
  // Call it after running's changes have come into the session: those of its pending references come, too.
  void mergePending();
  // Call it before each command: a commit may have been undone since the last one.
  void followUndone();
  // Call it after an edit: references that have been set or deleted do not count as loaded any more.
  void forgetLoaded();

  // A path in the session from typed words, relative to the path of `edit`. Raises InputError if a word does not belong
  // to it, or if it leads nowhere and `create` is not set.
  Cli::Service::Path path(std::vector<std::string> const& words, bool create = false) const;
  // The same; for no words, the path of `edit`.
  Cli::Service::Path pathOrHere(std::vector<std::string> const& words) const;

  std::string user() const;

 private:
  struct State {
    Cli::Service::PendingReferences pending, ancestorPending, loaded;
    Cli::Service::Path at;
  };
  Cli::Service::Session* session_ = nullptr;
  std::map<std::string, State> states_;
};

// Whether the pointer of a pending reference is there, and null.
bool isNull(Kel::Dir::Ptr const& base, Cli::Service::PendingReference const& reference);

// "1 change", "3 changes".
std::string counted(std::size_t count, std::string const& one, std::string const& many);
// The first names, and the number of the others: "a, b, c and 4 more".
std::string listed(std::vector<std::string> const& names, std::size_t most = 3);
// "2026-11-22 07:10:05", in the time zone of the user.
std::string timeText(double seconds);

}  // namespace Shell
