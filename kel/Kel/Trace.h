// Tracing.
//
// A source file names its handle once, `KEL_TRACE_MODULE("EntityCopy")`, and traces with
// `KEL_TRACE(3) << "Child is set";`. Nothing to the right is evaluated when the level is off. Handles of the same name
// are one handle. Levels run from 0 to 9, higher is more detail; they are switched on from the environment
//
//     KEL_TRACE="EntityCopy/0-4,CliSession,Zuk*/8"      (no level: all; a trailing * matches the rest of a name)
//
// or with `TraceHandle::levelsIs`. Lines go to standard error, or to the sink that was installed. Switching levels and
// sinks is for one thread; tracing from several threads gives whole lines.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "Kel/SourceName.h"
#include "Kel/Types.h"

namespace Kel {

struct TraceRecord {
  std::string_view handle;
  int level;
  std::string_view module;  // the source file's name without its directory and extension
  int line;
  std::string_view function;
  std::string_view message;
};

// Takes every trace while it is installed; an empty function restores standard error. Returns the previous sink.
using TraceSink = std::function<void(TraceRecord const&)>;
KEL_API TraceSink traceSinkIs(TraceSink sink);

// While a coverage stream is set, every trace is formatted, whatever its level, and written there; null clears it.
KEL_API void coverageStreamIs(std::ostream* stream);

class KEL_API TraceHandle {
 public:
  static constexpr U16 allLevels = 0x3ff;

  // Registers the handle; `enable` switches all its levels on.
  TraceHandle(std::string name, bool enable);
  ~TraceHandle();
  TraceHandle(TraceHandle const&) = delete;
  TraceHandle& operator=(TraceHandle const&) = delete;
  // The handle of that name, made on first use; it lives to the end of the process.
  static TraceHandle& get(std::string const& name);
  // Applies a setting in the form of the environment variable to the handles that are there and to later ones.
  static void settingsIs(std::string const& settings);

  std::string const& name() const { return name_; }
  // One bit a level.
  U16 levels() const { return levels_.load(std::memory_order_relaxed); }
  void levelsIs(U16 levels);
  bool enabled(int level) const { return (active_.load(std::memory_order_relaxed) & (1u << level)) != 0; }
  // Whether any level is on: the engine shows each step.
  bool any() const { return active_.load(std::memory_order_relaxed) != 0; }

 private:
  friend void coverageStreamIs(std::ostream*);
  void refresh();

  std::string name_;
  std::atomic<U16> levels_{0};
  std::atomic<U16> active_{0};  // the levels, or all of them while a coverage stream is set
};

// Hands one formatted message to the sink.
KEL_API void traceHelper(TraceHandle const& handle, int level, char const* file, int line, char const* function,
                         std::string const& message);

// One trace statement under way; sends its message when it goes out of scope. What is traced goes on if that fails:
// standard error has a line that says so.
class KEL_API TraceLine {
 public:
  TraceLine(TraceHandle const& handle, int level, char const* file, int line, char const* function)
      : handle_(handle), level_(level), file_(file), line_(line), function_(function) {}
  ~TraceLine();
  TraceLine(TraceLine const&) = delete;
  TraceLine& operator=(TraceLine const&) = delete;
  std::ostream& stream() { return text_; }

 private:
  TraceHandle const& handle_;
  int level_;
  char const* file_;
  int line_;
  char const* function_;
  std::ostringstream text_;
};

// Gives both branches of a trace statement the type void.
struct TraceVoid {
  void operator&(std::ostream&) const {}
};

}  // namespace Kel

#define KEL_TRACE_MODULE(name)                                         \
  namespace {                                                          \
  inline ::Kel::TraceHandle& kelTraceHandle() {                        \
    static ::Kel::TraceHandle& handle = ::Kel::TraceHandle::get(name); \
    return handle;                                                     \
  }                                                                    \
  }

#define KEL_TRACE_ENABLED(level) (kelTraceHandle().enabled(level))
#define KEL_TRACE(level) KEL_TRACE_AS(level, __func__)
// For the parts of an operation that is written as several functions: traces in the operation's name.
#define KEL_TRACE_AS(level, function) \
  !KEL_TRACE_ENABLED(level)           \
      ? static_cast<void>(0)          \
      : ::Kel::TraceVoid() & ::Kel::TraceLine(kelTraceHandle(), level, KEL_SOURCE_NAME, __LINE__, function).stream()
