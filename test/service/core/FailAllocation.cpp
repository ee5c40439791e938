#include "service/core/FailAllocation.h"

#include <cstdlib>
#include <new>

namespace {

bool armed = false, hasFailed = false;
std::size_t left = 0;

}  // namespace

void* operator new(std::size_t size) {
  bool const fails = armed && left-- == 0;
  if (fails) {
    armed = false;
    hasFailed = true;
  }
  void* const block = fails ? nullptr : std::malloc(size);
  if (block) return block;
  throw std::bad_alloc();
}
// Only std::stable_sort asks so, and can do without.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept { return std::malloc(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace Tests {

FailAllocation::FailAllocation(std::size_t n) : n_(n) {
  left = n;
  hasFailed = false;
  armed = true;
}
FailAllocation::~FailAllocation() { armed = false; }
bool FailAllocation::failed() const { return hasFailed; }
std::size_t FailAllocation::made() const { return n_ - left; }

}  // namespace Tests
