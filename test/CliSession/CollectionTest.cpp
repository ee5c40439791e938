// Keyed collections and queues.
#include <gtest/gtest.h>

#include <memory>

#include "CliSession/World.h"

namespace {

using namespace Tests;

// Both roads: what is expected holds on either.
struct Collections : testing::TestWithParam<bool> {
  World world;
  Kel::Ptr<Plant::Hall> src = World::hall(world.src), dest = World::hall(world.dest);
  std::unique_ptr<BoxedRoad> road = GetParam() ? std::make_unique<BoxedRoad>() : nullptr;

  Edits copied() const {
    Edits const edits = world.copy().edits;
    EXPECT_EQ(world.dump(world.dest), world.dump(world.src));
    return edits;
  }
  template <class Queue>
  static void fill(Queue enq, std::string const& members) {
    for (char c : members) enq(Kel::String8(std::string(1, c)));
  }
};
INSTANTIATE_TEST_SUITE_P(Typed, Collections, testing::Values(false));
INSTANTIATE_TEST_SUITE_P(Boxed, Collections, testing::Values(true));

TEST_P(Collections, AMissingKeyDiffersWhateverItsValue) {
  src->textsIs("key", "");
  EXPECT_TRUE(world.differs(world.dest, world.src));
  EXPECT_EQ(copied(), (Edits{{"Plant::Hall::texts set hall", 1}}));
  EXPECT_TRUE(dest->textsHas("key"));
}

TEST_P(Collections, CountsMembersInItsTraces) {
  dest->newBolt("old");
  dest->newBolt("kept");
  src->newBolt("kept");
  src->newBolt("new");
  Traces const traces("EntityCopy", 1u << 3);
  copied();
  EXPECT_TRUE(traces.inOrder(
      {"EntityCopy/3 Deleted 1 members out of 2", "EntityCopy/3 Member exists in dest",
       "EntityCopy/3 Collection is instantiating", "EntityCopy/3 Comparing constructor params for bolt",
       "EntityCopy/3 name does not differ", "EntityCopy/3 Done comparing constructor params for bolt",
       "EntityCopy/3 Constructor parameters did not change",
       "EntityCopy/3 Collection is instantiating, processing member", "EntityCopy/3 Getting pre-existing item",
       "EntityCopy/3 Traversing child", "EntityCopy/3 Member does not exist in dest", "EntityCopy/3 Re-creating item",
       "EntityCopy/3 copied 2 members"}))
      << traces.text();
}

TEST_P(Collections, AMemberGivenByItselfIsReplacedByOneSet) {
  Kel::Ptr<Plant::Gear> const member = src->newGear("g", 2, Plant::Size(), Plant::Grade::raw);
  dest->newGear("g", 1, Plant::Size(), Plant::Grade::raw);
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  ec->srcCopyRootDelAll();
  ec->destIs(world.dest);
  Kel::GenericIf::PtrConst const key = Kel::GenericIf::of(Kel::String8("g"));
  EXPECT_TRUE(ec->doCopyCollectionMember(dest, src, "hall", key, key, Kel::GenericIf::ofEntity(EntityPtr(member)),
                                         Kel::KelAttr::PtrConst(src->type()->getAttr("gear"))));
  EXPECT_EQ(dest->gear("g")->teeth(), 2);
  EXPECT_EQ(editsOf(*ec->attributeEditLog()), (Edits{{"Plant::Hall::gear set hall", 1}}));
}

TEST_P(Collections, AComparisonStopsAtTheFirstMember) {
  dest->textsIs("a", "");
  dest->textsIs("b", "");
  EXPECT_EQ(world.run(world.dest, world.src, true).edits, (Edits{{"Plant::Hall::texts del hall", 1}}));
  EXPECT_EQ(dest->textss(), 2u);
}

TEST_P(Collections, KeysOfOneHashAreToldApart) {
  src->newSlot(2)->textIs("new");
  dest->newSlot(-2);
  for (int key : {1, 3}) {
    src->newSlot(key)->textIs("same");
    dest->newSlot(key)->textIs("same");
  }
  EXPECT_EQ(world.run(world.dest, world.src, true).edits, (Edits{{"Plant::Hall::slot del hall", 1}}));
  EXPECT_EQ(copied(), (Edits{{"Plant::Hall::slot del hall", 1},
                             {"Plant::Hall::slot set hall", 1},
                             {"Plant::Slot::text set hall.slot/2", 1}}));
}

TEST_P(Collections, QueuesKeepWhatMatchesFromTheHead) {
  struct Case {
    char const *from, *to;
    Kel::U32 deleted, appended;
  };
  for (Case const& c : {Case{"AB", "AXB", 1, 0},
                        {"ANB", "AB", 1, 2},
                        {"", "ABC", 3, 0},
                        {"ABC", "", 0, 3},
                        {"AB", "AB", 0, 0},
                        {"AAB", "AB", 1, 2},
                        {"AB", "AAB", 1, 0},
                        {"BA", "AB", 1, 1},
                        {"ABCD", "AB", 0, 2},
                        {"A", "BBBB", 4, 1}}) {
    src->historyDelAll();
    dest->historyDelAll();
    src->jobDelAll();
    dest->jobDelAll();
    fill([&](Kel::String8 const& s) { src->historyEnq(s), src->jobEnq(s); }, c.from);
    fill([&](Kel::String8 const& s) { dest->historyEnq(s), dest->jobEnq(s); }, c.to);
    Edits expected;
    for (char const* name : {"history", "job"}) {
      std::string const edit = std::string("Plant::Hall::") + name;
      if (c.deleted) expected[edit + " del hall"] = c.deleted;
      if (c.appended) expected[edit + " set hall"] = c.appended;
    }
    EXPECT_EQ(world.differs(world.dest, world.src), !expected.empty()) << c.from << " from " << c.to;
    EXPECT_EQ(copied(), expected) << c.from << " from " << c.to;
  }
}

TEST_P(Collections, MatchingMembersOfAQueueAreDescendedInto) {
  src->jobEnq("same");
  src->jobIterator().value()->doneIs(true);
  src->jobIterator().value()->stepEnq();
  dest->jobEnq("gone");
  dest->jobDelAll();
  dest->jobEnq("same");
  EXPECT_EQ(copied(), (Edits{{"Plant::Job::done set hall.job/1", 1}, {"Plant::Job::step set hall.job/1", 1}}));
}

TEST_P(Collections, LongQueuesOfEntitiesTakeLinearTime) {
  for (int i = 0; i < 3000; ++i) src->jobEnq("j");
  copied();
  EXPECT_EQ(dest->jobs(), 3000u);
}

}  // namespace
