// What an update brings into a session, and what takes edits back.
#include "service/Commands.h"
#include "service/core/Commits.h"

namespace {

using namespace Tests;
using Mode = Sv::UpdateMode;
using Updates = Commits;

Sv::Options updating(Sv::AutomaticUpdate mode) {
  Sv::Options options;
  options.automaticUpdate = mode;
  return options;
}

TEST_F(Updates, UpdatePathByPath) {
  in(a).u32Is(5);
  in(a).newBolt("x")->torqueIs(1);
  in(a).newBolt("y");
  a.commit();
  b.update(Mode::revertOnConflict, pathIn(a.tree(), "hall.bolt/x"));
  EXPECT_TRUE(in(b).bolt("x"));
  EXPECT_FALSE(in(b).bolt("y"));
  EXPECT_EQ(in(b).u32(), 0u);
  EXPECT_TRUE(b.differences().empty());
  EXPECT_EQ(b.differencesInRunning().size(), 2u);
  in(a).favouriteIs(in(a).bolt("y"));
  a.commit();
  std::string const session = imageOf(b.tree()), ancestor = imageOf(b.ancestor());
  EXPECT_THROW(b.update(Mode::revertOnConflict, pathIn(a.tree(), "hall.favourite")), Sv::Error)
      << "its target is not there";
  EXPECT_EQ(imageOf(b.tree()), session);
  EXPECT_EQ(imageOf(b.ancestor()), ancestor);
  b.update();
  EXPECT_EQ(imageOf(b.tree()), device.image());
}

TEST_F(Updates, SessionsOfOthersFollowWhereThatIsSwitchedOn) {
  for (auto mode : {Sv::AutomaticUpdate::preferCandidate, Sv::AutomaticUpdate::preferRunning,
                    Sv::AutomaticUpdate::revertOnConflict}) {
    Device other({}, updating(mode));
    Sv::Session &x = other.open("x"), &y = other.open("y");
    in(x).u32Is(1);
    in(x).textIs("x");
    in(y).u32Is(2);
    x.commit();
    EXPECT_EQ(in(y).text(), "x");
    EXPECT_EQ(in(y).u32(), mode == Sv::AutomaticUpdate::preferRunning ? 1u : 2u);
    EXPECT_EQ(y.takeNotices().size(), 1u);
    if (mode != Sv::AutomaticUpdate::revertOnConflict) continue;
    EXPECT_EQ(conflictsOf([&] { y.commit(); }).size(), 1u);
    y.resolve(pathIn(y.tree(), "hall.u32"), Sv::Side::session);
    y.commit();
    EXPECT_EQ(other.hall()->u32(), 2u);
  }
}

// Under revertOnConflict, what is in no conflict comes in, but not the deletion of a pointer's target.
TEST_F(Updates, AutomaticUpdatesLeaveOutTargets) {
  Device other([](auto& h) { h.newBolt("b"); }, updating(Sv::AutomaticUpdate::revertOnConflict));
  Sv::Session &x = other.open("x"), &y = other.open("y");
  in(y).favouriteIs(in(y).bolt("b"));
  in(x).boltDel("b");
  in(x).u32Is(7);
  x.commit();
  EXPECT_EQ(in(y).u32(), 7u);
  EXPECT_TRUE(in(y).bolt("b"));
  EXPECT_EQ(linesOf(y.differences()), "changed hall.favourite: null -> \"hall.bolt/b\"\n");
}

TEST_F(Updates, AutomaticUpdatesLeaveOutWhatHoldsAConflict) {
  Device other([](auto& h) { h.newBolt("b"), h.newAnnex("n"); }, updating(Sv::AutomaticUpdate::revertOnConflict));
  Sv::Session &x = other.open("x"), &y = other.open("y"), &z = other.open("z");
  in(y).boltDel("b");
  in(z).annexDel("n");
  in(x).newAnnex("m")->favouriteIs(in(x).bolt("b"));
  in(x).annex("n")->u32Is(1);
  in(x).u32Is(7);
  x.commit();
  EXPECT_EQ(in(y).u32(), 7u);
  EXPECT_FALSE(in(y).annex("m"));
  EXPECT_EQ(in(z).u32(), 7u);
  EXPECT_FALSE(in(z).annex("n"));
}

// Nor anything, if it needs what is left out.
TEST_F(Updates, AutomaticUpdatesAreWhole) {
  Device other({}, updating(Sv::AutomaticUpdate::revertOnConflict));
  Sv::Session &x = other.open("x"), &y = other.open("y");
  in(y).newGear("g", 1, Plant::Size(), Plant::Grade::raw)->newPin("p");
  std::string const before = linesOf(y.differences());
  in(x).favouriteIs(in(x).newGear("g", 2, Plant::Size(), Plant::Grade::raw)->newPin("p"));
  x.commit();
  EXPECT_EQ(y.conflicts().size(), 1u);
  EXPECT_EQ(linesOf(y.differences()), before);
  EXPECT_FALSE(in(y).favourite());
}

TEST_F(Updates, DiscardAllOrBelowAPath) {
  in(a).u32Is(5);
  in(a).newBolt("x")->torqueIs(1);
  in(a).newBolt("y");
  EXPECT_EQ(a.discard(pathIn(a.tree(), "hall.bolt/x")), 1u);
  EXPECT_FALSE(in(a).bolt("x"));
  EXPECT_TRUE(in(a).bolt("y"));
  EXPECT_THROW(a.discard(pathIn(a.tree(), "hall.bolt/y.torque")), Sv::Error) << "it was created as a whole";
  EXPECT_EQ(a.discard(), 2u);
  EXPECT_EQ(imageOf(a.tree()), device.image());
  EXPECT_TRUE(a.differences().empty());
}

// What would lead nowhere is not brought back.
TEST_F(Updates, DiscardKeepsTargetsAndPointersTogether) {
  in(a).favouriteIs(in(a).newBolt("x"));
  a.commit();
  in(a).boltDel("x");
  in(a).favouriteIs(nullptr);
  std::string const before = imageOf(a.tree());
  EXPECT_THROW(a.discard(pathIn(a.tree(), "hall.favourite")), Sv::Error);
  EXPECT_EQ(imageOf(a.tree()), before);
  a.discard(pathIn(a.ancestor(), "hall.bolt/x"));
  a.discard(pathIn(a.tree(), "hall.favourite"));
  EXPECT_EQ(linesOf(a.differences()), "");
}

// A path to discard counts items as the session has them.
TEST_F(Updates, DiscardInAnItem) {
  for (char const* title : {"one", "two"}) in(a).jobEnq(title);
  a.commit();
  Sv::Editor editor(a.tree().dir, a.pending());
  for (char const* line : {"insert hall job 0 title zero", "set hall job 1 done true", "set hall job 2 done true"})
    editor.apply(line);
  EXPECT_THROW(a.discard(pathIn(a.tree(), "hall.job/0.done")), Sv::Error) << "it was added as a whole";
  EXPECT_EQ(a.discard(pathIn(a.tree(), "hall.job/1.done")), 1u);
  EXPECT_EQ(linesOf(a.differences()),
            "changed hall.job/1.done: false -> true\ncreated hall.job at 0: [{\"title\":\"zero\"}]\n");
}

TEST_F(Updates, DiscardForgetsReferencesThatWait) {
  Sv::Path const place = pathIn(a.tree(), "hall.favourite");
  for (bool const differs : {false, true}) {
    if (differs) in(a).favouriteIs(in(a).newBolt("b"));
    a.pending().add({place, "hall.bolt/x", "hall.bolt/x", "there is no such entity"});
    a.discard(place);
    EXPECT_TRUE(a.pending().empty());
  }
}

TEST_F(Updates, RollbackClearAndLoadLeaveEditsToBeReviewed) {
  in(a).u32Is(1);
  a.commit();
  std::string const one = device.image();
  in(a).u32Is(2);
  in(a).newBolt("x");
  in(a).historyEnq("h");
  a.commit();
  std::string const two = device.image();
  in(b).textIs("lost");
  b.pending().add({pathIn(b.tree(), "hall.favourite"), "hall.bolt/late", "hall.bolt/late", "is not there"});
  EXPECT_EQ(b.rollback(1), 1u);
  EXPECT_TRUE(b.pending().empty());
  EXPECT_EQ(imageOf(b.tree()), one);
  EXPECT_EQ(imageOf(b.ancestor()), two);
  EXPECT_EQ(b.differences().size(), 3u);
  EXPECT_EQ(device.image(), two);
  EXPECT_EQ(b.rollback(2), 3u);
  EXPECT_EQ(imageOf(b.tree()), two);
  b.clear();
  EXPECT_EQ(in(b).u32(), 0u);
  EXPECT_TRUE(b.status().cleared());
  b.loadReplace([](Sv::Tree const& fresh) { hallOf(fresh)->u32Is(9); });
  EXPECT_EQ(in(b).u32(), 9u);
  EXPECT_FALSE(in(b).bolt("x"));
  b.discard();
  b.loadMerge([](Sv::Tree const& copy) { hallOf(copy)->newBolt("z"); });
  EXPECT_TRUE(in(b).bolt("x") && in(b).bolt("z"));
  EXPECT_EQ(linesOf(b.differences()), "created hall.bolt/z\n");
  b.loadReplace([](Sv::Tree const& fresh) { hallOf(fresh)->newBolt("x")->torqueIs(7); },
                pathIn(b.tree(), "hall.bolt/x"));
  EXPECT_EQ(linesOf(b.differences()), "changed hall.bolt/x.torque: 0.0 -> 7.0\ncreated hall.bolt/z\n");
  std::string const before = imageOf(b.tree());
  EXPECT_THROW(b.loadMerge([](Sv::Tree const& copy) {
    hallOf(copy)->u32Is(77);
    throw Sv::Error("in the middle");
  }),
               Sv::Error);
  EXPECT_EQ(imageOf(b.tree()), before);
  EXPECT_THROW(b.rollback(7), Sv::Error);
  EXPECT_EQ(linesOf(service.differencesBetween(1, 2)), linesOf(service.differencesOfCommit(2)));
  EXPECT_TRUE(service.differencesFromRunning(2).empty());
}

}  // namespace
