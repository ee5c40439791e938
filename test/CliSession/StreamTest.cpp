// Attribute logs of random trees: nothing is lost on the way, and what a comparison leaves behind is the same to the
// byte.
#include <gtest/gtest.h>

#include <algorithm>

#include "CliSession/World.h"
#include "Kel/AttrLog.h"

namespace {

using namespace Tests;
namespace S = Cli::Session;

constexpr unsigned seeds = 120;

// A third session root is a directory with directories in it.
struct StreamWorld : World {
  Generator generator;
  explicit StreamWorld(unsigned seed) : generator(seed) {
    fill(src, generator);
    if (seed % 3 == 1) copy();
    if (seed % 3 == 2) fill(dest, generator);
    rootIs("tree", "Kel::Dir");
    for (Kel::Dir::Ptr const& in : {src, dest}) grow(*in, in == src || seed % 2 == 0 ? 3 : 1);
    dropAllOrphans();
  }
  void dropAllOrphans() {
    for (Kel::Dir::Ptr const& in : {src, dest})
      for (char const* path : {"hall", "sys/annex", "tree"}) dropOrphans(*in->entity(path));
  }

 private:
  void grow(Kel::Dir& in, int depth) {
    Kel::Dir* at = static_cast<Kel::Dir*>(in.newEntity("Kel::Dir", "tree").ptr());
    for (; depth > 0; --depth) {
      generator.fill(*at->newEntity("Plant::Gear", "gear"), 1);
      if (generator.below(2) == 0) at->newEntryState("promised", "Plant::Hall");
      at = new Kel::Dir(depth % 2 == 0 ? "a" : "a.b/c", at);
    }
  }
};

TEST(Streams, KeepTrees) {
  for (unsigned seed = 0; seed < seeds && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    StreamWorld world(seed);
    std::string const whole = Kel::writeAttrLog(*world.root);
    EntityPtr const again = Kel::readAttrLog(whole);
    ASSERT_EQ(Kel::writeAttrLog(*again), whole);
    // A part of a tree comes back beside the original: what pointed inside points inside, the rest where it did.
    world.src->entryDel("loose");  // outside of the session roots
    world.dropAllOrphans();
    Kel::Dir::Ptr const shelf(new Kel::Dir("shelf", world.root.ptr()));
    std::string const part = Kel::writeAttrLog(*world.src);
    Kel::Dir::Ptr const copy = Kel::ptrCast<Kel::Dir>(Kel::readAttrLog(part, world.root.ptr()));
    shelf->entryIs(copy);
    EXPECT_EQ(Kel::writeAttrLog(*copy), part);
    EXPECT_TRUE(world.dump(copy) == world.dump(world.src));
    EXPECT_FALSE(world.differs(copy, world.src));
    EXPECT_TRUE(pointersInto(*copy, *world.src).empty()) << pointersInto(*copy, *world.src).front();
  }
}

// Copies on its own account what the engine would have copied, and once more.
struct Eager : S::EntityCopyGlobalSessionHandler {
  bool handleEntity(EntityCopy::Ptr const& ec, EntityPtr const& dest, EntityPtrConst const& src,
                    Kel::String path) override {
    bool const differs = ec->doCopyEntityAttrs(dest, src, path, nullptr);
    return ec->doCopyEntityAttrs(dest, src, path, nullptr) || differs;
  }
};

// Everything that may have a say in a copy.
void registerAll(EntityCopy& ec, World const& world, S::EntityCopyCustomHandlerTable::Ptr const& table,
                 S::EntityCopyFilterDir::Ptr const& filters) {
  auto const names = [](std::initializer_list<char const*> all) {
    auto const filter = S::attributeFilterFactory();
    for (char const* name : all) filter->attributeNameIs(name, true);
    return filter;
  };
  table->registerEntityCopyFilter(filters, S::EntityPath(""), "Plant::Gear", names({"wear"}));
  table->registerEntityCopyFilter(filters, S::EntityPath("hall"), "Plant::Machine", names({"speed", "gear"}));
  for (auto it = filters->ecfIterator(); it; ++it) {
    it->sessionStatusIs(world.status);
    it->newPreAttribute()->attributeNameIs(2, it.key().typeName() == "Plant::Gear" ? "pin" : "gear");
    it->newPostAttribute()->attributeNameIs(1, it.key().typeName() == "Plant::Gear" ? "wear" : "speed");
  }
  auto const dirs = filters->newDirHandler();
  dirs->sessionStatusIs(world.status);
  table->registerCustomCopyHandler(S::EntityPath(""), "Kel::Dir", dirs);
  auto const eager = Kel::Ptr<Eager>(new Eager);
  eager->sessionStatusIs(world.status);
  table->registerCustomCopyHandler(S::EntityPath("sys/annex.annex"), "Plant::Hall", eager);
  Kel::ptrCast<S::EntityCopyGlobalSessionHandler>(ec.handler())->handlerTableIs(table);

  auto const bypass = S::attributeEditBypassTableFactory("bypass");
  for (auto const type : {S::AttributeEditType::set_, S::AttributeEditType::del_})
    for (auto const* attr : {"text", "bolt", "favourite", "grade"})
      bypass->newAttributeEditBypassEntry(S::AttributeEdit(attr, "Plant::Hall", type));
  ec.attributeEditBypassCheckerIs(bypass);
}

void comparisonChangesNothing(bool handlers) {
  unsigned different = 0;
  for (unsigned seed = 0; seed < seeds && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    StreamWorld world(seed);
    std::string const before = Kel::writeAttrLog(*world.root);
    auto const table = S::entityCopyCustomHandlerTableFactory("table", nullptr);
    auto const filters = S::entityCopyFilterDirFactory("filters");
    EntityCopy::Ptr const ec = world.copyFrom(world.src, true);
    if (handlers) registerAll(*ec, world, table, filters);
    ec->destIs(world.dest);
    different += ec->stop();
    ASSERT_TRUE(Kel::writeAttrLog(*world.root) == before) << "a comparison has changed something";
    // The engine's plain handler compares, too.
    EntityCopy::Ptr const plain = S::entityCopyFactory();
    plain->stopAtFirstDiffIs(true);
    plain->handlerIs(S::entityCopyHandlerFactory());
    plain->srcCopyRootIs(EntityPtrConst(world.src->entity("hall")), true);
    plain->srcIs(world.src);
    plain->destIs(world.dest);
    ASSERT_TRUE(Kel::writeAttrLog(*world.root) == before) << "the plain handler's comparison has changed something";
  }
  EXPECT_GT(different, seeds / 3);
}

TEST(Streams, ComparisonsLeaveEveryByte) { comparisonChangesNothing(false); }
TEST(Streams, ComparisonsWithHandlersLeaveEveryByte) { comparisonChangesNothing(true); }
TEST(Streams, ComparisonsOnTheBoxedRoadLeaveEveryByte) {
  BoxedRoad const boxed;
  comparisonChangesNothing(true);
}

}  // namespace
