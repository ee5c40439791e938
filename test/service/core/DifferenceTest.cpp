// Differences between two trees, and what carrying them out makes.
#include <limits>

#include "Kel/ChangeJournal.h"
#include "Panel.h"
#include "service/Commands.h"
#include "service/core/Device.h"

namespace {

using namespace Tests;

struct Differences : testing::Test {
  Device device;
  Sv::Session& session = device.open("s");
  Kel::Ptr<Plant::Hall> hall = hallOf(session.tree());
  std::string lines() { return linesOf(session.differences()); }
};

TEST_F(Differences, EachKindOfNode) {
  hall->u32Is(7);
  hall->textsIs("k", "v");
  hall->newGear("g", 3, Plant::Size(), Plant::Grade::raw)->wearIs(0.5F);
  hall->newPart()->noteIs("n");
  hall->favouriteIs(hall->newBolt("b"));
  hall->historyEnq("first");
  EXPECT_EQ(lines(),
            "changed hall.u32: 0 -> 7\n"
            "created hall.texts/k: \"v\"\n"
            "created hall.part\n"
            "created hall.bolt/b\n"
            "created hall.gear/g\n"
            "created hall.history at 0: [\"first\"]\n"
            "changed hall.favourite: null -> \"hall.bolt/b\"\n");
  session.commit();
  EXPECT_EQ(lines(), "");
  hall->u32Is(0);
  hall->textsIs("k", "w");
  hall->newGear("h", 4, Plant::Size(), Plant::Grade::raw);
  hall->gear("g")->wearIs(0.25F);
  hall->part()->countIs(2);
  hall->historyEnq("second");
  EXPECT_EQ(lines(),
            "changed hall.u32: 7 -> 0\n"
            "changed hall.texts/k: \"v\" -> \"w\"\n"
            "changed hall.part.count: 0 -> 2\n"
            "changed hall.gear/g.wear: 0.5 -> 0.25\n"
            "created hall.gear/h\n"
            "created hall.history at 1: [\"second\"]\n");
}

TEST_F(Differences, AnEntityMadeAnewWithTheSameContentIsNone) {
  hall->newBolt("b")->torqueIs(1);
  session.commit();
  hall->boltDel("b");
  hall->newBolt("b")->torqueIs(1);
  EXPECT_EQ(lines(), "");
  hall->newGear("g", 3, Plant::Size(), Plant::Grade::raw)->wearIs(1);
  session.commit();
  hall->gearDel("g");
  hall->newGear("g", 4, Plant::Size(), Plant::Grade::raw)->wearIs(1);
  EXPECT_EQ(lines(), "changed hall.gear/g\n") << "other constructor parameters";
}

TEST_F(Differences, AnEntityMadeAnewIsComparedToItsDepths) {
  hall->newAnnex("n")->newBolt("b")->torqueIs(1);
  session.commit();
  hall->annexDel("n");
  hall->newAnnex("n")->newBolt("b")->torqueIs(2);
  EXPECT_EQ(lines(), "changed hall.annex/n.bolt/b.torque: 1.0 -> 2.0\n");
}

TEST_F(Differences, MoreChangesThanAJournalKeeps) {
  Sv::Session& other = device.open("other");
  unsigned const count = Kel::ChangeJournal::maxEntries + 100;
  for (unsigned n = 0; n < count; ++n) hallOf(other.tree())->newSlot(static_cast<Kel::S32>(n));
  other.commit();
  EXPECT_EQ(session.differencesInRunning().size(), count);
  EXPECT_EQ(session.differencesFromRunning().size(), count);
  EXPECT_EQ(lines(), "");
}

TEST_F(Differences, QueuesAreAligned) {
  for (char const* item : {"a", "b", "c", "d"}) hall->historyEnq(item);
  session.commit();
  hall->historyDelAll();
  for (char const* item : {"a", "x", "c", "d", "b"}) hall->historyEnq(item);
  EXPECT_EQ(lines(),
            "changed hall.history at 1: [\"b\"] -> [\"x\"]\n"
            "created hall.history at 4: [\"b\"]\n");
  hall->historyDelAll();
  for (char const* item : {"a", "c", "d", "b"}) hall->historyEnq(item);
  EXPECT_EQ(lines(), "reordered hall.history at 1 to 3\n");
}

TEST_F(Differences, ItemsThatAreEntitiesGoByTheirParameters) {
  hall->jobEnq("one")->doneIs(true);
  hall->jobEnq("two");
  hall->anythingIs(hall->jobIterator().value());
  session.commit();
  EXPECT_EQ(lines(), "");
  // Other indices, the same items.
  auto const first = hall->jobIterator().key();
  hall->jobDel(first);
  hall->jobDelAll();
  hall->jobEnq("one")->doneIs(true);
  hall->jobEnq("two")->doneIs(true);
  hall->anythingIs(hall->jobIterator().value());
  EXPECT_EQ(lines(), "changed hall.job/1.done: false -> true\n");
}

// Items that make room for another are made anew: pointers at them, and what changes in them, find them.
TEST_F(Differences, WhatConcernsAnItemFollowsIt) {
  for (char const* title : {"one", "two"}) hall->jobEnq(title);
  auto const last = [](Plant::Hall& h) {
    auto it = h.jobIterator();
    for (unsigned n = 1; n < h.jobs(); ++n) ++it;
    return it.value();
  };
  hall->anythingIs(last(*hall));
  session.commit();
  hall->jobDelAll();
  for (char const* title : {"zero", "one", "two"}) hall->jobEnq(title);
  hall->anythingIs(last(*hall));
  last(*hall)->stepEnq()->textIs("new");
  EXPECT_EQ(lines(),
            "created hall.job/1.step at 0: [{\"text\":\"new\"}]\n"
            "created hall.job at 0: [{\"title\":\"zero\"}]\n");
  Sv::carryOut(session.differences(), session.ancestor());
  EXPECT_EQ(exportOf(session.ancestor()), exportOf(session.tree()));
}

// An item that is told by its content is another one when that changes: the pointer at it has changed, too, although
// nobody has touched it.
TEST_F(Differences, APointerAtAnItemOfOtherContent) {
  hall->jobEnq("one")->stepEnq()->textIs("a");
  auto const step = [](Plant::Hall& h) { return h.jobIterator().value()->stepIterator().value(); };
  hall->anythingIs(step(*hall));
  session.commit();
  step(*hall)->textIs("b");
  EXPECT_EQ(lines(), linesOf(Sv::differences(session.ancestor(), session.tree())));
  session.commit();
  EXPECT_EQ(step(*device.hall())->text(), "b");
  EXPECT_EQ(device.hall()->anything().ptr(), step(*device.hall()).ptr());
  EXPECT_EQ(exportOf(session.ancestor()), exportOf(session.tree()));
}

// Items without parameters are aligned by their contents, in which two pointers may have one text and lead to different
// items. The pointers inside them are compared, too.
TEST(DifferencesOfItems, PointersInItemsWithoutParameters) {
  Kel::Dir::Ptr const top = Kel::dirFactory("");
  std::vector<std::string> const roots{"board"};
  auto const make = [&](char const* name, std::vector<char const*> const& titles) {
    Kel::Dir::Ptr const dir(new Kel::Dir(name, top.ptr()));
    auto const board = Kel::ptrCast<Panel::Board>(dir->newEntity("Panel::Board", "board"));
    for (char const* title : titles) board->buttonEnq(title);
    board->lampEnq()->showsIs(board->buttonIterator().value());
    return Sv::Tree{dir, &roots};
  };
  Sv::Tree const from = make("from", {"b"}), to = make("to", {"a", "b"});
  std::vector<Sv::Difference> const list = Sv::differences(from, to);
  EXPECT_EQ(linesOf(list),
            "created board.button at 0: [{\"title\":\"a\"}]\n"
            "changed board.lamp/0.shows: \"board.button/0\" -> \"board.button/0\"\n");
  Sv::carryOut(list, from);
  auto const board = Kel::ptrCast<Panel::Board>(from.dir->entity("board"));
  EXPECT_EQ(board->lampIterator().value()->shows()->title(), "a");
  EXPECT_EQ(linesOf(Sv::differences(from, to)), "");
}

// A NaN among the constructor parameters is the same NaN in both trees.
TEST_F(Differences, AParameterThatIsANaN) {
  double const nan = std::numeric_limits<double>::quiet_NaN();
  hall->readingEnq(nan);
  hall->newPlate("p", std::numeric_limits<float>::quiet_NaN());
  session.commit();
  EXPECT_EQ(linesOf(Sv::differences(session.ancestor(), session.tree())), "");
  hall->readingIterator().value()->noteIs("n");
  hall->plate("p")->textIs("t");
  hall->readingEnq(1);
  EXPECT_EQ(lines(),
            "changed hall.plate/p.text: \"\" -> \"t\"\n"
            "changed hall.reading/0.note: \"\" -> \"n\"\n"
            "created hall.reading at 1: [{\"value\":1.0}]\n");
}

// A member whose key and value are made again with what holds them.
TEST_F(Differences, PointersUnderPointersFollow) {
  hall->newGear("g", 3, Plant::Size(), Plant::Grade::raw)->newPin("p");
  hall->matedIs(hall->gear("g")->pin(), hall->gear("g")->pin());
  session.commit();
  hall->gearDel("g");
  hall->newGear("g", 4, Plant::Size(), Plant::Grade::raw)->newPin("p");
  hall->matedDelAll();
  hall->matedIs(hall->gear("g")->pin(), hall->gear("g")->pin());
  EXPECT_EQ(lines(), "changed hall.gear/g\n");
  Sv::carryOut(session.differences(), session.ancestor());
  EXPECT_EQ(imageOf(session.ancestor()), imageOf(session.tree()));
}

// The same if only the key is made again.
TEST_F(Differences, APointerStaysUnderItsNewKey) {
  hall->newBolt("b");
  hall->newGear("g", 3, Plant::Size(), Plant::Grade::raw)->newPin("p");
  hall->matedIs(hall->gear("g")->pin(), hall->bolt("b"));
  session.commit();
  Sv::Editor(session.tree().dir, session.pending()).apply("set hall gear g teeth 4");
  session.commit();
  EXPECT_EQ(device.hall()->mated(device.hall()->gear("g")->pin()).ptr(), device.hall()->bolt("b").ptr());
  session.rollback(1);
  session.discard();
  EXPECT_EQ(hall->mated(hall->gear("g")->pin()).ptr(), hall->bolt("b").ptr());
}

// What bytes hold is a law on random trees.
TEST_F(Differences, HalfOfTheirBytesIsRefused) {
  hall->newAnnex("x/y.z")->newBolt("b")->torqueIs(1e300);
  std::string const bytes = Sv::bytesOf(session.differences());
  EXPECT_THROW(Sv::differencesOf(bytes.substr(0, bytes.size() / 2)), Kel::RangeException);
}

}  // namespace
