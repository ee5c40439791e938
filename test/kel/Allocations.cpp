#include "Allocations.h"

#include <cstdlib>
#include <new>

std::atomic<std::size_t> Tests::allocations{0};
std::atomic<bool> Tests::allocationsFail{false};

void* operator new(std::size_t size) {
  ++Tests::allocations;
  void* const block = Tests::allocationsFail ? nullptr : std::malloc(size);
  if (block) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
