// Every row of the table of commands.
#include "service/core/Device.h"

namespace {

using namespace Tests;
using Mode = Sv::UpdateMode;

// Notes what it is asked for; refuses and fails as told.
struct Agent : Sv::Participant {
  std::string log, refuses, fails, failsLater;
  std::string* undone = nullptr;  // gets the mark when it is undone
  char mark = 0;
  void verify(std::vector<Sv::Difference> const& d) override {
    if (!refuses.empty()) throw Sv::Error(refuses);
    note("verify", d);
  }
  void apply(std::vector<Sv::Difference> const& d) override {
    if (!fails.empty()) throw Sv::Error(fails);
    note("apply", d);
  }
  void undo(std::vector<Sv::Difference> const& d) override {
    if (undone) *undone += mark;
    later("undo", d);
  }
  void done(std::vector<Sv::Difference> const& d) override { later("done", d); }
  void later(char const* what, std::vector<Sv::Difference> const& d) {
    note(what, d);
    if (!failsLater.empty()) throw Sv::Error(failsLater);
  }
  void note(char const* what, std::vector<Sv::Difference> const& d) { log += what + ("\n" + linesOf(d)); }
};

struct Commits : testing::Test {
  Device device;
  Sv::Service& service = *device.service;
  Sv::Session& a = device.open("a");
  Sv::Session& b = device.open("b");
  Plant::Hall& in(Sv::Session& s) { return *hallOf(s.tree()); }
};

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

TEST_F(Commits, UpdateBringsRunningsChanges) {
  in(a).u32Is(5);
  in(b).textIs("b");
  a.commit();
  EXPECT_EQ(linesOf(b.differencesInRunning()), "changed hall.u32: 0 -> 5\n");
  EXPECT_EQ(b.update().size(), 1u);
  EXPECT_EQ(in(b).u32(), 5u);
  EXPECT_EQ(linesOf(b.differences()), "changed hall.text: \"\" -> \"b\"\n");
  EXPECT_TRUE(b.update().empty());
}

TEST_F(Commits, UpdatePathByPath) {
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

TEST_F(Commits, ChecksRefuse) {
  Agent agent;
  service.registerForPath(agent, "hall");
  in(a).favouriteIs(in(a).newBolt("x"));
  in(a).boltDel("x");
  in(a).u32Is(5);
  std::string const before = imageOf(a.tree());
  try {
    a.commit();
    FAIL() << "a dangling pointer";
  } catch (Sv::CheckError const& e) {
    ASSERT_EQ(e.findings.size(), 1u);
    EXPECT_EQ(e.findings[0].path.text(), "hall.favourite");
  }
  in(a).favouriteIs(nullptr);
  agent.refuses = "no such speed";
  service.registerConstraint([](Sv::Tree const& tree, auto const&) {
    if (hallOf(tree)->u32() == 5) throw Sv::Error("u32 must not be 5");
  });
  EXPECT_THROW(a.check(), Sv::CheckError);
  try {
    a.commit();
    FAIL();
  } catch (Sv::CheckError const& e) {
    EXPECT_EQ(e.findings.size(), 2u) << e.what();
  }
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
  auto const refusal = [&] {
    try {
      a.commit();
    } catch (Sv::CheckError const& e) {
      return e.findings.at(0).path.text() + ": " + e.findings.at(0).reason;
    }
    return std::string("committed");
  };
  in(a).u32Is(1);
  a.pending().add({pathIn(a.tree(), "hall.favourite"), "hall.bolt/late", "hall.bolt/late", "is not there"});
  EXPECT_EQ(refusal(), "hall.favourite: 'hall.bolt/late': is not there");
  in(a).newBolt("late");
  EXPECT_EQ(a.pending().retry(a.tree().dir).size(), 1u);
  EXPECT_EQ(refusal(), "committed");
  EXPECT_EQ(device.hall()->favourite(), device.hall()->bolt("late"));
  std::string const before = device.image();
  a.tree().dir->entryDel("hall");
  EXPECT_EQ(refusal(), "hall: a session root is neither deleted nor replaced");
  EXPECT_EQ(device.image(), before);
  a.discard();
  EXPECT_EQ(imageOf(a.tree()), before);
  in(a).u32Is(2);
  EXPECT_EQ(refusal(), "committed");
}

TEST_F(Commits, DiscardAllOrBelowAPath) {
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

TEST_F(Commits, RollbackClearAndLoadLeaveEditsToBeReviewed) {
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

TEST_F(Commits, UndoneUnlessConfirmed) {
  std::string const before = device.image();
  in(a).u32Is(1);
  a.commitConfirmed(60);
  in(b).textIs("b");
  EXPECT_THROW(b.commit(), Sv::UnconfirmedError);
  device.time += 30;
  in(a).u32Is(2);
  a.commitConfirmed(60);  // the clock starts anew
  device.time += 45;
  service.poll();
  EXPECT_EQ(device.hall()->u32(), 2u);
  device.time += 15;
  service.poll();
  EXPECT_EQ(device.image(), before) << "back to before the first";
  EXPECT_EQ(in(a).u32(), 2u) << "back in the session as edits";
  EXPECT_EQ(linesOf(a.differences()), "changed hall.u32: 0 -> 2\n");
  EXPECT_EQ(a.takeNotices().size(), 1u);
  b.commit();
  EXPECT_EQ(service.history().size(), 4u);
  EXPECT_EQ(service.commitRecord(3).kind, Sv::CommitKind::undone);

  a.commitConfirmed(60);
  EXPECT_TRUE(a.commit().confirms);
  device.time += 100;
  service.poll();
  EXPECT_EQ(device.hall()->u32(), 2u);
  EXPECT_FALSE(service.waiting());

  in(a).u32Is(3);
  a.commitConfirmed(60);
  a.commitCancel();
  EXPECT_EQ(device.hall()->u32(), 2u);
  EXPECT_EQ(a.differences().size(), 1u);
}

TEST_F(Commits, ConfirmedByAWordOrLostWithTheSession) {
  in(a).u32Is(1);
  a.commitConfirmed(60, "word");
  service.close(a);
  EXPECT_EQ(device.hall()->u32(), 1u);
  EXPECT_THROW(b.commitPersistent("other"), Sv::UnconfirmedError);
  EXPECT_TRUE(b.commitPersistent("word").confirms);
  in(b).u32Is(2);
  b.commitConfirmed(60);
  service.close(b);
  EXPECT_EQ(device.hall()->u32(), 1u) << "the edits are dropped";
  EXPECT_FALSE(service.waiting());
}

// A participant that fails then is reported; the time comes, or the process is gone.
TEST_F(Commits, UndoingCannotBeRefused) {
  Sv::Options options;
  bool lives = true;
  options.isAlive = [&](Kel::U32) { return lives; };
  Device other({}, std::move(options));
  other.service->tunables().rollbackCommitsAutomaticallyIs(true);
  Agent agent;
  other.service->registerForPath(agent, "");
  Sv::Session& x = other.open("x");
  in(x).u32Is(1);
  x.commit();
  ASSERT_TRUE(other.service->waiting());
  EXPECT_EQ(other.service->waiting()->until, other.time + 600);
  try {
    other.open("y").commit();
    FAIL() << "another's commit";
  } catch (Sv::UnconfirmedError const& e) {
    EXPECT_STREQ(e.what(), "commit 1 of user of x (session x) waits to be confirmed for another 600 s");
  }
  agent.fails = "the hardware is gone";
  EXPECT_EQ(x.commitCancel().reports, std::vector<std::string>{"the hardware is gone"});
  EXPECT_EQ(other.hall()->u32(), 0u);
  EXPECT_THROW(x.commitCancel(), Sv::Error);
  agent.fails.clear();
  x.commit();
  EXPECT_EQ(other.hall()->u32(), 1u);
  lives = false;
  other.time += 599;
  other.service->poll();
  EXPECT_EQ(other.hall()->u32(), 0u) << "with the session that was lost";
  EXPECT_TRUE(other.service->list().empty());
}

TEST_F(Commits, SessionsOfOthersFollowWhereThatIsSwitchedOn) {
  for (auto mode : {Sv::AutomaticUpdate::preferCandidate, Sv::AutomaticUpdate::preferRunning,
                    Sv::AutomaticUpdate::revertOnConflict}) {
    Sv::Options options;
    options.automaticUpdate = mode;
    Device other({}, std::move(options));
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

// --- Sessions ---

TEST_F(Commits, SessionsAreClosedLeftAndResumed) {
  in(a).u32Is(1);
  EXPECT_THROW(service.close(a), Sv::Error);
  EXPECT_THROW(device.open("a"), Sv::Error);
  EXPECT_THROW(service.resume("a", "u"), Sv::Error);
  service.leave(a);
  EXPECT_THROW(service.leave(b), Sv::LimitError) << "one saved session is allowed";
  EXPECT_EQ(service.list().size(), 2u);
  EXPECT_EQ(in(service.resume("a", "another")).u32(), 1u);
  for (char const* name : {"c", "d", "e"}) device.open(name);
  EXPECT_THROW(device.open("f"), Sv::LimitError);
  auto const status = service.manager().pendingChangeStatusDir()->status("a");
  service.close(a, true);
  EXPECT_TRUE(status->completed());
  EXPECT_EQ(status->state(), Cli::Session::SessionState::completed);
  EXPECT_FALSE(service.session("a"));
  EXPECT_EQ(in(device.open("a")).u32(), 0u);
}

TEST_F(Commits, SessionsExpire) {
  Sv::Options options;
  bool lives = true;
  options.isAlive = [&](Kel::U32) { return lives; };
  Device other({}, std::move(options));
  Sv::Session& x = other.open("x");
  other.open("y");
  x.config().expirationTimeIs(other.time + 10);
  other.service->poll();
  EXPECT_EQ(x.status().expirationTime(), other.time + 10);
  other.time += 10;
  other.service->poll();
  EXPECT_EQ(other.service->list().size(), 1u);
  lives = false;
  other.time += 900;
  other.service->poll();
  EXPECT_TRUE(other.service->list().empty()) << "its process is gone";
  lives = true;
  other.service->leave(other.open("z"));
  other.time += 3600;
  other.service->poll();
  EXPECT_TRUE(other.service->list().empty()) << "left for too long";
  other.open("used");
  other.time += 4000;
  other.service->poll();
  EXPECT_EQ(other.service->list().size(), 1u) << "in use";
}

TEST_F(Commits, RequestsAreAnsweredUnderTheirNumbers) {
  using Command = Cli::Session::SessionCommand;
  auto const requests = a.config().newCommandDir(3);
  in(a).u32Is(1);
  requests->newCommand(Cli::Session::CommandRequest(Command::commit, 1));
  requests->newCommand(Cli::Session::CommandRequest(Command::update, 2));
  auto const responses = a.status().commandResponse(3);
  ASSERT_TRUE(responses);
  EXPECT_EQ(responses->response(1), "committed as 1");
  EXPECT_EQ(responses->response(2), "updated; 0 changes");
  EXPECT_EQ(device.hall()->u32(), 1u);
  in(b).u32Is(2);
  auto const others = b.config().newCommandDir(1);
  others->newCommand(Cli::Session::CommandRequest(Command::commit, 1));
  EXPECT_EQ(b.status().commandResponse(1)->response(1).view().find("error: 1 conflict"), 0u);
  // One that comes while a commit is under way waits for its end.
  struct Asks : Sv::Participant {
    std::function<void()> ask;
    void apply(std::vector<Sv::Difference> const&) override { ask(); }
    void undo(std::vector<Sv::Difference> const&) override {}
  } asks;
  service.registerForPath(asks, "");
  asks.ask = [&] {
    others->newCommand(Cli::Session::CommandRequest(Command::clearConfig, 2));
    EXPECT_FALSE(b.status().commandResponse(1)->responseHas(2));
  };
  in(a).u32Is(3);
  a.commit();
  EXPECT_EQ(b.status().commandResponse(1)->response(2), "cleared; 1 edit dropped");
  auto const status = a.status().commandResponse(3);
  requests->newCommand(Cli::Session::CommandRequest(Command::noOp, 3));
  EXPECT_EQ(status->response(3), "ok");
  requests->newCommand(Cli::Session::CommandRequest(Command::remove, 4));
  EXPECT_EQ(status->response(4), "removed");
  EXPECT_FALSE(service.session("a"));
}

// --- Directories ---

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

// --- Restarts ---

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

}  // namespace
