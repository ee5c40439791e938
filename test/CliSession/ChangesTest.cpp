// What has not changed since two roots were equal is passed by, and that makes no difference to anything else.
#include <gtest/gtest.h>

#include <limits>

#include "CliSession/RandomWorld.h"
#include "Kel/AttrAccess.h"
#include "Kel/ChangeJournal.h"
#include "Pairs.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;

// Switches the change journals for a while.
class Journals {
 public:
  explicit Journals(bool on) : before_(Kel::ChangeJournal::enabled()) { Kel::ChangeJournal::enabledIs(on); }
  ~Journals() { Kel::ChangeJournal::enabledIs(before_); }

 private:
  bool const before_;
};

// Some rounds of edits on both sides, comparisons and copies, with reactors that write or throw on the way; everything
// that came of it, as text.
class History {
 public:
  explicit History(unsigned seed) : world_(seed), dice_(seed + 7) {
    if (seed % 6 == 5) {
      world_.table = S::entityCopyCustomHandlerTableFactory("table", world_.root);
      auto const names = S::attributeFilterFactory();
      names->attributeNameIs("torque", true);
      world_.table->registerEntityCopyFilter(world_.filters, S::EntityPath(""), "Plant::Bolt", names);
    }
  }

  std::string lived(int rounds) {
    for (int round = 0; round < rounds; ++round) {
      edit();
      if (dice_.below(2)) run(true);
      if (dice_.below(3) == 0) disturbed();
      run(false);
      if (dice_.below(3) == 0) run(true);
    }
    return text_;
  }

 private:
  void edit() {
    for (std::size_t n = dice_.below(3); n > 0; --n) world_.mutate(world_.src, dice_, 1);
    for (std::size_t n = dice_.below(3); n > 0; --n) world_.mutate(world_.dest, dice_, 1);
    // A member, and a singleton, that come back as new ones.
    auto const hall = World::hall(dice_.below(2) ? world_.src : world_.dest);
    if (dice_.below(3) == 0 && hall->bolts() > 0) {
      Kel::Name const name = hall->boltIterator()->name();
      hall->boltDel(name);
      hall->newBolt(name);
    }
    if (dice_.below(4) == 0 && hall->part()) {
      hall->partDel();
      hall->partIs();
    }
    world_.mutate(world_.src, dice_, 0);  // drops what points at what is gone
    world_.mutate(world_.dest, dice_, 0);
  }
  void run(bool compare) {
    Outcome const outcome = world_.run(world_.dest, world_.src, compare);
    text_ += (compare ? "compared\n" : "copied\n") + textOf(outcome.edits) + std::to_string(outcome.stopped) + " " +
             std::to_string(outcome.pending) + "\n" + world_.dump(world_.dest);
  }
  // A copy during which a reactor writes elsewhere, or throws.
  void disturbed() {
    std::vector<Kel::Entity*> const all = entitiesOf(*world_.dest);
    EntityPtr const watched(all[dice_.below(all.size())]);
    bool const throws = dice_.below(2);
    int calls = 0;
    Reactor const reactor{EntityPtrConst(watched), [&] {
                            if (++calls > 1) return;
                            if (throws) Kel::throwRangeException("no");
                            auto const hall = World::hall(dice_.below(2) ? world_.src : world_.dest);
                            hall->u64Is(hall->u64() + 1);
                            if (auto it = hall->boltIterator()) it->lockedIs(!it->locked());
                          }};
    try {
      run(false);
    } catch (Kel::Exception const& e) {
      text_ += std::string(e.what()) + "\n";
    }
  }

  RandomWorld world_;
  Generator dice_;
  std::string text_;
};

TEST(Changes, PassingByWhatHasNotChangedMakesNoDifference) {
  for (unsigned seed : seeds(150)) {
    SCOPED_TRACE(seed);
    std::string walked;
    {
      Journals const off(false);
      walked = History(seed).lived(6);
    }
    Journals const on(true);
    std::string const passed = History(seed).lived(6);
    ASSERT_TRUE(passed == walked) << "what came of it, passing by:\n" << passed << "\nand walking:\n" << walked;
  }
}

TEST(Changes, OnlyWhatHasChangedIsLookedAt) {
  Journals const on(true);
  World world;
  auto const src = World::hall(world.src), dest = World::hall(world.dest);
  for (char const* name : {"a", "b", "c"}) src->newBolt(name);
  src->bolt("a")->peerIs(src->bolt("b"));
  world.copy();
  src->bolt("b")->lockedIs(true);
  dest->bolt("c")->lockedIs(true);
  // A change that nothing is told of is not found, but by a walk.
  Plant::Bolt::_fwkType()->getAttr("peer")->access().dropPointers(*dest->bolt("a"));
  EXPECT_EQ(textOf(world.copy().edits),
            "Plant::Bolt::locked set hall.bolt/b x1\nPlant::Bolt::locked set hall.bolt/c x1\n");
  EXPECT_FALSE(world.differs(world.dest, world.src));
  // A new session root changes where pointers may lead: everything is looked at again.
  world.rootIs("new", "Plant::Hall");
  EXPECT_EQ(textOf(world.copy().edits), "Plant::Bolt::peer set hall.bolt/a x1\n");
  // A NaN never compares equal: it is set each time.
  src->f64Is(std::numeric_limits<double>::quiet_NaN());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(textOf(world.copy().edits), "Plant::Hall::f64 set hall x1\n");
  src->f64Is(0);
  src->bySizeIs(Plant::Size(1, 2), std::numeric_limits<double>::quiet_NaN());
  world.copy();
  for (int i = 0; i < 2; ++i) EXPECT_NE(textOf(world.copy().edits), "") << "nor does one in a collection";
}

// Two trees that an earlier copy made equal, and what a change on one side has to bring.
struct Changed : testing::Test {
  Journals const on{true};
  World world;
  Kel::Ptr<Plant::Hall> src = World::hall(world.src), dest = World::hall(world.dest);

  void SetUp() override {
    src->newBolt("b")->torqueIs(3);
    src->newPart()->noteIs("note");
    src->newGear("g", 7, Plant::Size(1, 2), Plant::Grade::fine)->wearIs(1);
    src->newAnnex("x")->newBolt("inner");
    for (bool done : {false, true}) src->jobEnq("same")->doneIs(done);
    world.copy();
    world.copy();
  }
  void becomesEqual() const {
    world.copy();
    EXPECT_EQ(world.dump(world.dest), world.dump(world.src));
  }
};

TEST_F(Changed, WhatTheDestinationLostComesBackWhole) {
  dest->boltDel("b");
  becomesEqual();
  dest->partDel();
  becomesEqual();
  dest->gearDel("g");
  becomesEqual();
  dest->jobDel(dest->jobIterator().key());
  becomesEqual();
}

TEST_F(Changed, WhatCameAnewIsLookedAtThroughout) {
  src->annexDel("x");
  src->newAnnex("x")->newBolt("inner")->lockedIs(true);
  becomesEqual();
}

TEST_F(Changed, QueueMembersThatMeetOthersAreCompared) {
  src->jobDel(src->jobIterator().key());
  becomesEqual();
}

TEST_F(Changed, RootsAreNotEqualWhileAPointerWaits) {
  src->favouriteIs(World::hall(world.src, "sys/annex")->newBolt("late"));
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  ec->srcCopyRootDel(World::hall(world.src, "sys/annex"));
  ec->destIs(world.dest);
  ASSERT_EQ(ec->pendingAttrs(), 1u);
  becomesEqual();
}

TEST_F(Changed, AHandlerOfARootMayChangeAnotherRoot) {
  World fresh;
  fresh.rootIs("third", "Pairs::Branch");
  for (Kel::Dir::Ptr const& in : {fresh.src, fresh.dest}) in->newEntity("Pairs::Branch", "third");
  fresh.table = S::entityCopyCustomHandlerTableFactory("table", fresh.root);
  auto const changing = [&](auto const&, auto const&, auto const&, auto const&) {
    for (auto it = fresh.status->rootIterator(); it; ++it)
      if (auto const hall = World::hall(fresh.src, std::string(it.key().view()).c_str())) hall->u8Is(7);
    return false;
  };
  fresh.table->registerCustomCopyHandler(S::EntityPath(""), "Pairs::Branch",
                                         Kel::Ptr<Scripted>(new Scripted(fresh.status, changing)));
  for (int i = 0; i < 2; ++i) fresh.copy();
  EXPECT_EQ(World::hall(fresh.dest)->u8(), 7);
  EXPECT_EQ(World::hall(fresh.dest, "sys/annex")->u8(), 7);
}

}  // namespace
