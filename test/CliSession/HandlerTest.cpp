// Handler tables, custom handlers, directories, filters, and the session handler's marks.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "CliSession/World.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;
using SessionHandler = S::EntityCopyGlobalSessionHandler;

// Overrides in C++ what it is asked, and says what that was.
struct Recorder : SessionHandler {
  std::vector<std::string> visits, targets;
  bool goOn = true;
  bool handleEntity(Kel::Ptr<EntityCopy> const& ec, EntityPtr const& dest, EntityPtrConst const& src,
                    Kel::String path) override {
    visits.emplace_back(path.view());
    return goOn && ec->doCopyEntityAttrs(dest, src, path, nullptr);
  }
  S::PtrTarget resolveEntityPtr(Kel::Ptr<EntityCopy> const& ec, EntityPtrConst const& src) override {
    targets.emplace_back(src->fullName().view());
    return SessionHandler::resolveEntityPtr(ec, src);
  }
};

struct Handlers : testing::Test {
  World world;
  Kel::Ptr<Plant::Hall> src = World::hall(world.src), dest = World::hall(world.dest);
  S::EntityCopyCustomHandlerTable::Ptr table = S::entityCopyCustomHandlerTableFactory("table", world.root);
  Kel::Ptr<Recorder> recorder = Kel::Ptr<Recorder>(new Recorder);

  // A copy whose session handler looks into the table.
  EntityCopy::Ptr copyWithTable(bool compare = false) const {
    EntityCopy::Ptr const ec = world.copyFrom(world.src, compare);
    Kel::ptrCast<SessionHandler>(ec->handler())->handlerTableIs(table);
    recorder->sessionStatusIs(world.status);
    return ec;
  }
};
using HandlersDeathTest = Handlers;

TEST_F(Handlers, AreFoundByExactPathThenByTypeAndPrefix) {
  Kel::Ptr<SessionHandler> made[5];
  for (auto& handler : made) handler = world.handler();
  table->registerCustomCopyHandler(S::EntityPath("/x"), "T", made[0]);
  table->registerCustomCopyHandler(S::EntityPath("/x/y"), "T", made[1]);
  table->registerCustomCopyHandler(S::EntityPath("/a/b"), "T", made[2]);
  table->registerCustomCopyHandler(S::EntityPath("/a/b/c"), "", made[3]);
  EXPECT_EQ(table->findCustomCopyHandler("/x/y/z", "T"), made[0]) << "the smaller key wins";
  EXPECT_EQ(table->findCustomCopyHandler("/a/bc", "T"), made[2]) << "characters are compared, not components";
  EXPECT_EQ(table->findCustomCopyHandler("/a/b/c", "T"), made[3]);
  EXPECT_EQ(table->findCustomCopyHandler("/a/b/c", "Other"), made[3]);
  EXPECT_EQ(table->findCustomCopyHandler("/a/b/c/d", "T"), made[2]);
  EXPECT_FALSE(table->findCustomCopyHandler("/a/b", "Other"));
  EXPECT_FALSE(table->findCustomCopyHandler("/a", "T"));
  EXPECT_EQ(table->typeSpecificHandlerss(), 1u) << "looking up has made something";
  table->registerCustomCopyHandler(S::EntityPath("/x"), "T", made[4]);
  EXPECT_EQ(table->findCustomCopyHandler("/x", "T"), made[4]) << "it was not replaced";
  table->registerCustomCopyHandler(S::EntityPath(""), "T", made[0]);
  EXPECT_EQ(table->findCustomCopyHandler("/a/bc", "T"), made[0]) << "the empty key matches everything";
  EXPECT_THROW(table->registerCustomCopyHandler(S::EntityPath(""), "T", nullptr), Kel::RangeException);
}

TEST_F(Handlers, CustomOnesTakeOver) {
  src->u8Is(1);
  src->newBolt("a")->lockedIs(true);
  src->newBolt("b")->lockedIs(true);
  table->registerCustomCopyHandler(S::EntityPath("hall.bolt/a"), "", recorder);
  recorder->goOn = false;
  Traces const traces("CliSession");
  copyWithTable()->destIs(world.dest);
  EXPECT_EQ(recorder->visits, std::vector<std::string>{"hall.bolt/a"});
  EXPECT_FALSE(dest->bolt("a")->locked());
  EXPECT_TRUE(dest->bolt("b")->locked());
  EXPECT_TRUE(traces.has("CliSession/9 Custom handling for hall.bolt/a, Plant::Bolt")) << traces.text();
}

TEST_F(Handlers, CustomOnesOfATypeCatchCopyRootsUnderTheEmptyPath) {
  table->registerCustomCopyHandler(S::EntityPath(""), "Plant::Hall", recorder);
  src->newAnnex("x");
  copyWithTable()->destIs(world.dest);
  EXPECT_EQ(recorder->visits, (std::vector<std::string>{"", "hall.annex/x", ""}));
}

TEST_F(Handlers, ADerivedOneKeepsItsOverridesWhenItIsTheEngines) {
  src->newBolt("b")->peerIs(src->newShelf("s"));
  EntityCopy::Ptr const ec = copyWithTable();
  ec->handlerIs(recorder);
  ec->destIs(world.dest);
  EXPECT_EQ(recorder->visits, (std::vector<std::string>{"", "hall.bolt/b", "hall.shelf/s", ""}));
  EXPECT_EQ(recorder->targets.front(), "/src/hall.shelf/s");
  EXPECT_EQ(dest->bolt("b")->peer(), dest->shelf("s"));
}

TEST_F(Handlers, ADerivedOneIsAskedOnlyWhereItsStandInWouldNotWalkOn) {
  struct Delegating : Recorder {
    Kel::Ptr<SessionHandler> standIn;
    Kel::Ptr<SessionHandler const> decidesAs() const override { return standIn; }
  };
  src->newBolt("b")->peerIs(src->newShelf("s"));
  src->newAnnex("x")->newBolt("c");
  Kel::Ptr<Delegating> const handler(new Delegating);
  handler->sessionStatusIs(world.status);
  handler->standIn = world.handler();
  handler->standIn->handlerTableIs(table);
  table->registerCustomCopyHandler(S::EntityPath("hall.annex"), "Plant::Hall", recorder);
  EntityCopy::Ptr const ec = copyWithTable();
  ec->handlerIs(handler);
  ec->destIs(world.dest);
  EXPECT_EQ(handler->visits, (std::vector<std::string>{"", "hall.annex/x", ""}));
  EXPECT_TRUE(handler->targets.empty());
  EXPECT_EQ(world.dump(world.dest), world.dump(world.src));
}

TEST_F(Handlers, DoNotCopyWhatIsMarked) {
  src->newAnnex("x")->newBolt("a")->torqueIs(1);
  dest->newAnnex("x")->newBolt("a");
  for (char const* mark : {"hall.annex", "hall.annex/x", "hall.annex/x.bolt/a"}) {
    EntityCopy::Ptr const ec = world.copyFrom(world.src);
    auto const handler = Kel::ptrCast<SessionHandler>(ec->handler());
    handler->copiedIs("entity")->prefixIs(mark, Zuk::prefixTrieStateFactory());
    ec->destIs(world.dest);
    EXPECT_EQ(dest->annex("x")->bolt("a")->torque(), 0) << mark;
  }
}

TEST_F(Handlers, MarkSessionRootsThatTheyAreGivenByPath) {
  src->u8Is(1);
  src->newPart();
  EntityCopy::Ptr const ec = world.idleCopy();
  auto const handler = Kel::ptrCast<SessionHandler>(ec->handler());
  Traces const traces("CliSession");
  EXPECT_TRUE(handler->handleEntity(ec, dest, src, "hall"));
  EXPECT_TRUE(handler->copied()->isPrefix("hall"));
  EXPECT_TRUE(handler->copied()->isPrefix("hall.part"));
  EXPECT_FALSE(handler->copied()->isPrefix("hall.u8"));
  EXPECT_EQ(handler->copied()->name(), "entity");
  dest->u8Is(9);
  EXPECT_FALSE(handler->handleEntity(ec, dest, src, "hall"));
  EXPECT_FALSE(handler->handleEntity(ec, dest, src, "hall.annex/x"));
  EXPECT_EQ(dest->u8(), 9);
  EXPECT_TRUE(traces.inOrder({"CliSession/9  mark hall as copied.", "CliSession/9 handleEntity of hall completed (1)",
                              "CliSession/8 handleEntity() skipping hall",
                              "CliSession/8 handleEntity() skipping hall.annex/x"}))
      << traces.text();
  handler->copiedDel();
  EXPECT_TRUE(handler->handleEntity(ec, dest, src, "hall"));
  // A star in a path is no wildcard.
  dest->u8Is(9);
  EXPECT_TRUE(handler->handleEntity(ec, dest, src, "hall*.u8"));
  handler->copiedDel();
  handler->newCopied("entity");
  handler->copied()->prefixIs("hall.annex/x", Zuk::prefixTrieStateFactory());
  dest->u8Is(9);
  EXPECT_FALSE(handler->handleEntity(ec, dest, src, "hall.annex/x.bolt*/y")) << "it lies below what is marked";
}

TEST_F(Handlers, WhatAReactorChangesHoldsFromThenOn) {
  for (int way = 0; way < 4; ++way) {
    bool const traced = way % 2, ofLog = way / 2;  // the reactor of an entry of the log
    std::unique_ptr<TracedRun> const tracing = traced ? std::make_unique<TracedRun>() : nullptr;
    for (char const* change : {"root", "handler", "table", "checker"}) {
      SCOPED_TRACE(change);
      World w;
      Kel::Ptr<Plant::Hall> const from = World::hall(w.src), to = World::hall(w.dest);
      from->newAnnex("x")->newAnnex("y")->newPart()->noteIs("n");
      for (char const* bolt : {"a", "b"}) from->newBolt(bolt)->lockedIs(true);
      to->newBolt("a");
      EntityCopy::Ptr const ec = w.copyFrom(w.src);
      auto const handler = Kel::ptrCast<SessionHandler>(ec->handler());
      Kel::Ptr<Recorder> const seer(new Recorder);
      seer->sessionStatusIs(w.status);
      S::EntityCopyCustomHandlerTable::Ptr const later = S::entityCopyCustomHandlerTableFactory("later", w.root);
      later->registerCustomCopyHandler(S::EntityPath(""), "Plant::Part", seer);
      auto const none = S::attributeEditBypassTableFactory("none");
      none->newAttributeEditBypassEntry(S::AttributeEdit("", "", S::AttributeEditType::set_))->parentPathIs("", true);
      std::string const what = change;
      EntityPtrConst const entry = ec->attributeEditLog()->newAttributeEditEntry(
          S::AttributeEdit("locked", "Plant::Bolt", S::AttributeEditType::set_));
      Reactor const reactor(ofLog ? entry : EntityPtrConst(to->bolt("a")), [&, done = false]() mutable {
        if (std::exchange(done, true)) return;
        if (what == "root") w.rootIs("hall.annex/x.annex/y", "Plant::Hall");
        if (what == "handler") ec->handlerIs(seer);
        if (what == "table") handler->handlerTableIs(later);
        if (what == "checker") ec->attributeEditBypassCheckerIs(none);
      });
      ec->destIs(w.dest);
      EXPECT_EQ(w.dump(w.dest), w.dump(w.src));
      if (what == "root") {
        EXPECT_TRUE(handler->copied()->isPrefix("hall.annex/x.annex/y"));
      }
      if (what == "handler") {
        EXPECT_EQ(seer->visits, (std::vector<std::string>{"hall.bolt/b", "hall.annex/x", "hall.annex/x.annex/y",
                                                          "hall.annex/x.annex/y.part", ""}));
      }
      if (what == "table") {
        EXPECT_EQ(seer->visits, std::vector<std::string>{"hall.annex/x.annex/y.part"});
      }
      if (what == "checker") {
        EXPECT_EQ(editsOf(*ec->attributeEditLog()), (Edits{{"Plant::Bolt::locked set hall.bolt/a", 1}}));
      }
    }
  }
}

TEST_F(Handlers, MayRunTheEngineAnewWhileItRuns) {
  Kel::Dir::Ptr const elsewhere = world.dir("elsewhere");
  for (char const* bolt : {"a", "b", "c"}) src->newBolt(bolt)->peerIs(src->bolt("a"));
  src->newAnnex("x")->newPart()->noteIs("n");
  src->newPart()->noteIs("m");
  src->favouriteIs(src->bolt("b"));
  world.handlerAt("hall.annex", "Plant::Part", [&, done = false](auto const& ec, auto&&... what) mutable {
    if (std::exchange(done, true)) return ec->doCopyEntityAttrs(what..., nullptr);
    ec->handlerIs(Kel::ptrCast<SessionHandler>(ec->handler()));
    ec->destIs(elsewhere);
    ec->destIs(world.dest);
    return true;
  });
  world.copyFrom(world.src)->destIs(world.dest);
  EXPECT_EQ(world.dump(world.dest), world.dump(world.src));
  EXPECT_EQ(world.dump(elsewhere), world.dump(world.src));
  EXPECT_TRUE(pointersInto(*elsewhere->entity("hall"), *world.dest).empty());
  EXPECT_TRUE(pointersInto(*dest, *elsewhere).empty());
}

TEST_F(Handlers, MayTakeTheDestinationAway) {
  for (bool compare : {false, true}) {
    int calls = 0;
    EntityCopy::Ptr const copy = copyWithTable(compare);
    copy->handlerIs(world.scripted([&](auto const& ec, auto const&, auto const&, auto const&) {
      ++calls;
      ec->destIs(nullptr);
      ec->handlerIs(nullptr);
      return false;
    }));
    copy->destIs(world.dest);
    EXPECT_EQ(calls, 1) << "of two roots";
    EXPECT_FALSE(copy->dest() || copy->handler());
  }
}

// Whenever it is asked, be it about a target or about a member, it empties a collection of the source, each in turn.
TEST_F(Handlers, MayDeleteTheMemberUnderTheWalk) {
  using Kel::U32;
  struct Kind {
    std::function<void(U32 n, Kel::Name const& name, Kel::Ptr<Plant::Bolt> const& bolt)> add;
    std::function<void()> deleteAll;
  } const kinds[] = {
      {[&](U32 n, auto&, auto& bolt) { src->chosenIs(Kel::String8("a rather long key " + std::to_string(n)), bolt); },
       [&] { src->chosenDelAll(); }},
      {[&](U32 n, auto&, auto& bolt) { src->weightIs(bolt, n + 1); }, [&] { src->weightDelAll(); }},
      {[&](U32, auto&, auto& bolt) { src->matedIs(bolt, bolt); }, [&] { src->matedDelAll(); }},
      {[&](U32 n, auto&, auto& bolt) { src->watchedIs(n, bolt); }, [&] { src->watchedDelAll(); }},
      {[&](U32, auto& name, auto&) { src->newPlate(name, 1)->textIs("t"); }, [&] { src->plateDelAll(); }},
      {[&](U32, auto& name, auto&) { src->jobEnq(name)->doneIs(true); }, [&] { src->jobDelAll(); }},
  };
  for (Kind const& kind : kinds) {
    for (U32 n = 0; n < 12; ++n) {
      Kel::Name const name("bolt " + std::to_string(n));
      kind.add(n, name, src->newBolt(name));
    }
    world.copyFrom(world.src)->destIs(world.dest);
    dest->chosenDelAll();
    dest->weightDelAll();
    dest->matedDelAll();
    dest->watchedDelAll();
    EntityCopy::Ptr const ec = copyWithTable();
    auto const deleter = world.resolving(kind.deleteAll);
    deleter->visit = [&](auto const& copy, auto const& to, auto const& from, auto const& path) {
      if (from->type() != Plant::Hall::_fwkType() && from->type() != Plant::Bolt::_fwkType()) kind.deleteAll();
      return deleter->SessionHandler::handleEntity(copy, to, from, path);
    };
    ec->handlerIs(deleter);
    ec->destIs(world.dest);
    EXPECT_FALSE(dest->chosenHas("")) << "it was never in the source";
    for (auto it = dest->weightIterator(); it; ++it) EXPECT_GT(it.value(), 0U) << "it was never in the source";
    src->boltDelAll();
    world.copyFrom(world.src)->destIs(world.dest);
    EXPECT_EQ(world.dump(world.dest), world.dump(world.src));
  }
}

// What is copied has been in the source, whoever empties its collections in the midst of an edit.
TEST_F(Handlers, NothingIsCopiedOfMembersThatForeignCodeDeletes) {
  struct Checker : S::AttributeEditLogBypass {
    std::function<void()> act;
    bool bypassAttributeEditLog(Kel::Ptr<EntityCopy> const&, S::AttributeEdit const&, Kel::String8,
                                Kel::GenericIf::PtrConst const&) override {
      return act(), false;
    }
  };
  auto const empty = [&] {
    src->textsDelAll();
    src->byNumberDelAll();
    src->chosenDelAll();
    src->weightDelAll();
    src->historyDelAll();
  };
  for (int who = 0; who < 8; ++who) {
    std::optional<Tracing> tracing;
    if (who >= 4) tracing.emplace();
    for (unsigned n = 1; n < 12; ++n) {
      Kel::String8 const text("a rather long text " + std::to_string(n));
      src->textsIs(text, text);
      src->byNumberIs(n, n);
      src->chosenIs(text, src->boltIs("b"));
      src->weightIs(src->boltIs(text), n);
      src->historyEnq(text);
    }
    EntityCopy::Ptr const ec = world.copyFrom(world.src);
    Kel::Ptr<Checker> const checker(new Checker);
    std::unique_ptr<Reactor> reactor;
    if (who % 4 == 0) ec->attributeEditBypassCheckerIs(checker);
    if (who % 4 == 1) reactor = std::make_unique<Reactor>(EntityPtrConst(ec->attributeEditLog()), empty);
    if (who % 4 == 2) reactor = std::make_unique<Reactor>(EntityPtrConst(dest), empty);
    S::AttributeEdit const edit("texts", "Plant::Hall", S::AttributeEditType::set_);
    if (who % 4 == 3)
      reactor = std::make_unique<Reactor>(EntityPtrConst(ec->attributeEditLog()->attributeEditEntryIs(edit)), empty);
    // The first edits are of another attribute.
    checker->act = [&, calls = 0]() mutable {
      if (++calls > 2) empty();
    };
    ec->destIs(world.dest);
    for (auto it = dest->textsIterator(); it; ++it) EXPECT_EQ(it.key(), it.value()) << who;
    for (auto it = dest->byNumberIterator(); it; ++it) EXPECT_EQ(it.key(), it.value()) << who;
    EXPECT_FALSE(dest->textsHas("") || dest->byNumberHas(0) || dest->chosenHas("")) << who;
    for (auto it = dest->weightIterator(); it; ++it) EXPECT_GT(it.value(), 0u) << who;
    for (auto it = dest->historyIterator(); it; ++it) EXPECT_FALSE(it.value().empty()) << who;
    reactor.reset();
    world.copy();
    EXPECT_EQ(world.dump(world.dest), world.dump(world.src));
  }
}

TEST_F(Handlers, OneInItsOwnTableDoesNotTakeOverFromItself) {
  EntityCopy::Ptr const ec = copyWithTable();
  table->registerCustomCopyHandler(S::EntityPath(""), "Plant::Hall", Kel::ptrCast<SessionHandler>(ec->handler()));
  src->u8Is(3);
  ec->destIs(world.dest);
  EXPECT_EQ(dest->u8(), 3);
  table->typeSpecificHandlersDelAll();
}

TEST_F(HandlersDeathTest, AssertWhatTheyNeed) {
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  auto const handler = Kel::ptrCast<SessionHandler>(ec->handler());
  EXPECT_DEATH(handler->handleEntity(ec, dest, nullptr, "hall"), "Assertion 'srcEntity' failed");
  handler->sessionStatusIs(S::statusFactory("bare"));
  EXPECT_DEATH(ec->destIs(world.dest), "Assertion 'sessionStatus\\(\\)->rootTrie\\(\\)' failed");
  handler->sessionStatusIs(nullptr);
  EXPECT_DEATH(ec->destIs(world.dest), "CliSession:[0-9]+: .*handleEntity.*Assertion 'sessionStatus\\(\\)' failed");
  EXPECT_DEATH(ec->doCopyEntityAttrs((src->newPart(), dest), src, "hall", nullptr), "'sessionStatus\\(\\)' failed");
}

// --- Filters ---

TEST_F(Handlers, AFilterIsMadeOnceAndGathersNames) {
  S::EntityCopyFilterDir::Ptr const dir = S::entityCopyFilterDirFactory("filters");
  S::AttributeFilter::Ptr const names = S::attributeFilterFactory();
  names->attributeNameIs("u8", false);
  table->registerEntityCopyFilter(dir, S::EntityPath(""), "Plant::Hall", names);
  auto const filter = dir->ecf(S::HandlerContext(S::EntityPath(""), "Plant::Hall"));
  ASSERT_TRUE(filter);
  EXPECT_TRUE(filter->filteredAttribute()->attributeName("u8")) << "every name is set to true";
  names->attributeNameDelAll();
  names->attributeNameIs("u16", true);
  table->registerEntityCopyFilter(dir, S::EntityPath(""), "Plant::Hall", names);
  table->registerEntityCopyFilter(dir, S::EntityPath(""), "Plant::Hall", nullptr);
  EXPECT_EQ(dir->ecfs(), 1u);
  EXPECT_EQ(filter->filteredAttribute()->attributeNames(), 2u);
  EXPECT_EQ(table->findCustomCopyHandler("", "Plant::Hall"), Kel::Ptr<SessionHandler>(filter));
  EXPECT_THROW(table->registerEntityCopyFilter(nullptr, S::EntityPath(""), "T", names), Kel::RangeException);
}

// --- Directories ---

struct Directories : Handlers {
  Kel::Dir::Ptr srcDir{new Kel::Dir("d", world.src.ptr())}, destDir{new Kel::Dir("d", world.dest.ptr())};
  void SetUp() override {
    recorder->sessionStatusIs(world.status);
    table->registerCustomCopyHandler(S::EntityPath(""), "Kel::Dir", handlerOf());
  }
  Kel::Ptr<SessionHandler> handlerOf() const {
    auto const handler = S::entityCopyDirHandlerFactory();
    handler->sessionStatusIs(world.status);
    return handler;
  }
  EntityCopy::Ptr copyDir(bool compare = false) const {
    EntityCopy::Ptr const ec = copyWithTable(compare);
    ec->srcCopyRootDelAll();
    ec->srcCopyRootIs(srcDir, true);
    return ec;
  }
};

TEST_F(Directories, PointersOfASecondRunLeadIntoItsDestination) {
  Kel::Dir::Ptr const other = world.dir("other");
  Kel::Dir::Ptr const otherDir(new Kel::Dir("d", other.ptr()));
  world.rootIs("d", "Kel::Dir");
  Kel::Ptr<Plant::Bolt> const bolt = Kel::ptrCast<Plant::Bolt>(srcDir->newEntity("Plant::Bolt", "b"));
  bolt->peerIs(bolt);
  for (Kel::Dir::Ptr const& dir : {destDir, otherDir}) dir->newEntity("Plant::Bolt", "b");
  EntityCopy::Ptr const ec = copyDir();
  ec->destIs(world.dest);
  auto const first = ec->handler(), second = Kel::Ptr<S::EntityCopyHandler>(world.handler());
  Kel::ptrCast<SessionHandler>(second)->handlerTableIs(table);
  ec->handlerIs(second);
  ec->destIs(other);
  EXPECT_EQ(EntityPtr(Kel::ptrCast<Plant::Bolt>(destDir->entityRef("b"))->peer()), destDir->entityRef("b"));
  EXPECT_EQ(EntityPtr(Kel::ptrCast<Plant::Bolt>(otherDir->entityRef("b"))->peer()), otherDir->entityRef("b"));
  for (Kel::Dir::Ptr const& dir : {srcDir, destDir, otherDir})
    Kel::ptrCast<Plant::Bolt>(dir->entityRef("b"))->peerIs(nullptr);
}

TEST_F(Directories, ABypassedEntryIsNoDifferenceToAComparison) {
  srcDir->newEntryState("announced", "Plant::Bolt");
  auto const bypass = S::attributeEditBypassTableFactory("bypass");
  S::AttributeEdit const creation("entryState", "Kel::Dir::EntryState", S::AttributeEditType::set_);
  bypass->attributeEditBypassEntryIs(creation)->parentPathIs("/dest", true);
  for (bool compare : {true, false}) {
    EntityCopy::Ptr const ec = S::entityCopyFactory();
    ec->stopAtFirstDiffIs(compare);
    ec->attributeEditLogIs(S::attributeEditLogFactory());
    ec->attributeEditBypassCheckerIs(bypass);
    EXPECT_EQ(handlerOf()->handleEntity(ec, destDir, srcDir, "d"), !compare);
    EXPECT_EQ(ec->attributeEditLog()->attributeEditEntrys(), 0u);
  }
}

TEST_F(Directories, AComparisonMakesItsLog) {
  EntityCopy::Ptr const ec = S::entityCopyFactory();
  ec->stopAtFirstDiffIs(true);
  for (char const* name : {"a", "b"}) destDir->newEntryState(name, "Plant::Bolt");
  EXPECT_TRUE(handlerOf()->handleEntity(ec, destDir, srcDir, "d"));
  EXPECT_EQ(textOf(editsOf(*ec->attributeEditLog())), "Kel::Dir::EntryState::entryState del  x1\n");
  EXPECT_EQ(destDir->entryStates(), 2u);
}

TEST_F(Directories, AHandlerFallsBackOnOtherEntities) {
  auto const handler = handlerOf();
  src->u8Is(3);
  EntityCopy::Ptr const ec = copyDir();
  ec->destIs(world.dest);
  EXPECT_TRUE(handler->handleEntity(ec, dest, src, "hall"));
  EXPECT_EQ(dest->u8(), 3);
}

// --- The queue of what is put off ---

TEST_F(Handlers, TheQueueOfPostCopiesKeepsItsBooks) {
  auto const handler = world.handler();
  handler->postAttributeCopyEnq(dest, src, "hall", "u8");
  handler->postAttributeCopyEnq(dest, src, "hall", "u16");
  EXPECT_EQ(handler->postAttributeCopyMetadata(), S::PostAttributeCopyMetadata(0, 2));
  EXPECT_EQ(handler->postAttributeCopy(1)->attrName(), "u16");
  EXPECT_EQ(handler->postAttributeCopy(1)->idx(), 1u);
  handler->postAttributeCopyDeq();
  EXPECT_EQ(handler->postAttributeCopyMetadata(), S::PostAttributeCopyMetadata(1, 1));
  handler->postAttributeCopyDelAll();
  EXPECT_EQ(handler->postAttributeCopyMetadata().members(), 0u);
}

TEST_F(Handlers, APostCopyMayPutMoreOff) {
  Kel::Dir::Ptr const clean(new Kel::Dir("clean", world.root.ptr()));
  src->newBolt("b")->torqueIs(2);
  int visits = 0;
  auto const later = [&](auto const& ec, auto const& to, auto const& from, Kel::String const& path) {
    auto const handler = Kel::ptrCast<SessionHandler>(ec->handler());
    if (++visits == 1)
      handler->postAttributeCopyEnq(EntityPtr(to->parent()), EntityPtrConst(from->parent()), "hall", "bolt");
    else
      handler->postAttributeCopyEnq(to, from, path, "torque");
    return false;
  };
  world.handlerAt("", "Plant::Bolt", later);
  world.status->inHandlerTableIs(world.table);
  world.status->cleanConfigStatusIs(S::cleanConfigStatusFactory("progress"));
  world.status->doCreateCleanConfig(world.src, clean);
  EXPECT_EQ(visits, 2);
  EXPECT_EQ(World::hall(clean)->bolt("b")->torque(), 2);
  world.status->inHandlerTableIs(nullptr);  // its handler points at the status
}

}  // namespace
