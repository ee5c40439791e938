// Blocks of the pool: no two holders share one, they come back whichever thread releases them, and those of an emptied
// chunk follow one another again. Under a sanitizer every block comes from the heap, which decides about the last two.
#include "Kel/MemPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define KEL_POOL_ON 1
#endif

namespace Kel {
namespace {

// A block whose bytes all say who it is.
struct Marked {
  void* block;
  std::size_t size;
  unsigned char mark;

  static Marked make(std::size_t size, unsigned char mark) {
    void* const block = mark % 2 ? KelMemPool::allocateForLog(size) : KelMemPool::allocate(size);
    std::memset(block, mark, size);
    return {block, size, mark};
  }
  bool intact() const {
    auto const* bytes = static_cast<unsigned char const*>(block);
    return std::all_of(bytes, bytes + size, [this](unsigned char byte) { return byte == mark; });
  }
  void release() const { KelMemPool::release(block, size); }
};

// Threads pass blocks to one another and release what they take, while threads end and others begin.
TEST(MemPool, BlocksBelongToOneHolder) {
  std::mutex lock;
  std::vector<Marked> shared;
  std::vector<std::size_t> damaged(4, 0);
  auto const work = [&](unsigned thread, unsigned round) {
    std::mt19937 random(thread * 100 + round);
    std::vector<Marked> own;
    auto const take = [&](std::vector<Marked>& from) {
      std::swap(from[random() % from.size()], from.back());
      Marked const taken = from.back();
      from.pop_back();
      return taken;
    };
    for (int i = 0; i < 20000; ++i) {
      if (random() % 2)
        own.push_back(Marked::make(random() % (KelMemPool::maxBlock + 40), static_cast<unsigned char>(random())));
      if (own.empty()) continue;
      if (random() % 4) {
        if (random() % 2 || own.size() > 2000) {
          Marked const mine = take(own);
          if (!mine.intact()) ++damaged[thread];
          mine.release();
        }
      } else {
        std::lock_guard<std::mutex> const guard(lock);
        shared.push_back(take(own));
        own.push_back(take(shared));
      }
    }
    std::lock_guard<std::mutex> const guard(lock);
    shared.insert(shared.end(), own.begin(), own.end());
  };
  for (unsigned round = 0; round < 4; ++round) {
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < 4; ++thread) threads.emplace_back(work, thread, round);
    for (std::thread& thread : threads) thread.join();
  }
  for (Marked const& left : shared) {
    if (!left.intact()) ++damaged[0];
    left.release();
  }
  EXPECT_EQ(damaged, std::vector<std::size_t>(4, 0));
}

#ifdef KEL_POOL_ON

class Blocks {
 public:
  static constexpr std::size_t size = 512;

  void allocate(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) blocks_.push_back(KelMemPool::allocate(size));
    seen_.insert(blocks_.begin(), blocks_.end());
  }
  void release() {
    for (void* block : blocks_) KelMemPool::release(block, size);
    blocks_.clear();
  }
  std::size_t everSeen() const { return seen_.size(); }

 private:
  std::vector<void*> blocks_;
  std::set<void*> seen_;
};

TEST(MemPool, ThreadsThatEndLeaveNothingBehind) {
  Blocks blocks;
  for (int round = 0; round < 10; ++round) {
    std::thread([&] { blocks.allocate(1000); }).join();
    std::thread([&] { blocks.release(); }).join();
  }
  EXPECT_LT(blocks.everSeen(), 2500U);
}

TEST(MemPool, BlocksReturnToTheThreadThatAllocates) {
  Blocks blocks;
  std::mutex lock;
  std::condition_variable turns;
  int turn = 0;
  auto const everySecond = [&](int first, auto const& act) {
    std::unique_lock<std::mutex> guard(lock);
    for (int round = 0; round < 10; ++round) {
      turns.wait(guard, [&] { return turn % 2 == first; });
      act();
      ++turn;
      turns.notify_all();
    }
  };
  std::thread producer([&] { everySecond(0, [&] { blocks.allocate(1000); }); });
  everySecond(1, [&] { blocks.release(); });
  producer.join();
  EXPECT_LT(blocks.everSeen(), 2500U);
}

TEST(MemPool, BlocksOfAnEmptiedChunkFollowOneAnotherWithoutThoseOfLogs) {
  std::mt19937 random(1);
  std::size_t apart = 0;
  for (int round = 0; round < 5; ++round) {
    std::vector<void*> blocks, log;
    for (int i = 0; i < 20000; ++i) {
      blocks.push_back(KelMemPool::allocate(48));
      log.push_back(KelMemPool::allocateForLog(48));
    }
    apart = 0;
    for (std::size_t i = 1; i < blocks.size(); ++i)
      if (static_cast<char*>(blocks[i]) - static_cast<char*>(blocks[i - 1]) != 48) ++apart;
    for (std::size_t i = 0; i < blocks.size(); i += 2) KelMemPool::release(blocks[i], 48);
    for (std::size_t i = 0; i < blocks.size(); i += 2) blocks[i] = KelMemPool::allocate(48);
    std::shuffle(blocks.begin(), blocks.end(), random);
    for (void* block : blocks) KelMemPool::release(block, 48);
    for (void* block : log) KelMemPool::release(block, 48);
  }
  // Chunks that other tests left partly filled are used up first.
  EXPECT_LT(apart, 20000U / 4);
}

#endif

}  // namespace
}  // namespace Kel
