// Pointers that one side set to what the other side deleted. Not installed.
#pragma once

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

// Whether a pointer at or below one of `holders` (paths of entities) leads to the entity at `target` or below it.
bool pointedAtBy(Tree const& tree, Path const& target, std::unordered_set<std::string> const& holders);

}  // namespace Cli::Service
