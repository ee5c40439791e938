#include "Context.h"

#include <pwd.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "Words.h"
#include "service/JsonTree.h"
#include "service/PathWords.h"

namespace Shell {

namespace Service = Cli::Service;

Service::Session& Context::session() const {
  if (!session_) throw CommandError("no session is open: 'session open NAME' opens one");
  return *session_;
}

Service::Path& Context::at() { return states_[session().name()].at; }

void Context::sessionIs(Service::Session* session) {
  session_ = session;
  if (!session || states_.count(session->name())) return;
  State& state = states_[session->name()];
  state.pending = state.ancestorPending = device.pending();
}

void Context::forget(std::string const& name) {
  if (session_ && session_->name() == name) session_ = nullptr;
  states_.erase(name);
}

// --- Pending references ---

namespace {

// Whether a list has the reference, with the same target.
bool has(Service::PendingReferences const& list, Service::PendingReference const& reference) {
  Service::PendingReference const* const found = list.find(reference.place);
  return found && found->target == reference.target;
}

Kel::GenericIf::Ptr valueAt(Service::Place const& place) {
  return Kel::GenericIf::ofEntity(place.entity)->attribute(place.attr->id(), place.key);
}

// Whether something is set where a pending reference will be.
bool isSet(Kel::Dir::Ptr const& base, Service::PendingReference const& reference) {
  Service::Place const place = Service::locate(base, reference.place);
  return place.there() && place.attr && !Service::exportValue(valueAt(place).ptr(), *base).is_null();
}

}  // namespace

bool isNull(Kel::Dir::Ptr const& base, Service::PendingReference const& reference) {
  Service::Place const place = Service::locate(base, reference.place);
  return place.there() && place.attr && place.attr->isPtr() &&
         Service::exportValue(valueAt(place).ptr(), *base).is_null();
}

Service::PendingReferences& Context::pending() { return states_[session().name()].pending; }
Service::PendingReferences const& Context::pendingOf(std::string const& session) const {
  auto const found = states_.find(session);
  return found == states_.end() ? device.pending() : found->second.pending;
}
Service::PendingReferences& Context::ancestorPending() { return states_[session().name()].ancestorPending; }
Service::PendingReferences& Context::loaded() { return states_[session().name()].loaded; }

Service::PendingReferences Context::typedPending() {
  Service::PendingReferences typed;
  for (Service::PendingReference const& reference : pending().list())
    if (!has(ancestorPending(), reference) && !has(loaded(), reference)) typed.add(reference);
  return typed;
}

void Context::refreshPending(Service::PendingReferences const& source) {
  Service::PendingReferences fresh = source;
  fresh.retry(base());
  pending() = std::move(fresh);
  forgetLoaded();
}

void Context::forgetLoaded() {
  Service::PendingReferences still;
  for (Service::PendingReference const& reference : loaded().list())
    if (has(pending(), reference)) still.add(reference);
  loaded() = std::move(still);
}

void Context::mergePending() {
  Service::PendingReferences &mine = pending(), &before = ancestorPending();
  Service::PendingReferences const& now = device.pending();
  for (Service::PendingReference const& reference : before.list())
    if (!now.find(reference.place) && has(mine, reference)) mine.erase(reference.place);
  for (Service::PendingReference const& reference : now.list()) {
    Service::PendingReference const* const own = mine.find(reference.place);
    bool const edited = own ? !has(before, *own) : before.find(reference.place) != nullptr;
    if (!edited && !has(before, reference) && !isSet(base(), reference)) mine.add(reference);
  }
  before = now;
  mine.retry(base());
  forgetLoaded();
}

// The session of the undone commit has its changes as edits, and running as its ancestor.
void Context::followUndone() {
  auto const session = device.followUndone();
  if (!session) return;
  if (auto const found = states_.find(*session); found != states_.end())
    found->second.ancestorPending = device.pending();
}

// --- Paths ---

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
