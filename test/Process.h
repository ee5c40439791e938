// Programs that tests run.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace Tests {

struct Result {
  int status;
  std::string output;  // both streams
};

inline Result run(std::string const& command) {
  FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
  Result result{-1, {}};
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) result.output += static_cast<char>(c);
  int const status = ::pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + status;
  return result;
}

}  // namespace Tests
