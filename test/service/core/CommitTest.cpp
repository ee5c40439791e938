// What a commit brings into running, who checks it and who takes part; what a start restores.
#include "service/core/Commits.h"

namespace {

using namespace Tests;
using Mode = Sv::UpdateMode;

TEST_F(Commits, BringASessionIntoRunning) {
  in(a).u32Is(5);
  in(a).newBolt("x")->peerIs(in(a).newBolt("y"));
  Sv::CommitResult const result = a.commit("first");
  EXPECT_EQ(result.number, 1u);
  EXPECT_EQ(result.differences.size(), 3u);
  EXPECT_EQ(device.hall()->u32(), 5u);
  EXPECT_EQ(device.hall()->bolt("x")->peer(), device.hall()->bolt("y"));
  for (Sv::Session* s : {&a}) {
    EXPECT_EQ(imageOf(s->tree()), device.image());
    EXPECT_EQ(imageOf(s->ancestor()), device.image());
    EXPECT_TRUE(s->differences().empty());
  }
  EXPECT_EQ(a.config().committedCount(), 1u);
  EXPECT_TRUE(a.status().success());
  EXPECT_EQ(in(b).u32(), 0u) << "another session sees it by an update only";
  auto const record = service.commitRecord(1);
  EXPECT_EQ(record.user + "/" + record.session + "/" + record.comment, "user of a/a/first");
  EXPECT_FALSE(a.commit().number) << "nothing to commit";
  EXPECT_EQ(service.history().size(), 1u);
  // The same attributes again, and what was deleted.
  in(a).u32Is(6);
  in(a).boltDel("x");
  EXPECT_EQ(a.commit().number, 2u);
  EXPECT_EQ(device.hall()->u32(), 6u);
  EXPECT_FALSE(device.hall()->bolt("x"));
}

TEST_F(Commits, ChecksRefuse) {
  Agent agent;
  service.registerForPath(agent, "hall");
  in(a).favouriteIs(in(a).newBolt("x"));
  in(a).boltDel("x");
  in(a).u32Is(5);
  auto const findings = [&] { return findingsOf([&] { a.commit(); }); };
  EXPECT_EQ(findings(), "hall.favourite: the target of the pointer, 'x', is not there any more\n");
  in(a).favouriteIs(nullptr);
  agent.refuses = "no such speed";
  service.registerConstraint([](Sv::Tree const& tree, auto const&) {
    if (hallOf(tree)->u32() == 5) throw Sv::Error("u32 must not be 5");
  });
  EXPECT_THROW(a.check(), Sv::CheckError);
  EXPECT_EQ(findings(), ": u32 must not be 5\n: no such speed\n");
  EXPECT_EQ(device.hall()->u32(), 0u);
  EXPECT_EQ(a.status().error("commit").view().find("the configuration cannot be committed"), 0u);
  EXPECT_FALSE(a.status().success());
  EXPECT_EQ(a.status().attempted(), 2u);
  in(a).u32Is(6);
  agent.refuses.clear();
  a.check();
  EXPECT_EQ(device.hall()->u32(), 0u);
  a.commit();
}

TEST_F(Commits, ParticipantsGetWhatIsTheirs) {
  Agent first, second, bolts;
  service.registerForPath(first, "hall.u32");
  service.registerForPath(second, "hall");
  service.registerForType(bolts, *Plant::Bolt::_fwkType());
  in(a).textIs("t");
  a.commit();
  EXPECT_EQ(first.log + bolts.log, "");
  in(a).u32Is(1);
  in(a).newBolt("x");
  second.fails = "no";
  second.log.clear();
  std::string const before = device.image(), edits = imageOf(a.tree()), ancestor = imageOf(a.ancestor());
  EXPECT_THROW(a.commit(), Sv::Error);
  std::string const u32 = "changed hall.u32: 0 -> 1\n", bolt = "created hall.bolt/x\n";
  EXPECT_EQ(first.log, "verify\n" + u32 + "apply\n" + u32 + "undo\n" + u32);
  EXPECT_EQ(bolts.log, "verify\n" + bolt) << "behind the one that failed";
  EXPECT_EQ(device.image(), before);
  EXPECT_EQ(imageOf(a.tree()), edits);
  EXPECT_EQ(imageOf(a.ancestor()), ancestor);
  EXPECT_EQ(service.history().size(), 1u);
  second.fails.clear();
  first.log.clear();
  a.commit();
  EXPECT_EQ(first.log, "verify\n" + u32 + "apply\n" + u32 + "done\n" + u32);
  // What is created or deleted above a path concerns it, too.
  Agent below;
  service.registerForPath(below, "hall.annex/n.u8");
  in(a).newAnnex("n");
  a.commit();
  EXPECT_EQ(below.log, "verify\ncreated hall.annex/n\napply\ncreated hall.annex/n\ndone\ncreated hall.annex/n\n");
  // Names that begin alike are others.
  Agent alike;
  service.registerForPath(alike, "hall.bolt/y");
  in(a).newBolt("y.1");
  a.commit();
  EXPECT_EQ(alike.log, "");
}

TEST_F(Commits, AFailingUndoKeepsNobodyFromTheirs) {
  Agent first, second, third;
  std::string undone;
  for (Agent* agent : {&first, &second, &third}) {
    service.registerForPath(*agent, "hall");
    agent->undone = &undone;
    agent->mark = agent == &first ? '1' : '2';
  }
  in(a).u32Is(1);
  second.failsLater = "stuck";
  third.fails = "no";
  EXPECT_THROW(a.commit(), Sv::Error);
  std::string const u32 = "changed hall.u32: 0 -> 1\n";
  EXPECT_EQ(first.log, "verify\n" + u32 + "apply\n" + u32 + "undo\n" + u32);
  EXPECT_EQ(a.takeNotices(), std::vector<std::string>{"undoing failed: stuck"});
  EXPECT_EQ(undone, "21") << "in reverse";
  EXPECT_EQ(device.hall()->u32(), 0u);
  third.fails.clear();
  first.log.clear();
  Sv::CommitResult const result = a.commit();
  EXPECT_EQ(result.number, 1u) << "it stands";
  EXPECT_EQ(result.reports, std::vector<std::string>{"stuck"});
  EXPECT_EQ(first.log, "verify\n" + u32 + "apply\n" + u32 + "done\n" + u32);
}

TEST_F(Commits, WhatIsPendingAndALostRootAreRefused) {
  auto const findings = [&] { return findingsOf([&] { a.commit(); }); };
  in(a).u32Is(1);
  a.pending().add({pathIn(a.tree(), "hall.favourite"), "hall.bolt/late", "hall.bolt/late", "is not there"});
  EXPECT_EQ(findings(), "hall.favourite: 'hall.bolt/late': is not there\n");
  in(a).newBolt("late");
  EXPECT_EQ(a.pending().retry(a.tree().dir).size(), 1u);
  EXPECT_EQ(findings(), "");
  EXPECT_EQ(device.hall()->favourite(), device.hall()->bolt("late"));
  std::string const before = device.image();
  a.tree().dir->entryDel("hall");
  EXPECT_EQ(findings(), "hall: a session root is neither deleted nor replaced\n");
  EXPECT_EQ(device.image(), before);
  a.discard();
  EXPECT_EQ(imageOf(a.tree()), before);
  in(a).u32Is(2);
  EXPECT_EQ(findings(), "");
}

// Others make what a reference waits for, or delete what holds it.
TEST_F(Commits, WhatIsPendingFollowsRunning) {
  auto const waits = [&](char const* place) {
    b.pending().add({pathIn(b.tree(), place), "hall.bolt/late", "hall.bolt/late", "is not there"});
  };
  in(a).newBolt("holder");
  a.commit();
  b.update();
  waits("hall.favourite");
  waits("hall.bolt/holder.peer");
  in(a).boltDel("holder");
  in(a).newBolt("late");
  a.commit();
  std::string const before = imageOf(b.tree());
  device.service->registerConstraint([](Sv::Tree const& tree, auto const&) {
    if (hallOf(tree)->u32() == 5) throw Sv::Error("u32 must not be 5");
  });
  in(b).u32Is(5);
  EXPECT_THROW(b.commit(), Sv::CheckError);
  EXPECT_EQ(b.pending().list().size(), 2u) << "as before";
  EXPECT_FALSE(in(b).favourite());
  in(b).u32Is(6);
  b.commit();
  EXPECT_TRUE(b.pending().empty());
  EXPECT_EQ(device.hall()->favourite().ptr(), device.hall()->bolt("late").ptr());
}

TEST(Directories, EntriesAreNodesLikeMembers) {
  auto const top = Kel::dirFactory("");
  Kel::Dir::Ptr const running(new Kel::Dir("running", top.ptr()));
  Sv::Service service(running, {{"files", "Kel::Dir"}});
  Sv::Session &a = service.open("a", "a"), &b = service.open("b", "b");
  auto const files = [](Sv::Session& s) { return Kel::ptrCast<Kel::Dir>(s.tree().dir->entity("files")); };
  files(a)->newEntity("Plant::Hall", "x");
  a.commit();
  b.update();
  for (Mode mode : {Mode::preferCandidate, Mode::preferRunning}) {
    hallOf(a.tree(), "files/x")->u32Is(1 + hallOf(a.tree(), "files/x")->u32());
    files(b)->entryDel("x");
    b.commit();
    EXPECT_EQ(linesOf(conflictsOf([&] { a.update(); })).find("files/x (existence): "), 0u);
    a.update(mode);
    EXPECT_EQ(bool(files(a)->entity("x")), mode == Mode::preferCandidate);
    a.commit();
    b.update();
  }
  EXPECT_FALSE(running->entity("files/x"));
  // An entity that is to come is no content yet.
  files(a)->entryStateIs("later", "Plant::Hall");
  EXPECT_TRUE(a.differences().empty());
  EXPECT_FALSE(a.commit().number);
}

TEST_F(Commits, AStartRestoresTheNewestState) {
  for (unsigned every : {0u, 2u}) {
    Sv::MemoryStore store;
    Sv::Options options;
    options.store = &store;
    options.snapshotEvery = every;
    std::string newest;
    {
      Device first([](auto& h) { h.newBolt("factory"); }, options);
      Sv::Session& s = first.open("s");
      for (unsigned n = 1; n <= 5; ++n) {
        in(s).u32Is(n);
        in(s).favouriteIs(in(s).newBolt("b" + std::to_string(n)));
        s.commit();
        first.service->poll();
      }
      newest = first.image();
      in(s).u32Is(99);
      s.commitConfirmed(60);
      in(s).u32Is(100);
      s.commitConfirmed(60);
      first.service->poll();  // no snapshot of what may be undone
    }
    auto const snapshot = store.snapshotAt(100);
    EXPECT_EQ(snapshot ? snapshot->number : 0, every > 0 ? 4u : 0u);
    Device second([](auto& h) { h.newBolt("factory"); }, options);
    Agent agent;
    second.service->registerForPath(agent, "");
    second.service->start();
    EXPECT_EQ(second.image(), newest) << "what was not confirmed is undone";
    EXPECT_EQ(agent.log.find("apply\nchanged hall.u32: 0 -> 100\n"), 0u) << agent.log;
    EXPECT_EQ(second.service->lastCommit(), 8u);
    Sv::Session& s = second.open("s");
    in(s).u32Is(6);
    EXPECT_EQ(s.commit().number, 9u);
    s.rollback(2);
    EXPECT_EQ(in(s).u32(), 2u);
    s.clear();
    EXPECT_EQ(in(s).u32(), 0u);
    EXPECT_TRUE(in(s).bolt("factory"));
  }
}

// An owner that does not call `poll` gets snapshots, too, later than others.
TEST_F(Commits, TakeTheSnapshotThatPollDidNotTake) {
  for (bool const polls : {true, false}) {
    Sv::MemoryStore store;
    Sv::Options options;
    options.store = &store;
    options.snapshotEvery = 3;
    Device other({}, options);
    Sv::Session& s = other.open("s");
    std::string taken;
    for (unsigned n = 1; n <= 13; ++n) {
      in(s).u32Is(n);
      s.commit();
      if (polls) other.service->poll();
      auto const snapshot = store.snapshotAt(100);
      taken += std::to_string(snapshot ? snapshot->number : 0) + " ";
    }
    EXPECT_EQ(taken, polls ? "0 0 3 3 3 6 6 6 9 9 9 12 12 " : "0 0 0 0 0 6 6 6 6 6 6 12 12 ");
  }
}

}  // namespace
