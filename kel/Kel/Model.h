// The header of every model includes this one, and the headers of the collections that its attributes need. Its source
// includes TypeBuilder.h and Accessors.h.
#pragma once

#include "Kel/Entity.h"
#include "Kel/GenericIf.h"
#include "Kel/Strep.h"

// Generated code refuses to compile against another version of the framework than its compiler was made for.
#define KEL_MODEL_VERSION 6
