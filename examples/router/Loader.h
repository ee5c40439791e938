// Loads a router's configuration (JSON of YANG instance data) into a directory: a tree of the entities that Router.kel
// declares. The type records say what a member is: a container, a list, a value or a reference.
#pragma once

#include <string>
#include <vector>

#include "Kel/Dir.h"
#include "shell/Model.h"

namespace Router {

// The model, as the shell knows it. Lives as long as the process.
Shell::Model const& model();

}  // namespace Router
