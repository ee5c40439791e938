// What things cost: bytes, and allocations on the way where nothing changes.
#include <cstdlib>
#include <new>

#include "Kel/AttrAccess.h"
#include "Support.h"

namespace {

std::size_t allocations = 0;

}  // namespace

// Counts every allocation of the process. Under a sanitizer the pool's blocks are among them.
void* operator new(std::size_t size) {
  ++allocations;
  if (void* block = std::malloc(size)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace Gadgets {
namespace {

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
      std::size_t const before = allocations;
      EXPECT_TRUE(equalValues(*a, *b, ordered));
      EXPECT_EQ(allocations, before) << a->type()->fullTypeName();
      EXPECT_EQ(a->refs(), refs);
    }
  }
}

TEST(Cost, MembersOfACopyAreFoundWithoutAllocating) {
  Twins const t;
  for (AttributeId id : {Owner::partsAttr, Owner::numberedAttr}) {
    AttrAccess const& access = Owner::_fwkType()->attr(id)->access();
    EXPECT_TRUE(access.sameShape(*t.ownerA, *t.ownerB));
    ASSERT_TRUE(Owner::_fwkType()->attr(id)->type());  // records are made when they are first asked for
    std::size_t const before = allocations;
    U32 found = 0;
    for (U32 at = 0; at < access.memberEnd(*t.ownerA); ++at) {
      Entity* const member = access.memberAt(*t.ownerA, at);
      Entity* const twin = member ? access.memberLike(*t.ownerB, *member, at) : nullptr;
      EXPECT_TRUE(!member || (twin && member->type()->paramsEqual()(*member, *twin)));
      found += twin ? 1 : 0;
    }
    EXPECT_EQ(found, 40u);
    EXPECT_EQ(allocations, before);
  }
}

TEST(Cost, EqualWritesDoNotAllocate) {
  Twins const t;
  String8 const text = t.valuesA->text();
  Name const key = "key 7";
  std::size_t const before = allocations;
  t.valuesA->textIs(text);
  t.valuesA->u64Is(t.valuesA->u64());
  t.a->byTextIs(key, 1);
  t.a->byPointIs(Point(3, 3), t.a->byPoint(Point(3, 3)));
  t.pointersA->byNameIs(key, t.part);
  EXPECT_TRUE(t.ownerA->partsIs(key));
  EXPECT_EQ(allocations, before);
}

}  // namespace
}  // namespace Gadgets
