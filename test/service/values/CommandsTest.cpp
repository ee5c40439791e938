#include "service/Commands.h"

#include <gtest/gtest.h>

#include <sstream>

#include "CliSession/RandomWorld.h"
#include "Golden.h"
#include "service/Difference.h"
#include "service/JsonTree.h"

namespace {

using namespace Tests;
using namespace Cli::Service;

struct CommandWorld : RandomWorld {
  std::vector<std::string> roots;
  explicit CommandWorld(unsigned seed) : RandomWorld(seed) {
    src->entryDel("loose");
    for (auto it = status->rootIterator(); it; ++it) roots.push_back(it.key().str());
    for (Kel::Dir::Ptr const& dir : {src, dest})
      for (std::string const& path : roots) dropOrphans(*dir->entity(Kel::String(path)));
  }
  Tree tree(Kel::Dir::Ptr const& dir) const { return {dir, &roots}; }
  // Entries whose entities are to come are no content that differs.
  std::string content(Kel::Dir::Ptr const& dir) const {
    std::string text;
    std::istringstream all(dump(dir));
    for (std::string line; std::getline(all, line);)
      if (!line.ends_with(" to come")) text += line + "\n";
    return text;
  }
  std::vector<std::string> commandsBetween(Kel::Dir::Ptr const& from, Kel::Dir::Ptr const& to) const {
    return commands(differences(tree(from), tree(to)));
  }
};

// The commands between two trees turn the one into the other, and those that lead back turn it back.
TEST(Commands, TurnOneTreeIntoTheOther) {
  for (unsigned const seed : seeds(120)) {
    CommandWorld world(seed);
    std::string const before = world.content(world.dest), after = world.content(world.src);
    std::vector<std::string> const there = world.commandsBetween(world.dest, world.src);
    std::vector<std::string> const back = world.commandsBetween(world.src, world.dest);
    PendingReferences pending;
    Editor editor(world.dest, pending, Editor::Source::rendering);
    editor.applyAll(there);
    ASSERT_EQ(world.content(world.dest), after) << "seed " << seed << "\n" << textOf(there);
    editor.applyAll(back);
    ASSERT_EQ(world.content(world.dest), before) << "seed " << seed << "\n" << textOf(back);
    ASSERT_TRUE(pending.empty()) << "seed " << seed << ", " << pending.list().begin()->place.text() << " waits for "
                                 << pending.list().begin()->target;
  }
}

// A member whose key and value are made again with what holds them.
TEST(Commands, PointersUnderPointersFollow) {
  World world;
  auto const hall = World::hall(world.src);
  hall->newGear("g", 3, Plant::Size(), Plant::Grade::raw)->newPin("p");
  hall->matedIs(hall->gear("g")->pin(), hall->gear("g")->pin());
  PendingReferences pending;
  Editor(world.src, pending).apply("set hall gear g teeth 4");
  Json const json = exportAttribute(*hall, *hall->type()->getAttr("mated"), *world.src);
  EXPECT_EQ(json.dump(), R"({"hall.gear/g.pin":"hall.gear/g.pin"})");
}

// Queues whose items are entities with pointers from, to and among them.
TEST(Commands, QueuesTakeTheirReferencesAlong) {
  for (unsigned const seed : seeds(200)) {
    World world;
    std::vector<std::string> const roots{"hall"};
    Generator generator(seed);
    auto const make = [&](Kel::Dir::Ptr const& dir) {
      auto const hall = World::hall(dir);
      char const* const titles[] = {"a", "b", "c", "d", "e", "f"};
      for (std::size_t n = generator.below(7); n > 0; --n) {
        hall->jobEnq(titles[generator.below(6)]);
        if (generator.below(4) == 0) hall->jobDeq();
      }
      std::vector<Kel::Ptr<Plant::Job>> jobs;
      for (auto it = hall->jobIterator(); it; ++it) jobs.push_back(it.value());
      for (auto const& job : jobs) {
        for (std::size_t n = generator.below(3); n > 0; --n) job->stepEnq();
        if (generator.below(2)) job->aboutIs(jobs[generator.below(jobs.size())]);
        job->doneIs(generator.below(2));
      }
      if (!jobs.empty()) hall->anythingIs(jobs[generator.below(jobs.size())]);
      for (char const* key : {"x", "y"})
        if (!jobs.empty() && generator.below(2)) hall->watchedIs(Kel::U32(key[0]), jobs[generator.below(jobs.size())]);
      for (std::size_t n = generator.below(8); n > 0; --n) hall->historyEnq(titles[generator.below(6)]);
    };
    make(world.src);
    Kel::Dir::Ptr const other = world.dir("other");
    make(other);
    Json const before = exportEntity(*World::hall(world.src), *world.src);
    Json const after = exportEntity(*World::hall(other), *other);
    std::vector<std::string> const there = commands(differences({world.src, &roots}, {other, &roots}));
    std::vector<std::string> const back = commands(differences({other, &roots}, {world.src, &roots}));
    PendingReferences pending;
    Editor editor(world.src, pending, Editor::Source::rendering);
    SCOPED_TRACE(before.dump(1) + after.dump(1) + textOf(there));
    ASSERT_EQ(messageOf<InputError>([&] { editor.applyAll(there); }), "no exception");
    ASSERT_EQ(exportEntity(*World::hall(world.src), *world.src), after) << "seed " << seed << "\n" << textOf(there);
    editor.applyAll(back);
    ASSERT_EQ(exportEntity(*World::hall(world.src), *world.src), before) << "seed " << seed << "\n" << textOf(back);
  }
}

// An edit of a queue leaves every pointer at the item that it was at.
TEST(Commands, InsertAndMoveKeepPointers) {
  World world;
  auto const hall = World::hall(world.src);
  for (char const* title : {"a", "b", "c"}) hall->jobEnq(title);
  hall->anythingIs(hall->job(1));
  hall->job(2)->aboutIs(hall->job(1));
  PendingReferences pending;
  Editor editor(world.src, pending);
  auto const title = [](Kel::Entity::Ptr const& e) { return Kel::ptrCast<Plant::Job>(e)->title().str(); };
  EXPECT_EQ(editor.apply("insert hall job 0 title x").text, "hall.job/0 inserted");
  editor.apply("move hall job 2 0");
  editor.apply("insert hall job 3 step end");
  editor.apply("insert hall job end title y");
  Json const json = exportAttribute(*hall, *hall->type()->getAttr("job"), *world.src);
  EXPECT_EQ(json.dump(), R"([{"title":"b"},{"title":"x"},{"title":"a"},{"title":"c","step":[{}],"about":"hall.job/0"},)"
                         R"({"title":"y"}])");
  EXPECT_EQ(title(hall->anything()), "b");
  EXPECT_EQ(editor.apply("delete hall job 0").dangling.size(), 2U);
  EXPECT_TRUE(pending.empty());  // another item is at that position now
}

// Items of a derived type keep their type when the queue is put in another order.
TEST(Commands, MoveKeepsDerivedTypes) {
  World world;
  auto const hall = World::hall(world.src);
  Path const queue = parsePath(world.src, "hall.tick");
  Json const alarm = {{"$type", "Plant::Alarm"}, {"note", "n"}}, tick = {{"note", "m"}};
  importJson(world.src, queue, {alarm, tick, alarm, tick});
  PendingReferences pending;
  Editor editor(world.src, pending);
  editor.apply("move hall tick 3 0");
  editor.apply("insert hall tick 2");
  Json const expected = {tick, alarm, Json::object(), tick, alarm};
  EXPECT_EQ(exportAttribute(*hall, *queue.steps.back().attr, *world.src), expected);
}

// What the shell's transcripts do not show.
TEST(Commands, AnswerWhatTheyDid) {
  World world;
  auto const hall = World::hall(world.src);
  hall->newBolt("b1");
  PendingReferences pending;
  Editor editor(world.src, pending);
  auto const said = [&](char const* line) {
    std::string text;
    std::string const error = messageOf<InputError>([&] { text = editor.apply(line).text; });
    return text.empty() ? error : text;
  };
  EXPECT_EQ(said("set hall bolt b1 peer b2"), "peer: there is no Bolt 'b2'; did you mean b1?");
  EXPECT_EQ(said("set hall annex a bolt b2"), "hall.annex/a.bolt/b2 created");
  EXPECT_EQ(said("set hall bolt b1 peer b2"), "hall.bolt/b1.peer set to hall.annex/a.bolt/b2, was null");
  EXPECT_EQ(said("set hall gear g teeth 12 grade fine"), "hall.gear/g created");
  EXPECT_EQ(said("set hall gear g pin name p"), "hall.gear/g.pin created");
  EXPECT_EQ(said("set hall favourite hall.gear/g.pin"), "hall.favourite set to hall.gear/g.pin, was null");
  EXPECT_EQ(said("set hall gear g teeth 13"), "hall.gear/g made again with other parameters");
  EXPECT_EQ(hall->favourite().ptr(), hall->gear("g")->pin().ptr());
  EXPECT_EQ(said("set hall size '{\"width\": 3}'"),
            "hall.size set to {\"width\":3,\"height\":3}, was {\"width\":0,\"height\":3}");
  EXPECT_EQ(said("set hall texts k 'a b'"), "hall.texts/k set to a b");
  EXPECT_EQ(said("set hall weight b1 7"), "hall.weight/hall.bolt/b1 set to 7");
  EXPECT_EQ(said("delete hall annex a"), "hall.annex/a deleted; no longer lead anywhere: hall.bolt/b1.peer");
  EXPECT_EQ(said("set hall annex a bolt b2"), "hall.annex/a.bolt/b2 created; pointing at it again: hall.bolt/b1.peer");
  // What is refused has changed nothing.
  std::string const before = world.dump(world.src);
  EXPECT_EQ(said("set hall bolt new torqe 1"), "'torqe': a Bolt has no such attribute; did you mean torque?");
  EXPECT_EQ(said("set hall bolt new torque fast"), "torque: 'fast' is not a number");
  EXPECT_EQ(said("set hall slot new text x"), "'new' is not a number from -2147483648 to 2147483647");
  EXPECT_EQ(said("set hall text a b"), "'hall.text' takes one value, text; text with blanks stands in quotes");
  EXPECT_EQ(said("set hall closed 3"), "'hall.closed' cannot be set");
  EXPECT_EQ(world.dump(world.src), before);
}

// A refusal takes back its own command, not what was edited between two refusals.
TEST(Commands, ARefusalTakesBackNothingElse) {
  World world;
  auto const hall = World::hall(world.src);
  PendingReferences pending;
  Editor editor(world.src, pending);
  std::string const refused = "set hall annex a tags 1 '{\"id\": 2}'";
  EXPECT_NE(messageOf<InputError>([&] { editor.apply(refused); }), "no exception");
  EXPECT_FALSE(hall->annex("a"));
  hall->newAnnex("a")->u32Is(7);
  EXPECT_NE(messageOf<InputError>([&] { editor.apply(refused); }), "no exception");
  ASSERT_TRUE(hall->annex("a"));
  EXPECT_EQ(hall->annex("a")->u32(), 7U);
}

TEST(Commands, DeleteAMemberThatWaitsForItsKey) {
  World world;
  PendingReferences pending;
  Editor(world.src, pending, Editor::Source::rendering).apply("set hall weight hall.bolt/late 7");
  ASSERT_EQ(pending.list().size(), 1U);
  Editor editor(world.src, pending);
  EXPECT_EQ(messageOf<InputError>([&] { editor.apply("delete hall weight hall.bolt/never"); }),
            "there is no Bolt 'hall.bolt/never'");
  EXPECT_EQ(pending.list().size(), 1U);
  EXPECT_EQ(editor.apply("delete hall weight hall.bolt/late").text, "hall.weight/hall.bolt/late deleted");
  EXPECT_TRUE(pending.empty());
}

TEST(Commands, ALineThatEndsTooEarlyIsRefused) {
  World world;
  PendingReferences pending;
  Editor editor(world.src, pending, Editor::Source::rendering);
  EXPECT_EQ(messageOf<InputError>([&] { editor.apply("create Plant::Gear a name b"); }), "'in' and a path expected");
}

}  // namespace
