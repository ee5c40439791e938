// The contents of new entities of each type. Not installed.
#pragma once

#include "Kel/Entity.h"

namespace Cli::Service {

// A new entity of a type, in no tree; null if the type cannot be made from defaults. It is never destroyed. REQUIRES:
// nothing writes to it.
Kel::Entity const* prototypeOf(Kel::KelType const& type);
// True if the attribute has the same content in both entities. REQUIRES: they are of one type, and the attribute holds
// values.
bool sameContent(Kel::Entity const& a, Kel::Entity const& b, Kel::KelAttr const& attr);

}  // namespace Cli::Service
