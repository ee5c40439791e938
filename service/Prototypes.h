// What a new entity of each type has in its attributes. Not installed.
#pragma once

#include "Kel/Entity.h"

namespace Cli::Service {

// An entity of that type as it is made, in no tree; null when the type cannot be made from defaults. Never changed.
Kel::Entity const* prototypeOf(Kel::KelType const& type);
// True if the attribute has the same content in both entities, which are of one type; for values and collections of
// values.
bool sameContent(Kel::Entity const& a, Kel::Entity const& b, Kel::KelAttr const& attr);

}  // namespace Cli::Service
