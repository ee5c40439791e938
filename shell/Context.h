// What commands work on: the device, the session at hand, where output goes, and whom to ask.
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

// What a command ends with; the process ends with the status of the last one.
enum class Outcome {
  ok = 0,
  differs = 1,  // differences, or conflicts
  failed = 2,
  quit = 3
};

// A command that cannot be done; the message is for people. Nothing was changed.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Context {
 public:
  explicit Context(Device& given) : device(given) {}

  Device& device;
  std::ostringstream out;  // of the command that runs
  Paint paint;
  std::size_t width = 100;                                   // columns for tables
  std::function<bool(std::string const& question)> confirm;  // empty: there is nobody to ask
  bool terminal = false;

  Cli::Service::Service& service() const { return device.service(); }
  bool hasSession() const { return session_ != nullptr; }
  // Raises CommandError when no session is open.
  Cli::Service::Session& session() const;
  Cli::Service::Tree tree() const { return session().tree(); }
  Kel::Dir::Ptr base() const { return tree().dir; }
  // The session's references that lead nowhere, and the path below which commands work.
  Cli::Service::PendingReferences& pending();
  Cli::Service::Path& at();

  void sessionIs(Cli::Service::Session* session);
  // Forgets what belonged to a session that is gone.
  void forget(std::string const& session);
  // After the trees were changed as a whole: references that lead nowhere are those of `source`, or their targets came.
  void refreshPending(Cli::Service::PendingReferences const& source);

  // A path in the session from typed words, relative to where `edit` has gone; all words must belong to it, and lead to
  // what is there unless `create` is set. Raises InputError.
  Cli::Service::Path path(std::vector<std::string> const& words, bool create = false) const;
  // The same; the path that `edit` has gone to for no words.
  Cli::Service::Path pathOrHere(std::vector<std::string> const& words) const;

  std::string user() const;

 private:
  struct State {
    Cli::Service::PendingReferences pending;
    Cli::Service::Path at;
  };
  Cli::Service::Session* session_ = nullptr;
  std::map<std::string, State> states_;
};

// "1 change", "3 changes".
std::string counted(std::size_t count, std::string const& one, std::string const& many);
// Names one after the other, with the rest counted: "a, b, c and 4 more".
std::string listed(std::vector<std::string> const& names, std::size_t most = 3);
// "2026-11-22 07:10:05", in the time zone of the user.
std::string timeText(double seconds);

}  // namespace Shell
