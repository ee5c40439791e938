#include "Kel/MemPool.h"

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
void KelMemPool::release(void* block, std::size_t) noexcept { ::operator delete(block); }

#else

namespace {

struct FreeBlock {
  FreeBlock* next;
};
// The rest of a chunk, passed on by a thread that has ended.
struct FreeChunk {
  FreeChunk* next;
  char* end;
};
static_assert(sizeof(FreeChunk) <= KelMemPool::granule);

constexpr std::size_t classes = KelMemPool::maxBlock / KelMemPool::granule;
constexpr std::size_t chunkSize = 64 * 1024;

struct Lists {
  FreeBlock* head[classes] = {};
  char* bump = nullptr;
  char* bumpEnd = nullptr;
};

std::mutex orphansLock;
FreeBlock* orphans[classes];
FreeChunk* orphanChunks;

// When a thread ends, its free blocks go to the next thread that needs some. The lists are trivially destructible, so
// that static objects may still be released after this destructor has run.
struct HandOver {
  Lists* lists;
  ~HandOver();
};

// In the static part of the thread's storage, which is reached without a call.
[[gnu::tls_model("initial-exec")]] thread_local Lists lists;
thread_local HandOver handOver{&lists};

HandOver::~HandOver() {
  std::lock_guard<std::mutex> guard(orphansLock);
  for (std::size_t c = 0; c < classes; ++c) {
    while (FreeBlock* block = lists->head[c]) {
      lists->head[c] = block->next;
      block->next = orphans[c];
      orphans[c] = block;
    }
  }
  if (lists->bump == lists->bumpEnd) return;
  orphanChunks = new (lists->bump) FreeChunk{orphanChunks, lists->bumpEnd};
  lists->bump = lists->bumpEnd;
}

FreeBlock* adoptOrphans(std::size_t c) {
  std::lock_guard<std::mutex> guard(orphansLock);
  FreeBlock* adopted = orphans[c];
  orphans[c] = nullptr;
  return adopted;
}

bool adoptChunk(Lists& mine, std::size_t size) {
  std::lock_guard<std::mutex> guard(orphansLock);
  FreeChunk* const chunk = orphanChunks;
  if (!chunk || static_cast<std::size_t>(chunk->end - reinterpret_cast<char*>(chunk)) < size) return false;
  orphanChunks = chunk->next;
  mine.bump = reinterpret_cast<char*>(chunk);
  mine.bumpEnd = chunk->end;
  return true;
}

// Makes sure that this thread hands over its blocks when it ends.
void willHandOver() {
  Lists* volatile used = handOver.lists;
  (void)used;
}

void* refill(Lists& mine, std::size_t c) {
  willHandOver();
  std::size_t const size = (c + 1) * KelMemPool::granule;
  if (static_cast<std::size_t>(mine.bumpEnd - mine.bump) < size) {
    if (FreeBlock* adopted = adoptOrphans(c)) {
      mine.head[c] = adopted->next;
      return adopted;
    }
    if (!adoptChunk(mine, size)) {
      mine.bump = static_cast<char*>(::operator new(chunkSize));
      mine.bumpEnd = mine.bump + chunkSize;
    }
  }
  void* block = mine.bump;
  mine.bump += size;
  return block;
}

}  // namespace

void* KelMemPool::allocate(std::size_t size) {
  if (size > maxBlock) return ::operator new(size);
  std::size_t const c = size == 0 ? 0 : (size - 1) / granule;
  Lists& mine = lists;
  if (FreeBlock* block = mine.head[c]) {
    mine.head[c] = block->next;
    return block;
  }
  return refill(mine, c);
}

void KelMemPool::release(void* block, std::size_t size) noexcept {
  if (size > maxBlock) {
    ::operator delete(block);
    return;
  }
  std::size_t const c = size == 0 ? 0 : (size - 1) / granule;
  auto* freed = static_cast<FreeBlock*>(block);
  Lists& mine = lists;
  if (!mine.head[c]) willHandOver();  // a thread may release a block without ever having allocated one
  freed->next = mine.head[c];
  mine.head[c] = freed;
}

#endif

}  // namespace Kel
