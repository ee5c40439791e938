#include "memory/Injector.h"

#include <cstdlib>
#include <new>

namespace {

std::size_t live = 0;
std::size_t untilFailure = 0;  // 0: none is to fail
bool failsForGood = false, failed = false;

void* allocate(std::size_t size) {
  if (untilFailure == 1 || (failed && failsForGood)) {
    untilFailure = 0;
    failed = true;
    throw std::bad_alloc();
  }
  if (untilFailure > 0) --untilFailure;
  void* const block = std::malloc(size);
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
[[gnu::noinline]] void operator delete(void* block) noexcept { release(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { release(block); }

namespace Tests {

std::size_t liveBlocks() { return live; }

FailingHeap::FailingHeap(std::size_t number, Then then) {
  untilFailure = number;
  failsForGood = then == forGood;
  failed = false;
}
FailingHeap::~FailingHeap() {
  untilFailure = 0;
  failsForGood = false;
}

bool FailingHeap::hasFailed() { return failed; }

}  // namespace Tests
