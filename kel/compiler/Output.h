// Writes what a run made.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kelc {

struct OutputFile {
  std::filesystem::path path;
  std::string text;
};

// Writes the files whose content changed, and makes the directories that they need. All are written beside their places
// before the first is put there: after a failure every file is as it was. Returns what went wrong, empty when nothing.
std::string writeFiles(std::vector<OutputFile> const& files);

// A rule of make: `target` depends on `sources`.
std::string dependencyRule(std::string const& target, std::vector<std::string> const& sources);

}  // namespace kelc
