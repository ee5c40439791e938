// The thread rule: a tree belongs to one thread at a time; handles, strings and what a process has one of may be used
// on any thread. Under the thread sanitizer these find data races, elsewhere lost counts and what else comes of them.
//
// Each test is run in a process of its own, so that everything is made for the first time while several threads run.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>
#include <vector>

#include "CliSession/Sessions.h"
#include "Kel/AttrLog.h"
#include "Kel/ChangeJournal.h"
#include "Kel/Exception.h"

namespace {

using namespace Tests;

constexpr int threads = 4;
constexpr int copies = 1000000;  // of one object on each thread, so that threads meet at its count

// Runs `what(number)` on several threads that begin together.
template <class What>
void onAllThreads(What const& what) {
  std::barrier start(threads);
  std::vector<std::thread> all;
  for (int number = 0; number < threads; ++number)
    all.emplace_back([&, number] {
      start.arrive_and_wait();
      what(number);
    });
  for (std::thread& thread : all) thread.join();
}

struct Counted : Kel::VFPtrInterface {
  static std::atomic<int> destroyed;
  int const number;
  explicit Counted(int n) : number(n) {}
  ~Counted() override { ++destroyed; }
};
std::atomic<int> Counted::destroyed{0};

TEST(Threads, ShareHandles) {
  constexpr int objects = 4;
  std::vector<Kel::Ptr<Counted>> shared;
  for (int i = 0; i < objects; ++i) shared.emplace_back(new Counted(i));
  // Each thread has handles of its own; whichever drops the last one destroys the object.
  std::vector<std::vector<Kel::Ptr<Counted>>> own(threads, shared);
  shared.clear();
  onAllThreads([&](int thread) {
    long sum = 0;
    for (Kel::Ptr<Counted>& handle : own[static_cast<std::size_t>(thread)]) {
      for (int i = 0; i < copies; ++i) sum += Kel::Ptr<Counted>(handle)->number;
      handle = nullptr;
    }
    EXPECT_EQ(sum, 1L * copies * objects * (objects - 1) / 2);
  });
  EXPECT_EQ(Counted::destroyed, objects);
}

TEST(Threads, ShareStrings) {
  constexpr int rounds = 4;
  std::vector<Kel::String> shared;
  for (int i = 0; i < rounds; ++i) shared.emplace_back("a text of more than sixteen bytes " + std::to_string(i));
  std::vector<std::vector<Kel::String>> own(threads, shared);
  std::vector<std::vector<Kel::U32>> hashes(threads);
  onAllThreads([&](int thread) {
    auto& mine = own[static_cast<std::size_t>(thread)];
    for (int i = 0; i < rounds; ++i) {
      Kel::String& text = mine[static_cast<std::size_t>(i)];
      hashes[static_cast<std::size_t>(thread)].push_back(text.hash());
      for (int n = 0; n < copies; ++n) EXPECT_TRUE(Kel::String(text).sharesBytes(text));
      Kel::String const longer = text + "!";
      EXPECT_EQ(longer.substr(0, text.chars()), text);
      Kel::String other = text;
      other += longer;
      EXPECT_EQ(other.pos(longer.view()), static_cast<Kel::S64>(text.chars()));
      text = "";
    }
  });
  for (auto const& of : hashes) EXPECT_EQ(of, hashes[0]);
  for (int i = 0; i < rounds; ++i)
    EXPECT_EQ(shared[static_cast<std::size_t>(i)].str(), "a text of more than sixteen bytes " + std::to_string(i));
}

// What was made on one thread is used and destroyed on another, and its memory goes round.
TEST(Threads, HandTreesOn) {
  std::vector<Kel::Dir::Ptr> trees(threads);
  for (int round = 0; round < 20; ++round) {
    onAllThreads([&](int thread) {
      // Nobody else has this tree meanwhile.
      Kel::Dir::Ptr& mine = trees[static_cast<std::size_t>((thread + round) % threads)];
      Kel::Dir::Ptr const made = Kel::dirFactory("");
      for (int i = 0; i < 20; ++i) made->newEntity("Plant::Bolt", "bolt" + std::to_string(i));
      if (mine) {
        EXPECT_EQ(mine->entryStates(), 20u);
        made->newEntity("Plant::Hall", "hall");
        mine->entryDel("bolt3");
        made->entryDel("hall");
      }
      mine = made;
    });
  }
}

// The records of all types, from their first use on, in another order on each thread.
TEST(Threads, MakeTypeRecords) {
  std::vector<std::string> const names = {"Plant::Hall",     "Plant::Bolt",          "Plant::Machine",
                                          "Kel::Dir",        "Cli::Session::Status", "Cli::Session::EntityCopy",
                                          "Zuk::PrefixTrie", "Plant::Slot",          "U32",
                                          "Kel::String8",    "Kel::KelAttr"};
  std::vector<std::string> seen(threads);
  onAllThreads([&](int thread) {
    auto const mine = static_cast<std::size_t>(thread);
    for (std::size_t i = 0; i < names.size(); ++i) {
      Kel::KelType const* const type = Kel::KelType::find(Kel::String(names[(i + 2 * mine) % names.size()]));
      ASSERT_TRUE(type);
      for (Kel::KelAttr const* attr : type->attributeQ())
        if (Kel::KelType const* const of = attr->type()) of->fullTypeName();
    }
    for (std::string const& name : names)
      for (Kel::KelAttr const* attr : Kel::KelType::find(Kel::String(name))->attributeQ())
        seen[mine] += attr->fullName().str() + " " + std::to_string(attr->id()) + "\n";
  });
  for (std::string const& of : seen) EXPECT_EQ(of, seen[0]);
}

// Copies, comparisons and sessions of one thread have nothing to do with those of another.
TEST(Threads, CopyTreesOfTheirOwn) {
  std::vector<std::string> log(threads);
  onAllThreads([&](int thread) {
    World world;
    // Two threads each do the same.
    auto const seed = static_cast<unsigned>(thread / 2);
    Generator generator(seed);
    world.fill(world.src, generator);
    std::string& mine = log[static_cast<std::size_t>(thread)];
    for (int round = 0; round < 6; ++round) {
      mine += textOf(world.copy().edits);
      EXPECT_EQ(world.dump(world.dest), world.dump(world.src));
      EXPECT_FALSE(world.differs(world.dest, world.src));
      world.mutate(world.src, generator, 3);
    }
  });
  for (std::size_t i = 0; i < threads; i += 2) EXPECT_EQ(log[i], log[i + 1]);
}

TEST(Threads, FillSessionsOfTheirOwn) {
  onAllThreads([&](int thread) {
    SessionWorld world;
    Generator generator(static_cast<unsigned>(thread));
    world.fill(world.src, generator);
    for (char const* name : {"s1", "s2"}) {
      world.open(name, true);
      for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(world.status->doReplaceConfig(world.src, name));
        EXPECT_EQ(world.dump(SessionWorld::dirOf(world.sessions, name)), world.dump(world.src));
        world.mutate(world.src, generator, 2);
      }
    }
    std::string const bytes = Kel::writeAttrLog(*world.src->entityRef("loose"));
    EXPECT_EQ(Kel::readAttrLog(bytes)->name(), "loose");
  });
}

TEST(Threads, TraceAndRaise) {
  std::atomic<int> lines{0};
  Kel::traceSinkIs([&](Kel::TraceRecord const&) { ++lines; });
  Kel::TraceHandle& shared = Kel::TraceHandle::get("shared");
  shared.levelsIs(1u << 3);
  onAllThreads([&](int thread) {
    for (int i = 0; i < 50; ++i) {
      Kel::TraceHandle::get("handle " + std::to_string((i + thread) % 7)).levels();
      if (shared.enabled(3)) Kel::traceHelper(shared, 3, __FILE__, __LINE__, "onAllThreads", std::to_string(i));
      Kel::Expect const expected(Kel::Exception::rangeId);
      EXPECT_THROW(Kel::throwRangeException("out of range"), Kel::RangeException);
    }
  });
  Kel::traceSinkIs({});
  EXPECT_EQ(lines, 50 * threads);
}

}  // namespace
