// A fault at every step of a commit, an update, a rollback, a load, an import and a command of an editor: running,
// session, ancestor and store are as they were.
#include <set>

#include "Heap.h"
#include "service/Commands.h"
#include "service/ModelHooks.h"
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
  std::string running, session, ancestor, pending;
  std::size_t commits;
  explicit Images(RandomDevice& device)
      : running(device.image()),
        session(imageOf(device.mine.tree())),
        ancestor(imageOf(device.mine.ancestor())),
        commits(device.service->history().size()) {
    for (Sv::PendingReference const& r : device.mine.pending().list())
      pending += r.place.text() + " " + r.target + "\n";
  }
  void expectSame(Images const& other) const {
    ASSERT_EQ(running, other.running);
    ASSERT_EQ(session, other.session);
    ASSERT_EQ(ancestor, other.ancestor);
    ASSERT_EQ(pending, other.pending);
    ASSERT_EQ(commits, other.commits);
  }
};

// What is imported: another device's configuration, and references that lead nowhere.
Sv::Json imported;

void import(RandomDevice& device, bool merge) {
  Sv::ImportOptions options;
  options.merge = merge;
  options.pending = &device.mine.pending();
  options.roots = device.mine.tree().roots;
  Sv::importJson(device.mine.tree().dir, {}, imported, options);
}

using Command = std::function<void(RandomDevice&)>;
struct Named {
  std::string name;
  Command run;
  bool edits = false;  // an operation of an editor
};
std::vector<Named> const operations{
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
    {"import", [](RandomDevice& d) { import(d, false); }},
    {"import merge", [](RandomDevice& d) { import(d, true); }},
};

// --- Commands of an editor ---

// Attributes that follow from a key and from a value; `near` is a pointer that waits for its target.
[[maybe_unused]] bool const hooked = [] {
  Sv::EntityHooks bolt;
  bolt.created = [](Kel::Dir::Ptr const& base, Kel::Entity::Ptr const& made, Sv::PendingReferences& pending) {
    if (made->name() != "hooked") return;
    Kel::ptrCast<Plant::Bolt>(made)->lockedIs(true);
    Sv::PathStep const peer = Sv::attributeStep(*made->type()->getAttr("peer"));
    pending.add({*Sv::pathOf(*made, *base) / peer, "hall.bolt/near", "hall.bolt/near", "there is no such entity"});
  };
  bolt.changed = [](Kel::Entity& entity, Kel::KelAttr const& attr, bool given) {
    if (attr.name() == "torque" && entity.name() == "hooked") static_cast<Plant::Bolt&>(entity).lockedIs(!given);
  };
  Sv::registerHooks("Plant::Bolt", bolt);
  return true;
}();

// What the commands edit: an entity with pointers to it, a queue with pointers to, from and among its items, a member
// under a pointer, and pointers that wait for their targets.
void prepare(RandomDevice& device) {
  Sv::Tree const tree = device.mine.tree();
  auto const hall = hallOf(tree);
  hall->boltDelAll();
  hall->annexDelAll();
  hall->watchedDelAll();
  auto const bolt = hall->newBolt("hooked");
  bolt->torqueIs(1);
  auto const gear = hall->newGear("edited", 3, Plant::Size(), Plant::Grade::raw);
  gear->wearIs(2);
  auto const pin = gear->newPin("p");
  pin->peerIs(bolt);
  hall->favouriteIs(pin);
  hall->weightIs(pin, 4);
  hall->matedIs(pin, pin);
  hall->jobDelAll();
  for (char const* title : {"a", "b", "c"}) hall->jobEnq(title);
  std::vector<Kel::Ptr<Plant::Job>> jobs;
  for (auto it = hall->jobIterator(); it; ++it) jobs.push_back(it.value());
  for (int steps = 0; steps < 2; ++steps) jobs[1]->stepEnq();
  jobs[0]->aboutIs(jobs[2]);
  jobs[2]->aboutIs(bolt);
  hall->neighbourIs(nullptr);
  hall->historyEnq("first");
  hall->anythingIs(jobs[1]);
  hall->watchedIs(1, jobs[0]);
  for (auto const& [place, target] :
       {std::pair("hall.neighbour", "hall.annex/late"), std::pair("hall.bolt/hooked.peer", "hall.annex/late.bolt/b"),
        std::pair("hall.job/1.about", "hall.annex/late"), std::pair("hall.chosen/waits", "hall.bolt/late")})
    device.mine.pending().add({pathIn(tree, place), target, target, "there is no such entity"});
}

Named edit(std::string const& name, std::vector<std::string> const& lines, Sv::Editor::Source source) {
  return {name,
          [=](RandomDevice& d) {
            Sv::Editor editor(d.mine.tree().dir, d.mine.pending(), source);
            if (lines.size() == 1)
              editor.apply(lines[0]);
            else
              editor.applyAll(lines);
          },
          true};
}
std::vector<Named> const edits = [] {
  std::vector<Named> all;
  for (char const* line : {
           "set hall annex late",
           "set hall annex late bolt b torque 3",
           "set hall annex early bolt hooked torque 3",
           "set hall bolt late",
           "set hall bolt hooked torque 2",
           "set hall gear edited teeth 9",
           "set hall favourite hooked",
           "set hall watched 1 hooked",
           "set hall history 0 other",
           "delete hall bolt hooked torque",
           "delete hall gear edited",
           "delete hall gear",
           "delete hall weight hall.gear/edited.pin",
           "delete hall mated",
           "set hall neighbour sys/annex",
           "delete hall job",
           "delete hall job 1",
           "delete hall job 1 step 0",
           "insert hall job 1 title x",
           "insert hall job 1 step end",
           "insert hall history 0 x",
           "move hall job 2 0",
       })
    all.push_back(edit(line, {line}, Sv::Editor::Source::person));
  for (char const* line : {
           "set hall chosen k hall.bolt/nowhere",
           "set hall weight hall.bolt/hooked 7",
           "set hall gear edited teeth 9 grade fine",
           "create Plant::Gear entry teeth 2 in sys",
           "delete sys annex",
       })
    all.push_back(edit(std::string("rendered ") + line, {line}, Sv::Editor::Source::rendering));
  all.push_back(edit("several commands",
                     {"delete hall gear edited", "move hall job 2 0", "set hall gear edited teeth 4",
                      "delete hall job 0", "set hall gear edited pin name q", "set hall bolt late torque 5",
                      "insert hall job 0 title y", "delete hall bolt hooked"},
                     Sv::Editor::Source::person));
  return all;
}();

std::vector<Named> const commands = [] {
  std::vector<Named> all = operations;
  all.insert(all.end(), edits.begin(), edits.end());
  return all;
}();

// Both have committed or edited; what `commit` refuses for conflicts is updated first.
void settle(RandomDevice& device) {
  device.theirs.commit();
  for (Sv::Conflict const& c : device.mine.conflicts()) device.mine.resolve(c.path, Sv::Side::session);
}

// Whether the command was carried out although something had failed.
enum class Outcome { refused, done };

std::set<Kel::Entity*> objectsOf(RandomDevice& device) {
  auto const all = entitiesOf(*device.mine.tree().dir);
  return {all.begin(), all.end()};
}

struct Trial {
  RandomDevice device;
  FailingAgent agent;
  bool keepsObjects;

  Trial(unsigned seed, Named const& command)
      : device(seed), keepsObjects(command.edits || command.name.starts_with("import")) {
    settle(device);
    if (command.edits) prepare(device);
    device.service->registerForPath(agent, "");
    RandomDevice const other(seed + 1000, false, false);
    imported = Sv::exportEntity(*other.running, *other.running);
    imported["hall"]["favourite"] = "hall.bolt/late";
    Sv::Path const place = pathIn(device.mine.tree(), "hall.anything");
    if (keepsObjects && !command.edits)
      device.mine.pending().add({place, "hall.bolt/later", "hall.bolt/later", "there is no such entity"});
  }
  // Runs the command, and looks at what a refusal has left. Then all works as ever.
  Outcome run(Command const& command, std::function<void()> const& call) {
    Images const before(device);
    auto const objects = objectsOf(device);
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
    if (keepsObjects) {
      EXPECT_EQ(objects, objectsOf(device));
    }
    command(device);
    return Outcome::refused;
  }
};

unsigned faultsOfReactors(Named const& command, unsigned seed) {
  unsigned faults = 0;
  for (unsigned at = 0; !testing::Test::HasFailure(); at += faults > 30 ? 7 : 1) {
    SCOPED_TRACE(command.name + " seed " + std::to_string(seed) + " step " + std::to_string(at));
    Trial trial(seed, command);
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
  unsigned ofEdits = 0;
  for (Named const& command : commands) {
    unsigned faults = 0;
    for (unsigned seed : seeds(command.edits ? 1 : 3)) faults += faultsOfReactors(command, seed);
    std::printf("%s: %u faults\n", command.name.c_str(), faults);
    if (command.edits)
      ofEdits += faults;  // one that only keeps a reference waiting calls no reactor
    else
      EXPECT_GT(faults, 5u) << command.name;
  }
  EXPECT_GT(ofEdits, 50u);
}

// How many allocations a command makes.
std::size_t allocationsOf(Named const& command, unsigned seed) {
  Trial trial(seed, command);
  std::size_t const before = allocations();
  command.run(trial.device);
  return allocations() - before;
}

// Close together at the beginning and at the end; all of them where FAULTS=all.
std::set<std::size_t> chosen(std::size_t count) {
  std::set<std::size_t> all;
  char const* const text = std::getenv("FAULTS");
  bool const every = text && std::string_view(text) == "all";
  for (std::size_t at = 0, step = 1; at < count; at += step) {
    all.insert(at);
    if (every) continue;
    all.insert(count - 1 - at);
    step += 1 + step / 8;
  }
  return all;
}

TEST(ServiceFaults, AnAllocation) {
  for (Named const& command : commands) {
    unsigned faults = 0, refused = 0;
    for (unsigned seed : seeds(command.edits ? 1 : 3)) {
      for (std::size_t at : chosen(allocationsOf(command, seed))) {
        SCOPED_TRACE(command.name + " seed " + std::to_string(seed) + " allocation " + std::to_string(at));
        Trial trial(seed, command);
        Outcome const outcome = trial.run(command.run, [&] {
          FailingHeap const heap(at + 1);
          command.run(trial.device);
        });
        faults += FailingHeap::hasFailed();
        refused += outcome == Outcome::refused;
        if (testing::Test::HasFailure()) return;
      }
    }
    std::printf("%s: %u allocations failed, %u refusals\n", command.name.c_str(), faults, refused);
    EXPECT_GT(faults, command.edits ? 10u : 50u) << command.name;
  }
}

TEST(ServiceFaults, TheStore) {
  FailingStore store;
  Sv::Options options;
  options.store = &store;
  options.snapshotEvery = 1;
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
  // Undoing stands though the store does not take it; it is written before the next commit.
  hallOf(s.tree())->u32Is(5);
  s.commitConfirmed(60);
  steps = {0, 0, false};
  EXPECT_EQ(s.commitCancel().reports, std::vector<std::string>{"fault"});
  EXPECT_EQ(device.hall()->u32(), 4u);
  device.service->poll();
  EXPECT_FALSE(store.snapshotAt(100)) << "a snapshot of what the store does not have";
  EXPECT_EQ(s.commit().number, 4u);
  ASSERT_EQ(store.read(1).size(), 4u);
  EXPECT_EQ(store.read(3).front().kind, Sv::CommitKind::undone);
}

}  // namespace
