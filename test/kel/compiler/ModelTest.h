// Compiles models inside a test.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "compiler/Diagnostic.h"
#include "compiler/Loader.h"

namespace kelc::test {

// The directory of the test's own files.
std::filesystem::path const& dataDir();

// Loads and checks a model; imports are looked for in the directory `models`.
struct Compiled {
  explicit Compiled(std::filesystem::path const& path);

  bool readable = false;
  ModelSet set;
  Diagnostics diagnostics;
};

// A directory that goes with the object.
class TemporaryDir {
 public:
  TemporaryDir();
  ~TemporaryDir();
  std::filesystem::path const& path() const { return path_; }
  std::filesystem::path write(std::string const& name, std::string const& text) const;

 private:
  std::filesystem::path path_;
};

std::string readFile(std::filesystem::path const& path);

}  // namespace kelc::test
