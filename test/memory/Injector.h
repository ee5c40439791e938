// The C++ heap of a test program, in which allocations can be made to fail. The program has the framework's pool in a
// form that takes every block from this heap.
#pragma once

#include <cstddef>

namespace Tests {

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

  static bool hasFailed();
};

}  // namespace Tests
