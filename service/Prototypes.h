// The contents of new entities of each type. Not installed.
#pragma once

#include "Kel/Entity.h"
#include "Kel/GenericIf.h"

namespace Cli::Service {

// A new entity of a type, in no tree; null if the type cannot be made from defaults. It is never destroyed. REQUIRES:
// nothing writes to it.
Kel::Entity const* prototypeOf(Kel::KelType const& type);
// True if the attribute has the same content in both entities. REQUIRES: they are of one type, and the attribute holds
// values.
bool sameContent(Kel::Entity const& a, Kel::Entity const& b, Kel::KelAttr const& attr);
// The constructor argument of a new entity for which none is given. `named`: the attribute that will hold the entity,
// if the argument is the first; null otherwise.
Kel::GenericIf::PtrConst initialArgument(Kel::KelArg const& arg, Kel::KelAttr const* named);

}  // namespace Cli::Service
