#include "service/JsonTree.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "CliSession/RandomWorld.h"
#include "Kel/AttrLog.h"
#include "service/Commands.h"

namespace {

using namespace Tests;
using namespace Cli::Service;

// What is in a directory; what is beside the session roots is named alike, too.
std::string dumpOf(RandomWorld const& world, Kel::Dir::Ptr const& dir) {
  Scope scope = world.scope(dir);
  scope.roots.push_back(dir->child("loose"));
  return Tests::dump(scope);
}
void expectSame(RandomWorld const& world, Kel::Dir::Ptr const& made, unsigned seed) {
  EXPECT_EQ(dumpOf(world, made), dumpOf(world, world.src)) << "seed " << seed;
}

TEST(JsonTree, ExportThenImportIsTheSameTree) {
  for (unsigned const seed : seeds(60)) {
    RandomWorld world(seed);
    for (bool const defaults : {false, true}) {
      std::string const text = exportEntity(*world.src, *world.src, {defaults, nullptr}).dump(1);
      Kel::Dir::Ptr const made(new Kel::Dir(defaults ? "made2" : "made", world.root.ptr()));
      ImportReport const report = importText(made, {}, "tree", text);
      EXPECT_TRUE(report.dangling.empty());
      expectSame(world, made, seed);
    }
  }
}

// What is there already is no hindrance, and what stays the same stays the same entity.
TEST(JsonTree, ReplacesAnyTree) {
  for (unsigned const seed : seeds(60)) {
    RandomWorld world(seed);
    Json const json = exportEntity(*world.src, *world.src);
    importJson(world.dest, {}, json);
    expectSame(world, world.dest, seed);
    std::vector<Kel::Entity*> const before = entitiesOf(*world.dest);
    ImportReport const again = importJson(world.dest, {}, json);
    EXPECT_EQ(before, entitiesOf(*world.dest));
    EXPECT_EQ(again.entities, 0U);
    EXPECT_EQ(again.values, 0U) << "seed " << seed;
    ImportOptions merge;
    merge.merge = true;
    EXPECT_EQ(importJson(world.dest, {}, json, merge).values, 0U);
    expectSame(world, world.dest, seed);
  }
}

// An attribute at a time, at its own path.
TEST(JsonTree, ImportsAtEveryPath) {
  for (unsigned const seed : seeds(20)) {
    RandomWorld world(seed);
    Kel::Dir::Ptr const made(new Kel::Dir("made", world.root.ptr()));
    importJson(made, {}, exportEntity(*world.dest, *world.dest));
    importJson(made, {}, exportEntity(*world.src, *world.src), {});
    auto const generator = std::make_unique<Generator>(seed);
    world.mutate(made, *generator, 5);
    for (auto it = world.status->rootIterator(); it; ++it) {
      Kel::Entity::Ptr const root = world.src->entity(it.key());
      if (root->type() == Kel::Dir::_fwkType()) continue;
      Path const at = *pathOf(*root, *world.src);
      for (Kel::KelAttr const* attr : root->type()->attributeQ())
        if (attr->copiable()) importJson(made, at / attributeStep(*attr), exportAttribute(*root, *attr, *world.src));
    }
    // References among what came later are made good by a second round.
    importJson(made, {}, exportEntity(*world.src, *world.src));
    expectSame(world, made, seed);
  }
}

TEST(JsonTree, HoldsEveryValue) {
  World world;
  auto const hall = World::hall(world.src);
  hall->f64Is(std::nan(""));
  hall->f32Is(-std::numeric_limits<float>::infinity());
  hall->sinceIs(-0.0);
  hall->u64Is(std::numeric_limits<Kel::U64>::max());
  hall->s64Is(std::numeric_limits<Kel::S64>::min());
  hall->letterIs('\xff');
  hall->textIs(Kel::String8(std::string_view("\xc3\x28 \0 \x1f", 6)));
  hall->gradeIs(static_cast<Plant::Grade>(77));
  hall->textsIs("\xff\xfe", "key");
  hall->byNumberIs(std::numeric_limits<Kel::U64>::max(), 1);
  hall->jobEnq("first");
  hall->jobEnq("second");
  auto const second = hall->job(1);
  second->stepEnq();
  hall->jobDeq();  // indices are no positions from here on
  hall->anythingIs(second);
  hall->jobEnq("third");
  hall->job(2)->aboutIs(second);

  Json const json = Json::parse(exportEntity(*world.src, *world.src).dump());
  EXPECT_EQ(json["hall"]["u64"].dump(), "18446744073709551615");
  EXPECT_EQ(json["hall"]["f32"], "-infinity");
  EXPECT_EQ(json["hall"]["anything"], "hall.job/0");
  EXPECT_FALSE(json["hall"].contains("u8"));
  importJson(world.dest, {}, json);
  auto const made = World::hall(world.dest);
  EXPECT_TRUE(std::isnan(made->f64()));
  EXPECT_TRUE(std::signbit(made->since()));
  EXPECT_EQ(made->letter(), '\xff');
  EXPECT_TRUE(made->text() == hall->text());
  EXPECT_EQ(static_cast<int>(made->grade()), 77);
  EXPECT_TRUE(made->texts("\xff\xfe") == "key");
  EXPECT_EQ(made->jobs(), 2U);
  EXPECT_EQ(made->anything().ptr(), made->job(0).ptr());
  EXPECT_EQ(made->job(1)->about().ptr(), made->job(0).ptr());
  EXPECT_EQ(exportEntity(*world.dest, *world.dest), json);
}

TEST(JsonTree, DanglingReferencesComeAlive) {
  World world;
  PendingReferences pending;
  ImportOptions options;
  options.pending = &pending;
  Json const json = Json::parse(R"({"hall": {
    "favourite": "hall.bolt/late", "chosen": {"a": "hall.bolt/late", "b": "hall.door/raw"},
    "weight": {"hall.bolt/late": 7}}})");
  ImportReport const report = importJson(world.src, {}, json, options);
  ASSERT_EQ(report.dangling.size(), 4U);
  EXPECT_EQ(report.dangling[0].place.text(), "hall.favourite");
  auto const hall = World::hall(world.src);
  EXPECT_FALSE(hall->favourite());
  EXPECT_EQ(hall->weights(), 0U);
  // The texts are still there.
  Json const kept = exportEntity(*world.src, *world.src, {false, &pending});
  EXPECT_EQ(kept["hall"]["favourite"], "hall.bolt/late");
  EXPECT_EQ(kept["hall"]["chosen"]["a"], "hall.bolt/late");
  EXPECT_EQ(kept["hall"]["weight"]["hall.bolt/late"], 7);
  EXPECT_TRUE(pending.retry(world.src).empty());

  auto const late = hall->newBolt("late");
  EXPECT_EQ(pending.retry(world.src).size(), 3U);
  EXPECT_EQ(hall->favourite().ptr(), late.ptr());
  EXPECT_EQ(hall->chosen("a").ptr(), late.ptr());
  EXPECT_EQ(hall->weight(late), 7U);
  ASSERT_EQ(pending.list().size(), 1U);
  hall->newDoor(Plant::Grade::raw);
  EXPECT_TRUE(pending.retry(world.src).empty());
  EXPECT_EQ(pending.list().begin()->place.text(), "hall.chosen/b");
}

std::string linesOf(PendingReferences const& pending) {
  std::string lines;
  for (PendingReference const& reference : pending.list()) {
    lines += reference.place.text() + " waits for " + reference.target;
    for (std::string const& other : reference.others) lines += " or " + other;
    lines += "\n";
  }
  return lines;
}

// Pointers that wait for one of several targets: JSON and commands hold all of these.
TEST(JsonTree, HoldsEveryPossibleTarget) {
  World world;
  auto const hall = World::hall(world.src);
  hall->newAxle("axle");
  auto const path = [&](char const* text) { return parsePath(world.src, text); };
  PendingReferences waiting;
  for (char const* place : {"hall.axle.peer", "hall.chosen/k", "hall.favourite"})
    waiting.add({path(place), "hall.bolt/late", "hall.bolt/late", "", {"hall.shelf/late", "hall.annex/a.bolt/late"}});
  waiting.add({path("hall.watched/3"), "hall.bolt/late", "hall.bolt/late", ""});
  Json const json = exportEntity(*hall, *world.src, {false, &waiting});
  std::vector<std::string> const lines = commands(path("hall"), json);
  for (bool const byCommands : {false, true}) {
    Kel::Dir::Ptr const made = world.dir(byCommands ? "first" : "second");
    World::hall(made)->favouriteIs(World::hall(made)->newAxle("axle"));  // and is to lead nowhere
    PendingReferences pending;
    ImportOptions options;
    options.pending = &pending;
    if (byCommands)
      Editor(made, pending, Editor::Source::rendering).applyAll(lines);
    else
      importJson(made, path("hall"), json, options);
    EXPECT_EQ(linesOf(pending), linesOf(waiting));
    EXPECT_EQ(exportEntity(*World::hall(made), *made, {false, &pending}), json);
    auto const late = World::hall(made)->newShelf("late");
    EXPECT_EQ(pending.retry(made).size(), 3U);
    EXPECT_EQ(World::hall(made)->chosen("k").ptr(), late.ptr());
    EXPECT_EQ(World::hall(made)->axle()->peer().ptr(), late.ptr());
    // An import takes the first target that exists.
    options.merge = true;
    importJson(made, path("hall"), json, options);
    EXPECT_EQ(World::hall(made)->favourite().ptr(), World::hall(made)->shelf("late").ptr());
    EXPECT_EQ(pending.list().size(), 1U);
  }
}

// Items of a derived type have their place among the others, also behind a place where one has left.
TEST(JsonTree, QueuesHoldItemsOfDerivedTypes) {
  World world;
  auto const hall = World::hall(world.src);
  Path const queue = parsePath(world.src, "hall.tick");
  Json const alarm = {{"$type", "Plant::Alarm"}, {"note", "n"}}, tick = {{"note", "n"}};
  auto const expectHeld = [&](Json const& items) {
    importJson(world.src, queue, items);
    EXPECT_EQ(exportAttribute(*hall, *queue.steps.back().attr, *world.src), items);
  };
  expectHeld({alarm, alarm, alarm});
  hall->tickDel(1);
  hall->tickEnq()->noteIs("n");
  expectHeld({alarm, alarm, tick, alarm, tick, alarm});
}

// A replaced entity takes the pointers at it along.
TEST(JsonTree, PointersFollowWhatIsMadeAgain) {
  World world;
  auto const hall = World::hall(world.src);
  auto const gear = hall->newGear("g", Kel::U16(1), Plant::Size(), Plant::Grade::raw);
  hall->anythingIs(gear->newPin("p"));
  hall->weightIs(gear->pin(), 5);
  importJson(world.src, parsePath(world.src, "hall.gear/g"), Json::parse(R"({"teeth": 2, "pin": {"name": "p"}})"));
  EXPECT_EQ(hall->gear("g")->teeth(), 2);
  EXPECT_EQ(hall->anything().ptr(), hall->gear("g")->pin().ptr());
  EXPECT_EQ(hall->weight(hall->gear("g")->pin()), 5U);
  EXPECT_EQ(hall->weights(), 1U);
}

std::string imageOf(Kel::Entity const& root) { return exportEntity(root, root, {true, nullptr}).dump(); }

TEST(JsonTree, RefusesWholeAndSaysWhere) {
  struct {
    char const *text, *message;
  } const cases[] = {
      {"{\"hall\": {\n\"u8\": 7,\n\"u88\": 1}}", "f:1: hall: a Hall has no attribute 'u88'; did you mean u8?"},
      {"{\"hall\": {\n\"u8\": 7,\n\"u16\": 65536}}", "f:3: hall.u16: 65536 is not a number from 0 to 65535"},
      {"{\"hall\": {\"bolt\": {\n\"a\": {\"torque\":\n\"fast\"}}}}",
       "f:3: hall.bolt/a.torque: \"fast\" is not a number"},
      {"{\"hall\": {\"history\": [\"a\",\n\"b\",\n3]}}", "f:3: hall.history/2: 3 is not text"},
      {"{\"hall\": {\"u8\": 1,\n\"u8\": 2}}", "f:2: 'u8' is there twice in one object"},
      {"{\"hall\": {\"u8\": 1,\n}}", "f:2: is no JSON"},
      {"{\"hall\": {\"limit\": 1}}", "f:1: hall: 'limit' cannot be set"},
      {"{\"hall\": {\"gear\": {\"g\": {\"teeth\": -1}}}}", "f:1: hall.gear/g: -1 is not a number from 0 to 65535"},
      {"{\"hall\": {\"tags\": {\"1\": {\"id\": 2}}}}", "f:1: hall.tags/1: "},
      {"{\"hall\": {\"favourite\": 3}}", "f:1: hall.favourite: the path of an entity expected, not 3"},
      {"{\"hall\": {\"text\": {\"$bytes\": \"f\"}}}", "f:1: hall.text: "},
      {"{\"hall\": {\"size\": {\"depth\": 2}}}", "f:1: hall.size: Size has no field 'depth'"},
      {"[]", "f:1: an object of entries expected, not array"},
      {"{\"$type\": \"Kel::Dir\", \"x\": {\"$type\": \"Nobody\"}}", "f:1: x: \"Nobody\" is no type of entities"},
      {"{\"x\": {\"$type\": \"Plant::Slot\"}}", "f:1: x: a Slot cannot be an entry of a directory"},
  };
  World world;
  Generator generator(1);
  world.fill(world.src, generator);
  std::string const before = imageOf(*world.src);
  for (auto const& c : cases) {
    std::string const said = messageOf<InputError>([&] { importText(world.src, {}, "f", c.text); });
    EXPECT_EQ(said.substr(0, std::string(c.message).size()), c.message);
    EXPECT_EQ(imageOf(*world.src), before) << c.text;
  }
  EXPECT_NE(messageOf<InputError>([&] { importText(world.src, {}, "f", std::string(100000, '[')); }).find("deeper"),
            std::string::npos);
}

TEST(Paths, TextLeadsBack) {
  for (unsigned const seed : seeds(20)) {
    RandomWorld world(seed);
    for (Kel::Entity* e : entitiesOf(*world.src)) {
      Path const path = *pathOf(*e, *world.src);
      EXPECT_EQ(entityAt(world.src, path).ptr(), e) << path.text();
      EXPECT_EQ(targetAt(world.src, targetText(*e, *world.src)).ptr(), e) << path.text();
      if (path.empty()) continue;
      EXPECT_TRUE(parsePath(world.src, path.text()) == path) << path.text();
      EXPECT_TRUE(path.isWithin(path.parent()));
      EXPECT_TRUE(path.parent() < path);
    }
  }
}

TEST(Paths, SayHowFarTheyLed) {
  World world;
  auto const hall = World::hall(world.src);
  hall->newBolt("et/1.2");
  auto const said = [&](char const* text) { return messageOf<InputError>([&] { parsePath(world.src, text); }); };
  EXPECT_EQ(said("hal.u8"), "'hal.u8': there is no entry 'hal'; did you mean hall?");
  EXPECT_EQ(said("hall.u88"), "'hall.u88': 'hall' (Hall) has no attribute 'u88'; did you mean u8?");
  EXPECT_EQ(said("hall.bolt/et/1.2.torq"),
            "'hall.bolt/et/1.2.torq': 'hall.bolt/et/1.2' (Bolt) has no attribute 'torq'; did you mean torque?");
  EXPECT_EQ(said("hall.u8.x"), "'hall.u8.x': 'hall.u8' is a value, and nothing is below it");
  EXPECT_EQ(parsePath(world.src, "hall.bolt/new.torque").steps.size(), 3U);
  EXPECT_EQ(locate(world.src, parsePath(world.src, "hall.bolt/new.torque")).missing, 2U);
  EXPECT_EQ(parsePath(world.src, "hall.bolt/1.2").steps.back().keyText(), "1.2");
}

}  // namespace
