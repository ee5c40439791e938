// Agents of the device that take part in commits: how a commit reaches hardware, and how hardware can say no.
#pragma once

#include <stdexcept>
#include <vector>

#include "service/Difference.h"

namespace Cli::Service {

// Every operation gets only the differences at and below the path, or of the type, that the participant was registered
// for, and is not called when there are none. `service/Service.h` says when each is called.
class CLI_SERVICE_API Participant {
 public:
  virtual ~Participant() = default;

  // Raises what speaks against the commit; has no effect.
  virtual void verify(std::vector<Difference> const&) {}
  // Carries it out. Raises where it cannot, leaving nothing behind.
  virtual void apply(std::vector<Difference> const& differences) = 0;
  // Takes back what `apply` has done, because something behind it failed. What it raises is reported; it keeps nobody
  // else from theirs.
  virtual void undo(std::vector<Difference> const& differences) = 0;
  // The commit stands. What it raises is reported.
  virtual void done(std::vector<Difference> const&) {}
};

}  // namespace Cli::Service
