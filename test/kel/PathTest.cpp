// Look-ups by path, directories, and how long things live. That full names lead back is a law of fuzz_path.
#include "Support.h"

namespace Gadgets {
namespace {

TEST(Paths, RelativePathsBeginAtTheEntity) {
  Dir::Ptr const root = dirFactory("root");
  Dir::Ptr const sys(new Dir("sys", root.ptr()));
  Entity::Ptr const owner = sys->newEntity("Gadgets::Owner", "o.1");
  Part::Ptr const part = ptrCast<Owner>(owner)->newParts("Ethernet1/1");
  EXPECT_EQ(part->fullName(), "/sys/o.1.parts/Ethernet1/1");
  EXPECT_TRUE(part->hasFullName("/sys/o.1.parts/Ethernet1/1"));
  for (char const* other : {"", "1", "/o.1.parts/Ethernet1/1", "//sys/o.1.parts/Ethernet1/1", "/sys/o.1.parts/1"})
    EXPECT_FALSE(part->hasFullName(other)) << other;
  EXPECT_EQ(root->entity("sys/o.1.parts/Ethernet1/1"), part);
  EXPECT_EQ(sys->entity("o.1.parts/Ethernet1/1"), part);
  EXPECT_EQ(owner->entity(".parts/Ethernet1/1"), part);
  EXPECT_EQ(part->entity("/sys"), sys);
  EXPECT_EQ(owner->entity("parts/Ethernet1/1"), nullptr);
  EXPECT_EQ(sys->entity("/o.1"), nullptr);
  for (char const* wrong : {"", "/", "//", ".", "sys/", "/sys/o.1.parts", "/sys/o.1.parts/", "/sys/o.1.name/x",
                            "/sys/o.1.counted", "/sys.name", "sys/o.1.parts.x", "/sys/o.1/x"})
    EXPECT_EQ(root->entity(wrong), nullptr) << wrong;
}

TEST(Paths, IntegerKeysAreFoundAsTheyPrintOnly) {
  Owner::Ptr const o = ownerFactory("o");
  auto const seven = o->newNumbered(7);
  auto const zero = o->newNumbered(0);
  EXPECT_EQ(o->entity(".numbered/7"), seven);
  EXPECT_EQ(o->entity(".numbered/0"), zero);
  for (char const* key : {"07", "+7", " 7", "7 ", "-7", "00", "-0", "0x7", "4294967303", ""})
    EXPECT_EQ(o->entity(String8(".numbered/") + key), nullptr) << key;
  Queues::Ptr const q = queuesFactory("q");
  for (int i = 0; i < 3; ++i) q->queuedEnq("x");
  EXPECT_EQ(q->entity(".queued/2"), q->queued(2));
  EXPECT_EQ(q->entity(".queued/02"), nullptr);
  // A member without a name stands under its index.
  for (int i = 0; i < 3; ++i) q->plainEnq();
  q->plainDeq();
  EXPECT_EQ(q->plain(2)->fullName(), ".plain/2");
  EXPECT_EQ(q->entity(".plain/2"), q->plain(2));
}

TEST(Paths, AMissingEndOfALongPathIsFoundOutSoon) {
  Dir::Ptr const root = dirFactory("root");
  Dir* last = root.ptr();
  for (int i = 0; i < 20000; ++i) last = Dir::Ptr(new Dir("d", last)).ptr();
  String8 const name = last->fullName();
  EXPECT_EQ(root->entity(name).ptr(), last);
  EXPECT_EQ(root->entity(name + "/missing"), nullptr);
  // Separators in a row are keys of every length; those that are there are found.
  Owner::Ptr const o = ownerFactory("o");
  std::string const slashes(1000000, '/');
  Part::Ptr const inner = o->newParts(String8(slashes.substr(0, 100)))->newParts("/");
  EXPECT_EQ(o->entity(inner->fullName()), inner);
  EXPECT_EQ(o->entity(".parts/" + slashes), nullptr);
  EXPECT_EQ(o->entity(".numbered/" + slashes), nullptr);
}

// --- Directories ---

TEST(Directory, EntriesAreWalkedInKeyOrder) {
  Dir::Ptr const dir = dirFactory("d");
  for (char const* name : {"b", "a/b", "", "c", "a"}) new Dir(name, dir.ptr());
  std::string order;
  for (auto it = dir->entryStateIterator(); it; ++it) {
    order += it.key().str() + ";";
    if (it.key() == "a") dir->entryStateDel("a");
  }
  EXPECT_EQ(order, ";a;a/b;b;c;");
  EXPECT_EQ(dir->entryStates(), 4u);
}

TEST(Directory, AnEntryStateStandsForItsEntityUntilItIsAskedFor) {
  Dir::Ptr const dir = dirFactory("d");
  auto const state = dir->newEntryState("v", "Gadgets::MoreValues");
  EXPECT_EQ(state->entityTypeName(), "Gadgets::MoreValues");
  EXPECT_EQ(state->fullName(), ".entryState/v");
  EXPECT_EQ(dir->entity(".entryState/v"), state);
  EXPECT_EQ(Dir::PtrConst(dir)->entityRef("v"), nullptr);
  EXPECT_EQ(dir->entity("v"), nullptr);
  Entity::Ptr const made = dir->entityRef("v");
  EXPECT_EQ(made->type(), MoreValues::_fwkType());
  EXPECT_EQ(made->parent(), dir.ptr());
  EXPECT_EQ(made->parentAttr()->name(), "entryState");
  EXPECT_EQ(state->entityPtr(), made);
  EXPECT_EQ(dir->entityRef("v"), made);
  EXPECT_EQ(dir->entryStateIs("v", "Gadgets::MoreValues"), state);
  EXPECT_NE(dir->entryStateIs("v", "Kel::Dir"), state);
  EXPECT_EQ(made->parent(), nullptr);
  EXPECT_EQ(made->fullName(), "");
  EXPECT_EQ(dir->entityRef("none"), nullptr);

  dir->newEntryState("bad", "No::Such");
  EXPECT_NE(messageOf<TypeException>([&] { dir->entityRef("bad"); }).find("/bad"), std::string::npos);
  dir->newEntryState("value", "Gadgets::Point");
  EXPECT_THROW(dir->entityRef("value"), TypeException);
  dir->newEntryState("abstract", "Gadgets::Shape");
  EXPECT_THROW(dir->entityRef("abstract"), TypeException);
  dir->newEntryState("unnamed", "Gadgets::Numbered");
  EXPECT_THROW(dir->entityRef("unnamed"), TypeException);
}

TEST(Directory, WhatCannotBeEnteredChangesNothing) {
  Dir::Ptr const dir = dirFactory("d");
  Part::Ptr const part = partFactory("x");
  dir->entryIs(part);
  EXPECT_THROW(new Dir("x", dir.ptr()), NameInUseException);
  EXPECT_NE(messageOf<NameInUseException>([&] { dir->entryIs(partFactory("x")); }).find("/x"), std::string::npos);
  EXPECT_THROW(dir->newEntity("Gadgets::Part", "x"), NameInUseException);
  EXPECT_THROW(dir->newEntity("Gadgets::None", "y"), TypeException);
  EXPECT_THROW(Part::_fwkType()->newEntity("x", dir.ptr()), NameInUseException);
  EXPECT_THROW(dir->entryIs(part), RangeException);
  Dir::Ptr const empty = dirFactory("empty");
  EXPECT_THROW(empty->entryIs(empty), RangeException);
  EXPECT_THROW(ptrCast<Dir>(dir->newEntity("Kel::Dir", "sub"))->entryIs(dir), RangeException);
  dir->entryStateDel("sub");
  EXPECT_EQ(messageOf<RangeException>([&] { dir->entryIs(nullptr); }), "null ValidPtr");
  EXPECT_EQ(dir->entryStates(), 1u);
  EXPECT_EQ(dir->entityRef("x"), part);
  dir->entryStateDel("nothing");
}

TEST(Directory, ReactorsMayDeleteWhatComes) {
  struct Deleter : Dir::Notifiee {
    void onEntryState(Name const& name) override {
      try {
        notifier()->entryStateDel(name);
      } catch (InternalException const&) {
        if (!quiet) throw;
      }
    }
    bool quiet = false;
  };
  Dir::Ptr const dir = dirFactory("d");
  Kel::Ptr<Deleter> const reactor(new Deleter);
  reactor->notifierIs(dir);
  // The deletion is told to a reactor that is at it already.
  EXPECT_THROW(dir->newEntryState("x", "Kel::Dir"), InternalException);
  EXPECT_EQ(dir->entryStates(), 0u);
  EXPECT_THROW(new Dir("x", dir.ptr()), InternalException);
  Part::Ptr const part = partFactory("x");
  EXPECT_THROW(dir->entryIs(part), InternalException);
  EXPECT_EQ(part->parent(), nullptr);
  reactor->quiet = true;
  EXPECT_THROW(dir->entryIs(part), RangeException);
  EXPECT_THROW(new Dir("x", dir.ptr()), RangeException);
  EXPECT_EQ(part->parent(), nullptr);
  EXPECT_EQ(dir->entryStates(), 0u);
  reactor->notifierIs(nullptr);
}

// What a reactor does instead stays.
TEST(Directory, ReactorsMayForestallWhatComes) {
  struct Other : Dir::Notifiee {
    void onEntryState(Name const& name) override {
      String8 const reused("another name, as long");
      same = name == "the name of its entry";
      auto const once = std::exchange(act, nullptr);
      if (once) once();
    }
    std::function<void()> act;
    bool same = false;
  };
  Dir::Ptr const dir = dirFactory("d");
  Kel::Ptr<Other> const reactor(new Other);
  reactor->notifierIs(dir);
  dir->newEntryState("the name of its entry", "Kel::Dir");
  Name const& own = dir->entry("the name of its entry")->name();
  dir->entryStateDel(own);
  EXPECT_TRUE(reactor->same);

  reactor->act = [&] {
    reactor->notifierIs(nullptr);
    dir->entityRef("x");
  };
  EXPECT_THROW(dir->entryIs(partFactory("x")), RangeException);
  EXPECT_EQ(dir->entityRef("x")->type(), Part::_fwkType());
  dir->entryStateDel("x");

  dir->newEntryState("x", "Gadgets::Part");
  reactor->act = [&] {
    reactor->notifierIs(nullptr);
    dir->entryStateDel("x");
    dir->newEntity("Gadgets::Part", "y");  // in the place of the entry
  };
  reactor->notifierIs(dir);
  EXPECT_EQ(dir->entityRef("x"), nullptr);
}

// A directory whose construction fails because a reactor of its parent did leaves nothing of itself behind.
TEST(Directory, ReactorsMayRefuseWhatComes) {
  struct Refuser : Dir::Notifiee {
    void onEntryState(Name const&) override {
      if (--left < 0) throwRangeException("refused");
    }
    int left = 1;
  };
  Dir::Ptr const dir = dirFactory("d");
  Kel::Ptr<Refuser> const reactor(new Refuser);
  reactor->notifierIs(dir);
  EXPECT_EQ(messageOf<RangeException>([&] { new Dir("x", dir.ptr()); }), "refused");
  reactor->notifierIs(nullptr);
  EXPECT_EQ(dir->entityRef("x"), nullptr);
}

TEST(Directory, SubdirNamesTheDirectories) {
  Dir::Ptr const dir = dirFactory("d");
  new Dir("one", dir.ptr());
  dir->newEntity("Gadgets::Part", "part");
  auto const object = boxed(dir);
  EXPECT_EQ(object->attributeString(Dir::subdirAttr), "{one: true}");
  EXPECT_EQ(object->attributeCount(Dir::subdirAttr), 1u);
  EXPECT_EQ(object->attribute(Dir::subdirAttr, GenericIf::of(Name("part"))), nullptr);
  EXPECT_THROW(object->attributeIs(Dir::subdirAttr, GenericIf::of(Name("x")), GenericIf::of(true)),
               OpNotSupportedException);
}

// --- Lifetime ---

TEST(Lifetime, WhatIsDeletedLeavesTheTree) {
  Dir::Ptr const root = dirFactory("root");
  auto const pointers = ptrCast<Pointers>(root->newEntity("Gadgets::Pointers", "p"));
  auto const owner = ptrCast<Owner>(root->newEntity("Gadgets::Owner", "o"));
  Part::Ptr const part = owner->newParts("x"), below = part->newParts("y");
  part->peerIs(below);
  below->partIs(part);
  pointers->partIs(part);
  pointers->byPartIs(below, 1);
  U64 const before = Entity::departures();
  owner->partsDel("x");
  EXPECT_GT(Entity::departures(), before);
  EXPECT_EQ(part->parent(), nullptr);
  EXPECT_EQ(part->parentAttr(), nullptr);
  EXPECT_EQ(part->peer(), nullptr);
  EXPECT_EQ(below->part(), nullptr);
  EXPECT_EQ(below->parent(), part.ptr());
  EXPECT_EQ(below->fullName(), ".parts/y");
  EXPECT_EQ(pointers->part(), part);
  root->entryStateDelAll();
  EXPECT_EQ(pointers->part(), nullptr);
  EXPECT_EQ(pointers->byParts(), 0u);
}

// A tree that dies leaves what somebody holds behind, whole below and without a parent.
TEST(Lifetime, WhatIsHeldOutlivesItsTree) {
  Dir::Ptr root = dirFactory("root");
  Dir::Ptr const sub(new Dir("sub", root.ptr()));
  Part::Ptr const part = ptrCast<Part>(sub->newEntity("Gadgets::Part", "p"));
  auto const state = root->entry("sub");
  U64 const before = Entity::departures();
  root = nullptr;
  EXPECT_GT(Entity::departures(), before);
  EXPECT_EQ(sub->parent(), nullptr);
  EXPECT_EQ(state->parent(), nullptr);
  EXPECT_EQ(state->entityPtr(), nullptr);
  EXPECT_EQ(part->fullName(), "/p");
}

TEST(Lifetime, WhatIsNotDestroyedOutlivesItsTree) {
  int destroyed = 0;
  struct Own : Part {
    explicit Own(int& n) : Part("own"), destroyed(n) {}
    ~Own() override { ++destroyed; }
    int& destroyed;
  };
  Dir::Ptr root = dirFactory("root");
  auto const own = std::make_unique<Own>(destroyed);
  own->isNondestructingIs(true);
  root->entryIs(Entity::Ptr(own.get()));
  root = nullptr;
  EXPECT_EQ(destroyed, 0);
}

TEST(Lifetime, ALongChainIsDestroyed) {
  Dir::Ptr root = dirFactory("root");
  Dir::Ptr last = root;
  for (int i = 0; i < 100000; ++i) last = new Dir("d", last.ptr());
  EXPECT_EQ(last->fullName().chars(), 200000u);
  EXPECT_EQ(root->entity(last->fullName()), last);
  root = nullptr;
  EXPECT_EQ(last->parent(), nullptr);

  Part::Ptr top = partFactory("top");
  Part* at = top.ptr();
  for (int i = 0; i < 100000; ++i) {
    Part::Ptr const next = at->newParts("p");
    next->peerIs(at);
    at = next.ptr();
  }
  Part::Ptr const held = top->parts("p");
  top->partsDel("p");
  EXPECT_EQ(held->peer(), nullptr);
}

// Entities that point at each other do not keep each other alive, not where types own each other in circles either.
TEST(Lifetime, MutualPointersDoNotKeepAlive) {
  Even::_fwkType()->pointersBelow();  // what is found out first must not spoil what is asked next
  Crate::Ptr crate = crateFactory("c");
  Even::Ptr const even = crate->newOdd("o")->newEvens("e"), other = even->newOdds("o")->newEvens("e");
  even->peerIs(other);
  other->peerIs(even);
  crate = nullptr;
  EXPECT_EQ(even->peer(), nullptr);
  EXPECT_EQ(other->peer(), nullptr);
  EXPECT_EQ(even->refs(), 1u);
  EXPECT_TRUE(Odd::_fwkType()->pointersBelow());
  EXPECT_FALSE(Shape::_fwkType()->pointersBelow());
}

// Whoever is made in a directory may be told so by its second parameter; the two still end together.
TEST(Lifetime, AParameterThatPointsAtAnOwnerDoesNotKeepItAlive) {
  Dir::Ptr const root = dirFactory("root");
  Dir::Ptr dir(new Dir("dir", root.ptr()));
  Housed::Ptr const made = ptrCast<Housed>(dir->newEntity("Gadgets::Housed", "made"));
  EXPECT_EQ(made->home(), dir);
  dir->newEntryState("announced", "Gadgets::Housed");
  EXPECT_EQ(ptrCast<Housed>(dir->entityRef("announced"))->home(), dir);
  Housed::Ptr const elsewhere = housedFactory("elsewhere", root, "");
  dir->entryIs(elsewhere);
  Housed::Ptr const deeper = housedFactory("deeper", dir, "");
  Dir::Ptr(new Dir("inner", dir.ptr()))->entryIs(deeper);
  Housed::Ptr const foreign = housedFactory("foreign", dirFactory("other"), "");
  dir->entryIs(foreign);

  root->entryDel("dir");
  EXPECT_EQ(dir->refs(), 1u);
  EXPECT_EQ(made->home(), nullptr);
  EXPECT_EQ(deeper->home(), nullptr);
  EXPECT_EQ(elsewhere->home(), root) << "it owns them no more";
  EXPECT_TRUE(foreign->home());
  dir = nullptr;
  EXPECT_EQ(made->parent(), nullptr);
}

}  // namespace
}  // namespace Gadgets
