// The command line.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kelc {

struct Options {
  std::filesystem::path input;
  std::vector<std::filesystem::path> includeDirs;  // the working directory when none is given
  std::filesystem::path outDir = ".";
  std::string name;  // where the header stands on the include path, without extension
  std::filesystem::path depfile;
  std::string depTarget;  // what the dependency file says depends on the models; the header unless given
  bool stubs = false;
  bool help = false;
};

extern char const usage[];

// Returns what is wrong with the command line; empty when nothing is.
std::string parseOptions(std::vector<std::string> const& args, Options& options);

}  // namespace kelc
