// Three-way merges. Not installed.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <unordered_set>

#include "service/Conflict.h"

namespace Cli::Service {

struct MergeInput {
  Tree ancestor, session, running;
  std::vector<Difference> const& edits;    // from ancestor to session
  std::vector<Difference> const& changes;  // from ancestor to running
  // Whose content a conflict gets, where that has been settled.
  std::function<std::optional<Side>(Conflict const&)> settled;
  // Whether the session is to keep what it has, although only running has changed it.
  std::function<bool(Difference const& change)> keepsOwn;
  Side otherwise = Side::session;  // of the conflicts that are not settled
};

struct Merged {
  std::vector<Conflict> conflicts;  // that are not settled, in the order of the walk
  std::vector<Difference> changes;  // what is to be done to the session
};

// What the session is to become. Changes nothing.
Merged merge(MergeInput const& input);

}  // namespace Cli::Service
