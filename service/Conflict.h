// Nodes that two users changed differently.
#pragma once

#include <string>
#include <vector>

#include "service/Difference.h"

namespace Cli::Service {

enum class ConflictKind {
  value,      // one attribute, or one key of a collection of values
  existence,  // one side deleted what the other changed or points at, or both created one member differently
  order       // overlapping runs of a queue
};
CLI_SERVICE_API char const* text(ConflictKind kind);

// The side whose content a node gets.
enum class Side { session, running };

// A node that both sides have changed since their common ancestor, with different results. Paths below queues count
// items as the ancestor has them.
struct Conflict {
  Path path;
  ConflictKind kind = ConflictKind::value;
  Kel::KelType const* type = nullptr;  // as in Difference
  Kel::KelAttr const* attr = nullptr;
  Json ancestor, session, running;     // the contents, as in Difference; order: the items of the run; null: none
  std::vector<Path> nodes;             // existence: what the other side changed at the entity or below it
  std::optional<Path> target;          // of a pointer: the deleted entity that it leads to
  std::optional<Difference::Run> run;  // order: where the run begins in the ancestor, and in the session
};

// One line for people.
CLI_SERVICE_API std::string text(Conflict const& conflict);

}  // namespace Cli::Service
