// Tracing.
//
// A source file names its handle once, `KEL_TRACE_MODULE("EntityCopy")`, and traces with `KEL_TRACE(3) << "Child is
// set";`. While the level is off, the operands are not evaluated. Handles of the same name are one handle. Levels run
// from 0 to 9; a higher level is more detail. They are switched on by the environment
//
//     KEL_TRACE="EntityCopy/0-4,CliSession,Zuk*/8"      (no level: all; a trailing * matches the rest of a name)
//
// or by `TraceHandle::settingsIs` and `levelsIs`. Lines go to standard error, or to a sink. Several threads may trace
// at the same time, and lines stay whole. Only one thread at a time may change levels and sinks.
#pragma once

#include <functional>
#include <sstream>
#include <string>
#include <string_view>

#include "Kel/Atomic.h"
#include "Kel/SourceName.h"
#include "Kel/Types.h"

namespace Kel {

// One trace. Valid during the call of the sink only.
struct TraceRecord {
  std::string_view handle;  // the name of the handle
  int level;
  std::string_view module;  // the source file's name without directory and extension
  int line;
  std::string_view function;
  std::string_view message;
};

// A function that takes traces.
using TraceSink = std::function<void(TraceRecord const&)>;
// Installs a sink, which then takes every trace; an empty function restores standard error. Answers the previous sink.
KEL_API TraceSink traceSinkIs(TraceSink sink);

// While a coverage stream is set, every trace is formatted, whatever its level, and written there; null clears it.
KEL_API void coverageStreamIs(std::ostream* stream);

// The name under which a part of the program traces, and the levels that are on.
class KEL_API TraceHandle {
 public:
  static constexpr U16 allLevels = 0x3ff;

  // Registers the handle; `enable` switches all its levels on.
  TraceHandle(std::string name, bool enable);
  ~TraceHandle();
  TraceHandle(TraceHandle const&) = delete;
  TraceHandle& operator=(TraceHandle const&) = delete;
  // The handle of that name. Made on first use; lives until the process ends.
  static TraceHandle& get(std::string const& name);
  // Applies a setting, in the form of the environment variable, to all handles that exist and to later ones.
  static void settingsIs(std::string const& settings);

  std::string const& name() const { return name_; }
  // One bit a level.
  U16 levels() const { return levels_.load(Order::relaxed); }
  void levelsIs(U16 levels);
  bool enabled(int level) const { return (active_.load(Order::relaxed) & (1u << level)) != 0; }
  // Whether any level is on.
  bool any() const { return active_.load(Order::relaxed) != 0; }

 private:
  friend void coverageStreamIs(std::ostream*);
  void refresh();

  std::string name_;
  Atomic<U16> levels_{0};
  Atomic<U16> active_{0};  // the levels, or all of them while a coverage stream is set
};

// Hands one formatted message to the sink.
KEL_API void traceHelper(TraceHandle const& handle, int level, char const* file, int line, char const* function,
                         std::string const& message);

// One trace statement. Its destructor sends the message. If that fails, it writes a line to standard error, and the
// traced code goes on.
class KEL_API TraceLine {
 public:
  // Cold, so that the compiler moves the whole statement out of the way of the code that it traces.
  [[gnu::cold]] TraceLine(TraceHandle const& handle, int level, char const* file, int line, char const* function);
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

// Names the trace handle of a source file. Put it at the top of the file, outside of all namespaces.
#define KEL_TRACE_MODULE(name)                                         \
  namespace {                                                          \
  inline ::Kel::TraceHandle& kelTraceHandle() {                        \
    static ::Kel::TraceHandle& handle = ::Kel::TraceHandle::get(name); \
    return handle;                                                     \
  }                                                                    \
  }

// Whether the file's handle has the level on.
#define KEL_TRACE_ENABLED(level) (kelTraceHandle().enabled(level))
// A stream for one trace, which ends with the statement.
#define KEL_TRACE(level) KEL_TRACE_AS(level, __func__)
// As KEL_TRACE, but shows `function` as the function. For an operation that is written as several functions.
#define KEL_TRACE_AS(level, function) \
  !KEL_TRACE_ENABLED(level)           \
      ? static_cast<void>(0)          \
      : ::Kel::TraceVoid() & ::Kel::TraceLine(kelTraceHandle(), level, KEL_SOURCE_NAME, __LINE__, function).stream()
