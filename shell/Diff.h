// cli-session diff A B
#pragma once

#include <string>

#include "Model.h"

namespace Shell {

struct DiffOptions {
  std::string from, to;
  bool commands = false, json = false;
};

// Prints the differences between two configurations; answers the exit status. Raises ModelError.
int runDiff(Model const& model, DiffOptions const& options);

}  // namespace Shell
