// Checks models, and completes their trees. What could not be read of a model is not held against the rest of it.
//
// After a check without errors every name is resolved, every attribute has its kind, every enumerator its value, and
// whatever the models say can be emitted as C++ that compiles.
#pragma once

#include "compiler/Diagnostic.h"
#include "compiler/Loader.h"

namespace kelc {

void check(ModelSet& set, Diagnostics& diagnostics);

}  // namespace kelc
