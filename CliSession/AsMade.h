// Whether an entity is still as it was when it was made.
#pragma once

#include "Kel/Dir.h"

namespace Cli::Session {

// True if an entity of a directory owns nothing, and its parameters, values and pointers equal those of a new entity
// that the directory makes under its name. False for a type that cannot be made from a name, and for one whose new
// entities own something. Cost: one new entity, and the number of attributes.
bool isAsMade(Kel::Entity const& e, Kel::Dir& dir);

}  // namespace Cli::Session
