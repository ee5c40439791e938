// Laws on random triples of trees.
#include "service/core/RandomDevices.h"

namespace {

using namespace Tests;
using Mode = Sv::UpdateMode;

class Laws : public testing::Test {
 protected:
  template <class Law>
  void forSeeds(unsigned usual, Law const& law) {
    for (unsigned seed : seeds(usual)) {
      if (HasFailure()) return;
      SCOPED_TRACE("seed " + std::to_string(seed));
      law(seed);
    }
  }
};

TEST_F(Laws, DifferencesMakeOneTreeTheOther) {
  forSeeds(60, [](unsigned seed) {
    RandomDevice device(seed, seed % 2 == 1);
    Sv::Tree const from = device.mine.tree(), to = device.theirs.tree();
    std::string const before = exportOf(from), after = exportOf(to);
    std::vector<Sv::Difference> const list = Sv::differences(from, to);
    EXPECT_EQ(list.empty(), before == after);
    Sv::carryOut(Sv::differencesOf(Sv::bytesOf(list)), from);
    ASSERT_EQ(exportOf(from), after) << linesOf(list);
    EXPECT_EQ(linesOf(Sv::differences(from, to)), "");
    Sv::carryOut(Sv::inverse(list), from);
    ASSERT_EQ(exportOf(from), before) << linesOf(list);
  });
}

// What the journals have noted is all that a walk over everything finds.
TEST_F(Laws, NothingIsMissedThatChanged) {
  forSeeds(30, [](unsigned seed) {
    RandomDevice device(seed, false, false);
    Generator generator(seed);
    for (int round = 0; round < 4; ++round) {
      Sv::Session& s = round % 2 ? device.theirs : device.mine;
      // Without departures from pointers, which make everything be looked at.
      for (int i = 0; i < 3; ++i) {
        hallOf(s.tree())->u32Is(static_cast<Kel::U32>(generator.below(5)));
        hallOf(s.tree())->textsIs("k" + std::to_string(generator.below(3)), std::to_string(generator.below(3)));
        if (auto it = hallOf(s.tree())->annexIterator()) it->u16Is(static_cast<Kel::U16>(generator.below(5)));
        if (auto it = hallOf(s.tree())->jobIterator()) it.value()->doneIs(generator.below(2));
        hallOf(s.tree())->newAnnex("new" + std::to_string(round) + std::to_string(i))->u8Is(3);
        hallOf(s.tree(), "sys/annex")->jobEnq("t" + std::to_string(generator.below(3)));
      }
      EXPECT_EQ(linesOf(s.differences()), linesOf(Sv::differences(s.ancestor(), s.tree())));
      EXPECT_EQ(linesOf(s.differencesInRunning()), linesOf(Sv::differences(s.ancestor(), device.service->running())));
      EXPECT_EQ(linesOf(s.differencesFromRunning()), linesOf(Sv::differences(device.service->running(), s.tree())));
      s.update(Mode::preferRunning);
      EXPECT_EQ(linesOf(s.differences()), linesOf(Sv::differences(s.ancestor(), s.tree())));
      s.commit();
      EXPECT_EQ(linesOf(Sv::differences(s.ancestor(), s.tree())), "");
      EXPECT_EQ(linesOf(Sv::differences(device.service->running(), s.tree())), "");
    }
  });
}

TEST_F(Laws, ACommitMakesRunningTheSession) {
  forSeeds(60, [](unsigned seed) {
    RandomDevice device(seed, seed % 2 == 1);
    for (Sv::Session* s : {&device.theirs, &device.mine}) {
      s->update(Mode::preferCandidate);
      std::string const wanted = exportOf(s->tree());
      try {
        s->commit();
      } catch (Sv::CheckError const&) {
        // S keeps a pointer to what running had deleted before.
        return;
      }
      ASSERT_EQ(exportOf(device.service->running()), wanted);
      ASSERT_EQ(exportOf(s->ancestor()), wanted);
      ASSERT_EQ(exportOf(s->tree()), wanted);
      s->discard();
      ASSERT_EQ(exportOf(s->tree()), wanted) << "commit then discard is nothing";
    }
  });
}

TEST_F(Laws, WhoCommitsFirstMakesNoDifference) {
  unsigned compared = 0;
  forSeeds(60, [&](unsigned seed) {
    std::string images[2];
    for (int order = 0; order < 2; ++order) {
      RandomDevice device(seed);
      Sv::Session &first = order ? device.theirs : device.mine, &second = order ? device.mine : device.theirs;
      first.commit();
      if (!second.conflicts().empty()) return;
      second.commit();
      images[order] = exportOf(device.service->running(), false);
    }
    ++compared;
    ASSERT_EQ(images[0], images[1]);
  });
  EXPECT_GT(compared, 20u);
}

TEST_F(Laws, ModesTakeTheirSides) {
  unsigned conflicts = 0;
  forSeeds(60, [&](unsigned seed) {
    for (Mode mode : {Mode::revertOnConflict, Mode::preferCandidate, Mode::preferRunning}) {
      RandomDevice device(seed);
      device.theirs.commit();
      Sv::Session& s = device.mine;
      std::vector<Sv::Difference> const mine = s.differences(), theirs = s.differencesInRunning();
      std::vector<Sv::Conflict> const all = s.conflicts();
      conflicts += static_cast<unsigned>(all.size());
      std::string const tree0 = bytesOfTree(s.tree()), ancestor0 = bytesOfTree(s.ancestor());
      if (mode == Mode::revertOnConflict) {
        if (all.empty()) continue;
        EXPECT_THROW(s.update(), Sv::ConflictError);
        ASSERT_EQ(bytesOfTree(s.tree()), tree0);
        ASSERT_EQ(bytesOfTree(s.ancestor()), ancestor0);
        continue;
      }
      auto const concerns = [&](Sv::Difference const& d) {
        return std::any_of(all.begin(), all.end(), [&](Sv::Conflict const& c) {
          return touch(c.path, d.path) || (c.target && touch(*c.target, d.path));
        });
      };
      std::map<std::string, Sv::Json> wanted;
      std::vector<Sv::Path> paths;
      auto const want = [&](Sv::Difference const& d, Sv::Tree const& tree) {
        if (d.run || inQueue(d.path)) return;
        wanted[d.path.text()] = contentOf(tree, d.path);
        paths.push_back(d.path);
      };
      bool const candidate = mode == Mode::preferCandidate;
      for (Sv::Difference const& d : mine)
        if (candidate || !concerns(d)) want(d, s.tree());
      for (Sv::Difference const& d : theirs)
        if (!candidate || !concerns(d)) want(d, device.service->running());
      s.update(mode);
      for (Sv::Path const& path : paths)
        EXPECT_EQ(contentOf(s.tree(), path).dump(), wanted[path.text()].dump())
            << path.text() << (candidate ? " candidate" : " running") << "\nmine\n"
            << linesOf(mine) << "theirs\n"
            << linesOf(theirs) << "conflicts\n"
            << linesOf(all);
      if (testing::Test::HasFailure()) return;
      ASSERT_EQ(imageOf(s.ancestor()), device.image());
      std::string const once = bytesOfTree(s.tree());
      EXPECT_TRUE(s.update(mode).empty()) << "update twice is update once";
      ASSERT_EQ(bytesOfTree(s.tree()), once);
    }
  });
  EXPECT_GT(conflicts, 10u);
}

}  // namespace
