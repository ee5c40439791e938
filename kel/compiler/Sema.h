// Checks models and completes their trees. Parts that could not be read cause no further errors.
//
// After a check without errors, every name is resolved, every attribute has its kind, every enumerator has its value,
// and the generated C++ compiles.
#pragma once

#include "compiler/Diagnostic.h"
#include "compiler/Loader.h"

namespace kelc {

void check(ModelSet& set, Diagnostics& diagnostics);

}  // namespace kelc
