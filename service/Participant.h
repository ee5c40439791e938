// Agents that carry out commits outside of the tree, such as drivers, and that can refuse them.
#pragma once

#include <stdexcept>
#include <vector>

#include "service/Difference.h"

namespace Cli::Service {

// Every operation gets only the differences that concern the participant, and is not called if there are none. For a
// path, these are the differences at and below it, and entities above it that were created, deleted or replaced. For a
// type, these are the differences of its entities, and of entities that may own some. See docs/service.md for when each
// is called.
class CLI_SERVICE_API Participant {
 public:
  virtual ~Participant() = default;

  // Raises an exception to refuse the commit. REQUIRES: it has no effect.
  virtual void verify(std::vector<Difference> const&) {}
  // Carries out the commit; running already has it. REQUIRES: if it raises, it has undone what it did.
  virtual void apply(std::vector<Difference> const& differences) = 0;
  // Takes back what `apply` has done, because a later step failed. Exceptions are reported, and the other participants
  // are still called.
  virtual void undo(std::vector<Difference> const& differences) = 0;
  // The commit is final. Exceptions are reported.
  virtual void done(std::vector<Difference> const&) {}
};

}  // namespace Cli::Service
