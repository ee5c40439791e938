// Attributes of every kind. By reflection: what is written is read back, each change is told once, what cannot be is
// refused and changes nothing. And what one door writes the other reads, accessors or reflection.
#include <algorithm>
#include <map>

#include "Kel/AttrAccess.h"
#include "Support.h"

namespace Gadgets {
namespace {

// All attributes of one entity, one after the other.
class Law {
 public:
  explicit Law(Entity::Ptr const& entity) : e_(entity), object_(GenericIf::ofEntity(entity)), watch_(entity) {
    for (KelAttr const* attr : e_->type()->attributeQ())
      if (attr->isValue() && !attr->isCollection()) initial_[attr->id()] = object_->attribute(attr->id());
  }

  void holds() {
    for (KelAttr const* attr : e_->type()->attributeQ()) {
      if (attr->isFunction()) continue;
      SCOPED_TRACE(attr->fullName());
      attr_ = attr;
      id_ = attr->id();
      watch_.take();
      if (!attr->writable()) {
        closed();
        continue;
      }
      misfits();
      if (attr->isQueue())
        queue();
      else if (attr->isCollection())
        attr->instantiating() ? owned() : map();
      else
        attr->instantiating() ? singleton() : single();
    }
  }

 private:
  // --- What may be written ---

  Gif value(KelType const* type) { return anyValue(random_, type); }
  Gif key(Gif const& member) {
    if (attr_->name() == "byField") return member->attribute(member->attributeId("label"));
    if (attr_->name() == "byPointField") return member->attribute(member->attributeId("from"));
    return value(attr_->keyType());
  }
  std::vector<Gif> args() {
    return constructorArgs(*attr_, [this](KelType const* type) { return value(type); });
  }
  Gif member() { return attr_->instantiating() ? listOf(args()) : value(attr_->type()); }
  static bool same(Gif const& a, Gif const& b) {
    if (!a || !b) return a == b;
    if (a->isEntity()) return a->entityConst() == b->entityConst();
    if (!a->type()->isValue()) return a->object() == b->object();
    return a->type()->valueOps().equal ? a->valueEqual(*b) : a->strep() == b->strep();
  }
  // What has no comparison changes with every write.
  bool changes(Gif const& from, Gif const& to) const {
    return (attr_->isValue() && !attr_->type()->valueOps().equal) || !same(from, to);
  }
  Gif read(Gif const& key = nullptr) const { return object_->attribute(id_, key); }

  // --- What is told ---

  std::size_t told() {
    auto const all = watch_.take();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), id_));
  }
  template <class F>
  void expectTold(bool once, F const& write) {
    watch_.take();
    write();
    EXPECT_EQ(told(), once ? 1u : 0u);
  }
  template <class Refusal, class F>
  void refuses(F const& write) {
    std::string message;
    expectTold(false, [&] { message = messageOf<Refusal>(write); });
    EXPECT_NE(message.find(attr_->fullName().str()), std::string::npos) << message;
  }
  void deleteAll() {
    U32 const members = object_->attributeCount(id_);
    watch_.take();
    object_->attributeOp(AttributeOp::deleteAll, id_);
    EXPECT_EQ(told(), members);
    EXPECT_EQ(object_->attributeCount(id_), 0u);
  }
  // Deletes a member that is there.
  void remove(Gif const& key) {
    expectTold(true, [&] { object_->attributeDel(id_, key); });
    EXPECT_EQ(read(key), nullptr);
    EXPECT_FALSE(attr_->isCollection() && has(key));
    expectTold(false, [&] { object_->attributeDel(id_, key); });
  }
  // A null pointer is a key, too.
  bool has(Gif const& key) const {
    bool found = false;
    for (auto it = object_->attributeIteratorConst(id_); it; ++it) found = found || same(it.key(), key);
    return found;
  }
  void expectWalked() {
    U32 walked = 0;
    for (auto it = object_->attributeIterator(id_); it; ++it, ++walked) EXPECT_TRUE(same(read(it.key()), it.obj()));
    EXPECT_EQ(walked, object_->attributeCount(id_));
  }

  // What its kind does not have, and what is of another type.
  void misfits() {
    using Unsupported = OpNotSupportedException;
    Gif const wrong = attr_->type() == TypeOf<F32>::type() ? Gif(box(U32(1))) : Gif(box(F32(1)));
    refuses<Unsupported>([&] { object_->attributeCall(id_, {}); });
    if (!attr_->isQueue()) {
      refuses<Unsupported>([&] { object_->attributeSQEnq(id_, wrong); });
      refuses<Unsupported>([&] { object_->attributeSQDeq(id_); });
    }
    if (!attr_->isCollection()) {
      refuses<Unsupported>([&] { object_->attributeOp(AttributeOp::deleteAll, id_); });
      refuses<Unsupported>([&] { object_->attributeIterator(id_); });
      refuses<Unsupported>([&] { object_->attributeCount(id_); });
      refuses<BadIndexAttrException>([&] { object_->attribute(id_, wrong); });
      if (!attr_->instantiating()) refuses<TypeException>([&] { object_->attributeIs(id_, nullptr, wrong); });
      return;
    }
    for (Gif const& k : {wrong, Gif()}) {
      if (!k && attr_->keyIsPtr()) continue;
      refuses<BadIndexAttrException>([&] { object_->attribute(id_, k); });
      refuses<BadIndexAttrException>([&] { object_->attributeDel(id_, k); });
      refuses<BadIndexAttrException>([&] { object_->attributeIteratorKey(id_, k); });
    }
    if (attr_->isQueue() || attr_->instantiating()) return;
    refuses<TypeException>([&] { object_->attributeIs(id_, value(attr_->keyType()), wrong); });
  }

  // --- The kinds ---

  void closed() {
    Gif const v = attr_->type()->isValue() ? value(attr_->type()) : nullptr;
    Gif const k = attr_->keyType() ? value(attr_->keyType()) : nullptr;
    refuses<OpNotSupportedException>([&] { object_->attributeIs(id_, k, v); });
    refuses<OpNotSupportedException>([&] { object_->attributeDel(id_, k); });
    refuses<OpNotSupportedException>([&] { object_->attributeSQEnq(id_, v); });
    refuses<OpNotSupportedException>([&] { object_->attributeSQDeq(id_); });
    refuses<OpNotSupportedException>([&] { object_->attributeOp(AttributeOp::deleteAll, id_); });
  }

  void single() {
    object_->attributeDel(id_);  // others may have changed it
    Gif const initial = read();
    EXPECT_TRUE(same(initial, initial_[id_])) << "another value than a new entity has";
    for (int i = 0; i < 40; ++i) {
      Gif const v = value(attr_->type());
      expectTold(changes(read(), v), [&] { object_->attributeIs(id_, nullptr, v); });
      EXPECT_TRUE(same(read(), v));
      refuses<BadIndexAttrException>([&] { object_->attributeIs(id_, box(Name("key")), v); });
      if (!random_.once(3)) continue;
      expectTold(changes(v, initial), [&] { object_->attributeDel(id_); });
      EXPECT_TRUE(same(read(), initial));
    }
  }

  void map() {
    for (int i = 0; i < 60; ++i) {
      Gif const v = value(attr_->type());
      Gif const k = key(v);
      if (attr_->name() == "byName" && !v) {
        refuses<RangeException>([&] { object_->attributeIs(id_, k, v); });
        continue;
      }
      expectTold(!has(k) || changes(read(k), v), [&] { object_->attributeIs(id_, k, v); });
      EXPECT_TRUE(same(read(k), v));
      refuses<NameInUseException>([&] { object_->attributeOp(AttributeOp::create, id_, k, v); });
      auto const at = object_->attributeIteratorKey(id_, k);
      EXPECT_TRUE(at && same(at.key(), k));
      expectWalked();
      if (!random_.once(3)) continue;
      remove(k);
      expectTold(true, [&] { object_->attributeOp(AttributeOp::create, id_, k, v); });
    }
    EXPECT_GT(object_->attributeCount(id_), 1u);
    deleteAll();
  }

  void owned() {
    for (int i = 0; i < 40; ++i) {
      auto const params = args();
      Gif const k = params.front(), list = listOf(params);
      bool const there = read(k) != nullptr;
      if (there) refuses<NameInUseException>([&] { object_->attributeOp(AttributeOp::create, id_, nullptr, list); });
      if (!there) expectTold(true, [&] { object_->attributeIs(id_, random_.once(2) ? k : nullptr, list); });
      Entity::Ptr const made = object_->attribute(id_, k)->entity();
      EXPECT_EQ(made->parent(), e_.ptr());
      EXPECT_EQ(made->parentAttrId(), id_);
      if (!there) expectTold(false, [&] { object_->attributeIs(id_, k, list); });
      EXPECT_EQ(read(k)->entityConst(), made);
      expectWalked();
      if (!random_.once(3)) continue;
      remove(k);
      EXPECT_EQ(made->parent(), nullptr);
    }
    deleteAll();
  }

  void singleton() {
    EXPECT_EQ(read(), nullptr);
    Gif const list = member();
    auto const set = [&] { object_->attributeIs(id_, nullptr, list); };
    expectTold(true, set);
    Entity::Ptr const first = object_->attribute(id_)->entity();
    EXPECT_EQ(first->fullName(), String8(".") + attr_->name());
    refuses<NameInUseException>([&] { object_->attributeOp(AttributeOp::create, id_, nullptr, list); });
    expectTold(false, set);
    EXPECT_EQ(read()->entityConst(), first);
    remove(nullptr);
    EXPECT_EQ(first->parent(), nullptr);
    expectTold(true, set);
    EXPECT_NE(read()->entityConst(), first);
  }

  void queue() {
    for (int i = 0; i < 40; ++i) {
      Gif const v = member();
      expectTold(true, [&] { object_->attributeSQEnq(id_, v); });
      expectWalked();
      if (random_.once(3)) expectTold(true, [&] { object_->attributeSQDeq(id_); });
      if (random_.once(3) && object_->attributeCount(id_) > 0) remove(object_->attributeIterator(id_).key());
    }
    Gif const index = object_->attributeIterator(id_).key();
    refuses<OpNotSupportedException>([&] { object_->attributeIs(id_, index, member()); });
    deleteAll();
    EXPECT_EQ(messageOf<RangeException>([&] { object_->attributeSQDeq(id_); }), "linkqueue index out of range");
  }

  Entity::Ptr e_;
  GenericIf::Ptr object_;
  Watch watch_;
  Random random_{11};
  KelAttr const* attr_ = nullptr;
  AttributeId id_ = noAttribute;
  std::map<AttributeId, Gif> initial_;  // of values
};

TEST(Doors, LawsHoldForEveryAttribute) {
  for (Entity::Ptr const& entity : std::initializer_list<Entity::Ptr>{
           valuesFactory("v", 3), moreValuesFactory("v", 3, "extra"), pointersFactory("p"), mapsFactory("m"),
           ownerFactory("o"), queuesFactory("q")})
    Law(entity).holds();
}

// Each kind of accessor against reflection: what the one writes the other reads, and the reactors hear of it once.
TEST(Doors, AccessorsAndReflectionAreOne) {
  Random random(5);
  Values::Ptr const values = valuesFactory("v", 1);
  Pointers::Ptr const pointers = pointersFactory("p");
  Maps::Ptr const maps = mapsFactory("m");
  Owner::Ptr const owner = ownerFactory("o");
  Queues::Ptr const queues = queuesFactory("q");
  auto const told = [](auto const& e, AttributeId id, auto const& write) {
    Watch watch(e);
    write();
    EXPECT_EQ(std::count(watch.told.begin(), watch.told.end(), id), 1) << e->type()->attr(id)->fullName();
  };
  Segment const segment = random.of<Segment>();
  told(values, Values::segmentAttr, [&] { values->segmentIs(segment); });
  EXPECT_EQ(boxed(values)->attribute(Values::segmentAttr)->attrVal<Segment>(), segment);
  told(values, Values::segmentAttr, [&] { values->segmentDel(); });
  Part::Ptr const part = partFactory("p");
  boxed(pointers)->attributeIs(Pointers::byNameAttr, box(Name("k")), boxed(part));
  EXPECT_EQ(pointers->byName("k"), part);
  EXPECT_EQ(messageOf<RangeException>([&] { pointers->byNameIs("l", nullptr); }),
            "null _byName parameter to mutator for Gadgets::Pointers::byName not allowed\"");
  EXPECT_THROW(pointers->newByName("k", part), NameInUseException);

  told(maps, Maps::byPointAttr, [&] { maps->newByPoint(Point(1, 2), segment); });
  EXPECT_EQ(boxed(maps)->attribute(Maps::byPointAttr, box(Point(1, 2)))->attrVal<Segment>(), segment);
  EXPECT_THROW(maps->newByPoint(Point(1, 2), segment), NameInUseException);
  EXPECT_TRUE(maps->byPointHas(Point(1, 2)) && !maps->byPointHas(Point()));
  EXPECT_EQ(maps->byPoint(Point()), Segment());
  told(maps, Maps::byPointAttr, [&] { maps->byPointDel(Point(1, 2)); });
  told(maps, Maps::byPointFieldAttr, [&] { maps->byPointFieldIs(segment); });
  EXPECT_TRUE(boxed(maps)->attribute(Maps::byPointFieldAttr, box(segment.from())));
  told(maps, Maps::counterAttr, [&] { maps->counterCounterInc("k"); });
  boxed(maps)->attributeOp(AttributeOp::increment, Maps::counterAttr, box(Name("k")));
  EXPECT_EQ(maps->counter("k"), 2);

  told(owner, Owner::placedByAttr, [&] { owner->newPlacedBy(Point(3, 4), "n"); });
  EXPECT_EQ(boxed(owner)->attribute(Owner::placedByAttr, box(Point(3, 4)))->entity(), owner->placedBy(Point(3, 4)));
  EXPECT_THROW(owner->newPlacedBy(Point(3, 4), "m"), NameInUseException);
  EXPECT_EQ(owner->placedByIs(Point(3, 4), "m"), owner->placedBy(Point(3, 4)));
  EXPECT_EQ(owner->placedByIterator()->note(), "n");
  told(owner, Owner::placedByAttr, [&] { owner->placedByDel(owner->placedByIterator()->point()); });
  told(owner, Owner::placedAttr, [&] { owner->newPlaced(Point(), "n"); });
  EXPECT_THROW(owner->newPlaced(Point(), "n"), NameInUseException);
  told(owner, Owner::placedAttr, [&] { owner->placedDel(); });

  told(queues, Queues::pointsAttr, [&] { EXPECT_EQ(queues->pointsEnq(Point(5, 6)), 0); });
  EXPECT_EQ(boxed(queues)->attribute(Queues::pointsAttr, box(S16(0)))->attrVal<Point>(), Point(5, 6));
  told(queues, Queues::pointsAttr, [&] { EXPECT_EQ(queues->pointsDeq(), Point(5, 6)); });
  boxed(queues)->attributeSQEnq(Queues::queuedAttr, listOf({box(String8("note"))}));
  auto const first = queues->queued(0);
  EXPECT_EQ(first->note(), "note");
  EXPECT_EQ(queues->queued(1), nullptr);
  told(queues, Queues::queuedAttr, [&] { EXPECT_EQ(queues->queuedDeq(), first); });
  EXPECT_EQ(first->parent(), nullptr);
}

// A value without comparison: every write is a change.
TEST(Doors, ValuesWithoutComparisonAlwaysChange) {
  Values::Ptr const values = valuesFactory("v", 1);
  Maps::Ptr const maps = mapsFactory("m");
  Watch watch(values), mapWatch(maps);
  for (int i = 0; i < 2; ++i) {
    values->opaqueIs(Opaque(1));
    maps->opaqueIs(1, Opaque(1));
  }
  EXPECT_EQ(watch.told.size(), 2u);
  EXPECT_EQ(mapWatch.told.size(), 2u);
  EXPECT_EQ(messageOf<NoImplementationException>([] { box(Opaque(1))->valueEqual(*box(Opaque(1))); }), "operator==");
  EXPECT_FALSE(Values::_fwkType()->attr(Values::opaqueAttr)->access().equal(*values, *values));
}

}  // namespace
}  // namespace Gadgets
