// The walk, values, singletons and constructor parameters.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <functional>
#include <limits>

#include "CliSession/EntityCopyCompare.h"
#include "CliSession/EntityCopyUtils.h"
#include "CliSession/World.h"
#include "Kel/AttrAccess.h"
#include "Pairs.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;

struct Engine : testing::Test {
  World world;
  Kel::Ptr<Plant::Hall> src = World::hall(world.src), dest = World::hall(world.dest);

  static Kel::KelAttr::PtrConst attr(Kel::Ptr<Plant::Hall> const& e, char const* name) {
    return Kel::KelAttr::PtrConst(e->type()->getAttr(name));
  }
  static Edits log(EntityCopy::Ptr const& ec) { return editsOf(*ec->attributeEditLog()); }
};
using EngineDeathTest = Engine;

// What has to go alike with traces on and off.
struct EngineAlike : Engine, testing::WithParamInterface<bool> {
  std::unique_ptr<TracedRun> tracing = GetParam() ? std::make_unique<TracedRun>() : nullptr;
};
INSTANTIATE_TEST_SUITE_P(Traced, EngineAlike, testing::Bool());

TEST_F(Engine, WaitsForSourceAndDestination) {
  EntityCopy::Ptr const ec = S::entityCopyFactory();
  Traces const traces("EntityCopy");
  ec->srcIs(world.src);
  EXPECT_TRUE(traces.has("EntityCopy/1 Not ready yet: src: /src, dest: <null>")) << traces.text();
  std::size_t const before = traces.lines.size();
  ec->srcIs(world.src);
  EXPECT_EQ(traces.lines.size(), before) << "the same value ran it again";
  ec->destIs(world.dest);
  EXPECT_TRUE(traces.inOrder({"EntityCopy/1 handleCopyRoots: /dest (dest), /src (src)",
                              "EntityCopy/2 doCopyPendingAttrs:  force: 0",
                              "EntityCopy/2 doCopyPendingAttrs: completed", "EntityCopy/1 handleCopyRoots: completed"}))
      << traces.text();
  EXPECT_FALSE(ec->handler()) << "nothing was to be walked";
  ec->ancestorIs(world.src);
  EXPECT_EQ(traces.count("EntityCopy/1 handleCopyRoots: completed"), 2u);
}

TEST_P(EngineAlike, AComparisonWithAFilledLogStopsAtOnce) {
  src->newPart()->noteIs("same");
  src->newBolt("b");
  world.copy();
  src->part()->countIs(1);
  src->bolt("b")->peerIs(src->bolt("b"));
  src->u8Is(1);
  EntityCopy::Ptr const ec = world.idleCopy(true);
  ec->attributeEditLog()->newAttributeEditEntry(S::AttributeEdit("old", "Old", S::AttributeEditType::set_));
  EXPECT_TRUE(ec->stop());
  EXPECT_FALSE(ec->doCopyEntityAttrs(dest, src, "hall", nullptr)) << "it walked on to u8";
  EXPECT_FALSE(ec->doCopyEntityAttrs(dest->part(), src->part(), "hall.part", nullptr)) << "it walked on to count";
  EXPECT_FALSE(ec->doCopyEntityAttrs(dest->bolt("b"), src->bolt("b"), "hall.bolt/b", nullptr))
      << "it walked on from equal values to peer";
  EXPECT_TRUE(log(ec).empty());
  dest->part()->noteIs("other");
  EXPECT_TRUE(ec->doCopyEntityAttrs(dest->part(), src->part(), "hall.part", nullptr)) << "the first is compared";
}

TEST_F(Engine, ComparesWholeTreesWithoutAHandler) {
  EntityCopy::Ptr const ec = S::entityCopyFactory();
  ec->stopAtFirstDiffIs(true);
  ec->srcIs(src);
  ec->destIs(dest);
  ASSERT_TRUE(ec->handler());
  EXPECT_EQ(ec->handler()->type(), S::EntityCopyHandler::_fwkType());
  EXPECT_FALSE(ec->stop());
  src->newBolt("b");
  ec->handleCopyRoots();
  EXPECT_TRUE(ec->stop());
  EXPECT_EQ(textOf(log(ec)), "Plant::Hall::bolt set  x1\n");
  EXPECT_EQ(dest->bolts(), 0u);
  // The plain handler passes pointers by and keeps no records of them.
  dest->newBolt("b");
  src->favouriteIs(src->bolt("b"));
  ec->attributeEditLog()->attributeEditEntryDelAll();
  ec->handleCopyRoots();
  EXPECT_FALSE(ec->stop());
  EXPECT_EQ(ec->pendingAttrs(), 0u);
}

TEST_F(Engine, RefusesACopyWithoutAHandlerOfItsOwn) {
  EntityCopy::Ptr const ec = S::entityCopyFactory();
  ec->srcCopyRootIs(src, true);
  ec->srcIs(world.src);
  auto const unimplemented = [](auto const& call) { return messageOf<Kel::NoImplementationException>(call); };
  EXPECT_NE(unimplemented([&] { ec->destIs(world.dest); }).find("handleEntity"), std::string::npos);
  EXPECT_NE(unimplemented([&] { ec->handler()->resolveEntityPtr(ec, src); }).find("resolveEntityPtr"),
            std::string::npos);
}

TEST_F(Engine, FiltersByName) {
  src->u8Is(1);
  src->u16Is(2);
  S::AttributeFilter::Ptr const filter = S::attributeFilterFactory();
  filter->attributeNameIs("u8", true);
  filter->attributeNameIs("u16", false);
  filter->attributeNameIs("unknown", false);  // neither filters nor counts
  Traces const traces("EntityCopy");
  EXPECT_TRUE(world.idleCopy()->doCopyEntityAttrs(dest, src, "hall", filter));
  EXPECT_EQ(dest->u8(), 0);
  EXPECT_EQ(dest->u16(), 2);
  EXPECT_TRUE(traces.has("EntityCopy/2 hall: attribute u8 filtered (not copied).")) << traces.text();
}

TEST_F(EngineDeathTest, AssertsItsPreconditions) {
  S::AttributeFilter::Ptr const filter = S::attributeFilterFactory();
  filter->attributeNameIs("zz", true);
  std::string const filterText = R"(!filter \|\| filter->attributeNames\(\) == filtered \|\| stopAtFirstDiff\(\))";
  EXPECT_DEATH(world.idleCopy()->doCopyEntityAttrs(dest, src, "hall", filter), filterText);
  src->u8Is(1);
  EXPECT_TRUE(world.idleCopy(true)->doCopyEntityAttrs(dest, src, "hall", filter)) << "a comparison that was cut short";
  EXPECT_DEATH(world.idleCopy()->doCopyEntityAttrs(nullptr, src, "", nullptr), "Assertion 'destEntity' failed");
  EXPECT_DEATH(world.idleCopy()->doCopyEntityAttrs(dest, nullptr, "", nullptr), "Assertion 'srcEntity' failed");
  EXPECT_DEATH(world.idleCopy()->doCopyAttrByName(dest, src, "", "zz"),
               "bool Cli::Session::EntityCopy::doCopyAttrByName.*Assertion 'attrIdx' failed");
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  EXPECT_DEATH((ec->srcCopyRootIs(world.src, true), ec->destIs(world.dest)), "Assertion 'destFullName' failed");
  EXPECT_DEATH((ec->srcCopyRootIs(world.outside, true), ec->destIs(world.dest)), "Assertion 'destFullName' failed");
  EXPECT_DEATH((ec->srcCopyRootIs(nullptr, true), ec->destIs(world.dest)), "Assertion 'destFullName' failed");
  EXPECT_DEATH((world.dest->entryDel("hall"), ec->destIs(world.dest)),
               "EntityCopy:[0-9]+: .*handleCopyRoots.*Assertion 'destRoot' failed");
}

// Puts an entity among the members of an attribute, as an attribute log may, also one of a derived type.
template <class T>
Kel::Ptr<T> bring(EntityPtr const& owner, char const* attribute, Kel::Ptr<T> const& member) {
  Kel::KelAttr const& attr = *owner->type()->getAttr(attribute);
  attr.access().restore(attr, *owner, member, 0);
  return member;
}
void bring(Kel::Ptr<Plant::Hall> const& hall, Kel::U8 arms) {
  bring(hall, "machine", Plant::robotFactory("r", Kel::String8(std::to_string(arms))))->armsIs(arms);
}

// Wherever they are met: at the same positions or not, in a comparison that their deletion does not stop, and at the
// ends of pointers.
TEST_P(EngineAlike, MembersOfOtherTypesAreMadeAnew) {
  for (bool further : {false, true}) {
    World in;
    Kel::Ptr<Plant::Hall> const from = World::hall(in.src, "sys/annex"), to = World::hall(in.dest, "sys/annex");
    for (char const* name : {"a", "r"}) from->newMachine(name);
    for (int i = 0; i < 2; ++i) in.copy();
    to->machineDel("r");
    bring(to, 1);
    if (further) to->newMachine("x");
    for (Kel::Dir::Ptr const& dir : {in.src, in.dest})
      for (Kel::U32 i = further ? 1 : 3; i <= 2; ++i)
        World::hall(dir)->watchedIs(i, World::hall(dir, "sys/annex")->machine(i == 1 ? "a" : "r"));
    auto const bypass = S::attributeEditBypassTableFactory("bypass");
    S::AttributeEdit const deletion("machine", "Plant::Hall", S::AttributeEditType::del_);
    bypass->attributeEditBypassEntryIs(deletion)->parentPathIs("/dest", true);
    EntityCopy::Ptr const ec = in.copyFrom(in.src, true);
    ec->attributeEditBypassCheckerIs(bypass);
    ec->destIs(in.dest);
    EXPECT_EQ(textOf(log(ec)), "Plant::Hall::machine set sys/annex x1\n");
    Edits expected{{"Plant::Hall::machine del sys/annex", 1 + further}, {"Plant::Hall::machine set sys/annex", 1}};
    if (further) expected["Plant::Hall::watched set hall"] = 1;
    EXPECT_EQ(in.copy().edits, expected);
    EXPECT_EQ(to->machine("r")->type(), Plant::Machine::_fwkType());
    EXPECT_TRUE(!further || World::hall(in.dest)->watched(2).ptr() == to->machine("r").ptr());
  }
}

// Members of derived types are copied as what they are, where an attribute log has brought them; they are not made. Of
// their constructor parameters, those of the declared type are compared.
TEST_P(EngineAlike, MembersOfDerivedTypesAreNotTakenForOthers) {
  for (Kel::Ptr<Plant::Hall> const& hall : {src, dest}) hall->newMachine("a")->speedIs(hall == src);
  bring(src, 1);
  EXPECT_EQ(messageOf<Kel::UnknownAttrException>([&] { world.copy(); }),
            "/dest/hall.machine/r: Plant::Machine has no attribute 'arms'");
  EntityCopy::Ptr const ec = world.copyFrom(world.src, true);
  ec->destIs(world.dest);
  EXPECT_EQ(textOf(log(ec)), "Plant::Hall::machine del hall x1\n");
  dest->machineDel("r");
  bring(dest, 2);
  EXPECT_EQ(world.copy().edits, (Edits{{"Plant::Robot::arms set hall.machine/r", 1}}));
  EXPECT_EQ(textOf(world.copy().edits), "");
}

// A NaN does not equal itself.
TEST_P(EngineAlike, MembersUnderANaNAreMadeAnew) {
  world.rootIs("branch", "Pairs::Branch");
  for (Kel::Dir::Ptr const& dir : {world.src, world.dest})
    Kel::ptrCast<Pairs::Branch>(dir->newEntity("Pairs::Branch", "branch"))
        ->newPoint(std::numeric_limits<double>::quiet_NaN());
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(textOf(world.copy().edits), "Pairs::Branch::point del branch x1\nPairs::Branch::point set branch x1\n");
  auto const bypass = S::attributeEditBypassTableFactory("bypass");
  S::AttributeEdit const deletion("point", "Pairs::Branch", S::AttributeEditType::del_);
  bypass->attributeEditBypassEntryIs(deletion)->parentPathIs("/dest", true);
  EntityCopy::Ptr const ec = world.copyFrom(world.src, true);
  ec->attributeEditBypassCheckerIs(bypass);
  ec->destIs(world.dest);
  EXPECT_EQ(textOf(log(ec)), "Pairs::Branch::point set branch x1\n");
}

// Where the declared type has nothing but plain values, and in a queue.
TEST_P(EngineAlike, PlainMembersOfDerivedTypesAreNotTakenForOthers) {
  for (Kel::Ptr<Plant::Hall> const& hall : {src, dest})
    bring(hall, "door", Plant::gateFactory(Plant::Grade::fine))->widthIs(hall == src);
  bring(dest, "tick", Plant::alarmFactory());
  src->tickEnq();
  EXPECT_EQ(world.copy().edits, (Edits{{"Plant::Gate::width set hall.door/fine", 1},
                                       {"Plant::Hall::tick del hall", 1},
                                       {"Plant::Hall::tick set hall", 1}}));
  // A handler of the derived type is asked, although nothing has changed.
  int asked = 0;
  world.handlerAt("", "Plant::Gate", [&](auto&&...) { return ++asked == 0; });
  world.copy();
  EXPECT_EQ(asked, 1);
}

// The reactor writes an attribute that was equal when the walk came to the entity, and that the walk has yet to visit.
TEST_P(EngineAlike, WhatAReactorChangesMeanwhileIsCopiedAsWell) {
  for (bool copiedBefore : {false, true}) {
    World in;
    Kel::Ptr<Plant::Hall> const from = World::hall(in.src), to = World::hall(in.dest);
    if (copiedBefore) in.copy();
    from->newBolt("b");
    bool reacted = false;
    Reactor const reactor(EntityPtrConst(to), [&] {
      if (!std::exchange(reacted, true)) to->visitsIs(7);
    });
    EXPECT_EQ(in.copy().edits, (Edits{{"Plant::Hall::bolt set hall", 1}, {"Plant::Hall::visits set hall", 1}}));
    EXPECT_EQ(to->visits(), 0);
  }
}

TEST_P(EngineAlike, CopiesEachOfManyAttributes) {
  world.rootIs("wide", "Pairs::Wide");
  auto const from = Kel::ptrCast<Pairs::Wide>(world.src->newEntity("Pairs::Wide", "wide"));
  world.status->doCreateSessionRoots(world.src, world.dest);
  for (char const* name : {"a1", "a61", "a62", "a63", "a64", "a66"}) {
    Kel::GenericIf::ofEntity(EntityPtr(from))
        ->attributeIs(from->type()->getAttr(name)->id(), nullptr, Kel::GenericIf::of(Kel::U8(1)));
    EXPECT_EQ(textOf(world.copy().edits), "Pairs::Wide::" + std::string(name) + " set wide x1\n");
    EXPECT_EQ(textOf(world.copy().edits), "");
  }
}

// An operation that runs after a change is foreign code, as a reactor is.
TEST_F(Engine, WhatAnOperationDeletesAfterAChangeIsNotCopiedInto) {
  world.rootIs("vine", "Pairs::Vine");
  auto const from = Kel::ptrCast<Pairs::Vine>(world.src->newEntity("Pairs::Vine", "vine"));
  auto const to = Kel::ptrCast<Pairs::Vine>(world.dest->newEntity("Pairs::Vine", "vine"));
  from->wildIs(true);
  for (auto const& vine : {from, to})
    for (char const* name : {"a", "b", "shaded"}) vine->newShoot(name);
  from->shoot("a")->lengthIs(1);
  Edits expected{{"Pairs::Shoot::length set vine.shoot/a", 1}, {"Pairs::Vine::shoot set vine", 1}};
  EXPECT_EQ(world.copy().edits, expected);
  EXPECT_TRUE(to->shoot("shaded")) << "it was made anew";
  from->newShoot("weed")->lengthIs(5);
  EXPECT_EQ(world.copy().edits, (Edits{{"Pairs::Vine::shoot set vine", 1}}));
}

// A session root may be of another type in the destination; then it may not be what a pointer can lead to.
TEST_F(Engine, PointersRefuseACounterpartOfAnotherType) {
  world.rootIs("pair", "Pairs::Old");
  world.rootIs("wreath", "Pairs::Wreath");
  auto const old = Kel::ptrCast<Pairs::Old>(world.src->newEntity("Pairs::Old", "pair"));
  world.dest->newEntity("Pairs::New", "pair");
  auto const from = Kel::ptrCast<Pairs::Wreath>(world.src->newEntity("Pairs::Wreath", "wreath"));
  auto const to = Kel::ptrCast<Pairs::Wreath>(world.dest->newEntity("Pairs::Wreath", "wreath"));
  from->firstIs(old);
  EXPECT_THROW(world.copy(), Kel::TypeException);
  from->firstIs(nullptr);
  from->elderIs(old, 1);
  EXPECT_THROW(world.copy(), Kel::BadIndexAttrException);
  from->elderDel(old);
  from->pairIs(old, nullptr);
  EXPECT_THROW(world.copy(), Kel::BadIndexAttrException);
  from->pairDel(old);
  world.rootIs("line", "Pairs::Old");
  world.src->newEntity("Pairs::Old", "line");
  to->heirIs(Kel::ptrCast<Pairs::Heir>(world.dest->newEntity("Pairs::Heir", "line")), 1);
  world.copy();
  EXPECT_EQ(to->first(), nullptr);
  EXPECT_EQ(to->elders() + to->pairs() + to->heirs(), 0u);
  // A copy root is not made anew, whatever its types: what points into it need not wait.
  Kel::ptrCast<Pairs::New>(world.dest->entityRef("pair"))->newLeaf("l");
  from->leafIs("l", old->newLeaf("l"));
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  ec->srcCopyRootDelAll();
  ec->destIs(world.dest);
  ec->srcCopyRootIs(old, true);
  ec->doCopyAttrByName(to, from, "wreath", "leaf");
  EXPECT_TRUE(to->leaf("l"));
}

TEST_F(EngineDeathTest, RefusesPointersAmongParameters) {
  src->newLeash("l", nullptr);
  world.copy();
  ASSERT_TRUE(dest->leash());
  src->leashDel();
  src->newLeash("l", src->boltIs("post"));
  EXPECT_DEATH(world.copy(), "Pointers in constructor parameters are not supported by EntityCopy");
  // Null in the source alone is a difference.
  src->leashDel();
  src->newLeash("l", nullptr);
  dest->leashDel();
  dest->newLeash("l", dest->boltIs("post"));
  world.copy();
  EXPECT_FALSE(dest->leash()->post());
}

TEST_F(Engine, AMemberGivenByItselfIsReplacedByOneSet) {
  Kel::Ptr<Plant::Gear> const member = src->newGear("g", 2, Plant::Size(), Plant::Grade::raw);
  dest->newGear("g", 1, Plant::Size(), Plant::Grade::raw);
  EntityCopy::Ptr const ec = world.idleCopy();
  Kel::GenericIf::PtrConst const key = Kel::GenericIf::of(Kel::String8("g"));
  EXPECT_TRUE(ec->doCopyCollectionMember(dest, src, "hall", key, key, Kel::GenericIf::ofEntity(EntityPtr(member)),
                                         attr(src, "gear")));
  EXPECT_EQ(dest->gear("g")->teeth(), 2);
  EXPECT_EQ(log(ec), (Edits{{"Plant::Hall::gear set hall", 1}}));
}

TEST_F(Engine, ComparesValues) {
  auto const equal = [](auto const& a, auto const& b) {
    return S::valueTypeEqual(Kel::GenericIf::of(a), Kel::GenericIf::of(b));
  };
  EXPECT_TRUE(S::valueTypeEqual(nullptr, nullptr));
  EXPECT_FALSE(S::valueTypeEqual(nullptr, Kel::GenericIf::of(false)));
  EXPECT_TRUE(equal(Kel::U64(~0ull), Kel::U64(~0ull)));
  EXPECT_FALSE(equal(Kel::U32(1), Kel::U64(1)));
  EXPECT_FALSE(equal(std::numeric_limits<Kel::F64>::quiet_NaN(), std::numeric_limits<Kel::F64>::quiet_NaN()));
  EXPECT_TRUE(equal(0.0, -0.0));
  Traces const traces("EntityCopy", 1u << 4);
  EXPECT_FALSE(equal(Plant::Grade::raw, Plant::Grade::pure));
  EXPECT_TRUE(equal(Plant::Size(1, 2), Plant::Size(1, 2)));
  EXPECT_TRUE(equal(Plant::Serial("a"), Plant::Serial("a")));
  EXPECT_FALSE(equal(Plant::Serial("a"), Plant::Serial("b")));
  EXPECT_TRUE(traces.inOrder({"EntityCopy/4 Comparing enum Grade", "EntityCopy/4 Comparing Size",
                              "EntityCopy/4 Comparing Serial", "EntityCopy/4 Convert Serial to String8",
                              "EntityCopy/4 Comparing builtin String8"}))
      << traces.text();
}

void runOnAStackOf(std::size_t bytes, std::function<void()> body) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
  pthread_t thread;
  auto const run = [](void* what) -> void* {
    (*static_cast<std::function<void()>*>(what))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &body), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

// A reactor to the records of waiting pointers deletes what is being copied, or its owner.
TEST_P(EngineAlike, AWaitingPointersRecordMayTakeTheWalkedEntityWithIt) {
  for (bool owner : {false, true}) {
    World w;
    auto const from = World::hall(w.src), to = World::hall(w.dest);
    auto const pin = from->newMachine("m")->newGear("g", 3, Plant::Size(), Plant::Grade::raw)->newPin("p");
    auto const upper = from->newAnnex("y"), annex = upper->newAnnex("x");
    annex->weightIs(pin, 2);
    w.handlerAt("", "Plant::Machine", [](auto&&...) { return false; });
    EntityCopy::Ptr const ec = w.copyFrom(w.src);
    ec->destIs(w.dest);
    ASSERT_EQ(ec->pendingAttrs(), 1u);
    annex->weightDel(pin);
    annex->u8Is(1);
    annex->historyEnq("h");
    upper->historyEnq("u");
    ec->attributeEditLogIs(S::attributeEditLogFactory());
    ec->handlerIs(w.handler());
    Reactor const reactor(EntityPtrConst(ec), [&] { owner ? to->annexDel("y") : to->annex("y")->annexDel("x"); });
    ec->handleCopyRoots();
    Edits expected{{"Plant::Hall::u8 set hall.annex/y.annex/x", 1}, {"Plant::Hall::history set ", owner ? 2 : 1}};
    if (!owner) expected["Plant::Hall::history set hall.annex/y"] = 1;
    EXPECT_EQ(log(ec), expected);
  }
}

// An operation called by name refuses an attribute that it is not for, before it does anything.
TEST_P(EngineAlike, OperationsRefuseAttributesOfAnotherShape) {
  auto const attr = [&](char const* name) { return Kel::KelAttr::PtrConst(src->type()->getAttr(name)); };
  src->favouriteIs(src->newBolt("b"));
  src->weightIs(src->bolt("b"), 1);
  src->newPart()->countIs(2);
  EntityCopy::Ptr const ec = world.idleCopy();
  for (char const* name : {"favourite", "part", "weight", "history"}) {
    EXPECT_THROW(ec->doCopyValue(dest, src, attr(name)), Kel::OpNotSupportedException) << name;
  }
  for (char const* name : {"u8", "favourite", "bolt"})
    EXPECT_THROW(ec->doCopySingleton(dest, src, "hall", attr(name)), Kel::OpNotSupportedException) << name;
  for (char const* name : {"u8", "part", "favourite", "history"})
    EXPECT_THROW(ec->doCopyCollection(dest, src, "hall", attr(name)), Kel::OpNotSupportedException) << name;
  for (char const* name : {"u8", "part", "bolt"}) {
    EXPECT_THROW(ec->doCopyQueue(dest, src, "hall", attr(name)), Kel::OpNotSupportedException) << name;
    EXPECT_THROW(ec->doCopyPtr(dest, src, "hall", attr(name), nullptr), Kel::OpNotSupportedException) << name;
  }
  // A pointer that the destination's type lacks does not wait.
  EXPECT_THROW(ec->doCopyAttrByName(dest->newPart(), src, "hall", "favourite"), Kel::UnknownAttrException);
  EXPECT_EQ(ec->pendingAttrs(), 0u);
  EXPECT_EQ(textOf(log(ec)), "");
  // The destination's attribute of that name holds a value.
  auto const old = Kel::ptrCast<Pairs::Old>(world.src->newEntity("Pairs::Old", "old"));
  old->newOnly("o");
  auto const stub = world.dest->newEntity("Pairs::Nail", "nail");
  EXPECT_THROW(ec->doCopyAttrByName(stub, old, "old", "only"), Kel::Exception);
}

TEST_P(EngineAlike, RefusesATreeThatIsTooDeep) {
  Kel::Ptr<Plant::Hall> at = src;
  for (int i = 0; i < 1100; ++i) at = at->newAnnex("a");
  // Whatever the build, it ends with an exception, not with the stack; given room, at the limit.
  for (std::size_t stack : {std::size_t{512} << 10, std::size_t{8} << 20, std::size_t{128} << 20}) {
    runOnAStackOf(stack, [&] {
      std::string const message = messageOf<Kel::RangeException>([&] { world.copy(); });
      if (stack >= std::size_t{128} << 20) {
        EXPECT_EQ(message, "entities nested deeper than 1000 cannot be copied");
      }
      EXPECT_TRUE(message != "no exception" && message.find("of another") == std::string::npos) << message;
    });
    dest->annexDelAll();
  }
}

TEST_F(Engine, RefusesHandlersThatGoTooDeep) {
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  ec->srcCopyRootDelAll();
  ec->destIs(world.dest);
  for (bool boxed : {false, true}) {
    int calls = 0;
    auto const goOn = [&](auto const&, auto const& to, auto const& from, Kel::String const& path) {
      if (++calls > 1100) return false;
      if (!boxed) return ec->doCopyEntity(to, from, path);
      return ec->handleEntity(Kel::GenericIf::ofEntity(to), Kel::GenericIf::ofEntity(from), attr(src, "annex"), "");
    };
    ec->handlerIs(world.scripted(goOn));
    runOnAStackOf(std::size_t{128} << 20, [&] {
      EXPECT_EQ(messageOf<Kel::RangeException>([&] { ec->doCopyEntity(dest, src, "hall"); }),
                "entities nested deeper than 1000 cannot be copied");
    });
    EXPECT_EQ(calls, 1000);
  }
}

TEST_F(Engine, RefusesNullWhereItNeedsAnEntity) {
  EntityCopy::Ptr const ec = world.idleCopy();
  Kel::GenericIf::Ptr const gif = Kel::GenericIf::ofEntity(EntityPtr(ec));
  auto const object = [](EntityPtr const& e) { return Kel::GenericIf::PtrConst(Kel::GenericIf::ofEntity(e)); };
  Kel::GenericIf::PtrConst const path = Kel::GenericIf::of(Kel::String8("hall"));
  for (char const* op : {"doCopyAttr", "doCopySingleton", "doCopyCollection", "doCopyQueue"})
    EXPECT_THROW(gif->attributeCall(gif->attributeId(op),
                                    {{"dest", object(dest)}, {"src", object(src)}, {"path", path}, {"attr", nullptr}}),
                 Kel::RangeException)
        << op;
  EXPECT_THROW(ec->doCopyAttrByName(nullptr, src, "hall", "u8"), Kel::RangeException);
  EXPECT_THROW(ec->attributeDel(nullptr, attr(dest, "u8"), nullptr), Kel::RangeException);
  EXPECT_THROW(ec->doCopyCollectionMember(dest, src, "hall", nullptr, Kel::GenericIf::of(Kel::String8("b")), nullptr,
                                          attr(src, "bolt")),
               Kel::RangeException);
}

// --- Relative paths ---

// What it makes of them is a law of fuzz_trie.
TEST_F(EngineDeathTest, MakesPathsRelativeAndSaysSo) {
  Kel::Dir::Ptr const a(new Kel::Dir("a", world.root.ptr()));
  Traces const traces("EntityCopyUtils");
  S::relativePath(a, "/a/b");
  char separator = 'x';
  EXPECT_EQ(S::relativePath(a, "/a/", &separator), "");
  EXPECT_EQ(separator, 'x') << "there is no result";
  EXPECT_FALSE(S::isBelow(*a, *a));
  EXPECT_TRUE(traces.has("EntityCopyUtils/9 relativePath: /a/b is b relative to /a")) << traces.text();
  EXPECT_DEATH(S::relativePath(nullptr, "/a"), "Assertion 'root && absolutePath' failed");
  EXPECT_DEATH(S::relativePath(a, ""), "Assertion 'root && absolutePath' failed");
}

TEST(EntityPath, ComparesByLengthTheWrongWayRound) {
  S::EntityPath const one("a"), other("b"), longer("aa");
  EXPECT_TRUE(one >= other && one <= other && !(one > other));
  EXPECT_TRUE(longer <= one && !(longer >= one) && !(longer > one));
  EXPECT_TRUE(one >= longer && one > longer);
  EXPECT_FALSE(one == other);
  std::ostringstream out;
  out << one << " " << valueToStrep(one);
  EXPECT_EQ(out.str(), "a 'a'");
}

}  // namespace
