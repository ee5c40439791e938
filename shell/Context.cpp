#include "Context.h"

#include <pwd.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "Words.h"
#include "service/PathWords.h"

namespace Shell {

namespace Service = Cli::Service;

Service::Session& Context::session() const {
  if (!session_) throw CommandError("no session is open: 'session open NAME' opens one");
  return *session_;
}

Service::PendingReferences& Context::pending() { return states_[session().name()].pending; }
Service::PendingReferences& Context::loaded() { return states_[session().name()].loaded; }
Service::Path& Context::at() { return states_[session().name()].at; }

Service::PendingReferences Context::typedPending() {
  Service::PendingReferences typed;
  for (Service::PendingReference const& reference : pending().list())
    if (!device.pending.find(reference.place) && !loaded().find(reference.place)) typed.add(reference);
  return typed;
}

void Context::sessionIs(Service::Session* session) {
  session_ = session;
  if (session && !states_.count(session->name())) states_[session->name()].pending = device.pending;
}

void Context::forget(std::string const& name) {
  if (session_ && session_->name() == name) session_ = nullptr;
  states_.erase(name);
}

void Context::refreshPending(Service::PendingReferences const& source) {
  Service::PendingReferences fresh = source;
  fresh.retry(base());
  pending() = std::move(fresh);
}

Service::Path Context::path(std::vector<std::string> const& words, bool create) const {
  auto const found = states_.find(session().name());
  Service::WordRules rules;
  rules.create = create;
  Service::WordPath const read =
      Service::readPath(base(), found == states_.end() ? Service::Path() : found->second.at, words, rules);
  if (read.used < words.size())
    throw CommandError("'" + shown(words[read.used]) + "': nothing follows " + shown(read.path.text()));
  if (read.missing > 0 && !create) throw CommandError(shown(read.path.text()) + " is not there");
  return read.path;
}

Service::Path Context::pathOrHere(std::vector<std::string> const& words) const {
  if (!words.empty()) return path(words);
  auto const found = states_.find(session().name());
  return found == states_.end() ? Service::Path() : found->second.at;
}

std::string Context::user() const {
  for (char const* name : {"LOGNAME", "USER"})
    if (char const* const value = std::getenv(name); value && *value) return value;
  passwd const* const entry = ::getpwuid(::getuid());
  return entry ? entry->pw_name : std::to_string(::getuid());
}

std::string counted(std::size_t count, std::string const& one, std::string const& many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string listed(std::vector<std::string> const& names, std::size_t most) {
  std::string out;
  std::size_t const count = names.size() <= most + 1 ? names.size() : most;
  for (std::size_t i = 0; i < count; ++i) {
    bool const last = i + 1 == names.size();
    out += (i == 0 ? "" : last ? " and " : ", ") + names[i];
  }
  if (count < names.size()) out += " and " + std::to_string(names.size() - count) + " more";
  return out;
}

std::string timeText(double seconds) {
  if (!std::isfinite(seconds)) return "never";
  auto const time = static_cast<std::time_t>(seconds);
  std::tm local{};
  ::localtime_r(&time, &local);
  char text[32];
  return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local));
}

}  // namespace Shell
