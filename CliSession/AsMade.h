// Tells whether an entity is still as it was made from its name.
#pragma once

#include "Kel/Dir.h"

namespace Cli::Session {

// True if an entity of a directory owns nothing and has the parameters, values and pointers of a new one that the
// directory makes under its name. False for a type that cannot be made from a name, and for one that owns something
// from the start. Cost: one new entity, and the number of attributes.
bool isAsMade(Kel::Entity const& e, Kel::Dir& dir);

}  // namespace Cli::Session
