// The longest common subsequence of two sequences. Not installed.
#pragma once

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

namespace Cli::Service {

// The pairs (position in the first, position in the second) of a longest common subsequence; of several, the one that
// keeps the earliest of the first's items. `same` compares an item of the first with one of the second. Cost: the
// product of the lengths without the common beginning and the common end. If that is too much, the result is a common
// subsequence that may be shorter than the longest.
using Aligned = std::vector<std::pair<std::size_t, std::size_t>>;
Aligned align(std::size_t first, std::size_t second, std::function<bool(std::size_t, std::size_t)> const& same);

}  // namespace Cli::Service
