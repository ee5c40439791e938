// The model of a switch's configuration, as the shell knows it.
#pragma once

#include "shell/Model.h"

namespace ConfigDb {

// Lives as long as the process.
Shell::Model const& model();

}  // namespace ConfigDb
