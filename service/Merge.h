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
  // The side for which a conflict is settled, if it is.
  std::function<std::optional<Side>(Conflict const&)> settled;
  // Whether the session keeps its content against a change that only running has made.
  std::function<bool(Difference const& change)> keepsOwn;
  Side otherwise = Side::session;  // for conflicts that are not settled
};

struct Merged {
  std::vector<Conflict> conflicts;  // those that are not settled, in the order of the walk
  std::vector<Difference> changes;  // what to apply to the session
};

// Merges running's changes into the session. Changes no tree.
Merged merge(MergeInput const& input);

}  // namespace Cli::Service
