// What things cost: bytes, and allocations on the way where nothing changes.
#include <array>

#include "Heap.h"
#include "Kel/AttrAccess.h"
#include "Support.h"

namespace Gadgets {
namespace {

using Tests::allocations;
using Tests::FailingHeap;

TEST(Cost, Sizes) {
  EXPECT_EQ(sizeof(Ptr<Part>), sizeof(void*));
  EXPECT_EQ(sizeof(String8), sizeof(void*));
  EXPECT_EQ(sizeof(Plain), 48u);
  EXPECT_LE(sizeof(HashMap<String8, U32>), 2 * sizeof(void*));
  EXPECT_LE(sizeof(EntityMap<Part>), 2 * sizeof(void*));
}

// Two trees of which one is a copy of the other, strings shared.
struct Twins {
  Twins() {
    Random random(29);
    for (int i = 0; i < 40; ++i) {
      Name const key = "key " + std::to_string(i);
      Segment const segment = random.of<Segment>();
      for (auto const& maps : {a, b}) {
        maps->byTextIs(key, 1);
        maps->byTextOrderedIs(key, key);
        maps->byPointIs(Point(i, i), segment);
        maps->byFieldIs(Segment(Point(), Color::red, key));
        maps->counterCounterInc(key);
      }
      for (auto const& owner : {ownerA, ownerB}) {
        owner->newParts(key)->weightIs(7);
        owner->newNumbered(static_cast<U32>(i));
      }
      for (auto const& pointers : {pointersA, pointersB}) pointers->byNameIs(key, part);
      for (auto const& queues : {queuesA, queuesB}) queues->tinyEnq(key);
    }
    a->counters(), b->counters();  // settles what was put off
  }
  Part::Ptr const part = partFactory("p");
  Maps::Ptr const a = mapsFactory("m"), b = mapsFactory("m");
  Owner::Ptr const ownerA = ownerFactory("o"), ownerB = ownerFactory("o");
  Pointers::Ptr const pointersA = pointersFactory("p"), pointersB = pointersFactory("p");
  Queues::Ptr const queuesA = queuesFactory("q"), queuesB = queuesFactory("q");
  Values::Ptr const valuesA = valuesFactory("v", 1), valuesB = valuesFactory("v", 1);
};

// Whether all content of two entities of one type is equal, by the typed operations.
bool equalValues(Entity const& a, Entity const& b, bool ordered) {
  for (KelAttr const* attr : a.type()->attributeQ()) {
    if (attr->isFunction() || attr->isEntity() || attr->ctorParam() || attr->isConstant()) continue;
    if (attr->type() == Opaque::_fwkType()) continue;
    bool const allocates = attr->isCollection() && attr->collectionKind() != KelAttr::Collection::hashMap;
    if (allocates == ordered && !attr->access().equal(a, b)) return false;
  }
  return true;
}

TEST(Cost, EqualContentComparesWithoutAllocating) {
  Twins const t;
  std::pair<Entity const*, Entity const*> const pairs[] = {{t.a.ptr(), t.b.ptr()},
                                                           {t.pointersA.ptr(), t.pointersB.ptr()},
                                                           {t.queuesA.ptr(), t.queuesB.ptr()},
                                                           {t.valuesA.ptr(), t.valuesB.ptr()}};
  for (bool ordered : {true, false}) {
    for (auto const& [a, b] : pairs) {
      EXPECT_TRUE(equalValues(*a, *b, ordered));
      U32 const refs = a->refs();
      std::size_t const before = allocations();
      EXPECT_TRUE(equalValues(*a, *b, ordered));
      EXPECT_EQ(allocations(), before) << a->type()->fullTypeName();
      EXPECT_EQ(a->refs(), refs);
    }
  }
}

TEST(Cost, MembersOfACopyAreFoundWithoutAllocating) {
  Twins const t;
  for (AttributeId id : {Owner::partsAttr, Owner::numberedAttr}) {
    AttrAccess const& access = Owner::_fwkType()->attr(id)->access();
    EXPECT_TRUE(access.sameKeyHashes(*t.ownerA, *t.ownerB));
    ASSERT_TRUE(Owner::_fwkType()->attr(id)->type());  // records are made when they are first asked for
    std::size_t const before = allocations();
    U32 found = 0, position = 0;
    std::array<AttrAccess::Pair, 7> pairs;
    while (U32 const count = access.gatherPairs(*t.ownerB, *t.ownerA, position, pairs.data(), 7)) {
      for (U32 i = 0; i < count; ++i) {
        auto const [twin, member, at] = pairs[i];
        ASSERT_TRUE(twin);
        EXPECT_EQ(access.findCounterpart(*t.ownerB, *member, at), twin);
        EXPECT_TRUE(member->type()->paramsEqual()(*member, *twin));
      }
      found += count;
    }
    EXPECT_EQ(found, 40u);
    EXPECT_EQ(allocations(), before);
  }
}

// --- Letting go without memory ---

template <class Step>
void withoutMemory(Step const& step) {
  FailingHeap const none(1, FailingHeap::forGood);
  step();
}

struct Counted : Part {
  explicit Counted(Name name) : Part(std::move(name)) { ++living; }
  ~Counted() override { --living; }
  static inline int living = 0;
};

// A directory with everything that owns or points, wide and deep. What is below is pointed at from all over, in
// circles, too; `Counted::living` says how much of it is left.
struct BigTree {
  static constexpr unsigned width = 3000, depth = 30000;

  explicit BigTree(Dir& top)
      : root(new Dir("big", &top)), owner(ptrCast<Owner>(root->newEntity("Gadgets::Owner", "o"))) {
    auto const queues = ptrCast<Queues>(root->newEntity("Gadgets::Queues", "q"));
    auto const pointers = ptrCast<Pointers>(root->newEntity("Gadgets::Pointers", "p"));
    auto const binder = ptrCast<Binder>(root->newEntity("Gadgets::Binder", "b"));
    Dir::Ptr const leaves(new Dir("leaves", root.ptr()));
    for (unsigned i = 0; i < width; ++i) {
      Name const key = "key " + std::to_string(i);
      Part::Ptr const leaf(new Counted(key));
      leaves->entryIs(leaf);
      leaf->newParts("kid")->peerIs(leaf);
      owner->newParts(key)->peerIs(leaf);
      owner->newPartsOrdered(key)->peerIs(owner->parts(key));
      leaf->peerIs(owner->partsOrdered(key));
      owner->newNumbered(i);
      queues->plainEnq();
      pointers->byNameIs(key, leaf);
      pointers->byPartIs(leaf, i);
      binder->newBounds(key, binder, "");
    }
    Dir* dir = root.ptr();
    Part::Ptr part = owner->newPart("chain");
    for (unsigned i = 0; i < depth; ++i) {
      dir = new Dir("d", dir);
      part = part->newParts("p");
      part->peerIs(owner->part());
    }
    Part::Ptr const last(new Counted("last"));
    dir->entryIs(last);
    last->peerIs(last);
  }

  Dir::Ptr root;
  Owner::Ptr owner;
};

// In a process of its own, nothing has asked for the types before.
TEST(Cost, TheFirstDestructionOfATypeTakesNoMemory) {
  Part::Ptr part = partFactory("p");
  part->newParts("kid")->peerIs(part->newParts("other"));
  withoutMemory([&] { part = nullptr; });
  EXPECT_FALSE(part);
}

TEST(Cost, DestructionTakesNoMemory) {
  Dir::Ptr top = dirFactory("");
  {
    BigTree big(*top);
    big.owner = nullptr;
    big.root = nullptr;
    Name const name = "big";
    withoutMemory([&] { top->entryDel(name); });
  }
  EXPECT_EQ(Counted::living, 0);
  BigTree big(*top);
  Part::Ptr const held = big.owner->parts("key 7");
  big.owner = nullptr;
  big.root = nullptr;
  withoutMemory([&] { top = nullptr; });
  EXPECT_EQ(Counted::living, 0);
  EXPECT_FALSE(held->parent());
  EXPECT_FALSE(held->peer());
}

TEST(Cost, LeavingTheTreeTakesNoMemory) {
  Dir::Ptr const top = dirFactory("");
  BigTree big(*top);
  Part::Ptr const watched = big.owner->parts("key 7");
  Watch first(big.owner->part()), second(watched);
  Name const name = "big";
  std::size_t const before = allocations();
  withoutMemory([&] { top->entryDel(name); });
  EXPECT_EQ(allocations(), before);
  EXPECT_EQ(big.owner->partss(), BigTree::width);
  EXPECT_EQ(Counted::living, int(BigTree::width) + 1) << "they are held by what is held";
  EXPECT_FALSE(big.root->parent());
  auto const all = [&](auto it) {
    for (; it; ++it) EXPECT_FALSE(it->peer() || it->hasReactors() != (it.ptr() == watched));
  };
  all(big.owner->partsIterator());
  all(big.owner->partsOrderedIterator());
  for (auto part = big.owner->part(); part; part = part->parts("p")) ASSERT_FALSE(part->peer());
  big.owner->part()->weightIs(1), watched->weightIs(1);
  EXPECT_EQ(first.take(), std::vector<AttributeId>{Part::weightAttr});
  EXPECT_EQ(second.take(), std::vector<AttributeId>{Part::weightAttr});
  big.owner = nullptr;
  withoutMemory([&] { big.root = nullptr; });
  EXPECT_EQ(Counted::living, 0);
}

// Writes into the tree that its end is brought about by.
struct Parting : Part {
  using Part::Part;
  ~Parting() override {
    for (Part* to : told) to->weightIs(to->weight() + 1);
  }
  std::vector<Part*> told;
};

TEST(Cost, WhatDiesOfALeavingTreeFindsItWhole) {
  Owner::Ptr const top = ownerFactory("o");
  Part::Ptr const held = top->newPart("held");
  std::vector<Part*> parts{held.ptr()};
  for (int i = 0; i < 9; ++i) {
    parts.push_back(held->newParts(std::to_string(i)).ptr());
    parts.push_back(parts.back()->newParts("kid").ptr());
  }
  Watch watch{Entity::PtrConst(parts[3])};
  for (Part* part : parts) {
    Ptr<Parting> const parting(new Parting("parting"));
    parting->told = parts;
    part->peerIs(parting);
  }
  watch.take();
  top->partDel();
  for (Part* part : parts) EXPECT_EQ(part->weight(), parts.size());
  EXPECT_EQ(watch.take().size(), parts.size());
}

TEST(Cost, EqualWritesDoNotAllocate) {
  Twins const t;
  String8 const text = t.valuesA->text();
  Name const key = "key 7";
  std::size_t const before = allocations();
  t.valuesA->textIs(text);
  t.valuesA->u64Is(t.valuesA->u64());
  t.a->byTextIs(key, 1);
  t.a->byPointIs(Point(3, 3), t.a->byPoint(Point(3, 3)));
  t.pointersA->byNameIs(key, t.part);
  EXPECT_TRUE(t.ownerA->partsIs(key));
  EXPECT_EQ(allocations(), before);
}

}  // namespace
}  // namespace Gadgets
