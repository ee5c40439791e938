#include "Heap.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocationCount{0}, live{0};
std::atomic<std::size_t> untilFailure{0};  // 0: none is to fail
std::atomic<bool> failsForGood{false}, oneFailed{false};

bool fails() {
  if (oneFailed && failsForGood) return true;
  if (untilFailure == 0 || --untilFailure > 0) return false;
  oneFailed = true;
  return true;
}
void* allocate(std::size_t size) {
  ++allocationCount;
  void* const block = fails() ? nullptr : std::malloc(size);
  if (!block) throw std::bad_alloc();
  ++live;
  return block;
}
void release(void* block) noexcept {
  if (block) --live;
  std::free(block);
}

}  // namespace

// Not inlined: compilers would take them for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) { return allocate(size); }
// Only std::stable_sort asks so, and can do without: this one does not fail.
[[gnu::noinline]] void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
  ++live;
  return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void* block) noexcept { release(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { release(block); }

namespace Tests {

std::size_t allocations() { return allocationCount; }
std::size_t liveBlocks() { return live; }

FailingHeap::FailingHeap(std::size_t number, Then then) {
  oneFailed = false;
  failsForGood = then == forGood;
  untilFailure = number;
}
FailingHeap::~FailingHeap() {
  untilFailure = 0;
  failsForGood = false;
}

bool FailingHeap::hasFailed() { return oneFailed; }

}  // namespace Tests
