// The framework's allocator for counted objects, strings and small arrays.
//
// Blocks up to `KelMemPool::maxBlock` bytes come from free lists by size, filled from larger chunks, so that objects
// made one after the other lie one after the other; larger blocks come from the C++ heap. Memory that was once used
// for small blocks is kept for small blocks. Every thread has free lists of its own: allocation takes no lock, a block
// may be released on another thread than it was made on, and the lists of a thread that ends pass to the others. Under
// a sanitizer every block comes from the heap, so that each use after a release is seen.
#pragma once

#include <cstddef>
#include <new>

#include "Kel/Export.h"

namespace Kel {

class KEL_API KelMemPool {
 public:
  static constexpr std::size_t granule = 16;
  static constexpr std::size_t maxBlock = 512;

  // Throws std::bad_alloc when memory runs out. `release` takes the size that was given to `allocate`.
  static void* allocate(std::size_t size);
  static void release(void* block, std::size_t size) noexcept;

  static void* operator new(std::size_t size) { return allocate(size); }
  static void operator delete(void* block, std::size_t size) noexcept { release(block, size); }
};

// Releases a block of `size` bytes made by `KelMemPool::allocate`; null is allowed.
inline void memDel(void* block, std::size_t size) noexcept {
  if (block) KelMemPool::release(block, size);
}

}  // namespace Kel
