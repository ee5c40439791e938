#include "service/Align.h"

#include <algorithm>

namespace Cli::Service {

namespace {

constexpr std::size_t mostCells = 16'000'000;

class Middle {
 public:
  Middle(std::size_t begin, std::size_t n, std::size_t m, std::function<bool(std::size_t, std::size_t)> const& same)
      : begin_(begin), n_(n), m_(m), same_(same), length_((n + 1) * (m + 1), 0) {
    for (std::size_t i = n; i-- > 0;)
      for (std::size_t j = m; j-- > 0;)
        at(i, j) = same_(begin_ + i, begin_ + j) ? at(i + 1, j + 1) + 1 : std::max(at(i + 1, j), at(i, j + 1));
  }
  void append(Aligned& pairs) {
    for (std::size_t i = 0, j = 0; i < n_ && j < m_;) {
      if (same_(begin_ + i, begin_ + j)) {
        pairs.emplace_back(begin_ + i++, begin_ + j++);
      } else if (at(i, j + 1) == at(i, j)) {
        ++j;  // the first's item may still be kept
      } else {
        ++i;
      }
    }
  }

 private:
  unsigned& at(std::size_t i, std::size_t j) { return length_[i * (m_ + 1) + j]; }

  std::size_t begin_, n_, m_;
  std::function<bool(std::size_t, std::size_t)> const& same_;
  std::vector<unsigned> length_;  // of the longest common subsequence behind each pair of positions
};

// For sequences that are too long to compare every pair of items: each item is aligned with the next one like it.
void appendGreedily(std::size_t begin, std::size_t n, std::size_t m,
                    std::function<bool(std::size_t, std::size_t)> const& same, Aligned& pairs) {
  constexpr std::size_t window = 256;
  std::size_t next = 0;
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = next; j < std::min(m, next + window); ++j) {
      if (!same(begin + i, begin + j)) continue;
      pairs.emplace_back(begin + i, begin + j);
      next = j + 1;
      break;
    }
}

}  // namespace

Aligned align(std::size_t first, std::size_t second, std::function<bool(std::size_t, std::size_t)> const& same) {
  Aligned pairs;
  std::size_t const shorter = std::min(first, second);
  std::size_t begin = 0, end = 0;
  while (begin < shorter && same(begin, begin)) {
    pairs.emplace_back(begin, begin);
    ++begin;
  }
  while (end < shorter - begin && same(first - end - 1, second - end - 1)) ++end;
  std::size_t const n = first - begin - end, m = second - begin - end;
  if (n > 0 && m > 0) {
    if (n <= mostCells / m)
      Middle(begin, n, m, same).append(pairs);
    else
      appendGreedily(begin, n, m, same, pairs);
  }
  for (; end > 0; --end) pairs.emplace_back(first - end, second - end);
  return pairs;
}

}  // namespace Cli::Service
