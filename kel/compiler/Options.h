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
  bool exported = false;  // whether the shared library that the output is part of exports it
  std::string anchor;     // a symbol that the source defines, for a linker to ask for; may be empty
  std::string depTarget;  // what the dependency file says depends on the models; the header unless given
  bool stubs = false;
  bool help = false;
};

extern char const usage[];

// Returns what is wrong with the command line; empty when nothing is.
std::string parseOptions(std::vector<std::string> const& args, Options& options);

}  // namespace kelc
