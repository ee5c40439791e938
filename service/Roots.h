// The session roots of a tree. Not installed.
#pragma once

#include <string>
#include <vector>

#include "service/Difference.h"

namespace Cli::Service {

// The session roots that do not lie in another one.
std::vector<std::string> outerRoots(std::vector<std::string> const& roots);
// The entity at a session root, or null.
Kel::Entity* rootAt(Tree const& tree, std::string const& path);
// The path of a session root: a step for each directory on the way.
Path rootPath(std::string const& path);

}  // namespace Cli::Service
