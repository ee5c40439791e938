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

// Keeps edits out of the log, and writes down which it was asked about.
struct Bypassing : S::AttributeEditLogBypass {
  Bypassing(std::string& t, bool d) : text(t), deletions(d) {}
  bool bypassAttributeEditLog(Kel::Ptr<EntityCopy> const&, S::AttributeEdit const& edit, Kel::String path,
                              Kel::Ptr<Kel::GenericIf const> const&) override {
    text += "asked about " + edit.attributeName().str() + " of " + path.str() + "\n";
    return !deletions || edit.editType() == S::AttributeEditType::del_;
  }
  std::string& text;
  bool const deletions;  // deletions only
};

// Some rounds of edits on both sides, comparisons and copies of all roots or some, with handlers of types, and reactors
// that write or throw on the way; everything that came of it, as text.
class History {
 public:
  explicit History(unsigned seed) : world_(seed, seed % 7 == 6, seed % 3 == 0 ? 100 : 0), dice_(seed + 7) {
    dice_.nans = world_.generator.nans;
    world_.rootIs("crate", "Plant::Crate");
    for (Kel::Dir::Ptr const& in : {world_.src, world_.dest})
      world_.generator.fill(*in->newEntity("Plant::Crate", "crate"), 1);
    if (seed % 6 > 3) handlers();
  }

  std::string lived(int rounds) {
    for (int round = 0; round < rounds; ++round) {
      edit();
      if (dice_.below(2)) run(true);
      if (dice_.below(3) == 0) disturbed();
      if (dice_.below(4) == 0) partial();
      if (kept_ && dice_.below(4) == 0) again();
      run(false);
      if (dice_.below(3) == 0) run(true);
    }
    return text_;
  }

 private:
  void handlers() {
    if (!world_.table) world_.table = S::entityCopyCustomHandlerTableFactory("table", world_.root);
    auto const names = S::attributeFilterFactory();
    names->attributeNameIs("torque", true);
    world_.table->registerEntityCopyFilter(world_.filters, S::EntityPath(""), "Plant::Bolt", names);
    auto const visit = [this](auto const& ec, auto const& dest, auto const& src, auto const& path) {
      text_ += "visit " + path.str() + "\n";
      if (dice_.below(30) == 0) interfere();
      return dice_.below(20) == 0 ? false : ec->doCopyEntityAttrs(dest, src, path, nullptr);
    };
    world_.handlerAt("", "Plant::Slot", visit);
    for (char const* path : {"hall.part", "hall.annex/one.part", "crate.item/one"}) world_.handlerAt(path, "", visit);
  }
  void edit() {
    for (std::size_t n = dice_.below(3); n > 0; --n) world_.mutate(world_.src, dice_, 1);
    for (std::size_t n = dice_.below(3); n > 0; --n) world_.mutate(world_.dest, dice_, 1);
    // Members, and a singleton, that come back as new ones. What pointed at them still does.
    auto const hall = World::hall(dice_.below(2) ? world_.src : world_.dest);
    if (dice_.below(3) == 0 && hall->bolts() > 0) {
      Kel::Name const name = hall->boltIterator()->name();
      hall->boltDel(name);
      hall->newBolt(name);
    }
    if (dice_.below(3) == 0 && hall->plates() > 0) {
      Kel::Name const name = hall->plateIterator()->name();
      hall->plateDel(name);
      hall->newPlate(name, static_cast<Kel::F32>(dice_.below(3)));
    }
    for (auto const& in : {World::hall(world_.src), World::hall(world_.dest)})
      if (auto const key = static_cast<Kel::S32>(dice_.below(6)); in->slot(key))
        in->slotDel(key);
      else if (dice_.below(2))
        in->newSlot(key);
    if (dice_.below(4) == 0 && hall->part()) {
      hall->partDel();
      hall->partIs();
    }
    // Drops what points at what is gone.
    if (dice_.below(4)) world_.mutate(world_.src, dice_, 0);
    if (dice_.below(2)) world_.mutate(world_.dest, dice_, 0);
  }

  // Sets the destination, which runs the copy, and writes down what came of it.
  void run(EntityCopy::Ptr const& ec, Kel::Dir::Ptr const& dest) {
    std::vector<std::unique_ptr<Reactor>> listeners;
    std::vector<Kel::Entity*> const all = entitiesOf(*world_.dest);
    for (int i = 0; i < 3; ++i) {
      EntityPtrConst const e(all[dice_.below(all.size())]);
      listeners.push_back(std::make_unique<Reactor>(e, [this, i] { text_ += "told " + std::to_string(i) + "\n"; }));
    }
    std::string const failure =
        messageOf<Kel::Exception>([&] { ec->dest() ? ec->handleCopyRoots() : ec->destIs(dest); });
    text_ += (ec->stopAtFirstDiff() ? "compared\n" : "copied\n") + textOf(editsOf(*ec->attributeEditLog())) +
             std::to_string(ec->stop()) + " " + failure + "\n";
    for (auto it = ec->pendingAttrIterator(); it; ++it)
      text_ += it.key()->attribute()->name().str() + " waits for " + it.key()->destValueFullName().str() + "\n";
    text_ += world_.dump(world_.src) + world_.dump(world_.dest);
  }
  void run(bool compare) {
    EntityCopy::Ptr const ec = world_.copyFrom(world_.src, compare);
    if (dice_.below(4) == 0)
      ec->attributeEditBypassCheckerIs(S::AttributeEditLogBypass::Ptr(new Bypassing(text_, dice_.below(2))));
    run(ec, world_.dest);
  }
  // One root alone, perhaps as that of a smaller tree. Pointers may wait then.
  void partial() {
    EntityCopy::Ptr const ec = world_.copyFrom(world_.src);
    ec->srcCopyRootDelAll();
    Kel::String8 const root = dice_.below(2) ? "hall" : "sys/annex";
    ec->srcCopyRootIs(world_.src->entity(root), true);
    if (root == "hall" || dice_.below(2)) return run(kept_ = ec, world_.dest);
    ec->srcIs(world_.src->entity("sys"));
    run(ec, Kel::ptrCast<Kel::Dir>(world_.dest->entity("sys")));
  }
  // The same copy once more, with what waited from before.
  void again() {
    kept_->attributeEditLogIs(S::attributeEditLogFactory());
    run(kept_, nullptr);
  }
  // What foreign code may do during a copy: values, members, pointers that wait, and another handler for a while.
  void interfere() {
    auto const hall = World::hall(dice_.below(2) ? world_.src : world_.dest);
    auto const key = static_cast<Kel::S32>(dice_.below(6));
    switch (dice_.below(5)) {
      case 0: hall->u64Is(hall->u64() + 1); break;
      case 1: hall->slot(key) ? hall->slotDel(key) : static_cast<void>(hall->newSlot(key)); break;
      case 2:
        if (auto it = hall->boltIterator()) it->lockedIs(!it->locked());
        break;
      case 3:
        if (auto it = hall->boltIterator()) hall->boltDel(it->name());
        break;
      default:
        if (!world_.table) break;
        if (world_.table->pathSpecificHandler("hall.axle"))
          world_.table->pathSpecificHandlerDel("hall.axle");
        else
          world_.handlerAt("hall.axle", "", [this](auto&&...) { return (text_ += "axle\n").empty(); });
    }
  }
  // A copy during which a reactor writes elsewhere, or throws.
  void disturbed() {
    std::vector<Kel::Entity*> const all = entitiesOf(*world_.dest);
    EntityPtr const watched(all[dice_.below(all.size())]);
    bool const throws = dice_.below(2);
    int calls = 0;
    Reactor const reactor{EntityPtrConst(watched), [&] {
                            if (++calls > 2) return;
                            if (throws) Kel::throwRangeException("no");
                            interfere();
                          }};
    run(false);
  }

  RandomWorld world_;
  Generator dice_;
  EntityCopy::Ptr kept_;
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
  src->bolt("c")->peerIs(src->bolt("a"));
  world.copy();
  src->bolt("b")->lockedIs(true);
  dest->bolt("a")->lockedIs(true);
  // A change that nothing is told of is not found, but by a walk.
  Plant::Bolt::_fwkType()->getAttr("peer")->access().dropPointers(*dest->bolt("c"));
  EXPECT_EQ(textOf(world.copy().edits),
            "Plant::Bolt::locked set hall.bolt/a x1\nPlant::Bolt::locked set hall.bolt/b x1\n");
  EXPECT_FALSE(world.differs(world.dest, world.src));
  // A new session root changes where pointers may lead: everything is looked at again.
  world.rootIs("new", "Plant::Hall");
  EXPECT_EQ(textOf(world.copy().edits), "Plant::Bolt::peer set hall.bolt/c x1\n");
  // A NaN never compares equal: it is set each time.
  src->f64Is(std::numeric_limits<double>::quiet_NaN());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(textOf(world.copy().edits), "Plant::Hall::f64 set hall x1\n");
  src->f64Is(0);
  double const nan = std::numeric_limits<double>::quiet_NaN();
  std::function<void()> const places[] = {[&] { src->bySizeIs(Plant::Size(1, 2), nan); },
                                          [&] { src->bySizeDelAll(), src->loadsEnq(static_cast<float>(nan)); },
                                          [&] { src->loadsDelAll(), src->newPlate("p", static_cast<float>(nan)); },
                                          [&] { src->plateDelAll(), src->readingEnq(nan); }};
  for (auto const& moveOn : places) {
    moveOn();
    world.copy();
    for (int i = 0; i < 2; ++i) EXPECT_NE(textOf(world.copy().edits), "") << &moveOn - places;
  }
}

// What a copy or comparison of a world came to.
std::string outcome(World const& w, bool compare = false, EntityCopy::Ptr ec = nullptr) {
  if (!ec) ec = w.copyFrom(w.src, compare);
  ec->destIs(w.dest);
  std::string text = textOf(editsOf(*ec->attributeEditLog())) + (ec->stop() ? "differs\n" : "\n");
  for (auto it = ec->pendingAttrIterator(); it; ++it)
    text += it.key()->attribute()->name().str() + " waits for '" + it.key()->destValueFullName().str() + "'\n";
  return text;
}

// What a walk does not leave equal, the next one meets again.
TEST(Changes, WhatIsNotEqualAfterACopyIsNotPassedBy) {
  struct Halls {
    World w;
    Kel::Ptr<Plant::Hall> src = World::hall(w.src), dest = World::hall(w.dest);
    Kel::Ptr<Pairs::Meter> meter() {
      w.rootIs("meter", "Pairs::Meter");
      w.dest->newEntity("Pairs::Meter", "meter");
      return Kel::ptrCast<Pairs::Meter>(w.src->newEntity("Pairs::Meter", "meter"));
    }
  };
  Pairs::Level const nan(std::numeric_limits<double>::quiet_NaN());
  std::pair<char const*, std::function<void(Halls&)>> const cases[] = {
      {"another key of the same hash",
       [](Halls& h) {
         h.src->newSlot(-1485607586);
         outcome(h.w) + outcome(h.w);
         h.dest->slotDel(-1485607586);
         h.dest->newSlot(1485607487);
       }},
      {"a target that the same copy deletes", [](Halls& h) { h.src->newBolt("b")->peerIs(h.dest->newShelf("extra")); }},
      {"two keys that lead to one",
       [](Halls& h) {
         h.src->newBolt("b");
         outcome(h.w);
         h.src->weightIs(h.src->bolt("b"), 1);
         h.src->weightIs(h.dest->bolt("b"), 2);
       }},
      {"a value without a comparison", [&](Halls& h) { h.meter()->levelIs(nan); }},
      {"a member without a comparison", [&](Halls& h) { h.meter()->levelsIs("a", nan); }},
      {"a member of a derived type", [](Halls& h) {
         auto const meter = h.meter();
         Kel::KelAttr const& nail = *meter->type()->getAttr("nail");
         nail.access().restore(nail, *meter, Pairs::studFactory("s"), 0);  // as an attribute log may
       }}};
  for (auto const& [name, prepare] : cases) {
    std::string texts[2];
    for (bool on : {false, true}) {
      Journals const journals(on);
      Halls halls;
      prepare(halls);
      texts[on] = outcome(halls.w, true);
      for (int i = 0; i < 3; ++i) texts[on] += outcome(halls.w);
      texts[on] += outcome(halls.w, true) + halls.w.dump(halls.w.dest);
    }
    EXPECT_EQ(texts[true], texts[false]) << name;
  }
}

// A handler that takes part for a while leaves nothing behind.
TEST(Changes, WhatAHandlerKeptOutOfACopyIsNotPassedBy) {
  Journals const on(true);
  World w;
  auto const src = World::hall(w.src), dest = World::hall(w.dest);
  src->newPart(), src->newBolt("b"), src->newSlot(1);
  outcome(w) + outcome(w);
  src->part()->countIs(1), src->bolt("b")->lockedIs(true), src->slot(1)->textIs("x");
  EntityCopy::Ptr const ec = w.copyFrom(w.src);
  auto const handler = Kel::ptrCast<S::EntityCopyGlobalSessionHandler>(ec->handler());
  auto const table = S::entityCopyCustomHandlerTableFactory("t", w.root);
  table->registerCustomCopyHandler(S::EntityPath("hall.bolt/b"), "", w.scripted([](auto&&...) { return false; }));
  {
    Reactor const first(EntityPtrConst(dest->part()), [&] { handler->handlerTableIs(table); });
    Reactor const last(EntityPtrConst(dest->slot(1)), [&] { handler->handlerTableIs(nullptr); });
    outcome(w, false, ec);
  }
  EXPECT_EQ(outcome(w), "Plant::Bolt::locked set hall.bolt/b x1\n\n");
}

// One member that comes or goes does not make the walk look at the keys of all.
TEST(Changes, OnlyMembersThatCameOrWentAreLookedFor) {
  Journals const on(true);
  World world;
  auto const src = World::hall(world.src), dest = World::hall(world.dest);
  for (char const* name : {"a", "b", "c"}) src->newBolt(name);
  world.copy();
  std::vector<EntityPtr> taken;
  auto const take = [](EntityPtr e, void* to) { static_cast<std::vector<EntityPtr>*>(to)->push_back(std::move(e)); };
  Plant::Hall::_fwkType()->getAttr("bolt")->access().takeChildren(*dest, take, &taken);  // without a notice
  src->newBolt("d");
  src->boltDel("b");
  dest->newBolt("e");
  EXPECT_EQ(textOf(world.copy().edits), "Plant::Hall::bolt del hall x1\nPlant::Hall::bolt set hall x1\n");
  EXPECT_EQ(dest->bolts(), 1u);
  for (EntityPtr const& bolt : taken) bolt->parentIs(nullptr);  // the next copy walks everything
  EXPECT_EQ(textOf(world.copy().edits), "Plant::Hall::bolt set hall x2\n");
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

TEST_F(Changed, WhatCameAnewIsLookedAtThroughout) {
  src->annexDel("x");
  src->newAnnex("x")->newBolt("inner")->lockedIs(true);
  becomesEqual();
}

TEST_F(Changed, QueueMembersThatMeetOthersAreCompared) {
  src->jobDel(src->jobIterator().key());
  becomesEqual();
}

TEST_F(Changed, WhatAReactorAddsDoesNotHideAMemberTooMany) {
  for (char const* name : {"c", "d"}) src->newBolt(name);
  world.copy();
  src->boltDel("c");
  world.copy();
  dest->newBolt("extra");
  src->part()->noteIs("changed");
  Reactor const reactor(EntityPtrConst(dest->part()), [&] { dest->newBolt("more"); });  // closes the gap before "d"
  becomesEqual();
}

TEST_F(Changed, AHandlerThatIsRegisteredDuringACopyIsAsked) {
  world.table = S::entityCopyCustomHandlerTableFactory("table", world.root);
  world.copy();
  world.copy();
  src->part()->noteIs("changed");
  bool asked = false;
  Reactor const reactor(EntityPtrConst(dest->part()),
                        [&] { world.handlerAt("hall.bolt/b", "", [&](auto&&...) { return asked = true; }); });
  becomesEqual();
  EXPECT_TRUE(asked);
}

// The change of a member in the source and a lesser one in the destination; and more than a journal keeps.
TEST_F(Changed, ManyChangesCountAsTheGreatest) {
  src->boltDel("b");
  dest->u8Is(9);
  becomesEqual();
  for (int i = 0; i < 20000; ++i) dest->newBolt(std::to_string(i));
  becomesEqual();
}

TEST_F(Changed, RootsAreNotEqualWhileAPointerWaits) {
  src->favouriteIs(World::hall(world.src, "sys/annex")->newBolt("late"));
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  ec->srcCopyRootDel(World::hall(world.src, "sys/annex"));
  ec->destIs(world.dest);
  ASSERT_EQ(ec->pendingAttrs(), 1u);
  becomesEqual();
  // What waits is met again, though nothing has changed since another copy made both equal.
  src->favouriteIs(src->bolt("b"));
  becomesEqual();
  ec->handleCopyRoots();
  EXPECT_EQ(dest->favourite(), dest->bolt("b"));
}

TEST_F(Changed, APointerThatWaitsIsMetAgainAndTheRestIsSkipped) {
  src->favouriteIs(World::hall(world.src, "sys/annex")->newBolt("late"));
  src->newBolt("c")->peerIs(src->bolt("b"));
  auto const copied = [&] {
    EntityCopy::Ptr const ec = world.copyFrom(world.src);
    ec->srcCopyRootDel(World::hall(world.src, "sys/annex"));
    ec->destIs(world.dest);
    EXPECT_EQ(ec->pendingAttrs(), 1u);
    return textOf(editsOf(*ec->attributeEditLog()));
  };
  EXPECT_NE(copied(), "");
  // A change that nothing is told of is not found, but by a full walk.
  Plant::Bolt::_fwkType()->getAttr("peer")->access().dropPointers(*dest->bolt("c"));
  for (int run = 0; run < 2; ++run) EXPECT_EQ(copied(), "");
  EXPECT_FALSE(dest->bolt("c")->peer());
}

TEST_F(Changed, APointerIsLookedAtAgainWhenItsTargetIsMadeAnew) {
  auto const annex = World::hall(world.src, "sys/annex");
  src->favouriteIs(annex->newAxle("new"));
  World::hall(world.dest, "sys/annex")->newAxle("old");
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  ec->srcCopyRootDel(annex);
  ec->destIs(world.dest);
  ASSERT_TRUE(dest->favourite()) << "it waited for what is there already";
  becomesEqual();
}

TEST_F(Changed, OtherEndsOfACopyChangeWherePointersLead) {
  auto const annex = World::hall(world.src, "sys/annex"), made = World::hall(world.dest, "sys/annex");
  annex->favouriteIs(annex->newBolt("x"));
  world.copy();
  auto const waiting = [&](EntityPtr const& srcTop, EntityPtr const& destTop) {
    EntityCopy::Ptr const ec = world.copyFrom(world.src);
    ec->srcCopyRootDelAll();
    ec->srcIs(srcTop);
    ec->destIs(destTop);
    ec->srcCopyRootIs(annex, true);
    ec->doCopyEntityAttrs(made, annex, "annex", nullptr);
    return ec->pendingAttrs();
  };
  EXPECT_EQ(waiting(world.src, world.dest->entity("sys")), 1u) << "/dest/sys/sys/annex.bolt/x";
  waiting(world.src->entity("sys"), world.dest);
  EXPECT_EQ(made->favourite(), annex->bolt("x")) << "it lies below no session root";
}

TEST_F(Changed, WhatAComparisonBypassesIsStillCopied) {
  std::string asked;
  src->u8Is(7);
  EntityCopy::Ptr const ec = world.copyFrom(world.src, true);
  ec->attributeEditBypassCheckerIs(S::AttributeEditLogBypass::Ptr(new Bypassing(asked, false)));
  ec->destIs(world.dest);
  ASSERT_FALSE(ec->stop());
  becomesEqual();
}

// A handler lets the walk do its work in the name of another one, and has another run undo it.
TEST_F(Changed, ARunWithinARunMayUndoIt) {
  Kel::Dir::Ptr const empty = world.dir("empty");
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  auto const undoing = [&](auto const&, auto const& to, auto const& from, auto const& path) {
    ec->handlerIs(world.handler());
    bool const differs = ec->doCopyEntityAttrs(to, from, path, nullptr);
    ec->srcCopyRootDelAll();
    ec->srcIs(empty);
    ec->srcCopyRootIs(empty->entity("hall"), true);
    ec->handleCopyRoots();
    ec->srcCopyRootDelAll();
    ec->srcIs(world.src);
    return differs;
  };
  ec->srcCopyRootDel(World::hall(world.src, "sys/annex"));
  ec->handlerIs(world.scripted(undoing));
  ec->destIs(world.dest);
  EXPECT_EQ(dest->bolts(), 0u);
  becomesEqual();
}

TEST_F(Changed, AHandlerOfARootMayChangeAnotherRoot) {
  World fresh;
  fresh.rootIs("third", "Pairs::Branch");
  for (Kel::Dir::Ptr const& in : {fresh.src, fresh.dest}) in->newEntity("Pairs::Branch", "third");
  fresh.handlerAt("", "Pairs::Branch", [&](auto const&, auto const&, auto const&, auto const&) {
    for (auto it = fresh.status->rootIterator(); it; ++it)
      if (auto const hall = World::hall(fresh.src, std::string(it.key().view()).c_str())) hall->u8Is(7);
    return false;
  });
  for (int i = 0; i < 2; ++i) fresh.copy();
  EXPECT_EQ(World::hall(fresh.dest)->u8(), 7);
  EXPECT_EQ(World::hall(fresh.dest, "sys/annex")->u8(), 7);
}

}  // namespace
