// Writes the results of a run.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kelc {

struct OutputFile {
  std::filesystem::path path;
  std::string text;
};

// Writes the files whose content has changed, and makes the directories that they need. All are written to temporary
// files beside their places before the first is moved: after a failure, all files are as before. Returns an error, or
// an empty string.
std::string writeFiles(std::vector<OutputFile> const& files);

// A make rule: `target` depends on `sources`.
std::string dependencyRule(std::string const& target, std::vector<std::string> const& sources);

}  // namespace kelc
