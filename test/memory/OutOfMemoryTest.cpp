// Memory runs out at the first, second, ... last allocation of a load, a copy, a comparison, a session and what else an
// application does. Each time the caller gets std::bad_alloc, the trees are sound, a second attempt succeeds, and
// nothing is leaked. Then the trees are destroyed while no memory is left at all.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <new>
#include <sstream>

#include "CliSession/Sessions.h"
#include "Heap.h"
#include "Kel/AttrLog.h"
#include "Kel/ChangeJournal.h"
#include "Zuk/PrefixTrieOutput.h"
#include "examples/config_db/Loader.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;

// --- What a sound tree is ---

// Every entity is found under its path, hangs on its owner, and is counted.
void expectSound(Kel::Entity& top) {
  for (Kel::Entity* e : entitiesOf(top)) {
    ASSERT_TRUE(e == &top || e->parent()) << e->name();
    ASSERT_TRUE(e == &top || top.root()->entity(e->fullName()).ptr() == e) << e->fullName();
    auto const object = Kel::GenericIf::ofEntity(EntityPtrConst(e));
    for (Kel::KelAttr const* attr : e->type()->attributeQ()) {
      if (!attr->isCollection() || attr->isFunction()) continue;
      Kel::U32 walked = 0;
      for (auto it = object->attributeIteratorConst(attr->id()); it; ++it) {
        ++walked;
        auto const found = object->attribute(attr->id(), it.key());
        auto const member = it.obj();
        ASSERT_EQ(!found, !member) << e->fullName() << "." << attr->name();
        ASSERT_TRUE(!found || !member->isEntity() || found->entityConst() == member->entityConst())
            << e->fullName() << "." << attr->name();
        ASSERT_TRUE(!attr->instantiating() || member->entityConst()->parent() == e) << e->fullName();
      }
      ASSERT_EQ(walked, object->attributeCount(attr->id())) << e->fullName() << "." << attr->name();
    }
  }
}

// --- The scenarios ---

// Something that is done while memory runs out. Making one is not.
struct Scenario {
  virtual ~Scenario() = default;
  virtual void run() = 0;
  // Expects that all is sound, and that a second attempt succeeds. `completed`: run() has returned.
  virtual void check(bool completed) = 0;
};
using Make = std::function<std::unique_ptr<Scenario>()>;

struct OfWorld : Scenario {
  SessionWorld world;
  explicit OfWorld(unsigned seed = 0) {
    Generator generator(seed);
    world.fill(world.src, generator, 1);
  }
  void differ(unsigned seed, int times) {
    Generator generator(seed);
    world.mutate(world.src, generator, times);
  }
  void expectAllSound() const { expectSound(*world.root); }
  void expectEqualAfterCopy() const {
    world.copy();
    EXPECT_EQ(world.dump(world.dest), world.dump(world.src));
    EXPECT_FALSE(world.differs(world.dest, world.src));
    EXPECT_EQ(textOf(world.copy().edits), "");
    expectAllSound();
  }
  void check(bool completed) override {
    expectAllSound();
    EXPECT_TRUE(!completed || world.dump(world.dest) == world.dump(world.src));
    expectEqualAfterCopy();
  }
};

struct FirstCopy : OfWorld {
  void run() override { world.copy(); }
};
// Copies what has changed since the last copy.
struct SecondCopy : OfWorld {
  SecondCopy() : OfWorld(2) {
    world.copy();
    differ(3, 12);
  }
  void run() override { world.copy(); }
};
// The destination differs by itself.
struct CopyOverOther : OfWorld {
  CopyOverOther() : OfWorld(4) {
    Generator generator(5);
    world.fill(world.dest, generator, 1);
  }
  void run() override { world.copy(); }
};
struct TracedCopy : SecondCopy {
  Tracing const tracing{};
};
struct Comparison : SecondCopy {
  std::string const before = world.dump(world.dest);
  bool found = false;
  void run() override { found = world.differs(world.dest, world.src); }
  void check(bool completed) override {
    EXPECT_TRUE(!completed || found);
    EXPECT_EQ(world.dump(world.dest), before);
    OfWorld::check(false);
  }
};
// Of equal trees, by the plain handler, which defers every pointer.
struct PlainComparison : OfWorld {
  EntityCopy::Ptr const ec = S::entityCopyFactory();
  PlainComparison() { world.copy(); }
  void run() override {
    for (auto it = world.status->rootIterator(); it; ++it)
      ec->srcCopyRootIs(Kel::Dir::PtrConst(world.src)->entity(it.key()), true);
    ec->srcIs(world.src);
    ec->stopAtFirstDiffIs(true);
    ec->destIs(world.dest);
  }
  void check(bool completed) override {
    EXPECT_TRUE(!completed || ec->pendingAttrs() == 0);
    ec->handleCopyRoots();
    EXPECT_EQ(ec->pendingAttrs(), 0u);
    OfWorld::check(completed);
  }
};
// One copy is begun, fails, and is gone on with by the same engine.
struct CopyGoneOnWith : SecondCopy {
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  void run() override { ec->destIs(world.dest); }
  void check(bool completed) override {
    expectAllSound();
    ec->destIs(world.dest);
    ec->handleCopyRoots();
    EXPECT_EQ(world.dump(world.dest), world.dump(world.src));
    SecondCopy::check(completed);
  }
};
// A pointer that has to wait is met again.
struct Deferring : OfWorld {
  Kel::Ptr<Plant::Hall> const from = World::hall(world.src), to = World::hall(world.dest);
  EntityCopy::Ptr const ec = world.copyFrom(world.src);
  Deferring() {
    from->favouriteIs(World::hall(world.src, "sys/annex")->newBolt("a bolt that comes late"));
    ec->srcCopyRootDelAll();
    ec->destIs(world.dest);
  }
  void run() override { ec->doCopyAttrByName(to, from, "hall", "favourite"); }
  void check(bool) override {
    run();
    EXPECT_EQ(ec->pendingAttrs(), 1u);
    from->favouriteIs(nullptr);
    run();
    EXPECT_EQ(ec->pendingAttrs(), 0u);
    expectAllSound();
  }
};
// With a custom handler, a filter and a bypass table, through the directory handler.
struct RuledCopy : OfWorld {
  S::EntityCopyFilterDir::Ptr const filters = S::entityCopyFilterDirFactory("filters");
  RuledCopy() : OfWorld(6) {
    world.copy();
    differ(7, 12);
    world.table = S::entityCopyCustomHandlerTableFactory("table", world.root);
    auto const handler = S::entityCopyGlobalSessionHandlerFactory();
    handler->sessionStatusIs(world.status);
    world.table->registerCustomCopyHandler(S::EntityPath("hall.part"), "", handler);
  }
  void run() override {
    auto const names = S::attributeFilterFactory();
    names->attributeNameIs("torque", true);
    world.table->registerEntityCopyFilter(filters, S::EntityPath("sys"), "Plant::Bolt", names);
    auto const bypass = S::attributeEditBypassTableFactory("bypass");
    auto const entry = bypass->newAttributeEditBypassEntry({"", "", S::AttributeEditType::del_});
    entry->parentPathIs("/dest/hall", true);
    EntityCopy::Ptr const ec = world.copyFrom(world.src);
    ec->attributeEditBypassCheckerIs(bypass);
    ec->destIs(world.dest);
  }
  void check(bool) override {
    expectAllSound();
    world.table = nullptr;
    expectEqualAfterCopy();
  }
};

struct Filling : OfWorld {
  Filling() : OfWorld(8) {}
  void run() override {
    world.open("s1", true);
    EXPECT_TRUE(world.status->doReplaceConfig(world.src, "s1"));
  }
  void check(bool) override {
    expectAllSound();
    run();
    for (auto const& in : {world.sessions, world.ancestors})
      EXPECT_EQ(world.dump(SessionWorld::dirOf(in, "s1")), world.dump(world.src));
    EXPECT_EQ(world.status->pendingChangeStatusDir()->status("s1")->locals(), world.status->roots());
    expectAllSound();
  }
};
// A session of which a root is made anew in the source, and the rest changes.
struct FillingAgain : Filling {
  FillingAgain() {
    Filling::run();
    Kel::ptrCast<Kel::Dir>(world.src->entityRef("sys"))->entryDel("annex");
    Kel::ptrCast<Kel::Dir>(world.src->entityRef("sys"))->newEntity("Plant::Hall", "annex");
    differ(9, 8);
  }
};

// A tree made through reflection.
struct Building : OfWorld {
  Kel::Dir::Ptr const other = world.dir("other");
  Generator generator{10};
  void run() override { world.fill(other, generator, 1); }
  void check(bool) override {
    expectAllSound();
    world.run(world.dest, other);
    EXPECT_EQ(world.dump(world.dest), world.dump(other));
    expectAllSound();
  }
};
struct Editing : Building {
  Kel::Entity& hall = *other->entity("hall");
  std::vector<Kel::Entity*> const targets{hall.parent(), world.src->entityRef("loose").ptr()};
  Editing() { world.fill(other, generator, 1); }
  void run() override {
    for (int i = 0; i < 10; ++i) generator.mutate(hall, targets);
  }
};

// A file's content is all there, or a second load into another directory has it.
struct Load : Scenario {
  Kel::Dir::Ptr const root = Kel::dirFactory("");
  static std::string file() {
    std::string const path = testing::TempDir() + "out_of_memory.json";
    std::ofstream(path) << R"({"DEVICE_METADATA": {"localhost": {"hostname": "leaf", "type": "LeafRouter"}},
      "PORT": {"Ethernet0": {"lanes": "1,2", "speed": "100000", "alias": "e0", "mtu": "9100"},
               "Ethernet4": {"lanes": "5,6", "speed": "fast", "nonsense": "1"}},
      "VLAN": {"Vlan10": {"vlanid": "10", "dhcp_servers": ["10.0.0.1", "10.0.0.2"]}},
      "VLAN_MEMBER": {"Vlan10|Ethernet0": {"tagging_mode": "untagged"}, "Vlan10|Ethernet9": {}},
      "INTERFACE": {"Ethernet4": {}, "Ethernet4|10.1.0.0/31": {}}})";
    return path;
  }
  static std::string loaded(Kel::Dir::Ptr const& into) {
    ConfigDb::Report report;
    ConfigDb::loadConfigDb(file(), into, report);
    std::string text;
    for (Kel::Entity const* e : entitiesOf(*into)) text += e->fullName().str() + "\n";
    for (std::string const& complaint : report.complaints) text += complaint + "\n";
    return text;
  }
  std::string const path = file();
  ConfigDb::Report report;
  void run() override { ConfigDb::loadConfigDb(path, root, report); }
  void check(bool) override {
    static std::string const expected = loaded(Kel::dirFactory(""));
    static unsigned checks = 0;
    expectSound(*root);
    EXPECT_TRUE(++checks % 32 > 0 || loaded(Kel::dirFactory("")) == expected);
  }
};

// An attribute log, written and read.
struct Logging : OfWorld {
  std::string const expected = Kel::writeAttrLog(*world.root);
  EntityPtr again;
  Logging() : OfWorld(11) {}
  void run() override { again = Kel::readAttrLog(Kel::writeAttrLog(*world.root)); }
  void check(bool completed) override {
    expectAllSound();
    if (completed) expectSound(*again);
    EXPECT_EQ(Kel::writeAttrLog(*Kel::readAttrLog(expected)), expected);
    EXPECT_TRUE(!completed || Kel::writeAttrLog(*again) == expected);
  }
};

struct Marking : Scenario {
  Zuk::PrefixTrie::Ptr const trie = Zuk::prefixTrieFactory("trie");
  static constexpr char const* paths[] = {"/a", "/a/b.c", "/a/b", "/d/e/f", "/d/e"};
  static Zuk::PrefixTrieState::Ptr state() {
    auto const made = Zuk::prefixTrieStateFactory();
    made->pTypenameIs("T");
    made->flagsIs("wi");
    return made;
  }
  void run() override {
    for (char const* path : paths) trie->prefixIs(path, state());
    trie->prefixDel("/a/b");
    trie->prefixDel("/d/e/f");
    auto const other = Zuk::prefixTrieFactory("other");
    other->prefixIs("/x/y", state());
    trie->append(other);
    trie->enclosingPrefix("/a/b.c/d");
  }
  void check(bool) override {
    expectSound(*trie);
    run();
    EXPECT_TRUE(trie->isPrefix("/a/b.c") && trie->isPrefix("/x/y") && trie->isPrefix("/d/e"));
    EXPECT_FALSE(trie->isPrefix("/a/b") || trie->isPrefix("/d/e/f"));
    for (char const* path : {"/a", "/a/b.c", "/d/e", "/x/y"}) {
      EXPECT_EQ(trie->enclosingPrefix(path + Kel::String("/z")), path);
      trie->prefixDel(path);
    }
    EXPECT_TRUE(trie->empty());
  }
};

// --- The law ---

struct Case {
  char const* name;
  Make make;
  bool journals = false;
  std::size_t stride = 1;  // which allocations fail: more than 1 where there are too many to try
};
template <class S>
Case of(char const* name, bool journals = false, std::size_t stride = 1) {
  return {name, [] { return std::make_unique<S>(); }, journals, stride};
}
void PrintTo(Case const& c, std::ostream* out) { *out << c.name; }

class OutOfMemory : public testing::TestWithParam<Case> {
 protected:
  // Runs one with the allocation of that number failing. Answers whether there is such an allocation.
  static bool run(std::size_t number, FailingHeap::Then then) {
    std::size_t const before = liveBlocks();
    bool failed = false;
    {
      std::unique_ptr<Scenario> scenario = GetParam().make();
      bool completed = true;
      {
        FailingHeap const heap(number, then);
        try {
          scenario->run();
        } catch (std::bad_alloc const&) {
          completed = false;
        }
        failed = FailingHeap::hasFailed();
      }
      scenario->check(completed);
      FailingHeap const none(1, FailingHeap::forGood);
      scenario.reset();
    }
    // The process-wide memory of equal trees keeps two blocks a copy that has gone through, whatever becomes of it.
    EXPECT_TRUE(GetParam().journals || number == 0 || liveBlocks() == before) << "leaked " << liveBlocks() - before;
    return failed;
  }
};

TEST_P(OutOfMemory, LeavesAllSound) {
  Kel::ChangeJournal::enabledIs(GetParam().journals);
  std::size_t steps = 0;
  for (auto then : {FailingHeap::once, FailingHeap::forGood}) {
    // Twice, so that all that is made once in a process is there.
    run(0, then), run(0, then);
    // What a failure leaves in the way of all that follow shows with every eighth as well.
    for (std::size_t number = 1;; number += GetParam().stride * (then ? 8 : 1)) {
      SCOPED_TRACE("allocation " + std::to_string(number) + (then ? " and all that follow" : "") + " failed");
      if (std::getenv("MEMORY_STEPS")) std::cerr << "allocation " << number << (then ? " and all that follow\n" : "\n");
      if (!run(number, then)) break;
      ++steps;
      ASSERT_FALSE(HasFailure());
    }
  }
  RecordProperty("steps", std::to_string(steps));
  std::cout << GetParam().name << ": " << steps << " failures\n";
  EXPECT_GT(steps, 10u);
  Kel::ChangeJournal::enabledIs(true);
}

TEST(FailingHeap, CountsThePool) {
  std::size_t const before = liveBlocks();
  Kel::String const text("a text");
  EXPECT_EQ(liveBlocks(), before + 1);
}

INSTANTIATE_TEST_SUITE_P(
    Of, OutOfMemory,
    testing::Values(of<FirstCopy>("FirstCopy"), of<SecondCopy>("SecondCopy"), of<CopyOverOther>("CopyOverOther"),
                    of<SecondCopy>("SecondCopyByJournals", true), of<TracedCopy>("TracedCopy", false, 101),
                    of<Comparison>("Comparison"), of<PlainComparison>("PlainComparison"),
                    of<Comparison>("ComparisonByJournals", true), of<CopyGoneOnWith>("CopyGoneOnWith"),
                    of<CopyGoneOnWith>("CopyGoneOnWithByJournals", true), of<Deferring>("Deferring"),
                    of<RuledCopy>("RuledCopy"), of<Filling>("Session", false, 3), of<FillingAgain>("SessionAgain"),
                    of<Building>("Building"), of<Editing>("Editing", false, 7), of<Load>("Load"),
                    of<Logging>("Logging"), of<Marking>("Marking")),
    [](auto const& given) { return std::string(given.param.name); });

}  // namespace
