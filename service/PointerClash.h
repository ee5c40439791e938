// Pointers that one side set to what the other side deleted. Not installed.
#pragma once

#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include "service/Merge.h"

namespace Cli::Service {

struct PointerClash {
  Conflict conflict;          // at the pointer
  bool byEdit;                // the session set the pointer, and running deleted the target
  std::vector<Path> deleted;  // the deleted entities: the targets at that place, or owners of them
  bool inSession, inRunning;  // whether the pointer, or its member, exists on this side
  Side winner = Side::session;
};

std::vector<PointerClash> clashingPointers(MergeInput const& input);

// Visits, for every pointer at or below one of `holders` (paths of entities), each place that its target is within. If
// `visit` answers true, the entity at that place is a holder, too.
void followPointers(Tree const& tree, std::unordered_set<std::string> const& holders,
                    std::function<bool(std::string const& place)> const& visit);

}  // namespace Cli::Service
