#include "Kel/MemPool.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KEL_POOL_OFF 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer) || __has_feature(thread_sanitizer)
#define KEL_POOL_OFF 1
#endif
#endif

namespace Kel {

#ifdef KEL_POOL_OFF

void* KelMemPool::allocate(std::size_t size) { return ::operator new(size); }
void* KelMemPool::allocateForLog(std::size_t size) { return ::operator new(size); }
void KelMemPool::release(void* block, std::size_t) noexcept { ::operator delete(block); }

#else

namespace {

constexpr std::size_t classes = KelMemPool::maxBlock / KelMemPool::granule;
constexpr std::size_t chunkSize = 64 * 1024;  // and the alignment of a chunk
constexpr std::size_t maxSegment = 16;        // chunks that are taken from the C++ heap at once

std::size_t classOf(std::size_t size) { return size == 0 ? 0 : (size - 1) / KelMemPool::granule; }

struct FreeBlock {
  FreeBlock* next;
  std::size_t sizeClass;  // set while the block waits for the thread that its chunk belongs to
};
static_assert(sizeof(FreeBlock) <= KelMemPool::granule);

struct Heap;
struct Area;

// Blocks of all sizes, in the order in which they were first allocated. Each chunk has free lists of its own, as in
// "Mimalloc: Free List Sharding in Action" (Leijen, Zorn, de Moura, 2019), so that blocks which are reused together lie
// near each other. A chunk without a block in use begins anew: its blocks follow one another again.
struct Chunk {
  explicit Chunk(Heap& owner) : heap(owner) {}

  Heap& heap;
  Area* area = nullptr;  // set when blocks are first cut from it, and each time that it begins anew
  Chunk* nextEmpty = nullptr;
  std::uint32_t used = 0;    // blocks that are on no free list of the chunk, and one for the area's current chunk
  std::uint32_t listed = 0;  // a bit for each class in whose list of chunks it is
  std::array<FreeBlock*, classes> free{};
  std::array<std::uint16_t, classes> frees{};  // the lengths of the free lists
  std::array<Chunk*, classes> next{};          // in the area's lists
};
static_assert(classes <= 32);

Chunk& chunkOf(void* block) {
  return *reinterpret_cast<Chunk*>(reinterpret_cast<std::uintptr_t>(block) & ~(chunkSize - 1));
}

// The chunks for one use: for logs, or for everything else.
struct Area {
  std::array<FreeBlock*, classes> ready{};  // taken from one chunk for each class, to be handed out next
  Chunk* current = nullptr;                 // from which new blocks are cut
  char *bump = nullptr, *end = nullptr;     // the part of it that is left
  std::array<Chunk*, classes> partial{};    // chunks that have, or had, free blocks of a class

  void list(Chunk& chunk, std::size_t c) noexcept;
  void* recycled(std::size_t c) noexcept;
};

// The memory of one thread. It is never destroyed: when its thread ends, another one takes it over.
struct Heap {
  Area general, log;
  Chunk* empty = nullptr;
  char *spare = nullptr, *spareEnd = nullptr;  // chunks that have never been used
  std::size_t segment = 1;                     // chunks to take next time
  std::atomic<FreeBlock*> foreign{nullptr};    // released by other threads
  Heap* nextUnowned = nullptr;

  void* refill(Area& area, std::size_t c);
  void release(Chunk& chunk, FreeBlock& block, std::size_t c) noexcept;

 private:
  void collectForeign() noexcept;
  void nextChunk(Area& area);
  Chunk& newChunk();
  void empties(Chunk& chunk) noexcept;
};

void Area::list(Chunk& chunk, std::size_t c) noexcept {
  chunk.listed |= std::uint32_t(1) << c;
  chunk.next[c] = partial[c];
  partial[c] = &chunk;
}

// A free block of the first chunk that has one; the chunk's others of the class become ready.
void* Area::recycled(std::size_t c) noexcept {
  while (Chunk* const chunk = partial[c]) {
    partial[c] = chunk->next[c];
    chunk->listed &= ~(std::uint32_t(1) << c);
    FreeBlock* const block = chunk->free[c];
    if (!block) continue;       // it has begun anew
    if (chunk->area != this) {  // it has begun anew, for another use
      chunk->area->list(*chunk, c);
      continue;
    }
    chunk->used += chunk->frees[c];
    chunk->free[c] = nullptr;
    chunk->frees[c] = 0;
    ready[c] = block->next;
    return block;
  }
  return nullptr;
}

void Heap::empties(Chunk& chunk) noexcept {
  chunk.free.fill(nullptr);
  chunk.frees.fill(0);
  chunk.nextEmpty = empty;
  empty = &chunk;
}

void Heap::release(Chunk& chunk, FreeBlock& block, std::size_t c) noexcept {
  block.next = chunk.free[c];
  chunk.free[c] = &block;
  ++chunk.frees[c];
  if (--chunk.used == 0)
    empties(chunk);
  else if (!(chunk.listed >> c & 1))
    chunk.area->list(chunk, c);
}

void Heap::collectForeign() noexcept {
  if (!foreign.load(std::memory_order_relaxed)) return;
  FreeBlock* block = foreign.exchange(nullptr, std::memory_order_acquire);
  while (block) {
    FreeBlock& released = *block;
    block = block->next;
    release(chunkOf(&released), released, released.sizeClass);
  }
}

Chunk& Heap::newChunk() {
  if (Chunk* const chunk = empty) {
    empty = chunk->nextEmpty;
    return *chunk;
  }
  if (spare == spareEnd) {
    std::size_t const size = segment * chunkSize;
    spare = static_cast<char*>(::operator new(size, std::align_val_t(chunkSize)));
    spareEnd = spare + size;
    if (segment < maxSegment) segment *= 2;
  }
  void* const place = spare;
  spare += chunkSize;
  return *new (place) Chunk(*this);
}

void Heap::nextChunk(Area& area) {
  Chunk& chunk = newChunk();
  if (area.current && --area.current->used == 0) empties(*area.current);
  area.current = &chunk;
  chunk.area = &area;
  ++chunk.used;
  area.bump = reinterpret_cast<char*>(&chunk) +
              (sizeof(Chunk) + KelMemPool::granule - 1) / KelMemPool::granule * KelMemPool::granule;
  area.end = reinterpret_cast<char*>(&chunk) + chunkSize;
}

void* Heap::refill(Area& area, std::size_t c) {
  collectForeign();
  if (void* const block = area.recycled(c)) return block;
  std::size_t const size = (c + 1) * KelMemPool::granule;
  if (static_cast<std::size_t>(area.end - area.bump) < size) nextChunk(area);
  void* const block = area.bump;
  area.bump += size;
  ++area.current->used;
  return block;
}

std::mutex unownedLock;
Heap* unowned = nullptr;

Heap noHeap;  // has no blocks
// In the static part of the thread's storage, which is reached without a call.
[[gnu::tls_model("initial-exec")]] thread_local constinit Heap* heap = &noHeap;

// Passes the heap of a thread that ends on. What the thread releases after that waits for the heap's next owner.
struct HandOver {
  bool armed = false;
  ~HandOver() {
    if (!armed) return;
    std::lock_guard<std::mutex> const guard(unownedLock);
    heap->nextUnowned = unowned;
    unowned = heap;
    heap = &noHeap;
  }
};
thread_local HandOver handOver;

void takeHeap() {
  std::unique_lock<std::mutex> guard(unownedLock);
  if (Heap* const taken = unowned) {
    unowned = taken->nextUnowned;
    heap = taken;
  } else {
    guard.unlock();
    heap = new Heap;
  }
  handOver.armed = true;
}

void* allocateSlowly(Area Heap::*area, std::size_t c) {
  if (heap == &noHeap) takeHeap();
  return heap->refill(heap->*area, c);
}

template <Area Heap::*area>
void* allocateIn(std::size_t size) {
  if (size > KelMemPool::maxBlock) return ::operator new(size);
  std::size_t const c = classOf(size);
  FreeBlock*& ready = (heap->*area).ready[c];
  if (FreeBlock* const block = ready) {
    ready = block->next;
    return block;
  }
  return allocateSlowly(area, c);
}

void releaseElsewhere(Heap& owner, FreeBlock& block, std::size_t c) noexcept {
  block.sizeClass = c;
  block.next = owner.foreign.load(std::memory_order_relaxed);
  while (
      !owner.foreign.compare_exchange_weak(block.next, &block, std::memory_order_release, std::memory_order_relaxed)) {
  }
}

}  // namespace

void* KelMemPool::allocate(std::size_t size) { return allocateIn<&Heap::general>(size); }
void* KelMemPool::allocateForLog(std::size_t size) { return allocateIn<&Heap::log>(size); }

void KelMemPool::release(void* block, std::size_t size) noexcept {
  if (size > maxBlock) {
    ::operator delete(block);
    return;
  }
  std::size_t const c = classOf(size);
  Chunk& chunk = chunkOf(block);
  auto& freed = *static_cast<FreeBlock*>(block);
  if (&chunk.heap == heap)
    heap->release(chunk, freed, c);
  else
    releaseElsewhere(chunk.heap, freed, c);
}

#endif

}  // namespace Kel
