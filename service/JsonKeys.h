// The keys of collections as the names of JSON members. Not installed.
#pragma once

#include <string>

#include "Kel/GenericIf.h"

namespace Cli::Service {

// The key for the name of a JSON member. REQUIRES: `type` is not an entity type. Raises InputError.
Kel::GenericIf::PtrConst keyFromName(Kel::KelType const& type, std::string const& name);
// The value of a text that textOf wrote, even if a user may not type it. Raises InputError.
Kel::GenericIf::Ptr writtenValue(Kel::KelType const& type, std::string const& text);

}  // namespace Cli::Service
