// Paths, to be asked which of them lie around another path. Not installed.
#pragma once

#include <string>
#include <unordered_set>

#include "service/Path.h"

namespace Cli::Service {

// The cost of each operation is proportional to the length of the path.
class PathSet {
 public:
  void add(Path const& path) { members_.insert(path.text()); }
  bool empty() const { return members_.empty(); }
  bool has(Path const& path) const { return members_.count(path.text()) != 0; }
  // Visits the members that `path` is within, from the outermost, until `visit` answers true. Answers whether it did.
  template <class Visit>
  bool anyAround(Path const& path, Visit const& visit) const {
    if (members_.empty()) return false;
    return eachTop(path, [&](Path const& top) { return has(top) && visit(top); });
  }
  bool isAround(Path const& path) const {
    return anyAround(path, [](Path const&) { return true; });
  }

  // Visits the places that `path` is within, itself included, until `visit` answers true. Answers whether it did.
  template <class Visit>
  static bool eachTop(Path const& path, Visit const& visit) {
    Path top;
    for (PathStep const& step : path.steps) {
      top.steps.push_back(step);
      if (visit(top)) return true;
    }
    return false;
  }

 private:
  std::unordered_set<std::string> members_;
};

}  // namespace Cli::Service
