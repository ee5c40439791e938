// Loads model libraries that are named on the command line.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Model.h"

namespace Shell {

// Loads a shared library for the rest of the process, and answers the model that it exports; null if it has types only.
// Raises ModelError.
Model const* openModelLibrary(std::string const& library);

// A model of types only: configurations are JSON trees (service/JsonTree.h). A root is "TYPE" or "PATH=TYPE"; without a
// path, the path is the type's name with a small first letter. Raises ModelError for a type that does not exist or
// cannot be a root.
std::unique_ptr<Model> modelOfTypes(std::string const& name, std::vector<std::string> const& roots);

// Makes the roots, empty, and the directories above them.
void makeRoots(std::vector<ModelRoot> const& roots, Kel::Dir::Ptr const& into);
// Reads a JSON tree and makes all roots. Raises ModelError. REQUIRES: `into` has none of the roots.
LoadReport loadTree(std::vector<ModelRoot> const& roots, std::string const& text, std::string const& file,
                    Kel::Dir::Ptr const& into, Cli::Service::PendingReferences& pending);

// Whether a text is a JSON tree of the model: an object whose members are all beginnings of root paths.
bool looksLikeTree(std::vector<ModelRoot> const& roots, std::string const& text);

}  // namespace Shell
