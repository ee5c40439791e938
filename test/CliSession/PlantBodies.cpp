#include "Plant.h"

namespace Plant {

Kel::U32 Hall::weigh(Kel::U32 factor) const { return factor * u32(); }

}  // namespace Plant
