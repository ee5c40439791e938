// Reads a model and everything that it imports.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "compiler/Ast.h"
#include "compiler/Diagnostic.h"
#include "compiler/Source.h"

namespace kelc {

// The models of a run. In `models`, every model comes after its imports, and `main` is the last.
struct ModelSet {
  std::vector<std::unique_ptr<SourceFile>> files;  // in the order in which they were opened
  std::vector<std::unique_ptr<Model>> models;
  std::vector<std::unique_ptr<Decl>> framework;  // declarations that models can name without an import
  Model* main = nullptr;
};

// Lexes and parses the file at `path` and its imports, which are looked for in the directory of the file that imports
// them and then in `includeDirs`. `includePath` is the path by which the header of the model itself will be included,
// without extension. Answers false if the file at `path` cannot be read. All other mistakes are added to `diagnostics`,
// and the set can still be checked for more.
bool load(std::filesystem::path const& path, std::string const& includePath,
          std::vector<std::filesystem::path> const& includeDirs, Diagnostics& diagnostics, ModelSet& set);

}  // namespace kelc
