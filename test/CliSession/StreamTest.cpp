// Attribute logs of random trees: nothing is lost on the way.
#include <gtest/gtest.h>

#include "CliSession/RandomWorld.h"
#include "Kel/AttrLog.h"

namespace {

using namespace Tests;

TEST(Streams, KeepTrees) {
  for (unsigned seed : seeds(120)) {
    SCOPED_TRACE(seed);
    RandomWorld world(seed);
    auto const dropAllOrphans = [&] {
      for (Kel::Dir::Ptr const& in : {world.src, world.dest}) world.mutate(in, world.generator, 0);
    };
    dropAllOrphans();
    std::string const whole = Kel::writeAttrLog(*world.root);
    EntityPtr const again = Kel::readAttrLog(whole);
    ASSERT_EQ(Kel::writeAttrLog(*again), whole);
    // A part of a tree comes back beside the original: what pointed inside points inside, the rest where it did.
    world.src->entryDel("loose");  // outside of the session roots
    dropAllOrphans();
    Kel::Dir::Ptr const shelf(new Kel::Dir("shelf", world.root.ptr()));
    std::string const part = Kel::writeAttrLog(*world.src);
    Kel::Dir::Ptr const copy = Kel::ptrCast<Kel::Dir>(Kel::readAttrLog(part, world.root.ptr()));
    shelf->entryIs(copy);
    EXPECT_EQ(Kel::writeAttrLog(*copy), part);
    EXPECT_TRUE(world.dump(copy) == world.dump(world.src));
    EXPECT_FALSE(world.differs(copy, world.src));
    EXPECT_TRUE(pointersInto(*copy, *world.src).empty()) << pointersInto(*copy, *world.src).front();
    if (HasFailure()) return;
  }
}

}  // namespace
