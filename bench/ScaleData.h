// The trees of scale_bench: two session roots, "first" and "second", in every directory.
#pragma once

#include <functional>
#include <vector>

#include "Bench/Scale.h"
#include "Kel/Dir.h"
#include "Manager.h"

namespace Bench {

std::vector<SessionRoot> const& scaleRoots();
Scale::Ptr first(Kel::Dir& dir);
Scale::Ptr second(Kel::Dir& dir);

// Fills the empty session roots of a directory with n of something.
using Fill = std::function<void(Kel::Dir& dir, std::size_t n)>;

inline constexpr std::size_t targetCount = 256;

// n pointers at 256 entities of the same root, or of the other.
void references(Kel::Dir& dir, std::size_t n);
void referencesAcross(Kel::Dir& dir, std::size_t n);
// n pointers at n entities that the walk reaches later.
void earlyReferences(Kel::Dir& dir, std::size_t n);
void earlyReferencesAcross(Kel::Dir& dir, std::size_t n);
// One collection of n pointers, or keyed by n pointers, at n entities; with `early`, the walk reaches these later.
Fill pointersByKey(bool early);
Fill pointerKeys(bool early);
// n members of one collection. With `replaced`, every so many-th has another key.
enum class Members { hashed, sorted, values };
Fill members(Members kind, std::size_t replaced = 0);
// A queue of n members, the values or entities; with `edited`, without the head and with one more in the middle.
Fill numbers(bool edited);
Fill jobs(bool edited);
// n pointers at the n members of a group, or, without the group, at nothing.
Fill group(bool there);

// Whether two directories hold the same, by the generated accessors. What points inside must do so in both.
bool sameScale(Kel::Dir& a, Kel::Dir& b);

}  // namespace Bench
