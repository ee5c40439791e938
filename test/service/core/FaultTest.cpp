// A fault at every step of a commit, an update, a rollback and a load: running, session, ancestor and store are as they
// were.
#include "service/core/FailAllocation.h"
#include "service/core/RandomDevices.h"

namespace {

using namespace Tests;
using Mode = Sv::UpdateMode;

struct Fault : std::runtime_error {
  Fault() : std::runtime_error("fault") {}
};

// Counts steps, and fails at one of them.
struct Steps {
  unsigned next = 0, failsAt = ~0u;
  bool failed = false;
  void step() {
    if (next++ != failsAt) return;
    failed = true;
    throw Fault();
  }
};

// Reactors on all that stands in a tree when it is made.
class Watch {
 public:
  Watch(Sv::Tree const& tree, Steps& steps) {
    for (Kel::Entity* root : rootsOf(tree))
      for (Kel::Entity* e : entitiesOf(*root)) reactors_.push_back(Kel::Ptr<Reactor>(new Reactor(e, steps)));
  }

 private:
  struct Reactor : Kel::EntityNotifiee {
    Reactor(Kel::Entity* e, Steps& s) : steps(s) { bind(EntityPtrConst(e)); }
    void dispatch(Kel::AttributeId, void const*) override { steps.step(); }
    Steps& steps;
  };
  std::vector<Kel::Ptr<Reactor>> reactors_;
};

struct FailingStore : Sv::MemoryStore {
  Steps* steps = nullptr;
  void append(Sv::CommitRecord const& record) override {
    if (steps) steps->step();
    Sv::MemoryStore::append(record);
  }
};
struct FailingAgent : Sv::Participant {
  Steps* steps = nullptr;
  int standing = 0;  // how many applies were not undone
  void verify(std::vector<Sv::Difference> const&) override {
    if (steps) steps->step();
  }
  void apply(std::vector<Sv::Difference> const&) override {
    if (steps) steps->step();
    ++standing;
  }
  void undo(std::vector<Sv::Difference> const&) override { --standing; }
};

struct Images {
  std::string running, session, ancestor;
  std::size_t commits;
  explicit Images(RandomDevice& device)
      : running(device.image()),
        session(imageOf(device.mine.tree())),
        ancestor(imageOf(device.mine.ancestor())),
        commits(device.service->history().size()) {}
  void expectSame(Images const& other) const {
    ASSERT_EQ(running, other.running);
    ASSERT_EQ(session, other.session);
    ASSERT_EQ(ancestor, other.ancestor);
    ASSERT_EQ(commits, other.commits);
  }
};

using Command = std::function<void(RandomDevice&)>;
struct Named {
  char const* name;
  Command run;
};
std::vector<Named> const commands{
    {"update", [](RandomDevice& d) { d.mine.update(Mode::preferRunning); }},
    {"commit", [](RandomDevice& d) { d.mine.commit(); }},
    {"discard", [](RandomDevice& d) { d.mine.discard(); }},
    {"rollback", [](RandomDevice& d) { d.mine.rollback(0); }},
    {"load merge",
     [](RandomDevice& d) {
       d.mine.loadMerge([](Sv::Tree const& tree) {
         Generator generator(7);
         mutate(tree, generator, 4, false);
       });
     }},
    {"load replace",
     [](RandomDevice& d) {
       d.mine.loadReplace([](Sv::Tree const& tree) {
         Generator generator(8);
         fill(tree, generator, false);
       });
     }},
};

// Both have committed or edited; what `commit` refuses for conflicts is updated first.
void settle(RandomDevice& device) {
  device.theirs.commit();
  for (Sv::Conflict const& c : device.mine.conflicts()) device.mine.resolve(c.path, Sv::Side::session);
}

// Whether the command was carried out although something had failed.
enum class Outcome { refused, done };

struct Trial {
  RandomDevice device;
  FailingAgent agent;

  explicit Trial(unsigned seed) : device(seed) {
    settle(device);
    device.service->registerForPath(agent, "");
  }
  // Runs the command, and looks at what a refusal has left. Then all works as ever.
  Outcome run(Command const& command, std::function<void()> const& call) {
    Images const before(device);
    bool refused = false;
    try {
      call();
    } catch (Fault const&) {
      refused = true;
    } catch (Sv::CheckError const&) {
      refused = true;  // a participant's
    } catch (std::bad_alloc const&) {
      refused = true;
    }
    agent.steps = nullptr;
    if (!refused) return Outcome::done;
    EXPECT_EQ(agent.standing, 0);
    before.expectSame(Images(device));
    command(device);
    return Outcome::refused;
  }
};

unsigned faultsOfReactors(Named const& command, unsigned seed) {
  unsigned faults = 0;
  for (unsigned at = 0; !testing::Test::HasFailure(); at += faults > 30 ? 7 : 1) {
    SCOPED_TRACE(std::string(command.name) + " seed " + std::to_string(seed) + " step " + std::to_string(at));
    Trial trial(seed);
    Steps steps;
    steps.failsAt = at;
    trial.agent.steps = &steps;
    Outcome const outcome = trial.run(command.run, [&] {
      Watch const running(trial.device.service->running(), steps), session(trial.device.mine.tree(), steps),
          ancestor(trial.device.mine.ancestor(), steps);
      command.run(trial.device);
    });
    if (!steps.failed) return faults;
    ++faults;
    EXPECT_EQ(outcome, Outcome::refused);
  }
  return faults;
}

TEST(ServiceFaults, AReactorOrAParticipant) {
  for (Named const& command : commands) {
    unsigned faults = 0;
    for (unsigned seed = firstSeed(); seed < firstSeed() + seedCount(3); ++seed)
      faults += faultsOfReactors(command, seed);
    std::printf("%s: %u faults\n", command.name, faults);
    EXPECT_GT(faults, 5u) << command.name;
  }
}

TEST(ServiceFaults, AnAllocation) {
  for (Named const& command : commands) {
    unsigned faults = 0, refused = 0;
    std::size_t step = 1;
    for (std::size_t at = 0; !testing::Test::HasFailure(); at += step) {
      unsigned const seed = firstSeed() + faults % 4;
      SCOPED_TRACE(std::string(command.name) + " seed " + std::to_string(seed) + " allocation " + std::to_string(at));
      Trial trial(seed);
      bool failed = false;
      Outcome const outcome = trial.run(command.run, [&] {
        FailAllocation const fail(at);
        try {
          command.run(trial.device);
        } catch (...) {
          failed = fail.failed();
          throw;
        }
        failed = fail.failed();
      });
      if (!failed) break;
      ++faults;
      if (outcome == Outcome::refused) ++refused;
      step += 1 + step / 24;
    }
    std::printf("%s: %u allocations failed, %u refusals\n", command.name, faults, refused);
    EXPECT_GT(faults, 5u) << command.name;
  }
}

TEST(ServiceFaults, TheStore) {
  FailingStore store;
  Sv::Options options;
  options.store = &store;
  Device device({}, options);
  Sv::Session& s = device.open("s");
  hallOf(s.tree())->u32Is(4);
  Steps steps;
  steps.failsAt = 0;
  store.steps = &steps;
  std::string const before = device.image(), session = imageOf(s.tree()), ancestor = imageOf(s.ancestor());
  EXPECT_THROW(s.commit(), Fault);
  EXPECT_EQ(device.image(), before);
  EXPECT_EQ(imageOf(s.tree()), session);
  EXPECT_EQ(imageOf(s.ancestor()), ancestor);
  EXPECT_TRUE(store.read(1).empty());
  EXPECT_EQ(s.commit().number, 1u);
}

}  // namespace
