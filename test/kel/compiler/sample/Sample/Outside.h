// Entities that the sample model only knows by name; they are made from a model of their own.
#pragma once

#include "Sample/Extern.h"
#include "Sample/Stranger.h"
