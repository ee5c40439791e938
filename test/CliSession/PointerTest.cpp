// Pointers, pointer collections and keys, and what is deferred.
#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "CliSession/World.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;

struct Pointers : testing::TestWithParam<bool> {
  World world;
  Kel::Ptr<Plant::Hall> src = World::hall(world.src), dest = World::hall(world.dest);
  std::unique_ptr<TracedRun> tracing = GetParam() ? std::make_unique<TracedRun>() : nullptr;
  EntityPtr stranger = world.outside->entityRef("stranger");
};
INSTANTIATE_TEST_SUITE_P(Untraced, Pointers, testing::Values(false));
INSTANTIATE_TEST_SUITE_P(Traced, Pointers, testing::Values(true));

TEST_P(Pointers, ANullKeyOfTheDestinationIsDeletedOrStays) {
  dest->weightIs(nullptr, 4);
  EXPECT_EQ(world.copy().edits, (Edits{{"Plant::Hall::weight del hall", 1}}));
  EXPECT_EQ(dest->weights(), 0u);
  src->weightIs(nullptr, 4);
  EXPECT_EQ(world.copy().edits, Edits{}) << "a null key is not copied";
  dest->weightIs(nullptr, 4);
  EXPECT_EQ(world.copy().edits, Edits{});
  EXPECT_EQ(dest->weights(), 1u);
}

// Two entities bear one path, since keys may hold separators.
TEST_P(Pointers, LeadToTheCounterpartWhenAPathIsAmbiguous) {
  Kel::Ptr<Plant::Bolt> const inner = src->newAnnex("a")->newAnnex("b")->newBolt("t");
  Kel::Ptr<Plant::Bolt> const outer = src->newAnnex("a.annex/b")->newBolt("t");
  ASSERT_EQ(inner->fullName(), outer->fullName());
  src->newBolt("early")->peerIs(outer);  // copied before its target
  src->favouriteIs(outer);
  src->chosenIs("inner", inner);
  src->weightIs(outer, 1);
  src->weightIs(inner, 2);
  auto const foreign = Kel::ptrCast<Plant::Hall>(world.outside->entityRef("foreign"));
  foreign->newAnnex("a")->newAnnex("b")->newBolt("t");
  src->anythingIs(foreign->newAnnex("a.annex/b")->newBolt("t"));
  for (int run = 0; run < 2; ++run) {
    Outcome const outcome = world.copy();
    EXPECT_EQ(outcome.pending, 0u);
    if (run == 1) {
      EXPECT_EQ(textOf(outcome.edits), "");
    }
    Kel::Ptr<Plant::Bolt> const destOuter = dest->annex("a.annex/b")->bolt("t");
    Kel::Ptr<Plant::Bolt> const destInner = dest->annex("a")->annex("b")->bolt("t");
    EXPECT_TRUE(dest->bolt("early")->peer() == destOuter);
    EXPECT_TRUE(dest->favourite() == destOuter);
    EXPECT_TRUE(dest->chosen("inner") == destInner);
    EXPECT_EQ(dest->weight(destOuter), 1u);
    EXPECT_EQ(dest->weight(destInner), 2u);
    EXPECT_TRUE(dest->anything() == src->anything()) << "it is not copied";
  }
  src->weightIs(inner, 1);
  src->weightDel(outer);
  world.copy();
  EXPECT_EQ(dest->weights(), 1u);
  src->annexDel("a.annex/b");
  dest->favouriteIs(nullptr);
}

TEST_P(Pointers, BetweenEntitiesThatAreNotAtTheirPathAreNotTranslated) {
  Kel::Ptr<Plant::Hall> const foreign = Kel::ptrCast<Plant::Hall>(world.outside->newEntity("Plant::Hall", "hall"));
  foreign->favouriteIs(foreign->newBolt("b"));
  Kel::Ptr<Plant::Hall> const annex = src->newAnnex("x");
  annex->favouriteIs(annex->newBolt("b"));
  annex->chosenIs("c", annex->bolt("b"));
  dest->newAnnex("x")->newBolt("b");
  EntityCopy::Ptr const ec = world.idleCopy();
  ec->doCopyEntityAttrs(dest, foreign, "hall", nullptr);
  EXPECT_EQ(dest->favourite(), foreign->bolt("b")) << "it does not lie in the source";
  Kel::Ptr<Plant::Hall> const other = dest->newAnnex("y");
  dest->newAnnex("x")->newBolt("b");
  ec->doCopyEntityAttrs(other, annex, "hall.annex/x", nullptr);
  EXPECT_EQ(other->favourite(), dest->annex("x")->bolt("b")) << "its path says where it leads";
  EXPECT_EQ(other->chosen("c"), other->favourite());
}

TEST_P(Pointers, AreNotResolvedWithoutADestination) {
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  src->newBolt("b");
  S::PtrTarget const outside = ec->handler()->resolveEntityPtr(ec, stranger);
  EXPECT_EQ(outside.target(), "/outside/stranger");
  EXPECT_FALSE(outside.copiable());
  EXPECT_THROW(ec->handler()->resolveEntityPtr(ec, src->bolt("b")), Kel::RangeException);
  EXPECT_THROW(ec->handler()->resolveEntityPtr(ec, nullptr), Kel::RangeException);
}

// The entity that a session root lies in may be made anew, and the root with it.
TEST_P(Pointers, WaitForARootThatIsMadeAnew) {
  world.status->rootTrie()->prefixIs("hall.gearbox.pin", Zuk::prefixTrieStateFactory());
  world.status->rootTrie()->prefixDel("hall");
  for (Kel::Ptr<Plant::Hall> const& hall : {src, dest})
    hall->newGearbox("g", hall == src ? 1 : 2, Plant::Size(1, 2), Plant::Grade::fine)->newPin("p");
  src->weightIs(src->gearbox()->pin(), 5);  // copied before the gearbox
  world.copy();
  EXPECT_EQ(dest->weight(dest->gearbox()->pin()), 5u);
}

TEST_P(Pointers, AKeyThatGoesWhileItsTargetIsLookedForIsHeld) {
  src->weightIs(src->newBolt("late"), 5);
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  ec->handlerIs(world.resolving([&] {
    src->weightDelAll();
    src->boltDelAll();
    return S::PtrTarget("/dest/later", false);
  }));
  Kel::U32 refs = 0;
  Reactor const reactor(EntityPtrConst(ec), [&, bolt = src->bolt("late").ptr()] {
    if (ec->pendingAttrs() > 0) refs = bolt->refs();
  });
  ec->destIs(world.dest);
  EXPECT_GT(refs, 0u);
}

TEST_P(Pointers, AKeyThatTheHandlerDeletesMeanwhileIsGone) {
  src->weightIs(src->newBolt("a"), 1);
  for (char const* bolt : {"a", "b", "c"}) dest->weightIs(dest->newBolt(bolt), 2);
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  ec->handlerIs(world.resolving([&, done = false]() mutable {
    if (std::exchange(done, true)) return;
    dest->weightDelAll();
    dest->boltDelAll();
  }));
  ec->destIs(world.dest);
  EXPECT_EQ(ec->pendingAttrs(), 0u);
  EXPECT_EQ(dest->weight(dest->bolt("a")), 1u);
  EXPECT_EQ(dest->weights(), 1u);
}

TEST_P(Pointers, AKeyStaysIfTheHandlerLeadsAKeyOfTheSourceToIt) {
  for (Kel::Ptr<Plant::Hall> const& hall : {src, dest}) {
    for (char const* bolt : {"a", "b"}) hall->newBolt(bolt);
    hall->weightIs(hall->bolt("a"), 1);
  }
  for (int run = 0; run < 2; ++run) {
    EntityCopy::Ptr const ec = world.copyFrom(world.src);
    ec->handlerIs(world.resolving([] { return S::PtrTarget("/dest/hall.bolt/b", true); }));
    ec->destIs(world.dest);
    EXPECT_EQ(editsOf(*ec->attributeEditLog()).size(), run == 0 ? 2u : 0u);
  }
  EXPECT_EQ(dest->weights(), 1u);
  EXPECT_EQ(dest->weight(dest->bolt("b")), 1u);
}

// A copy of the first root alone: what points into the second waits.
struct Deferred : Pointers {
  EntityCopy::Ptr ec = world.copyFrom(world.src);
  Kel::Ptr<Plant::Hall> annex = World::hall(world.src, "sys/annex");
  void SetUp() override {
    src->favouriteIs(annex->newBolt("late"));
    src->weightIs(annex->bolt("late"), 5);
    src->chosenIs("c", annex->bolt("late"));
    ec->srcCopyRootDel(annex);
    ec->destIs(world.dest);
  }
  Kel::Ptr<Plant::Bolt> arrive() { return World::hall(world.dest, "sys/annex")->boltIs("late"); }
};
INSTANTIATE_TEST_SUITE_P(Untraced, Deferred, testing::Values(false));
INSTANTIATE_TEST_SUITE_P(Traced, Deferred, testing::Values(true));

TEST_P(Deferred, RecordsSayWhatWillBeSet) {
  ASSERT_EQ(ec->pendingAttrs(), 3u);
  EXPECT_FALSE(dest->favourite());
  for (auto it = ec->pendingAttrIterator(); it; ++it) {
    S::AttributeCopy const& record = *it.key();
    bool const isKey = record.attribute()->name() == "weight";
    EXPECT_EQ(record.dest(), EntityPtr(dest));
    EXPECT_EQ(record.src(), EntityPtrConst(src));
    EXPECT_EQ(record.path(), "hall");
    EXPECT_EQ(record.srcIndexFullName(), isKey ? "/src/sys/annex.bolt/late" : "");
    EXPECT_EQ(record.destIndexFullName(), isKey ? "/dest/sys/annex.bolt/late" : "");
    EXPECT_EQ(record.srcValueFullName(), isKey ? "" : "/src/sys/annex.bolt/late");
    EXPECT_EQ(record.destValueFullName(), isKey ? "" : "/dest/sys/annex.bolt/late");
    EXPECT_EQ(static_cast<bool>(record.srcIndex()), record.attribute()->name() != "favourite");
  }
}

TEST_P(Deferred, AreSetOnceTheirTargetsCome) {
  Kel::Ptr<Plant::Bolt> const late = arrive();
  Traces const traces("EntityCopy");
  ec->doCopyPendingAttrs(false);
  EXPECT_EQ(ec->pendingAttrs(), 0u);
  EXPECT_EQ(dest->favourite(), late);
  EXPECT_EQ(dest->chosen("c"), late);
  EXPECT_EQ(dest->weight(late), 5u);
  std::string const name = "/dest/sys/annex.bolt/late";
  for (std::string const& line :
       {"Looking for deferred target key " + name, "Setting deferred target key " + name,
        "Deferred target key " + name + " set", "Looking for deferred target " + name,
        "Setting deferred target " + name, "Deferred target " + name + " set",
        " attributeIs: favourite, /dest/hall idx, srcIdx: <null> <null> target: " + name + " gif( target ): " + name})
    EXPECT_TRUE(traces.has("EntityCopy/3 " + line)) << line << "\n" << traces.text();
  for (std::size_t i = 0; i < traces.lines.size(); ++i)
    if (traces.lines[i].find("eferred target") != std::string::npos) {
      EXPECT_EQ(traces.functions[i], "EntityCopy:doCopyPendingAttrs") << traces.lines[i];
    }
  EXPECT_EQ(editsOf(*ec->attributeEditLog()).at("Plant::Hall::favourite set hall"), 1u);
}

TEST_P(Deferred, StayUntilThenAndAreSupersededWhenMetAgain) {
  Traces traces("EntityCopy");
  ec->doCopyPendingAttrs(false);
  EXPECT_EQ(ec->pendingAttrs(), 3u);
  EXPECT_EQ(traces.count("EntityCopy/3 Target still doesn't exist. Skipping /dest/sys/annex.bolt/late"), 3u);
  ec->handleCopyRoots();
  EXPECT_EQ(ec->pendingAttrs(), 3u) << "met again, recorded twice";
  src->favouriteIs(Kel::ptrCast<Plant::Bolt>(stranger));
  src->chosenDel("c");
  src->weightDel(annex->bolt("late"));
  ec->handleCopyRoots();
  EXPECT_EQ(ec->pendingAttrs(), 0u) << "the source points elsewhere now";
  arrive();
  ec->doCopyPendingAttrs(true);
  EXPECT_EQ(EntityPtr(dest->favourite()), stranger);
  EXPECT_EQ(dest->chosens(), 0u);
  EXPECT_EQ(dest->weights(), 0u);
}

TEST_P(Deferred, StayWhenAComparisonStops) {
  dest->chosenIs("extra", nullptr);
  auto const compared = [&] {
    Kel::U32 edits = 0;
    for (auto const& [edit, count] : editsOf(*ec->attributeEditLog())) edits += count;
    return edits;
  };
  ec->attributeEditLogIs(S::attributeEditLogFactory());
  ec->stopAtFirstDiffIs(true);
  ec->handleCopyRoots();
  EXPECT_EQ(compared(), 1u);
  EXPECT_EQ(ec->pendingAttrs(), 3u);
  arrive();
  ec->attributeEditLogIs(S::attributeEditLogFactory());
  ec->doCopyPendingAttrs(false);
  EXPECT_EQ(compared(), 1u) << "the first that would be set";
}

TEST_P(Deferred, WaitAsMembersWhereTheKeyIsTheSame) {
  ec->pendingAttrDelAll();
  auto const box = Kel::GenericIf::ofEntity(EntityPtrConst(annex->bolt("late")));
  Kel::KelAttr::PtrConst const mated(src->type()->getAttr("mated"));
  EXPECT_FALSE(ec->resolvePtr(src, annex->bolt("late"), box, box, dest, box, "hall", mated));
  ASSERT_EQ(ec->pendingAttrs(), 1u);
  EXPECT_EQ(ec->pendingAttrIterator().key()->destIndexFullName(), "");
}

TEST_P(Deferred, AreSetAlthoughTheirCopyIsLetGo) {
  arrive();
  Reactor const reactor(EntityPtrConst(dest), [&] { ec = nullptr; });
  ec->doCopyPendingAttrs(false);
  EXPECT_TRUE(dest->favourite() && dest->chosen("c"));
}

TEST_P(Deferred, AreSupersededByNull) {
  src->favouriteIs(nullptr);
  src->chosenIs("c", nullptr);
  ec->handleCopyRoots();
  EXPECT_EQ(ec->pendingAttrs(), 1u) << "the key still waits";
}

TEST_P(Deferred, GoOnWaitingInTheirTreeAndAreDroppedWithTheirDestination) {
  World const other;
  ec->destIs(other.dest);
  ec->destDel();
  world.dest->entryDel("hall");
  ec->doCopyPendingAttrs(false);
  EXPECT_EQ(ec->pendingAttrs(), 3u) << "not those of the tree that nothing has left";
  ec->destIs(world.dir("third"));
  Kel::Ptr<Plant::Bolt> const late = World::hall(other.dest, "sys/annex")->newBolt("late");
  World::hall(world.dest, "sys/annex")->newBolt("late");
  world.dest->newEntity("Plant::Hall", "hall");
  ec->destIs(world.dest);
  EXPECT_EQ(World::hall(other.dest)->favourite(), late);
  EXPECT_EQ(World::hall(world.dest)->favourite(), World::hall(world.dest, "sys/annex")->bolt("late"));
}

TEST_P(Deferred, AreFatalWhenForced) {
  EXPECT_DEATH(ec->doCopyPendingAttrs(true),
               "Unable to set [a-z]+ in /dest/hall: /src/sys/annex.bolt/late exists and /dest/sys/annex.bolt/late "
               "doesn't\nEntityCopy:[0-9]+: .*EntityCopy::doCopyPendingAttrs\\(.*Assertion 'false' failed");
}

TEST_P(Pointers, GoToTheExternalDestinationWhenThereIsOne) {
  Kel::Dir::Ptr const elsewhere(new Kel::Dir("elsewhere", world.root.ptr()));
  EntityPtr const twin = elsewhere->newEntity("Plant::Bolt", "loose");
  src->favouriteIs(Kel::ptrCast<Plant::Bolt>(world.src->entityRef("loose")));
  src->anythingIs(stranger);
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  auto const handler = Kel::ptrCast<S::EntityCopyGlobalSessionHandler>(ec->handler());
  ec->destIs(world.dest);
  EXPECT_EQ(EntityPtr(dest->favourite()), world.src->entityRef("loose"));
  handler->externalDestIs(elsewhere);
  ec->handleCopyRoots();
  EXPECT_EQ(EntityPtr(dest->favourite()), twin);
  EXPECT_EQ(dest->anything(), stranger) << "it does not lie below the source";
}

TEST_P(Pointers, MakeTheSessionRootThatTheyLeadIntoUnlessTheyAreOnlyCompared) {
  Kel::Ptr<Plant::Hall> const annex = World::hall(world.src, "sys/annex");
  src->favouriteIs(annex->newBolt("b"));
  for (bool compare : {true, false}) {
    world.dest->entryDel("sys");
    EntityCopy::Ptr const ec = world.copyFrom(world.src, compare);
    ec->srcCopyRootDel(annex);
    ec->destIs(world.dest);
    EXPECT_EQ(static_cast<bool>(world.dest->entity("sys/annex")), !compare);
    EXPECT_EQ(ec->pendingAttrs(), 1u);
  }
}

}  // namespace
