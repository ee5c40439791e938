// The framework's names for the builtin types, and the few types that everything else shares.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Kel/Export.h"

namespace Kel {

// Numbers: U unsigned, S signed, F floating-point, then the bits.
using U8 = unsigned char;
using U16 = unsigned short;
using U32 = unsigned int;
using U64 = unsigned long long;
using S8 = signed char;
using S16 = short;
using S32 = int;
using S64 = long long;
using F32 = float;
using F64 = double;

// A time or a duration, in seconds. Positive infinity is "never".
using Seconds = double;

// Names one attribute of one type. Ids count from 0; a derived type continues the ids of its base.
using AttributeId = U16;
// The id of no attribute.
inline constexpr AttributeId noAttribute = 0xffff;

// The bit for an attribute in `KelType::plainDifferences`. The last bit is for all attributes from the 64th on.
inline constexpr U64 lastPlainBit = U64(1) << 63;
constexpr U64 plainBit(AttributeId id) { return id < 63 ? U64(1) << id : lastPlainBit; }

}  // namespace Kel
