// The C++ heap of a test program: allocations are counted, and can be made to fail. Blocks of the framework's pool are
// among them where the pool is off, as in builds with a sanitizer.
#pragma once

#include <cstddef>

namespace Tests {

// Allocations until now, those that failed included.
std::size_t allocations();
// Blocks that were allocated and not released yet.
std::size_t liveBlocks();

// While it lives, the allocation of that number, counted from 1, throws std::bad_alloc.
class FailingHeap {
 public:
  enum Then : bool { once, forGood };
  // `forGood`: so do all that follow it.
  explicit FailingHeap(std::size_t number, Then then = once);
  ~FailingHeap();
  FailingHeap(FailingHeap const&) = delete;
  FailingHeap& operator=(FailingHeap const&) = delete;

  // Whether an allocation has failed since the last one was made.
  static bool hasFailed();
};

}  // namespace Tests
