// Compiles models inside a test.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Golden.h"
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

using Tests::readFile;
using Tests::TemporaryDir;

}  // namespace kelc::test
