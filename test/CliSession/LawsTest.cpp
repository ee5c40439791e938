// What holds for every model and every content, on random trees.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "CliSession/World.h"

namespace {

using namespace Tests;

constexpr unsigned seeds = 200;

// A source and a destination of their own making.
struct RandomWorld : World {
  Generator generator;
  explicit RandomWorld(unsigned seed) : generator(seed) {
    // Session roots may lie below session roots.
    if (seed % 4 == 3)
      for (char const* nested : {"hall.part", "hall.annex/one", "sys/annex.bolt", "sys/annex.gearbox.pin"})
        status->rootTrie()->prefixIs(nested, Zuk::prefixTrieStateFactory());
    fill(src, generator);
    // Destinations of three kinds: empty, a source's near relation, something else altogether.
    if (seed % 3 == 1) {
      copy();
      mutate(dest, generator, 1 + static_cast<int>(generator.below(6)));
    } else if (seed % 3 == 2) {
      fill(dest, generator);
    }
  }
};

bool isPointerEdit(std::string const& edit) {
  static char const* const pointers[] = {"::peer ",      "::about ",  "::favourite ", "::anything ",
                                         "::neighbour ", "::chosen ", "::watched ",   "::weight "};
  for (char const* name : pointers)
    if (edit.find(name) != std::string::npos) return true;
  return false;
}

// A queue goes on counting where it stood when its last member went, which nobody sees from outside.
Edits withoutIndices(Edits const& edits) {
  Edits plain;
  for (auto const& [edit, count] : edits) {
    std::string text = edit;
    for (std::string const queue : {".job/", ".step/"}) {
      for (std::size_t at = 0; (at = text.find(queue, at)) != std::string::npos; at += queue.size()) {
        std::size_t const index = at + queue.size();
        text.replace(index, std::min(text.find_first_not_of("0123456789", index), text.size()) - index, "#");
      }
    }
    plain[text] += count;
  }
  return plain;
}

void runLaws(unsigned seed) {
  SCOPED_TRACE(seed);
  RandomWorld world(seed);
  std::string const srcBefore = world.dump(world.src), destBefore = world.dump(world.dest);
  Edits const expected = withoutIndices(world.edits(world.dest, world.src));

  EXPECT_EQ(world.differs(world.dest, world.src), !expected.empty()) << textOf(expected);
  EXPECT_EQ(world.dump(world.src), srcBefore);
  EXPECT_EQ(world.dump(world.dest), destBefore);

  Outcome const first = world.copy();
  EXPECT_EQ(world.dump(world.src), srcBefore);
  ASSERT_EQ(world.dump(world.dest), world.dump(world.src));
  EXPECT_TRUE(world.edits(world.dest, world.src).empty());
  EXPECT_EQ(first.pending, 0u);
  Edits const log = withoutIndices(first.edits);
  for (auto const& [edit, count] : expected) {
    auto const logged = log.find(edit);
    ASSERT_NE(logged, log.end()) << edit << " is not in the log:\n" << textOf(log);
    if (!isPointerEdit(edit)) {
      EXPECT_EQ(logged->second, count) << edit;
    }
  }
  for (auto const& [edit, count] : log)
    // An entity that is made anew takes the pointers to it along.
    EXPECT_TRUE(isPointerEdit(edit) || expected.count(edit)) << edit << " is in the log for nothing";

  EXPECT_FALSE(world.differs(world.dest, world.src));
  Outcome const second = world.copy();
  EXPECT_EQ(textOf(second.edits), "");
  EXPECT_EQ(world.dump(world.dest), srcBefore);

  for (char const* path : {"hall", "sys/annex"})
    for (std::string const& pointer : pointersInto(*world.dest->entity(path), *world.src))
      EXPECT_NE(pointer.find("-> /src/loose"), std::string::npos) << pointer;
}

TEST(Laws, HoldOnTheTypedRoad) {
  for (unsigned seed = 0; seed < seeds && !HasFailure(); ++seed) runLaws(seed);
}

TEST(Laws, HoldOnTheBoxedRoad) {
  BoxedRoad const boxed;
  for (unsigned seed = 0; seed < seeds && !HasFailure(); ++seed) runLaws(seed);
}

TEST(Laws, CopyingBackRestores) {
  for (unsigned seed = 0; seed < seeds && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    RandomWorld world(seed);
    Kel::Dir::Ptr const kept = world.dir("kept");
    world.run(kept, world.dest);
    std::string const before = world.dump(world.dest);
    ASSERT_EQ(world.dump(kept), before);
    world.copy();
    world.run(world.dest, kept);
    ASSERT_EQ(world.dump(world.dest), before);
    EXPECT_FALSE(world.differs(kept, world.dest));
  }
}

// A world in which some entities are filtered, by type and by path.
struct FilteredWorld : RandomWorld {
  Cli::Session::EntityCopyFilterDir::Ptr filters = Cli::Session::entityCopyFilterDirFactory("filters");

  explicit FilteredWorld(unsigned seed) : RandomWorld(seed) {
    if (seed % 5 > 2) return;
    table = Cli::Session::entityCopyCustomHandlerTableFactory("table", root);
    filter("", "Plant::Slot", "part", "text");
    filter("hall.annex", "Plant::Bolt", "peer", "torque");
    if (seed % 5 == 0) filter("hall.part", "", "note", "count");
  }
  void filter(char const* path, char const* typeName, char const* first, char const* without) const {
    auto const names = Cli::Session::attributeFilterFactory();
    names->attributeNameIs(without, true);
    Cli::Session::EntityPath const at(path);
    table->registerEntityCopyFilter(filters, at, typeName, names);
    filters->ecf(Cli::Session::HandlerContext(at, typeName))->newPreAttribute()->attributeNameIs(1, first);
  }
};

TEST(Laws, BothRoadsDoTheSame) {
  for (unsigned seed = 0; seed < seeds && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    FilteredWorld typed(seed), boxed(seed);
    ASSERT_EQ(typed.dump(typed.dest), boxed.dump(boxed.dest));
    for (bool compare : {true, false, false}) {
      Outcome const shortRoad = typed.run(typed.dest, typed.src, compare);
      BoxedRoad const road;
      Outcome const longRoad = boxed.run(boxed.dest, boxed.src, compare);
      ASSERT_EQ(textOf(shortRoad.edits), textOf(longRoad.edits)) << "compare: " << compare;
      EXPECT_EQ(shortRoad.stopped, longRoad.stopped);
      EXPECT_EQ(shortRoad.pending, longRoad.pending);
      ASSERT_EQ(typed.dump(typed.dest), boxed.dump(boxed.dest));
    }
  }
}

// Binds to anything and only counts.
struct Listener : Kel::EntityNotifiee {
  explicit Listener(EntityPtrConst const& e) { bind(e); }
  Kel::U32 calls = 0;
  void dispatch(Kel::AttributeId, void const*) override { ++calls; }
};

TEST(Laws, ReactorsDoNotChangeTheResult) {
  Kel::U32 calls = 0;
  for (unsigned seed = 0; seed < seeds && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    RandomWorld plain(seed), watched(seed);
    Generator dice(seed);
    std::vector<std::unique_ptr<Listener>> listeners;
    for (char const* path : {"hall", "sys/annex"})
      for (Kel::Entity* e : entitiesOf(*watched.dest->entity(path)))
        if (dice.below(4) == 0) listeners.push_back(std::make_unique<Listener>(EntityPtrConst(e)));
    std::string const before = watched.dump(watched.dest);
    EXPECT_EQ(plain.differs(plain.dest, plain.src), watched.differs(watched.dest, watched.src));
    for (auto const& listener : listeners) EXPECT_EQ(listener->calls, 0u) << "a comparison writes";
    Outcome const silent = plain.copy(), heard = watched.copy();
    ASSERT_EQ(textOf(silent.edits), textOf(heard.edits));
    ASSERT_EQ(plain.dump(plain.dest), watched.dump(watched.dest));
    for (auto const& listener : listeners) calls += listener->calls;
  }
  EXPECT_GT(calls, 1000u) << "nobody was told anything";
}

}  // namespace
