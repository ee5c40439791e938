// Counterparts in two trees, and what has changed in either since both were equal.
#include "Kel/TreePair.h"

#include "Support.h"

namespace Gadgets {
namespace {

struct TreePair : testing::Test {
  Kel::Dir::Ptr a = make("a"), b = make("b");
  Owner::Ptr owner = ownerIn(a), other = ownerIn(b);
  Queues::Ptr queues = queuesIn(a), otherQueues = queuesIn(b);

  static Kel::Dir::Ptr make(char const* name) {
    Kel::Dir::Ptr const dir = Kel::dirFactory(name);
    Owner::Ptr const o = Kel::ptrCast<Owner>(dir->newEntity("Gadgets::Owner", "owner"));
    for (char const* part : {"x", "y", "z"}) o->newParts(part)->newParts("inner");
    o->newPart("single")->newParts("inner");
    Queues::Ptr const q = Kel::ptrCast<Queues>(dir->newEntity("Gadgets::Queues", "queues"));
    for (char const* note : {"first", "second"}) q->queuedEnq(note);
    return dir;
  }
  static Owner::Ptr ownerIn(Kel::Dir::Ptr const& dir) { return Kel::ptrCast<Owner>(dir->entity("owner")); }
  static Queues::Ptr queuesIn(Kel::Dir::Ptr const& dir) { return Kel::ptrCast<Queues>(dir->entity("queues")); }

  // What was noted about an entity of the first tree after `edit`; null: nothing.
  template <class Edit>
  ChangedEntity const* noted(Entity::PtrConst const& e, Edit const& edit) {
    EqualTrees const equal(*a, *b);
    edit();
    changed = ChangedEntities();
    EXPECT_TRUE(equal.addChanges(*a, *b, changed));
    return changed.find(*e);
  }
  ChangedEntities changed;
};

TEST_F(TreePair, TellsWhereCounterpartsAre) {
  for (char const* path : {"owner", "owner.parts/y", "owner.parts/y.parts/inner", "owner.part.parts/inner"}) {
    Nearest const found = nearestCounterpart(*a->entity(path), *a, *b);
    EXPECT_EQ(found.entity, b->entity(path).ptr()) << path;
    EXPECT_EQ(found.missing, nullptr) << path;
  }
  other->partsDel("y");
  Nearest const found = nearestCounterpart(*a->entity("owner.parts/y.parts/inner"), *a, *b);
  EXPECT_EQ(found.entity, other.ptr());
  EXPECT_EQ(found.missing, owner->parts("y").ptr());
  EXPECT_EQ(heldLike(*otherQueues, *queues->queuedIterator().value()), nullptr) << "an item of a queue has none";
  EXPECT_EQ(heldLike(*otherQueues, *owner->parts("x")), nullptr) << "the owners have different types";
}

TEST_F(TreePair, ChangesOfEitherTreeAreThoseOfTheFirst) {
  for (Owner::Ptr const& side : {owner, other}) {
    ChangedEntity const* const inner = noted(
        owner->parts("y")->parts("inner"), [&] { side->parts("y")->parts("inner")->weightIs(side == owner ? 1 : 2); });
    ASSERT_TRUE(inner && inner->has(Change::content) && !inner->has(Change::members));
    ChangedEntity const* const above = changed.find(*owner);
    ASSERT_TRUE(above && above->change == 0 && above->owned.size() == 1);
    EXPECT_EQ(above->owned.begin()->entity, owner->parts("y").ptr());
    EXPECT_TRUE(above->concerns(*Owner::_fwkType()->getAttr("parts")));
    EXPECT_FALSE(above->concerns(*Owner::_fwkType()->getAttr("part")));
    EXPECT_FALSE(above->concerns(*Owner::_fwkType()->getAttr("writes")));
    EXPECT_EQ(changed.find(*owner->parts("x")), nullptr);
  }
}

TEST_F(TreePair, WhatOneTreeLacksIsAChangeOfItsOwner) {
  ChangedEntity const* const extra = noted(owner, [&] { other->newParts("extra")->newParts("inner"); });
  EXPECT_TRUE(extra && extra->has(Change::members) && extra->owned.empty() && extra->unpaired.size() == 1);
  ChangedEntity const* const changedExtra = noted(owner, [&] { other->parts("extra")->weightIs(5); });
  EXPECT_TRUE(changedExtra && changedExtra->has(Change::members)) << "it was there before";
  ChangedEntity const* const lost = noted(owner, [&] { other->partDel(); });
  EXPECT_TRUE(lost && lost->has(Change::members));
  ChangedEntity const* const above = noted(owner, [&] {
    owner->partsDel("x");
    owner->newParts("x")->newParts("inner");
  });
  ASSERT_TRUE(above && above->has(Change::members) && above->owned.size() == 1);
  EXPECT_EQ(above->unpaired.size(), 1u) << "the other one has the parameters of the first";
  EXPECT_TRUE(changed.find(*owner->parts("x"))->has(Change::whole));
  ChangedEntity const* const left = noted(owner, [&] { other->partsDel("y"); });
  ASSERT_TRUE(left && left->owned.size() == 1 && left->unpaired.empty());
  EXPECT_EQ(left->owned.begin()->entity, owner->parts("y").ptr());
  ChangedEntity const* const gone = noted(owner, [&] { owner->partsDel("z"); });
  EXPECT_TRUE(gone && gone->owned.empty() && gone->unpaired.size() == 1);
}

TEST_F(TreePair, AChangeInAQueueConcernsTheQueue) {
  Kel::KelAttr const& queued = *Queues::_fwkType()->getAttr("queued");
  for (Queues::Ptr const& side : {queues, otherQueues}) {
    ChangedEntity const* const above = noted(queues, [&] { side->queuedIterator().value()->mark(Change::content); });
    ASSERT_TRUE(above && !above->has(Change::content));
    EXPECT_TRUE(above->concerns(queued));
    EXPECT_FALSE(above->concerns(*Queues::_fwkType()->getAttr("plain")));
  }
}

TEST_F(TreePair, AChangeMayBeDeeperThanTheStack) {
  for (Owner::Ptr const& side : {owner, other}) {
    Part::Ptr deep = side->newParts("deep");
    for (int i = 0; i < 600000; ++i) deep = deep->newParts("p");
    ChangedEntity const* const above = noted(owner, [&] { deep->weightIs(1); });
    ASSERT_TRUE(above);
    EXPECT_EQ(above->owned.size(), side == owner ? 1u : 0u);
    side->partsDel("deep");
  }
}

TEST_F(TreePair, WhatIsNotKnownIsSaid) {
  EqualTrees const equal(*a, *b);
  owner->writesIs(1);
  EXPECT_FALSE(EqualTrees().addChanges(*a, *b, changed)) << "they were never equal";
  EXPECT_FALSE(equal.addChanges(*b, *a, changed)) << "these are other trees";
  Kel::Ptr<Part> const held = owner->parts("z");
  ASSERT_TRUE(equal.addChanges(*a, *b, changed));
  changed = ChangedEntities();
  owner->partsDel("z");
  EXPECT_FALSE(equal.addChanges(*a, *b, changed)) << "a pointer may have held it";
  EXPECT_EQ(changed.find(*a), nullptr);
}

}  // namespace
}  // namespace Gadgets
