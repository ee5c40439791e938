// The keys of collections as the names of JSON members. Not installed.
#pragma once

#include <string>

#include "Kel/GenericIf.h"

namespace Cli::Service {

// The key that a member's name stands for; for keys that are values. Raises InputError.
Kel::GenericIf::PtrConst keyFromName(Kel::KelType const& type, std::string const& name);
// The value that a text stands for as textOf writes it, whether a person may type it or not. Raises InputError.
Kel::GenericIf::Ptr writtenValue(Kel::KelType const& type, std::string const& text);

}  // namespace Cli::Service
