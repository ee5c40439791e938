// Functions that generated accessors, hashes and comparisons share.
#pragma once

#include <type_traits>

#include "Kel/HashMap.h"
#include "Kel/KeyLess.h"
#include "Kel/Writes.h"

namespace Kel {

// Combines the hashes of a value's fields.
inline U32 combineHash(U32 seed, U32 hash) { return seed ^ (hash + 0x9e3779b9u + (seed << 6) + (seed >> 2)); }
// The hash of one field: strings by content, integers and enumerators themselves, values by their own.
template <class F>
U32 fieldHash(F const& field) {
  if constexpr (std::is_enum_v<F>)
    return static_cast<U32>(field);
  else if constexpr (std::is_integral_v<F>)
    return static_cast<U32>(field) ^ static_cast<U32>(static_cast<U64>(field) >> 32);
  else if constexpr (std::is_floating_point_v<F>)
    return keyHash(field);
  else
    return field.hash();
}
// Three-way comparison of one field.
template <class F>
int fieldCompare(F const& a, F const& b) {
  KeyLess const less;
  return less(a, b) ? -1 : less(b, a) ? 1 : 0;
}

}  // namespace Kel
