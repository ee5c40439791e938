// The framework's allocator for counted objects, strings and small arrays.
//
// Blocks of up to `KelMemPool::maxBlock` bytes are cut from chunks of 64 KB: objects that are made one after the other
// lie one after the other. A released block goes back to its chunk, and a chunk whose blocks have all been released
// begins anew. What a log keeps has chunks of its own: it is made while a tree grows and goes earlier, and would leave
// gaps in the tree's chunks. Larger blocks come from the C++ heap. Memory that was used for small blocks once is kept
// for small blocks. Every thread has chunks of its own, so that allocation takes no lock. A block may be released on
// any thread; one that belongs to another thread waits until that thread needs memory. The chunks of a thread that ends
// pass to a new one. Under a sanitizer, every block comes from the heap, so that each use after release is found.
#pragma once

#include <cstddef>
#include <new>

#include "Kel/Export.h"

namespace Kel {

// The allocator; also a base for classes whose objects come from it.
class KEL_API KelMemPool {
 public:
  // The sizes of small blocks are multiples of it.
  static constexpr std::size_t granule = 16;
  // The largest small block.
  static constexpr std::size_t maxBlock = 512;

  // Raises std::bad_alloc if memory runs out.
  static void* allocate(std::size_t size);
  // The same, in the chunks for logs.
  static void* allocateForLog(std::size_t size);
  // REQUIRES: the block is from one of these two, and `size` is what it was given.
  static void release(void* block, std::size_t size) noexcept;

  static void* operator new(std::size_t size) { return allocate(size); }
  static void operator delete(void* block, std::size_t size) noexcept { release(block, size); }
};

// Releases a block of `size` bytes from `KelMemPool::allocate`; null is allowed.
inline void memDel(void* block, std::size_t size) noexcept {
  if (block) KelMemPool::release(block, size);
}

// The allocator for the standard library's containers.
template <class T>
struct PoolAllocator {
  using value_type = T;

  PoolAllocator() = default;
  template <class U>
  PoolAllocator(PoolAllocator<U> const&) noexcept {}
  T* allocate(std::size_t n) { return static_cast<T*>(KelMemPool::allocate(n * sizeof(T))); }
  void deallocate(T* block, std::size_t n) noexcept { KelMemPool::release(block, n * sizeof(T)); }
  bool operator==(PoolAllocator const&) const = default;
};

}  // namespace Kel
