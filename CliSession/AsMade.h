// Whether anything has been put into an entity since it was made by its name.
#pragma once

#include "Kel/Dir.h"

namespace Cli::Session {

// Whether an entity of a directory owns nothing and has the parameters, the values and the pointers of one that the
// directory makes under its name. Answers false for a type that is not made by a name, and for one that owns something
// from the start. Cost: one new entity, and the number of the attributes.
bool isAsMade(Kel::Entity const& e, Kel::Dir& dir);

}  // namespace Cli::Session
