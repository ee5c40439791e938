// Where two users changed one node differently.
#pragma once

#include <string>
#include <vector>

#include "service/Difference.h"

namespace Cli::Service {

enum class ConflictKind {
  value,      // one attribute, or one key of a collection of values
  existence,  // one side deleted what the other changed, created or points at
  order       // overlapping runs of a queue
};
CLI_SERVICE_API char const* text(ConflictKind kind);

// Whose content a node gets.
enum class Side { session, running };

// Contents are as in Difference; those of an order conflict are the items of the run. Paths below queues count items as
// the ancestor has them.
//
// A node that both sides have changed since their common ancestor, and that they did not leave with the same content.
struct Conflict {
  Path path;
  ConflictKind kind = ConflictKind::value;
  Kel::KelType const* type = nullptr;  // as in Difference
  Kel::KelAttr const* attr = nullptr;
  Json ancestor, session, running;     // the contents on each side, as in Difference; null where there is none
  std::vector<Path> nodes;             // existence: what the other side changed at the entity or below it
  std::optional<Path> target;          // of a pointer: the entity that it would no longer lead to
  std::optional<Difference::Run> run;  // order: where the run begins in the ancestor, and in the session
};

// One line for people.
CLI_SERVICE_API std::string text(Conflict const& conflict);

}  // namespace Cli::Service
