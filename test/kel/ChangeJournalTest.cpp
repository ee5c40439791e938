// Change journals against images of whole trees, under edits at random; and what they forget, and when.
#include "Kel/ChangeJournal.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include "Edits.h"
#include "Heap.h"
#include "Kel/AttrAccess.h"

namespace Gadgets {
namespace {

// --- Images ---

std::vector<Entity*> ownedBy(Entity const& e) {
  std::vector<Entity*> owned;
  for (KelAttr const* attr : e.type()->ownAttrs())
    attr->access().eachOwned(
        e, [](Entity* one, U64, void* to) { static_cast<std::vector<Entity*>*>(to)->push_back(one); }, &owned);
  return owned;
}

std::vector<Entity*> below(Entity const& top) {
  std::vector<Entity*> all{const_cast<Entity*>(&top)};
  for (std::size_t i = 0; i < all.size(); ++i)
    for (Entity* owned : ownedBy(*all[i])) all.push_back(owned);
  return all;
}

// What two entities must have in common to pass for one. A new one may lie where an old one lay.
std::string identity(Entity const& e) {
  std::ostringstream text;
  text << static_cast<void const*>(&e) << e.type()->fullTypeName() << '(' << e.name() << ')';
  return text.str();
}

class Image {
 public:
  struct Node {
    std::string identity, content, members;
    Entity const* parent;
  };

  explicit Image(Entity const& top) {
    for (Entity const* e : below(top)) {
      std::string members;
      for (Entity const* owned : ownedBy(*e)) members += identity(*owned) + '\n';
      nodes.emplace(e, Node{identity(*e), content(*e), members, e == &top ? nullptr : e->parent()});
    }
  }

  std::map<Entity const*, Node> nodes;
  std::set<Entity const*> targets;

 private:
  std::string content(Entity const& e) {
    std::ostringstream text;
    auto const object = GenericIf::ofEntity(Entity::PtrConst(&e));
    for (KelAttr const* attr : e.type()->attributeQ()) {
      if (attr->isFunction() || attr->ctorParam() || attr->instantiating() || attr->access().derived()) continue;
      text << attr->name() << '=';
      if (!attr->isCollection()) {
        print(text, object->attribute(attr->id()));
        continue;
      }
      for (auto it = object->attributeIteratorConst(attr->id()); it; ++it) {
        print(text, it.key());
        print(text, it.obj());
      }
    }
    return text.str();
  }
  void print(std::ostream& text, Gif const& value) {
    if (value && value->isEntity()) targets.insert(value->entityConst().ptr());
    if (!value)
      text << "null;";
    else if (value->type()->isValue())
      text << value->strep() << ';';
    else
      text << (value->isEntity() ? static_cast<void const*>(value->entityConst().ptr()) : value->object()) << ';';
  }
};

// --- The law ---

// A tree with a journal, and how it was.
class Watched {
 public:
  explicit Watched(Entity::Ptr const& anchor) : anchor_(anchor), journal_(ChangeJournal::attach(*anchor)) { look(); }

  Entity::Ptr const& anchor() const { return anchor_; }
  unsigned reused = 0, noted = 0, held = 0;

  // Everything that is not as it was is noted.
  void check() {
    ASSERT_TRUE(journal_.holds(from_));
    Image const now(*anchor_);
    std::map<Entity const*, Change> changes;
    for (auto const& [entity, change] : journal_.since(from_)) {
      ASSERT_TRUE(now.nodes.count(entity)) << "noted, but not in the tree";
      EXPECT_TRUE(changes.emplace(entity, change).second) << "noted twice: " << *entity->type();
    }
    EXPECT_EQ(journal_.end() == from_ && !changes.empty(), false);
    noted += static_cast<unsigned>(changes.size());
    for (auto const& [entity, node] : now.nodes) {
      if (isNew(now, changes, entity)) continue;
      auto const old = was_.nodes.find(entity);
      bool const known = old != was_.nodes.end() && old->second.identity == node.identity;
      EXPECT_TRUE(known) << "new, but not noted: " << node.identity << " under " << node.parent;
      if (!known) continue;
      auto const change = changes.find(entity);
      unsigned const strength = change == changes.end() ? 0 : static_cast<unsigned>(change->second);
      if (old->second.content != node.content) {
        EXPECT_GE(strength, 1u) << node.identity << " was " << old->second.content << " is " << node.content;
      }
      if (old->second.members != node.members) {
        EXPECT_GE(strength, 2u) << node.identity;
      }
    }
    for (auto const& [entity, node] : now.nodes) {
      auto const old = was_.nodes.find(entity);
      reused += old != was_.nodes.end() && old->second.identity != node.identity ? 1 : 0;
    }
    for (Entity const* target : now.targets) {
      if (!was_.nodes.count(target) || now.nodes.count(target)) continue;
      ++held;
      EXPECT_GT(ChangeJournal::heldDepartures(), heldBefore_) << "pointed at, and not counted";
    }
  }
  void look() {
    from_ = journal_.checkpoint();
    was_ = Image(*anchor_);
    heldBefore_ = ChangeJournal::heldDepartures();
  }

 private:
  static bool isNew(Image const& now, std::map<Entity const*, Change> const& changes, Entity const* e) {
    for (; e; e = now.nodes.at(e).parent) {
      auto const change = changes.find(e);
      if (change != changes.end() && change->second == Change::whole) return true;
    }
    return false;
  }

  Entity::Ptr const anchor_;
  ChangeJournal& journal_;
  U64 from_ = 0, heldBefore_ = 0;
  Image was_{*anchor_};
};

// --- Edits ---

// Writes to one entity when another one changes.
struct Writer : EntityNotifiee {
  Writer() { isNondestructingIs(true); }
  ~Writer() override { bind(nullptr); }
  void listen(Entity::PtrConst const& to) { bind(to); }
  void dispatch(AttributeId, void const*) override {
    if (writes || !sink) return;
    writes = true;
    sink->weightIs(sink->weight() + 1);
    writes = false;
  }
  Part::Ptr sink;
  bool writes = false;
};

class World {
 public:
  explicit World(unsigned seed) : edits_(seed) {
    for (char const* type : types) root->newEntity(String8(type), type);
  }
  // What points at the root from inside would keep the tree.
  ~World() { root->entryStateDelAll(); }

  Dir::Ptr const root = dirFactory("root");

  void edit() {
    std::vector<Entity*> const all = below(*root);
    Entity::Ptr const e = all[below_(all.size())];
    if (random().once(40)) return listen(e, all);
    if (random().once(50)) return ChangeJournal::newEpoch();
    if (random().once(6)) return point(*e, *all[below_(all.size())]);
    if (auto const dir = ptrCast<Dir>(e)) return editDir(*dir, all);
    if (e->type() != Dir::EntryState::_fwkType()) random().once(3) ? copy(*e, all) : write(*e);
  }
  // Entry states are told of nothing when their entry is deleted.
  Entity::Ptr anyAnchor() {
    std::vector<Entity*> all = below(*root);
    std::erase_if(all, [](Entity const* e) { return e->type() == Dir::EntryState::_fwkType(); });
    return all[below_(all.size())];
  }
  Random& random() { return edits_.random(); }

 private:
  static constexpr char const* types[] = {"Gadgets::Values", "Gadgets::Pointers", "Gadgets::Maps",   "Gadgets::Owner",
                                          "Gadgets::Queues", "Gadgets::Part",     "Gadgets::Binder", "Kel::Dir"};

  std::size_t below_(std::size_t end) { return random().below(static_cast<unsigned>(end)); }
  String8 typeName() { return types[below_(std::size(types))]; }

  void write(Entity& e) {
    auto const& attrs = e.type()->attributeQ();
    if (attrs.empty()) return;
    KelAttr const& attr = *attrs[below_(attrs.size())];
    if (attr.writable()) edits_.write(e, attr);
  }
  // From another entity of the type.
  void copy(Entity& dest, std::vector<Entity*> const& all) {
    std::vector<Entity*> alike;
    for (Entity* e : all)
      if (e != &dest && e->type() == dest.type()) alike.push_back(e);
    auto const& attrs = dest.type()->attributeQ();
    if (alike.empty() || attrs.empty()) return;
    KelAttr const& attr = *attrs[below_(attrs.size())];
    if (attr.writable()) Edits::copy(dest, *alike[below_(alike.size())], attr);
  }
  // Points into the tree.
  void point(Entity& e, Entity& target) {
    if (auto* const pointers = dynamic_cast<Pointers*>(&e)) pointers->anyIs(&target);
    if (auto* const part = dynamic_cast<Part*>(&e))
      if (auto* const peer = dynamic_cast<Part*>(&target)) part->peerIs(peer);
  }
  void listen(Entity::Ptr const& to, std::vector<Entity*> const& all) {
    writer_.listen(random().once(3) ? nullptr : to);
    writer_.sink = nullptr;
    for (Entity* e : all)
      if (auto* const part = dynamic_cast<Part*>(e); part && random().once(3)) writer_.sink = part;
  }

  void editDir(Dir& dir, std::vector<Entity*> const& all) {
    Name const key = "n" + std::to_string(random().below(4));
    Dir::EntryState::Ptr state = dir.entry(key);
    if (!state) {
      if (random().once(2))
        dir.newEntity(typeName(), key);
      else
        dir.newEntryState(key, typeName());
    } else if (random().once(3)) {
      dir.entityRef(key);  // makes what is not there yet
    } else if (random().once(3)) {
      state = nullptr;
      dir.entryStateDel(key);
      // Again, and most likely where the old one lay.
      if (random().once(2)) dir.newEntity(typeName(), key);
    } else if (Entity::Ptr const moved = state->entityPtr()) {
      move(dir, moved, all);
    }
  }
  // To another directory, changed on the way.
  void move(Dir& from, Entity::Ptr const& e, std::vector<Entity*> const& all) {
    from.entryStateDel(e->name());
    std::vector<Entity*> const inside = Gadgets::below(*e);
    for (unsigned n = random().below(4); n > 0; --n) {
      Entity& changed = *inside[below_(inside.size())];
      if (ownedBy(changed).empty() && changed.type() != Dir::EntryState::_fwkType()) write(changed);
    }
    for (unsigned tries = 0; tries < 3; ++tries) {
      auto* const to = dynamic_cast<Dir*>(all[below_(all.size())]);
      if (!to || to->root() != root.ptr() || to->entry(e->name())) continue;
      return to->entryIs(e);
    }
  }

  Edits edits_;
  Writer writer_;
};

void runWorld(unsigned seed, unsigned* reused) {
  World world(seed);
  std::vector<std::unique_ptr<Watched>> watched;
  watched.push_back(std::make_unique<Watched>(world.root));
  unsigned noted = 0, held = 0;
  for (unsigned i = 0; i < 4000 && !testing::Test::HasFatalFailure(); ++i) {
    world.edit();
    if (world.random().once(100)) {  // anchors may leave the tree, and stay anchors
      if (watched.size() == 4) watched.erase(watched.begin() + 1);
      watched.push_back(std::make_unique<Watched>(world.anyAnchor()));
    }
    if (!world.random().once(10)) continue;
    Watched& w = *watched[world.random().below(static_cast<unsigned>(watched.size()))];
    w.check();
    if (world.random().once(2)) w.look();
    noted += w.noted, *reused += w.reused, held += w.held;
  }
  EXPECT_GT(noted, 500u);
  EXPECT_GT(held, 0u);
}

TEST(ChangeJournal, NotesAllThatChanges) {
  unsigned reused = 0;
  for (unsigned seed = 0; seed < 6; ++seed) runWorld(seed, &reused);
#if !defined(__SANITIZE_ADDRESS__)
  EXPECT_GT(reused, 0u);  // addresses
#endif
}

// Epochs are common to all trees.
TEST(ChangeJournal, NotesAllThatChangesInTreesOfSeveralThreads) {
  unsigned reused[2] = {};
  std::thread other([&] { runWorld(10, &reused[0]); });
  runWorld(11, &reused[1]);
  other.join();
}

// --- One by one ---

using Entries = std::vector<std::pair<Entity const*, Change>>;

// What `edit` leaves in the journal.
template <class F>
Entries notedBy(Entity const& anchor, F const& edit) {
  ChangeJournal& journal = ChangeJournal::attach(anchor);
  U64 const from = journal.checkpoint();
  edit();
  EXPECT_TRUE(journal.holds(from));
  Entries entries;
  for (auto const& [entity, change] : journal.since(from)) entries.push_back({entity, change});
  EXPECT_EQ(entries.empty() && journal.end() != from, false);
  return entries;
}

TEST(ChangeJournal, NotesWritesThroughAccessors) {
  Dir::Ptr const root = dirFactory("root");
  auto const values = ptrCast<Values>(Values::_fwkType()->newEntity("v", root.ptr()));
  auto const maps = ptrCast<Maps>(Maps::_fwkType()->newEntity("m", root.ptr()));
  auto const queues = ptrCast<Queues>(Queues::_fwkType()->newEntity("q", root.ptr()));
  auto const pointers = ptrCast<Pointers>(Pointers::_fwkType()->newEntity("p", root.ptr()));
  auto const content = [&](Entity const& e, auto const& edit) {
    EXPECT_EQ(notedBy(*root, edit), (Entries{{&e, Change::content}}));
    EXPECT_EQ(notedBy(e, edit), (Entries{{&e, Change::content}}));
  };
  content(*values, [&] { values->u8Inc(); });
  content(*values, [&] { values->textIs(values->text() + "x"); });
  content(*values, [&] { values->colorIs(values->color() == Color::red ? Color::green : Color::red); });
  content(*values, [&] { values->pointIs(Point(values->point().x() + 1, 0)); });
  content(*values, [&] { values->opaqueIs(Opaque(1)); });
  content(*values, [&] { values->localIs(values->local() + 1); });
  content(*values, [&] { values->secretSet(values->secret() + 1); });
  content(*values, [&] { values->textNotify(); });
  content(*maps, [&] { maps->counterCounterInc("k"); });
  content(*maps, [&] { maps->byTextIs("k", maps->byText("k") + 1); });
  content(*maps, [&] { maps->byTextIs("k", 0), maps->byTextDelAll(); });
  content(*queues, [&] { queues->numbersEnq(1); });
  content(*queues, [&] { queues->numbersDeq(); });
  content(*pointers, [&] { pointers->anyIs(values), pointers->anyDel(); });
}

// What changed just before was noted elsewhere, or nowhere.
TEST(ChangeJournal, NotesFromTheBeginning) {
  Owner::Ptr const owner = ownerFactory("o");
  ChangeJournal::attach(*ownerFactory("other")).checkpoint();
  owner->writesIs(1);
  ChangeJournal& journal = ChangeJournal::attach(*owner);
  U64 const from = journal.end();
  owner->writesIs(2);
  EXPECT_EQ(journal.since(from).size(), 1u);
}

TEST(ChangeJournal, NotesNothingWhereNothingChanges) {
  Dir::Ptr const root = dirFactory("root");
  auto const values = ptrCast<Values>(Values::_fwkType()->newEntity("v", root.ptr()));
  auto const owner = ptrCast<Owner>(Owner::_fwkType()->newEntity("o", root.ptr()));
  owner->newParts("p");
  EXPECT_EQ(notedBy(*root,
                    [&] {
                      values->u32Is(values->u32());
                      values->opaque();
                      owner->partsIs("p");
                      owner->partsDel("none");
                      owner->numberedDelAll();
                      root->entryStateDel("none");
                    }),
            Entries());
}

// Of what is new the topmost is noted, and of what went its owner.
TEST(ChangeJournal, NotesOnlyTheTopOfWhatIsNew) {
  Dir::Ptr const root = dirFactory("root"), arriving = dirFactory("d");
  auto const owner = ptrCast<Owner>(Owner::_fwkType()->newEntity("o", root.ptr()));
  Part const* part = nullptr;
  Entries const made = notedBy(*root, [&] {
    auto const x = owner->newParts("x");
    for (int i = 0; i < 100; ++i) x->newParts("y" + std::to_string(i))->newParts("z")->weightIs(1);
    x->partsDel("y7");
    part = x.ptr();
  });
  EXPECT_EQ(made, (Entries{{owner.ptr(), Change::members}, {part, Change::whole}}));
  EXPECT_EQ(notedBy(*root, [&] { owner->parts("x")->weightIs(5), owner->partsDel("x"); }),
            (Entries{{owner.ptr(), Change::members}}));
  // The directory, its entry and its owner; and the write, because the part itself is older than the epoch.
  auto const older = ptrCast<Part>(arriving->newEntity("Gadgets::Part", "p"));
  EXPECT_EQ(notedBy(*root, [&] { root->entryIs(arriving), older->weightIs(1); }).size(), 4u);
}

// An anchor below another one misses nothing of its own when it comes into the tree as a part of something new.
TEST(ChangeJournal, AnchorsThatMoveKeepTheirJournals) {
  Dir::Ptr const root = dirFactory("root"), inner = dirFactory("inner");
  ChangeJournal& journal = ChangeJournal::attach(*root);
  ChangeJournal& own = ChangeJournal::attach(*inner);
  U64 const from = journal.checkpoint(), ownFrom = own.end();
  root->entryIs(inner);
  root->entryStateDel("inner");
  EXPECT_EQ(journal.since(from).size(), 1u);  // the root
  root->entryIs(inner);
  auto const part = inner->newEntity("Gadgets::Part", "p");
  auto const isWhole = [](ChangeJournal& in, U64 position, Entity::Ptr const& e) {
    auto const entries = in.since(position);
    return std::any_of(entries.begin(), entries.end(),
                       [&](auto const& entry) { return entry.entity == e.ptr() && entry.change == Change::whole; });
  };
  EXPECT_TRUE(isWhole(journal, from, inner));
  EXPECT_TRUE(isWhole(own, ownFrom, part));
  root->entryStateDel("inner");
  EXPECT_EQ(journal.since(from).size(), 1u);
  EXPECT_TRUE(isWhole(own, ownFrom, part));
}

// A directory whose making fails was never there.
TEST(ChangeJournal, DirectoriesThatCouldNotBeMadeAreNotNoted) {
  struct Refuses : Dir::Notifiee {
    void onEntryState(Name const& name) override {
      if (notifier()->entry(name)->entityPtr()) throwRangeException("refused");
    }
  } refuses;
  Dir::Ptr const root = dirFactory("root");
  refuses.isNondestructingIs(true);
  refuses.notifierIs(root);
  ChangeJournal& journal = ChangeJournal::attach(*root);
  U64 const from = journal.checkpoint();
  EXPECT_THROW(Dir("made", root.ptr()), RangeException);
  std::vector<Entity*> const there = below(*root);
  for (auto const& [entity, change] : journal.since(from))
    EXPECT_EQ(std::count(there.begin(), there.end(), entity), 1) << static_cast<int>(change);
  refuses.notifierIs(nullptr);
}

TEST(ChangeJournal, CountsWhatSomebodyHoldsWhenItLeaves) {
  Owner::Ptr const owner = ownerFactory("o");
  Dir::Ptr const dir = dirFactory("d");
  auto const counted = [](auto const& edit) {
    U64 const before = ChangeJournal::heldDepartures();
    edit();
    return ChangeJournal::heldDepartures() - before;
  };
  owner->newParts("x")->newParts("y")->peerIs(owner->parts("x"));  // a circle inside holds nothing
  EXPECT_EQ(counted([&] { owner->partsDel("x"); }), 0u);
  owner->newParts("x")->newParts("y");
  dir->newEntity("Gadgets::Part", "p");
  EXPECT_EQ(counted([&] { owner->partsDel("x"); }), 0u);
  EXPECT_EQ(counted([&] { dir->entryStateDel("p"); }), 0u);
  owner->newPart("a");
  EXPECT_EQ(counted([&] { owner->partDel(); }), 0u);
  Part::Ptr const x = owner->newParts("x");
  EXPECT_EQ(counted([&] { owner->partsDel("x"); }), 1u);
  Part::Ptr const y = owner->newParts("z")->newParts("y");
  EXPECT_EQ(counted([&] { owner->partsDel("z"); }), 1u);  // below what nobody holds
}

// --- Forgetting ---

TEST(ChangeJournal, ForgetsWhatIsTooMuch) {
  Owner::Ptr const owner = ownerFactory("o");
  ChangeJournal& journal = ChangeJournal::attach(*owner);
  U64 const from = journal.checkpoint();
  for (std::size_t i = 0; i < ChangeJournal::maxEntries; ++i, ChangeJournal::newEpoch())
    owner->writesIs(owner->writes() + 1);
  EXPECT_TRUE(journal.holds(from));
  EXPECT_EQ(journal.since(from).size(), 1u);
  owner->writesIs(0);
  EXPECT_FALSE(journal.holds(from));
  EXPECT_THROW(journal.since(from), RangeException);
  U64 const next = journal.checkpoint();
  EXPECT_GT(next, from + ChangeJournal::maxEntries);
  EXPECT_TRUE(journal.holds(next));
  EXPECT_FALSE(journal.holds(from) || journal.holds(next + 1));
  owner->writesIs(1);
  EXPECT_EQ(journal.since(next).size(), 1u);
}

// However many come and go, what is void costs no room.
TEST(ChangeJournal, IsNotFilledByWhatCameAndWent) {
  Owner::Ptr const owner = ownerFactory("o");
  ChangeJournal& journal = ChangeJournal::attach(*owner);
  U64 const from = journal.checkpoint();
  for (U32 i = 0; i < 20000; ++i) owner->newNumbered(i);
  EXPECT_FALSE(journal.holds(from));  // each is noted: their owner is not new
  U64 const next = journal.checkpoint();
  for (U32 i = 0; i < 5000; ++i) owner->newNumbered(50000 + i);
  owner->numberedDelAll();
  EXPECT_TRUE(journal.holds(next));
  EXPECT_EQ(journal.since(next).size(), 1u);
}

TEST(ChangeJournal, ForgetsWhenLinksToParentsAreMovedByHand) {
  Owner::Ptr const owner = ownerFactory("o");
  ChangeJournal& journal = ChangeJournal::attach(*owner);
  U64 const from = journal.checkpoint(), upheavals = ChangeJournal::upheavals();
  partFactory("p")->parentIs(nullptr);
  EXPECT_GT(ChangeJournal::upheavals(), upheavals);
  EXPECT_FALSE(journal.holds(from));
  EXPECT_TRUE(journal.holds(journal.checkpoint()));
}

TEST(ChangeJournal, IsOffWhenItIsSwitchedOff) {
  Owner::Ptr const owner = ownerFactory("o");
  ChangeJournal& journal = ChangeJournal::attach(*owner);
  U64 const from = journal.checkpoint();
  EXPECT_TRUE(ChangeJournal::enabled());
  ChangeJournal::enabledIs(false);
  EXPECT_FALSE(ChangeJournal::enabled() || journal.holds(from));
  U64 const off = journal.checkpoint();
  EXPECT_FALSE(journal.holds(off));
  owner->newParts("x");
  EXPECT_EQ(journal.end(), off);
  ChangeJournal::enabledIs(true);
  EXPECT_FALSE(journal.holds(from) || journal.holds(off));
  EXPECT_EQ(notedBy(*owner, [&] { owner->parts("x")->weightIs(1); }),
            (Entries{{owner->parts("x").ptr(), Change::content}}));
}

TEST(ChangeJournalDeathTest, IsOffFromTheStartWhenTheEnvironmentSaysSo) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";  // a process of its own
  ::setenv("KEL_CHANGE_JOURNAL", "off", 1);
  EXPECT_EXIT(std::exit(ChangeJournal::enabled() ? 1 : 0), testing::ExitedWithCode(0), "");
  ::setenv("KEL_CHANGE_JOURNAL", "on", 1);
  EXPECT_EXIT(std::exit(ChangeJournal::enabled() ? 0 : 1), testing::ExitedWithCode(0), "");
  ::unsetenv("KEL_CHANGE_JOURNAL");
}

TEST(ChangeJournalDeathTest, IsOffForGoodAfterTheLastEpoch) {
  testing::FLAGS_gtest_death_test_style = "fast";
  auto const outlives = [] {
    Owner::Ptr const owner = ownerFactory("o");
    ChangeJournal& journal = ChangeJournal::attach(*owner);
    ChangeJournal::lastEpochsLeftIs(2);
    bool works = true;
    for (int i = 0; i < 2; ++i) {
      U64 const from = journal.checkpoint();
      owner->writesIs(owner->writes() + 1);
      works = works && journal.holds(from) && journal.since(from).size() == 1;
    }
    U64 const from = journal.checkpoint();
    ChangeJournal::enabledIs(true);
    owner->writesIs(owner->writes() + 1);
    owner->newParts("x")->weightIs(1);
    return works && !ChangeJournal::enabled() && !journal.holds(from);
  };
  EXPECT_EXIT(std::exit(outlives() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(ChangeJournal, GoesWithItsAnchor) {
  std::set<U64> ids;
  for (int i = 0; i < 10; ++i) {
    Owner::Ptr const owner = ownerFactory("o");
    EXPECT_EQ(ChangeJournal::of(*owner), nullptr);
    ChangeJournal& journal = ChangeJournal::attach(*owner);
    EXPECT_TRUE(ids.insert(journal.id()).second);
    EXPECT_EQ(&ChangeJournal::attach(*owner), &journal);
    EXPECT_FALSE(owner->hasReactors());
    {
      Watch watch(owner);
      EXPECT_TRUE(owner->hasReactors());
      owner->writesIs(1);
      EXPECT_EQ(watch.told.size(), 1u);
    }
    EXPECT_FALSE(owner->hasReactors());
    EXPECT_EQ(ChangeJournal::of(*owner), &journal);
  }
}

// Where there is no memory for an entry, all is forgotten; nothing else fails.
TEST(ChangeJournal, ForgetsWhenMemoryRunsOut) {
  Owner::Ptr const owner = ownerFactory("o");
  std::vector<Numbered::Ptr> members;
  for (U32 i = 0; i < 100; ++i) members.push_back(owner->newNumbered(i));
  for (bool const leave : {false, true}) {
    ChangeJournal& journal = ChangeJournal::attach(*owner);
    U64 const from = journal.checkpoint();
    if (leave) members[0]->noteIs("x");
    {
      Tests::FailingHeap const none(1, Tests::FailingHeap::forGood);
      for (U32 i = 0; i < 100; ++i) leave ? owner->numberedDel(i) : members[i]->noteNotify();
    }
    EXPECT_FALSE(journal.holds(from));
    EXPECT_TRUE(journal.holds(journal.checkpoint()));
  }
}

}  // namespace
}  // namespace Gadgets
