// Runs commands from a terminal, the command line, a file, or standard input.
#pragma once

#include <string>
#include <vector>

#include "Device.h"

namespace Shell {

struct FrontOptions {
  std::vector<std::string> commands;
  std::string script;
  bool echo = false;
  bool quiet = false;
  bool configFromInput = false;  // the configuration was read from standard input
};

// Runs the commands; answers the exit status.
int runFront(Device& device, std::string const& file, FrontOptions const& options);

}  // namespace Shell
