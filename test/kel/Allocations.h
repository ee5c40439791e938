// Every allocation of the process is counted, and may be made to fail. Under a sanitizer the pool's blocks are among
// them.
#pragma once

#include <atomic>
#include <cstddef>

namespace Tests {

extern std::atomic<std::size_t> allocations;
// While true, operator new throws.
extern std::atomic<bool> allocationsFail;

}  // namespace Tests
