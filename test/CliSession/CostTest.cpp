// What a copy allocates on the way, with the log on, through the session handler, once everything is warm.
//
// The figures are of blocks from the C++ heap; blocks of the framework's pool are among them in builds with the address
// sanitizer only, so that those count every object, string and small array.
#include <gtest/gtest.h>

#include "CliSession/World.h"
#include "Heap.h"
#include "Kel/ChangeJournal.h"

namespace {

using namespace Tests;

#ifdef __SANITIZE_ADDRESS__
constexpr bool countsPool = true;
#else
constexpr bool countsPool = false;
#endif

constexpr int members = 512;

struct Cost : testing::Test {
  Cost() { Kel::ChangeJournal::enabledIs(false); }  // a full walk, each time
  ~Cost() override { Kel::ChangeJournal::enabledIs(true); }

  World world;
  Kel::Ptr<Plant::Hall> src = World::hall(world.src);
  EntityCopy::Ptr ec = world.copyFrom(world.src);

  static Kel::Name name(int i) { return Kel::Name("Ethernet" + std::to_string(i)); }
  Kel::Ptr<Plant::Bolt> bolt(int i) const { return src->bolt(name(i)); }
  std::size_t ofRun() const {
    std::size_t const before = allocations();
    ec->handleCopyRoots();
    return allocations() - before;
  }
  // What a copy allocates for each of many changes, beyond what it does without changes; the last of some rounds.
  double ofEach(std::function<void(int)> const& before, std::function<void(int)> const& change) const {
    double each = 0;
    for (int round = 0; round < 3; ++round) {
      for (int i = 0; i < members; ++i) before(i);
      ofRun();
      std::size_t const equal = ofRun();
      for (int i = 0; i < members; ++i) change(i);
      each = static_cast<double>(ofRun() - equal) / members;
    }
    return each;
  }
};

TEST_F(Cost, OfWhatIsEqualAndOfEdits) {
  ec->destIs(world.dest);
  std::size_t const empty = (ofRun(), ofRun());
  auto const make = [&](int i) { src->boltIs(name(i)); };
  auto const take = [&](int i) { src->boltDel(name(i)); };
  for (int i = 0; i < members; ++i) {
    src->newSlot(i)->newPart();
    make(i);
  }
  std::size_t const full = (ofRun(), ofRun());
  // Upper bounds as measured, blocks of the heap and with those of the pool; the fractions are arrays that grow.
  struct Row {
    char const* what;
    double most[2];
    double measured;
  };
  auto const number = [&](Kel::U32 n) { return [this, n](int i) { src->slot(i)->part()->countIs(n); }; };
  auto const text = [&](char const* t) { return [this, t](int i) { src->slot(i)->textIs(t); }; };
  auto const peer = [&](int n) { return [this, n](int i) { bolt(i)->peerIs(bolt(n)); }; };
  auto const part = [&](int i) { src->slot(i)->partIs(); };
  auto const noPart = [&](int i) { src->slot(i)->partDel(); };
  auto const value = [&](int i) { src->byNumberIs(static_cast<Kel::U64>(i), 1); };
  auto const noValue = [&](int i) { src->byNumberDel(static_cast<Kel::U64>(i)); };
  for (Row const& row : {Row{"an empty hall", {21, 82}, static_cast<double>(empty) / 2},
                         {"an equal entity", {0, 0}, static_cast<double>(full - empty) / (3 * members)},
                         {"a number", {1.02, 3.02}, ofEach(number(0), number(1))},
                         {"a text", {0.02, 1.02}, ofEach(text("a"), text("b"))},
                         {"a pointer", {1.02, 2.02}, ofEach(peer(1), peer(2))},
                         {"a member that is made", {0.02, 1.02}, ofEach(take, make)},
                         {"a member that is deleted", {7.02, 14.02}, ofEach(make, take)},
                         {"a singleton that is made", {0.02, 2.02}, ofEach(noPart, part)},
                         {"a singleton that is deleted", {7.02, 19.02}, ofEach(part, noPart)},
                         {"a value in a collection", {7.02, 17.02}, ofEach(noValue, value)},
                         {"a value deleted from a collection", {5.02, 12.02}, ofEach(value, noValue)}})
    EXPECT_LE(row.measured, row.most[countsPool]) << row.what;
}

}  // namespace
