// The rows of the tables of conflicts, in all three modes. That different nodes, and the same change, are in none is
// for the oracle to find.
#include "service/core/Device.h"

namespace {

using namespace Tests;
using Mode = Sv::UpdateMode;
using Edit = std::function<void(Plant::Hall&)>;

// Two users of one device.
struct Conflicts : testing::Test {
  std::unique_ptr<Device> device;
  Sv::Session* session = nullptr;

  // Both begin with `before`; the other one commits `theirs`.
  void prepare(Edit const& before, Edit const& mine, Edit const& theirs) {
    device = std::make_unique<Device>(before);
    session = &device->open("mine");
    Sv::Session& other = device->open("other");
    mine(*hallOf(session->tree()));
    theirs(*hallOf(other.tree()));
    other.commit();
  }
  Plant::Hall& mine() { return *hallOf(session->tree()); }

  // The conflicts in the refusal, and that nothing changes; then `candidate` and `running` look at what the other modes
  // make of it.
  void expect(Edit const& before, Edit const& edit, Edit const& change, std::string const& conflicts,
              Edit const& candidate, Edit const& running) {
    prepare(before, edit, change);
    std::string const session0 = Kel::writeAttrLog(*session->tree().dir),
                      ancestor0 = Kel::writeAttrLog(*session->ancestor().dir);
    std::string told;
    for (Sv::Conflict const& c : conflictsOf([&] { session->update(); })) {
      told += c.path.text() + " " + Sv::text(c.kind);
      for (Sv::Path const& node : c.nodes) told += " " + node.text();
      if (c.target) told += " -> " + c.target->text();
      told += "\n";
    }
    EXPECT_EQ(told, conflicts);
    EXPECT_EQ(Kel::writeAttrLog(*session->tree().dir), session0);
    EXPECT_EQ(Kel::writeAttrLog(*session->ancestor().dir), ancestor0);
    std::string const running0 = device->image();
    EXPECT_EQ(conflictsOf([&] { session->commit(); }).size(), session->conflicts().size());
    EXPECT_EQ(device->image(), running0);

    session->update(Mode::preferCandidate);
    EXPECT_EQ(imageOf(session->ancestor()), running0);
    candidate(mine());
    session->commit();
    candidate(*device->hall());

    prepare(before, edit, change);
    session->update(Mode::preferRunning);
    EXPECT_EQ(imageOf(session->ancestor()), device->image());
    running(mine());
    session->commit();
    running(*device->hall());
  }
  // The same whoever edits and whoever commits.
  void expectBothWays(Edit const& before, Edit const& one, Edit const& other, std::string const& conflicts,
                      Edit const& ones, Edit const& others) {
    expect(before, one, other, conflicts, ones, others);
    expect(before, other, one, conflicts, others, ones);
  }
  void expectNone(Edit const& before, Edit const& edit, Edit const& change, Edit const& both) {
    prepare(before, edit, change);
    EXPECT_EQ(linesOf(session->conflicts()), "");
    session->update();
    both(mine());
    session->commit();
    both(*device->hall());
  }
};

Edit const noEdit = [](Plant::Hall&) {};
Edit history(std::string const& items) {
  return [=](Plant::Hall& h) {
    h.historyDelAll();
    for (char c : items) h.historyEnq(Kel::String8(std::string(1, c)));
  };
}
Edit hasHistory(std::string const& items) {
  return [=](Plant::Hall& h) {
    std::string found;
    for (auto it = h.historyIterator(); it; ++it) found += it.value().str();
    EXPECT_EQ(found, items);
  };
}

TEST_F(Conflicts, OneValueOrMember) {
  expect([](auto& h) { h.u32Is(1); }, [](auto& h) { h.u32Is(2); }, [](auto& h) { h.u32Is(3); }, "hall.u32 value\n",
         [](auto& h) { EXPECT_EQ(h.u32(), 2u); }, [](auto& h) { EXPECT_EQ(h.u32(), 3u); });
  expect([](auto& h) { h.textsIs("k", "1"); }, [](auto& h) { h.textsIs("k", "2"); }, [](auto& h) { h.textsDel("k"); },
         "hall.texts/k value\n", [](auto& h) { EXPECT_EQ(h.texts("k"), "2"); },
         [](auto& h) { EXPECT_FALSE(h.textsHas("k")); });
}

TEST_F(Conflicts, ADeletionAboveAChange) {
  expectBothWays([](auto& h) { h.newAnnex("x")->newBolt("b"); }, [](auto& h) { h.annex("x")->bolt("b")->torqueIs(9); },
                 [](auto& h) { h.annexDel("x"); }, "hall.annex/x existence hall.annex/x.bolt/b.torque\n",
                 [](auto& h) {
                   ASSERT_TRUE(h.annex("x"));
                   EXPECT_EQ(h.annex("x")->bolt("b")->torque(), 9);
                 },
                 [](auto& h) { EXPECT_FALSE(h.annex("x")); });
}

TEST_F(Conflicts, ADeletionBelowADeletionIsNone) {
  Edit const before = [](auto& h) {
    h.newAnnex("x")->newBolt("b");
    h.annex("x")->historyEnq("item");
  };
  Edit const outer = [](auto& h) { h.annexDel("x"); };
  Edit const inner = [](auto& h) {
    h.annex("x")->boltDel("b");
    h.annex("x")->historyDelAll();
  };
  Edit const gone = [](auto& h) { EXPECT_FALSE(h.annex("x")); };
  expectNone(before, outer, inner, gone);
  expectNone(before, inner, outer, gone);
}

TEST_F(Conflicts, OneMemberCreatedTwice) {
  auto const gear = [](Kel::U16 teeth, Kel::F32 wear) {
    return [=](Plant::Hall& h) { h.newGear("g", teeth, Plant::Size(), Plant::Grade::raw)->wearIs(wear); };
  };
  auto const has = [](Kel::U16 teeth, Kel::F32 wear) {
    return [=](Plant::Hall& h) {
      ASSERT_TRUE(h.gear("g"));
      EXPECT_EQ(h.gear("g")->teeth(), teeth);
      EXPECT_EQ(h.gear("g")->wear(), wear);
    };
  };
  expect(noEdit, gear(3, 1), gear(4, 1), "hall.gear/g existence\n", has(3, 1), has(4, 1));
  expect(noEdit, gear(3, 1), gear(3, 2), "hall.gear/g existence\n", has(3, 1), has(3, 2));
  // One side replaces it, the other one deletes it.
  Edit const deletes = [](auto& h) { h.gearDel("g"); };
  Edit const gone = [](auto& h) { EXPECT_FALSE(h.gear("g")); };
  Edit const replaces = [gear](auto& h) {
    h.gearDel("g");
    gear(4, 1)(h);
  };
  expectBothWays(gear(3, 1), replaces, deletes, "hall.gear/g existence\n", has(4, 1), gone);
}

TEST_F(Conflicts, APointerAtWhatTheOtherDeleted) {
  Edit const before = [](auto& h) {
    h.newBolt("t")->torqueIs(1);
    h.newBolt("p");
  };
  Edit const points = [](auto& h) { h.bolt("p")->peerIs(h.bolt("t")); };
  Edit const deletes = [](auto& h) { h.boltDel("t"); };
  Edit const pointing = [](auto& h) {
    ASSERT_TRUE(h.bolt("t"));
    EXPECT_EQ(h.bolt("t")->torque(), 1);
    EXPECT_EQ(h.bolt("p")->peer(), h.bolt("t"));
  };
  Edit const gone = [](auto& h) {
    EXPECT_FALSE(h.bolt("t"));
    EXPECT_FALSE(h.bolt("p")->peer());
  };
  expectBothWays(before, points, deletes, "hall.bolt/p.peer existence -> hall.bolt/t\n", pointing, gone);
}

TEST_F(Conflicts, AMemberWhoseKeyAndValueTheOtherDeleted) {
  Edit const before = [](auto& h) {
    h.newBolt("key");
    h.newBolt("value");
  };
  Edit const points = [](auto& h) { h.matedIs(h.bolt("key"), h.bolt("value")); };
  Edit const deletes = [](auto& h) {
    h.boltDel("key");
    h.boltDel("value");
  };
  Edit const pointing = [](auto& h) {
    ASSERT_TRUE(h.bolt("key") && h.bolt("value"));
    EXPECT_EQ(h.mated(h.bolt("key")), h.bolt("value"));
  };
  Edit const gone = [](auto& h) {
    EXPECT_FALSE(h.bolt("key") || h.bolt("value"));
    EXPECT_FALSE(h.matedIterator());
  };
  expectBothWays(before, points, deletes, "hall.mated/hall.bolt/key existence -> hall.bolt/key\n", pointing, gone);
}

TEST_F(Conflicts, APointerInWhatWasCreated) {
  expect([](auto& h) { h.newBolt("t"); }, [](auto& h) { h.newBolt("new")->peerIs(h.bolt("t")); },
         [](auto& h) { h.boltDel("t"); }, "hall.bolt/new.peer existence -> hall.bolt/t\n",
         [](auto& h) {
           ASSERT_TRUE(h.bolt("new") && h.bolt("t"));
           EXPECT_EQ(h.bolt("new")->peer(), h.bolt("t"));
         },
         [](auto& h) {
           ASSERT_TRUE(h.bolt("new"));
           EXPECT_FALSE(h.bolt("new")->peer());
           EXPECT_FALSE(h.bolt("t"));
         });
}

// The member goes, not its whole collection.
TEST_F(Conflicts, APointerKeyInWhatWasCreated) {
  expect([](auto& h) { h.newBolt("t"), h.newBolt("other"); },
         [](auto& h) {
           h.newAnnex("new")->weightIs(h.bolt("t"), 3);
           h.annex("new")->weightIs(h.bolt("other"), 4);
         },
         [](auto& h) { h.boltDel("t"); }, "hall.annex/new.weight/hall.bolt/t existence -> hall.bolt/t\n",
         [](auto& h) {
           ASSERT_TRUE(h.bolt("t"));
           EXPECT_EQ(h.annex("new")->weight(h.bolt("t")), 3u);
         },
         [](auto& h) {
           EXPECT_EQ(h.annex("new")->weights(), 1u);
           EXPECT_EQ(h.annex("new")->weight(h.bolt("other")), 4u);
         });
}

TEST_F(Conflicts, APointerInWhatTheOtherReplaced) {
  Edit const before = [](auto& h) {
    h.newBolt("t");
    h.newGearbox("g", 3, Plant::Size(), Plant::Grade::raw)->newPin("p");
  };
  expect(
      before, [](auto& h) { h.gearbox()->pin()->peerIs(h.bolt("t")); },
      [](auto& h) {
        h.boltDel("t");
        h.gearboxDel();
        h.newGearbox("g", 4, Plant::Size(), Plant::Grade::raw);
      },
      "hall.gearbox.pin.peer existence -> hall.bolt/t\nhall.gearbox existence hall.gearbox.pin.peer\n",
      [](auto& h) {
        ASSERT_TRUE(h.gearbox()->pin() && h.bolt("t"));
        EXPECT_EQ(h.gearbox()->pin()->peer(), h.bolt("t"));
      },
      [](auto& h) {
        EXPECT_EQ(h.gearbox()->teeth(), 4);
        EXPECT_FALSE(h.gearbox()->pin() || h.bolt("t"));
      });
}

TEST_F(Conflicts, WhatIsKeptKeepsWhatItPointsAt) {
  Edit const before = [](auto& h) { h.newBolt("p")->peerIs(h.newBolt("t")); };
  Edit const changes = [](auto& h) { h.bolt("p")->torqueIs(1); };
  Edit const deletes = [](auto& h) {
    h.boltDel("p");
    h.boltDel("t");
  };
  Edit const kept = [](auto& h) {
    ASSERT_TRUE(h.bolt("p") && h.bolt("t"));
    EXPECT_EQ(h.bolt("p")->peer(), h.bolt("t"));
  };
  Edit const gone = [](auto& h) { EXPECT_FALSE(h.bolt("p") || h.bolt("t")); };
  expectBothWays(before, changes, deletes, "hall.bolt/p existence hall.bolt/p.torque\n", kept, gone);
}

// So on along a chain of pointers.
TEST_F(Conflicts, WhatIsKeptKeepsAChain) {
  Edit const chain = [](auto& h) {
    for (char const* name : {"a", "b", "c", "d"}) h.newBolt(name);
    h.bolt("a")->peerIs(h.bolt("b"));
    h.bolt("b")->peerIs(h.bolt("c"));
    h.bolt("c")->peerIs(h.bolt("d"));
  };
  Edit const point = [](auto&h) { h.favouriteIs(h.bolt("a")); }, drop = [](auto&h) { h.boltDelAll(); };
  Edit const all = [](auto&h) { EXPECT_EQ(h.bolts(), 4u); }, none = [](auto&h) { EXPECT_EQ(h.bolts(), 0u); };
  expectBothWays(chain, point, drop, "hall.favourite existence -> hall.bolt/a\n", all, none);
}

TEST_F(Conflicts, OverlappingRuns) {
  expect(history("abcde"), history("axyde"), history("abze"), "hall.history order\n", hasHistory("axyde"),
         hasHistory("abze"));
  // Elsewhere in the queue both changes stand.
  expect(history("abcdefg"), history("1abXdefg"), history("abYdefg2"), "hall.history order\n", hasHistory("1abXdefg2"),
         hasHistory("1abYdefg2"));
}

TEST_F(Conflicts, InsertionsAtOnePlace) {
  expectNone(history("ab"), history("axyb"), history("axzb"), hasHistory("axzyb"));
  expectNone(history(""), history("m"), history("r"), hasHistory("rm"));
  expectNone(history("abcd"), history("aXbcd"), history("abcYd"), hasHistory("aXbcYd"));
  // At the edge of what the other removed.
  expectNone(history("abcd"), history("aXbcd"), history("acd"), hasHistory("aXcd"));
  expectNone(history("abcd"), history("acd"), history("abXcd"), hasHistory("aXcd"));
  expectNone(history("abcd"), history("acd"), history("aXbcd"), hasHistory("aXcd"));
  expectNone(history("abcd"), history("abXcd"), history("acd"), hasHistory("aXcd"));
}

Edit const threeJobs = [](auto& h) {
  for (char const* title : {"one", "two", "three"}) h.jobEnq(title);
};
Plant::Job::Ptr jobAt(Plant::Hall& h, unsigned n) {
  auto it = h.jobIterator();
  while (n-- > 0) ++it;
  return it.value();
}

TEST_F(Conflicts, APointerAtAnItemThatTheOtherRemoved) {
  expectBothWays(
      threeJobs, [](auto& h) { h.anythingIs(jobAt(h, 1)); }, [](auto& h) { h.jobDel(jobAt(h, 1)->index()); },
      "hall.anything existence -> hall.job/1\n",
      [](auto& h) {
        ASSERT_EQ(h.jobs(), 3u);
        EXPECT_EQ(h.anything().ptr(), jobAt(h, 1).ptr());
      },
      [](auto& h) {
        EXPECT_EQ(h.jobs(), 2u);
        EXPECT_FALSE(h.anything());
      });
}

TEST_F(Conflicts, ItemsOfAQueue) {
  Edit const before = threeJobs;
  auto const jobs = [](Plant::Hall& h) {
    std::string text;
    for (auto it = h.jobIterator(); it; ++it) text += it.value()->title().str() + (it.value()->done() ? "! " : " ");
    return text;
  };
  auto const at = [](Plant::Hall& h, unsigned n) {
    auto it = h.jobIterator();
    while (n-- > 0) ++it;
    return it;
  };
  expectNone(
      before, [&](auto& h) { at(h, 2).value()->doneIs(true); }, [&](auto& h) { h.jobDel(at(h, 0).key()); },
      [&](auto& h) { EXPECT_EQ(jobs(h), "two three! "); });
  expectBothWays(
      before, [&](auto& h) { at(h, 1).value()->doneIs(true); }, [&](auto& h) { h.jobDel(at(h, 1).key()); },
      "hall.job/1 existence hall.job/1.done\n", [&](auto& h) { EXPECT_EQ(jobs(h), "one two! three "); },
      [&](auto& h) { EXPECT_EQ(jobs(h), "one three "); });
}

// --- Settling ---

struct Settling : Conflicts {
  void SetUp() override {
    prepare([](auto& h) { h.u32Is(1); }, [](auto& h) { h.u32Is(2); }, [](auto& h) { h.u32Is(3); });
  }
  Sv::Path path(char const* text = "hall.u32") { return pathIn(session->tree(), text); }
  // An edit of two nodes of a bolt that the other one deletes.
  void prepareTwoNodes() {
    prepare([](auto& h) { h.newBolt("b"); },
            [](auto& h) {
              h.bolt("b")->torqueIs(1);
              h.bolt("b")->lockedIs(true);
            },
            [](auto& h) { h.boltDel("b"); });
  }
  void otherCommits(Kel::U32 value) {
    Sv::Session& other = *device->service->session("other");
    other.update(Mode::preferRunning);
    hallOf(other.tree())->u32Is(value);
    other.commit();
  }
};

TEST_F(Settling, ByAnotherEdit) {
  mine().u32Is(4);
  EXPECT_EQ(session->conflicts().size(), 1u) << "the user was not told before";
  mine().u32Is(5);
  EXPECT_TRUE(session->conflicts().empty());
  otherCommits(6);
  EXPECT_EQ(session->conflicts().size(), 1u) << "running has changed it once more";
  mine().u32Is(7);
  session->commit();
  EXPECT_EQ(device->hall()->u32(), 7u);
}

TEST_F(Settling, ByTheSameValueAgain) {
  EXPECT_EQ(session->conflicts().size(), 1u);
  session->edited(path());
  session->commit();
  EXPECT_EQ(device->hall()->u32(), 2u);
}

TEST_F(Settling, ByTheAncestorsValue) {
  mine().u32Is(1);
  session->update();
  EXPECT_EQ(mine().u32(), 3u);
}

TEST_F(Settling, ByNamingASide) {
  session->resolve(path(), Sv::Side::running);
  EXPECT_TRUE(session->conflicts().empty());
  session->update();
  EXPECT_EQ(mine().u32(), 3u);
  SetUp();
  session->resolve(path(), Sv::Side::session);
  mine().u32Is(1);  // holds for the ancestor's value, too
  session->commit();
  EXPECT_EQ(device->hall()->u32(), 1u);
  SetUp();
  session->resolve(path(), Sv::Side::session);
  session->discard();
  mine().u32Is(2);
  EXPECT_EQ(session->conflicts().size(), 1u) << "discarding forgets";
  EXPECT_THROW(session->resolve(path("hall.text"), Sv::Side::session), Sv::Error);
}

TEST_F(Settling, OfWhatOnlyRunningChanged) {
  prepare(noEdit, noEdit, [](auto& h) { h.u32Is(3); });
  session->resolve(path(), Sv::Side::session);
  session->update();
  EXPECT_EQ(mine().u32(), 0u);
  prepare(noEdit, noEdit, [](auto& h) { h.u32Is(3); });
  session->resolve(path(), Sv::Side::session);
  otherCommits(6);
  session->update();
  EXPECT_EQ(mine().u32(), 6u) << "running has changed it once more";
  prepare(history("abcd"), history("abcd"), history("XbcY"));
  session->resolve(path("hall.history"), Sv::Side::session);
  session->update();
  hasHistory("abcd")(mine());
  SetUp();
  session->resolve(path(), Sv::Side::session);
  session->discard(path());
  session->update();
  EXPECT_EQ(mine().u32(), 3u) << "discarding forgets";
}

TEST_F(Settling, OfSeveralNodesByEach) {
  prepareTwoNodes();
  ASSERT_EQ(session->conflicts().size(), 1u);
  mine().bolt("b")->torqueIs(2);
  EXPECT_EQ(session->conflicts().size(), 1u);
  session->edited(path("hall.bolt/b.locked"));
  EXPECT_TRUE(session->conflicts().empty());
  session->commit();
  EXPECT_EQ(device->hall()->bolt("b")->torque(), 2);
}

TEST_F(Settling, OfSeveralNodesByTheirEntity) {
  for (Sv::Side side : {Sv::Side::session, Sv::Side::running}) {
    prepareTwoNodes();
    session->resolve(path("hall.bolt/b"), side);
    session->commit();
    EXPECT_EQ(bool(device->hall()->bolt("b")), side == Sv::Side::session);
  }
}

// A path that the user edits counts items as the session has them, and a conflict as the ancestor has them.
TEST_F(Settling, InAnItemThatHasMoved) {
  prepare([](auto& h) { h.readingEnq(1); },
          [](auto& h) {
            h.readingDelAll();
            h.readingEnq(0.5);
            h.readingEnq(1)->noteIs("mine");
          },
          [](auto& h) { h.readingIterator().value()->noteIs("theirs"); });
  ASSERT_EQ(session->conflicts().size(), 1u);
  mine().readingIterator().value()->noteIs("another");
  session->edited(path("hall.reading/0.note"));
  EXPECT_EQ(session->conflicts().size(), 1u) << "an item that running does not have";
  session->edited(path("hall.reading/1.note"));
  EXPECT_EQ(session->conflicts().size(), 0u);
}

TEST_F(Settling, ByAnItemOfARunAgain) {
  prepare(history("ab"), history("xyb"), history("zb"));
  ASSERT_EQ(session->conflicts().size(), 1u);
  session->edited(path("hall.history/2"));
  EXPECT_EQ(session->conflicts().size(), 1u) << "behind the run";
  session->edited(path("hall.history/1"));
  EXPECT_EQ(session->conflicts().size(), 0u);
}

// What was settled before a commit does not settle a later conflict with the same content.
TEST_F(Settling, EndsWithACommit) {
  ASSERT_EQ(session->conflicts().size(), 1u);
  session->resolve(path(), Sv::Side::session);
  session->commit();
  otherCommits(3);
  mine().u32Is(5);
  EXPECT_EQ(conflictsOf([&] { session->commit(); }).size(), 1u);
}

// Nor one before the session was cleared. An update of a path alone forgets nothing.
TEST_F(Settling, EndsWhenTheSessionIsCleared) {
  ASSERT_EQ(session->conflicts().size(), 1u);
  session->resolve(path(), Sv::Side::session);
  session->clear();
  otherCommits(4);
  session->update(Mode::preferRunning, path());
  otherCommits(3);
  mine().u32Is(5);
  EXPECT_EQ(conflictsOf([&] { session->commit(); }).size(), 1u);
}

// The side of an entity holds for what comes into conflict below it later.
TEST_F(Settling, OfAnEntityHoldsBelowIt) {
  prepare([](auto& h) { h.newBolt("a"), h.newBolt("b"); }, [](auto& h) { h.bolt("a")->torqueIs(1); },
          [](auto& h) { h.boltDel("a"), h.boltDel("b"); });
  EXPECT_EQ(session->conflicts().size(), 1u);
  session->resolve(path("hall.bolt/a"), Sv::Side::session);
  mine().bolt("a")->peerIs(mine().bolt("b"));
  EXPECT_EQ(linesOf(session->conflicts()), "");
  session->commit();
  EXPECT_EQ(device->hall()->bolt("a")->peer().ptr(), device->hall()->bolt("b").ptr());
}

// A pointer was settled for running before the session deleted what holds it.
TEST_F(Settling, APointerInWhatIsDeletedGoesWithIt) {
  prepare([](auto& h) { h.newBolt("b"), h.newAnnex("n"); }, [](auto& h) { h.boltDel("b"); },
          [](auto& h) { h.annex("n")->favouriteIs(h.bolt("b")); });
  EXPECT_EQ(session->conflicts().size(), 1u);
  Sv::Path const annex = path("hall.annex/n");
  session->resolve(path("hall.annex/n.favourite"), Sv::Side::running);
  mine().annexDel("n");
  EXPECT_EQ(session->conflicts().size(), 1u);
  session->edited(annex);
  session->commit();
  EXPECT_FALSE(mine().annex("n"));
  EXPECT_FALSE(device->hall()->annex("n"));
}

// What is discarded has to be reported again before an edit settles it.
TEST_F(Settling, EndsWithADiscard) {
  ASSERT_EQ(session->conflicts().size(), 1u);
  session->discard(path());
  mine().u32Is(4);
  EXPECT_EQ(conflictsOf([&] { session->commit(); }).size(), 1u);
}

// Nor does a discard concern a neighbour whose name begins alike.
TEST_F(Settling, OutlivesADiscardBesideIt) {
  prepare([](auto& h) { h.newBolt("b"), h.newBolt("b.1"); },
          [](auto& h) { h.bolt("b")->torqueIs(1), h.bolt("b.1")->torqueIs(1); },
          [](auto& h) { h.bolt("b.1")->torqueIs(2); });
  session->resolve(path("hall.bolt/b.1.torque"), Sv::Side::session);
  session->discard(path("hall.bolt/b"));
  EXPECT_EQ(linesOf(session->conflicts()), "");
}

TEST_F(Settling, ByAllKnownNodesAndANewOne) {
  prepare([](auto& h) { h.newBolt("b"); }, [](auto& h) { h.bolt("b")->torqueIs(1); }, [](auto& h) { h.boltDel("b"); });
  ASSERT_EQ(session->conflicts().size(), 1u);
  mine().bolt("b")->lockedIs(true);
  EXPECT_EQ(session->conflicts().size(), 1u) << "the node that was reported has not been edited";
  mine().bolt("b")->torqueIs(2);
  EXPECT_EQ(session->conflicts().size(), 0u);
}

// A refusal settles nothing: the pointer in conflict is listed again.
TEST_F(Settling, IsRefusedWhole) {
  prepare([](auto& h) { h.newBolt("b"), h.newAnnex("n"); }, [](auto& h) { h.boltDel("b"), h.annexDel("n"); },
          [](auto& h) { h.annex("n")->favouriteIs(h.bolt("b")); });
  EXPECT_EQ(session->conflicts().size(), 2u);
  EXPECT_THROW(session->resolve(Sv::parsePath(device->running, "hall.annex/n.favourite"), Sv::Side::running),
               Sv::Error);
  EXPECT_EQ(session->conflicts().size(), 2u);
}

}  // namespace
