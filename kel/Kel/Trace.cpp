#include "Kel/Trace.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace Kel {

namespace {

struct Setting {
  std::string name;
  bool prefix;
  U16 levels;
};

struct Registry {
  std::recursive_mutex lock;  // recursive: `get` makes a handle, which registers itself
  std::map<std::string, std::unique_ptr<TraceHandle>> handles;
  std::vector<TraceHandle*> all;
  std::vector<Setting> settings;
  TraceSink sink;
  std::atomic<std::ostream*> coverage{nullptr};
};

std::vector<Setting> parseSettings(std::string const& text);

// Never destroyed: statics of other files may trace while the process ends.
Registry& registry() {
  static Registry* r = [] {
    auto* made = new Registry;
    if (char const* env = std::getenv("KEL_TRACE")) made->settings = parseSettings(env);
    return made;
  }();
  return *r;
}

// "3", "0-4", "2-": one bit for each level. Text that cannot be read switches all levels on.
U16 parseLevels(std::string const& text) {
  std::size_t const dash = text.find('-');
  std::string const from = text.substr(0, dash);
  std::string const to = dash == std::string::npos ? from : text.substr(dash + 1);
  auto digit = [](std::string const& s, int otherwise) {
    return s.size() == 1 && s[0] >= '0' && s[0] <= '9' ? s[0] - '0' : otherwise;
  };
  U16 levels = 0;
  for (int level = digit(from, 0); level <= digit(to, 9); ++level) levels = static_cast<U16>(levels | (1u << level));
  return levels;
}

std::vector<Setting> parseSettings(std::string const& text) {
  std::vector<Setting> settings;
  std::istringstream in(text);
  std::string item;
  while (std::getline(in, item, ',')) {
    if (item.empty()) continue;
    std::size_t const slash = item.find('/');
    std::string name = item.substr(0, slash);
    bool const prefix = !name.empty() && name.back() == '*';
    if (prefix) name.pop_back();
    U16 const levels = slash == std::string::npos ? TraceHandle::allLevels : parseLevels(item.substr(slash + 1));
    settings.push_back({name, prefix, levels});
  }
  return settings;
}

void applySettings(TraceHandle& handle, std::vector<Setting> const& settings) {
  for (Setting const& s : settings) {
    bool const matches = s.prefix ? handle.name().compare(0, s.name.size(), s.name) == 0 : handle.name() == s.name;
    if (matches) handle.levelsIs(s.levels);
  }
}

}  // namespace

TraceHandle::TraceHandle(std::string name, bool enable) : name_(std::move(name)) {
  Registry& r = registry();
  std::lock_guard<std::recursive_mutex> guard(r.lock);
  levelsIs(enable ? allLevels : 0);
  applySettings(*this, r.settings);
  r.all.push_back(this);
}

TraceHandle::~TraceHandle() {
  Registry& r = registry();
  std::lock_guard<std::recursive_mutex> guard(r.lock);
  r.all.erase(std::find(r.all.begin(), r.all.end(), this));
}

TraceHandle& TraceHandle::get(std::string const& name) {
  Registry& r = registry();
  std::lock_guard<std::recursive_mutex> guard(r.lock);
  std::unique_ptr<TraceHandle>& handle = r.handles[name];
  if (!handle) handle = std::make_unique<TraceHandle>(name, false);
  return *handle;
}

void TraceHandle::settingsIs(std::string const& settings) {
  Registry& r = registry();
  std::lock_guard<std::recursive_mutex> guard(r.lock);
  r.settings = parseSettings(settings);
  for (TraceHandle* handle : r.all) applySettings(*handle, r.settings);
}

void TraceHandle::levelsIs(U16 levels) {
  levels_.store(levels, Order::relaxed);
  refresh();
}

void TraceHandle::refresh() { active_.store(registry().coverage ? allLevels : levels(), Order::relaxed); }

TraceSink traceSinkIs(TraceSink sink) {
  Registry& r = registry();
  std::lock_guard<std::recursive_mutex> guard(r.lock);
  std::swap(r.sink, sink);
  return sink;
}

void coverageStreamIs(std::ostream* stream) {
  Registry& r = registry();
  std::lock_guard<std::recursive_mutex> guard(r.lock);
  r.coverage = stream;
  for (TraceHandle* handle : r.all) handle->refresh();
}

void traceHelper(TraceHandle const& handle, int level, char const* file, int line, char const* function,
                 std::string const& message) {
  TraceRecord const record{handle.name(), level, moduleName(file), line, function, message};
  std::ostringstream text;
  text << record.handle << "/" << level << " " << record.module << ":" << line << " " << function << ": " << message
       << "\n";
  Registry& r = registry();
  std::unique_lock<std::recursive_mutex> guard(r.lock);
  if (std::ostream* coverage = r.coverage) *coverage << text.str();
  if (!(handle.levels() & (1u << level))) return;
  TraceSink const sink = r.sink;
  guard.unlock();  // a sink may trace, too
  if (sink)
    sink(record);
  else
    std::cerr << text.str();
}

TraceLine::TraceLine(TraceHandle const& handle, int level, char const* file, int line, char const* function)
    : handle_(handle), level_(level), file_(file), line_(line), function_(function) {}

TraceLine::~TraceLine() {
  try {
    if (!text_.bad()) {
      traceHelper(handle_, level_, file_, line_, function_, text_.str());
      return;
    }
  } catch (...) {
    // A failed trace must not fail the traced code.
  }
  std::fprintf(stderr, "%s/%d %s:%d: trace lost\n", handle_.name().c_str(), level_, function_, line_);
}

}  // namespace Kel
