// The command line.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kelc {

struct Options {
  std::filesystem::path input;
  std::vector<std::filesystem::path> includeDirs;  // if none is given, the working directory
  std::filesystem::path outDir = ".";
  std::string name;  // the path by which the header is included, without extension
  std::filesystem::path depfile;
  bool exported = false;  // whether the shared library that the output is part of exports it
  std::string anchor;     // a symbol that the source defines, which linkers can be told to need; may be empty
  unsigned parts = 1;     // the sources over which the definitions are spread
  std::string depTarget;  // the target in the dependency file; by default the header
  bool stubs = false;
  bool help = false;
};

extern char const usage[];

// Returns what is wrong with the command line; empty if it is right.
std::string parseOptions(std::vector<std::string> const& args, Options& options);

}  // namespace kelc
