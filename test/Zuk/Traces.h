// Collects what is traced while it lives, of the handles and levels that it was given.
#pragma once

#include <string>
#include <vector>

#include "Kel/Trace.h"

namespace Tests {

class Traces {
 public:
  explicit Traces(std::string const& handle, Kel::U16 levels = Kel::TraceHandle::allLevels)
      : handle_(Kel::TraceHandle::get(handle)), levelsBefore_(handle_.levels()) {
    handle_.levelsIs(levels);
    sinkBefore_ = Kel::traceSinkIs([this](Kel::TraceRecord const& r) {
      lines.push_back(std::string(r.handle) + "/" + std::to_string(r.level) + " " + std::string(r.message));
      functions.push_back(std::string(r.module) + ":" + std::string(r.function));
    });
  }
  ~Traces() {
    Kel::traceSinkIs(sinkBefore_);
    handle_.levelsIs(levelsBefore_);
  }
  Traces(Traces const&) = delete;
  Traces& operator=(Traces const&) = delete;

  // "Handle/level message", in the order in which they came; beside each its module and function.
  std::vector<std::string> lines, functions;

  bool has(std::string const& line) const { return count(line) > 0; }
  std::size_t count(std::string const& line) const {
    std::size_t n = 0;
    for (std::string const& l : lines) n += l == line;
    return n;
  }
  // Whether these lines came in this order, others between them.
  bool inOrder(std::vector<std::string> const& wanted) const {
    auto next = wanted.begin();
    for (std::string const& l : lines)
      if (next != wanted.end() && l == *next) ++next;
    return next == wanted.end();
  }
  std::string text() const {
    std::string all;
    for (std::string const& l : lines) all += l + "\n";
    return all;
  }

 private:
  Kel::TraceHandle& handle_;
  Kel::U16 levelsBefore_;
  Kel::TraceSink sinkBefore_;
};

}  // namespace Tests
