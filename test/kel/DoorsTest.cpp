// Every attribute of every kind is written through its accessor and read by reflection, and the other way; both doors
// tell the reactors, once a change.
#include <set>

#include "Support.h"

namespace Gadgets {
namespace {

// One entity, seen through both doors.
template <class T>
class Doors {
 public:
  explicit Doors(Ptr<T> entity) : e_(std::move(entity)), object_(boxed(e_)), watch_(e_) {}
  ~Doors() {
    for (KelAttr const* attr : T::_fwkType()->attributeQ())
      EXPECT_TRUE(attr->isFunction() || seen_.count(attr->id())) << attr->fullName() << " is not tested";
  }

  template <class Get>
  void readOnly(AttributeId id, Get const& get) {
    begin(id);
    using V = std::decay_t<decltype(get(*e_))>;
    EXPECT_TRUE(get(*e_) == unbox<V>(object_->attribute(id).ptr(), ""));
    EXPECT_THROW(object_->attributeIs(id, nullptr, box(get(*e_))), OpNotSupportedException);
    EXPECT_THROW(object_->attributeDel(id), OpNotSupportedException);
    EXPECT_TRUE(watch_.take().empty());
  }

  template <class Get, class Set, class Del>
  void single(AttributeId id, Get const& get, Set const& set, Del const& del) {
    begin(id);
    using V = std::decay_t<decltype(get(*e_))>;
    V const initial = get(*e_);
    for (int i = 0; i < 20; ++i) {
      V const a = random_.of<V>(), b = random_.of<V>();
      expectTold(id, !same(get(*e_), a), [&] { set(*e_, a); });
      EXPECT_TRUE(same(unbox<V>(object_->attribute(id).ptr(), ""), a));
      expectTold(id, !same(a, b), [&] { object_->attributeIs(id, nullptr, box(b)); });
      EXPECT_TRUE(same(get(*e_), b));
      EXPECT_THROW(object_->attributeIs(id, box(Name("key")), box(b)), BadIndexAttrException);
      expectTold(id, !same(b, initial), [&] { i % 2 ? del(*e_) : object_->attributeDel(id); });
      EXPECT_TRUE(same(get(*e_), initial));
    }
  }

  template <class Iterator, class Get, class Set, class Has, class Del, class DelAll>
  void map(AttributeId id, Iterator const& iterator, Get const& get, Set const& set, Has const& has, Del const& del,
           DelAll const& delAll) {
    begin(id);
    using K = std::decay_t<decltype(iterator(*e_).key())>;
    using V = std::decay_t<decltype(iterator(*e_).value())>;
    KelAttr const& attr = *T::_fwkType()->attr(id);
    for (int i = 0; i < 60; ++i) {
      V v = random_.of<V>();
      K const k = keyFor(attr, v, random_.of<K>());
      if (isPtrType<V> && attr.name() == "byName") v = random_.of<V>();
      if (refuses(attr, v)) continue;
      bool const changes = !has(*e_, k) || !same(get(*e_, k), v);
      expectTold(id, changes, [&] {
        if (random_.once(2))
          set(*e_, k, v);
        else
          object_->attributeIs(id, box(k), box(v));
      });
      EXPECT_TRUE(same(get(*e_, k), v));
      EXPECT_TRUE(same(unbox<V>(object_->attribute(id, box(k)).ptr(), ""), v));
      EXPECT_THROW(object_->attributeOp(AttributeOp::create, id, box(k), box(v)), NameInUseException);
      if (GenericIf::PtrConst const key = box(k)) {
        EXPECT_EQ(object_->attributeIteratorKey(id, key).key()->text(), key->text());
      }
      expectSameMembers<K, V>(id, iterator);
      if (random_.once(3)) {
        expectTold(id, true, [&] { random_.once(2) ? del(*e_, k) : object_->attributeDel(id, box(k)); });
        EXPECT_FALSE(has(*e_, k));
        EXPECT_EQ(object_->attribute(id, box(k)), nullptr);
        expectTold(id, false, [&] { random_.once(2) ? del(*e_, k) : object_->attributeDel(id, box(k)); });
        expectTold(id, true, [&] { object_->attributeOp(AttributeOp::create, id, box(k), box(v)); });
      }
    }
    EXPECT_GT(object_->attributeCount(id), 1u);
    EXPECT_THROW(object_->attributeSQDeq(id), OpNotSupportedException);
    U32 const members = object_->attributeCount(id);
    watch_.take();
    random_.once(2) ? delAll(*e_) : object_->attributeOp(AttributeOp::deleteAll, id);
    EXPECT_EQ(told(id), members);
    EXPECT_EQ(object_->attributeCount(id), 0u);
  }

  // `make` has the key of the member; so has the list that makes one by reflection.
  template <class E, class Get, class Make, class Del, class DelAll>
  void owned(AttributeId id, Get const& get, Make const& make, Del const& del, DelAll const& delAll) {
    begin(id);
    KelAttr const& attr = *T::_fwkType()->attr(id);
    using K = typename EntityKey<E>::type;
    for (int i = 0; i < 40; ++i) {
      K const k = random_.of<K>();
      bool const byAccessor = random_.once(2);
      bool const there = get(*e_, k) != nullptr;
      expectTold(id, !there, [&] {
        if (there) {
          EXPECT_THROW(make(*e_, k), NameInUseException);
          EXPECT_THROW(object_->attributeOp(AttributeOp::create, id, nullptr, args(attr, k)), NameInUseException);
        } else if (byAccessor) {
          make(*e_, k);
        } else {
          object_->attributeIs(id, random_.once(2) ? box(k) : nullptr, args(attr, k));
        }
      });
      Ptr<E> const member = get(*e_, k);
      ASSERT_TRUE(member);
      EXPECT_TRUE(EntityKey<E>::key(*member) == k);
      EXPECT_EQ(member->parent(), e_.ptr());
      EXPECT_EQ(member->parentAttrId(), id);
      EXPECT_EQ(object_->attribute(id, box(k))->entity(), member);
      expectTold(id, false, [&] { object_->attributeIs(id, box(k), args(attr, k)); });
      EXPECT_EQ(get(*e_, k), member);
      if (random_.once(3)) {
        expectTold(id, true, [&] { random_.once(2) ? del(*e_, k) : object_->attributeDel(id, box(k)); });
        EXPECT_EQ(get(*e_, k), nullptr);
        EXPECT_EQ(member->parent(), nullptr);
      }
    }
    U32 const members = object_->attributeCount(id);
    watch_.take();
    random_.once(2) ? delAll(*e_) : object_->attributeOp(AttributeOp::deleteAll, id);
    EXPECT_EQ(told(id), members);
    EXPECT_EQ(object_->attributeCount(id), 0u);
  }

  template <class Get, class Make, class Del>
  void singleton(AttributeId id, Get const& get, Make const& make, Del const& del) {
    begin(id);
    KelAttr const& attr = *T::_fwkType()->attr(id);
    EXPECT_EQ(get(*e_), nullptr);
    EXPECT_EQ(object_->attribute(id), nullptr);
    expectTold(id, true, [&] { make(*e_); });
    auto const first = get(*e_);
    EXPECT_EQ(object_->attribute(id)->entity(), first);
    EXPECT_EQ(first->fullName(), String8(".") + attr.name());
    EXPECT_THROW(make(*e_), NameInUseException);
    EXPECT_THROW(object_->attributeOp(AttributeOp::create, id, nullptr, paramsOf(*first)), NameInUseException);
    expectTold(id, false, [&] { object_->attributeIs(id, nullptr, paramsOf(*first)); });
    EXPECT_EQ(get(*e_), first);
    expectTold(id, true, [&] { object_->attributeDel(id); });
    EXPECT_EQ(first->parent(), nullptr);
    expectTold(id, true, [&] { object_->attributeIs(id, nullptr, paramsOf(*first)); });
    EXPECT_NE(get(*e_), first);
    EXPECT_EQ(get(*e_)->parent(), e_.ptr());
    expectTold(id, true, [&] { del(*e_); });
    expectTold(id, false, [&] { object_->attributeDel(id); });
  }

  template <class Enq, class Iterator, class Deq, class Del, class DelAll>
  void queue(AttributeId id, bool owns, Enq const& enq, Iterator const& iterator, Deq const& deq, Del const& del,
             DelAll const& delAll) {
    begin(id);
    using I = std::decay_t<decltype(iterator(*e_).key())>;
    for (int i = 0; i < 40; ++i) {
      expectTold(id, true, [&] {
        if (random_.once(2))
          enq(*e_, random_);
        else
          object_->attributeSQEnq(id, owns ? listOf(extraArgs(id)) : boxedMember(id));
      });
      expectSameIndices<I>(id, iterator);
      if (random_.once(3)) expectTold(id, true, [&] { random_.once(2) ? deq(*e_) : object_->attributeSQDeq(id); });
      if (random_.once(3) && iterator(*e_)) {
        I const at = iterator(*e_).key();
        expectTold(id, true, [&] { random_.once(2) ? del(*e_, at) : object_->attributeDel(id, box(at)); });
        EXPECT_EQ(object_->attribute(id, box(at)), nullptr);
        expectTold(id, false, [&] { object_->attributeDel(id, box(at)); });
      }
    }
    EXPECT_THROW(object_->attributeIs(id, box(I(0)), boxedMember(id)), OpNotSupportedException);
    random_.once(2) ? delAll(*e_) : object_->attributeOp(AttributeOp::deleteAll, id);
    EXPECT_EQ(object_->attributeCount(id), 0u);
    EXPECT_EQ(messageOf<RangeException>([&] { object_->attributeSQDeq(id); }), "linkqueue index out of range");
  }

  // What only the type itself may write.
  void closed(AttributeId id, GenericIf::PtrConst const& key, GenericIf::PtrConst const& value) {
    begin(id);
    EXPECT_THROW(object_->attributeIs(id, key, value), OpNotSupportedException);
    EXPECT_THROW(object_->attributeDel(id, key), OpNotSupportedException);
    EXPECT_THROW(object_->attributeSQEnq(id, value), OpNotSupportedException);
    EXPECT_THROW(object_->attributeSQDeq(id), OpNotSupportedException);
    EXPECT_THROW(object_->attributeOp(AttributeOp::deleteAll, id), OpNotSupportedException);
    EXPECT_TRUE(watch_.take().empty());
  }
  // Tested elsewhere.
  void seen(AttributeId id) { seen_.insert(id); }

 private:
  void begin(AttributeId id) {
    seen_.insert(id);
    watch_.take();
  }
  U32 told(AttributeId id) {
    U32 n = 0;
    for (AttributeId const t : watch_.take()) n += t == id ? 1u : 0u;
    return n;
  }
  template <class F>
  void expectTold(AttributeId id, bool once, F const& write) {
    watch_.take();
    write();
    EXPECT_EQ(told(id), once ? 1u : 0u) << T::_fwkType()->attr(id)->fullName();
  }
  // What has no comparison changes with every write.
  template <class V>
  static bool same(V const& a, V const& b) {
    if constexpr (std::is_same_v<V, Opaque>)
      return false && &a == &b;
    else
      return a == b;
  }
  static bool same(Opaque const& a, Opaque const& b) { return a.id() == b.id(); }
  template <class K, class V>
  K keyFor(KelAttr const& attr, V const& v, K const& k) {
    if constexpr (std::is_same_v<V, Segment>) {
      if constexpr (std::is_same_v<K, String8>)
        if (attr.name() == "byField") return v.label();
      if constexpr (std::is_same_v<K, Point>)
        if (attr.name() == "byPointField") return v.from();
    }
    return k;
  }
  template <class V>
  bool refuses(KelAttr const& attr, V const& v) {
    if constexpr (isPtrType<V>)
      if (attr.name() == "byName" && !v) {
        String8 const expected = "null _byName parameter to mutator for Gadgets::Pointers::byName not allowed\"";
        EXPECT_EQ(messageOf<RangeException>([&] { object_->attributeIs(attr.id(), box(Name("k")), nullptr); }),
                  expected.str());
        return true;
      }
    return false;
  }
  template <class K, class V, class Iterator>
  void expectSameMembers(AttributeId id, Iterator const& iterator) {
    auto it = iterator(*e_);
    for (auto other = object_->attributeIterator(id); other; ++other, ++it) {
      ASSERT_TRUE(it);
      EXPECT_TRUE(unbox<K>(other.key().ptr(), "") == it.key());
      EXPECT_TRUE(same(unbox<V>(other.obj().ptr(), ""), it.value()));
    }
    EXPECT_FALSE(it);
  }
  template <class I, class Iterator>
  void expectSameIndices(AttributeId id, Iterator const& iterator) {
    auto it = iterator(*e_);
    for (auto other = object_->attributeIteratorConst(id); other; ++other, ++it) {
      ASSERT_TRUE(it);
      EXPECT_EQ(other.key()->template attrVal<I>(), it.key());
      EXPECT_EQ(object_->attribute(id, other.key())->text(), other.obj()->text());
    }
    EXPECT_FALSE(it);
  }
  GenericIf::Ptr boxedOf(KelType const* type) {
    if (type == TypeOf<U32>::type()) return box(random_.of<U32>());
    if (type == TypeOf<String8>::type()) return box(random_.of<String8>());
    return type == TypeOf<Point>::type() ? box(random_.of<Point>()) : box(random_.of<Opaque>());
  }
  GenericIf::Ptr boxedMember(AttributeId id) { return boxedOf(T::_fwkType()->attr(id)->type()); }
  std::vector<GenericIf::PtrConst> extraArgs(AttributeId id) {
    std::vector<GenericIf::PtrConst> list;
    auto const constraint = T::_fwkType()->attr(id)->constraint();
    for (unsigned n = 1; n < constraint.args(); ++n) list.push_back(boxedOf(constraint.argPtr(n)->type()));
    return list;
  }
  template <class K>
  GenericIf::Ptr args(KelAttr const& attr, K const& k) {
    std::vector<GenericIf::PtrConst> list{box(k)};
    for (unsigned n = 1; n < attr.constraint().args(); ++n) list.push_back(box(String8("note")));
    return listOf(list);
  }
  static GenericIf::Ptr paramsOf(Entity const& like) {
    std::vector<GenericIf::PtrConst> list;
    auto const object = GenericIf::ofEntity(Entity::PtrConst(&like));
    for (KelAttr const* attr : like.type()->attributeQ())
      if (attr->ctorParam()) list.push_back(object->attribute(attr->id()));
    return listOf(list);
  }

  Ptr<T> e_;
  GenericIf::Ptr object_;
  Watch watch_;
  Random random_{11};
  std::set<AttributeId> seen_;
};

#define READ_ONLY(x) doors.readOnly(T::x##Attr, [](T& e) { return e.x(); })
#define SINGLE(x) \
  doors.single(   \
      T::x##Attr, [](T& e) { return e.x(); }, [](T& e, auto const& v) { e.x##Is(v); }, [](T& e) { e.x##Del(); })
#define MAP_WITH(x, set)                                                                                         \
  doors.map(                                                                                                     \
      T::x##Attr, [](T& e) { return e.x##Iterator(); }, [](T& e, auto const& k) { return e.x(k); },              \
      [](T& e, auto const& k, auto const& v) { (void)k, set; }, [](T& e, auto const& k) { return e.x##Has(k); }, \
      [](T& e, auto const& k) { e.x##Del(k); }, [](T& e) { e.x##DelAll(); })
#define MAP(x) MAP_WITH(x, e.x##Is(k, v))
#define MAP_BY_FIELD(x) MAP_WITH(x, e.x##Is(v))
#define OWNED(x, E, make)                                                                        \
  doors.owned<E>(                                                                                \
      T::x##Attr, [](T& e, auto const& k) { return e.x(k); }, [](T& e, auto const& k) { make; }, \
      [](T& e, auto const& k) { e.x##Del(k); }, [](T& e) { e.x##DelAll(); })
#define SINGLETON(x, make) \
  doors.singleton(         \
      T::x##Attr, [](T& e) { return e.x(); }, [](T& e) { make; }, [](T& e) { e.x##Del(); })
#define QUEUE(x, owns, enq)                                                                                  \
  doors.queue(                                                                                               \
      T::x##Attr, owns, [](T& e, [[maybe_unused]] Random& r) { enq; }, [](T& e) { return e.x##Iterator(); }, \
      [](T& e) { e.x##Deq(); }, [](T& e, auto i) { e.x##Del(i); }, [](T& e) { e.x##DelAll(); })

TEST(Doors, Values) {
  using T = Values;
  Doors<T> doors(valuesFactory("v", 3));
  READ_ONLY(name), READ_ONLY(rank), READ_ONLY(limit), READ_ONLY(title), READ_ONLY(secret);
  SINGLE(writes), SINGLE(b), SINGLE(c), SINGLE(u8), SINGLE(u16), SINGLE(u32), SINGLE(u64), SINGLE(s8), SINGLE(s16),
      SINGLE(s32);
  SINGLE(s64), SINGLE(f32), SINGLE(f64), SINGLE(time), SINGLE(text), SINGLE(color), SINGLE(level), SINGLE(point);
  SINGLE(segment), SINGLE(every), SINGLE(label), SINGLE(count), SINGLE(local);
  doors.seen(T::opaqueAttr);
}

TEST(Doors, DerivedTypes) {
  using T = MoreValues;
  Doors<T> doors(moreValuesFactory("v", 3, "extra"));
  READ_ONLY(name), READ_ONLY(rank), READ_ONLY(extra), READ_ONLY(limit);
  SINGLE(text), SINGLE(every), SINGLE(further);
  SINGLETON(part, e.newPart("p"));
  for (AttributeId id = 0; id < Values::endAttr; ++id) doors.seen(id);
}

TEST(Doors, Pointers) {
  using T = Pointers;
  Doors<T> doors(pointersFactory("p"));
  READ_ONLY(name);
  SINGLE(part), SINGLE(constPart), SINGLE(any);
  MAP(byName), MAP(byId), MAP(byPart), MAP(partByPart);
  doors.seen(T::attrAttr);
}

TEST(Doors, Maps) {
  using T = Maps;
  Doors<T> doors(mapsFactory("m"));
  READ_ONLY(name);
  SINGLE(writes);
  MAP(byText), MAP(byTextOrdered), MAP(byBool), MAP(byChar), MAP(byU8), MAP(byS64), MAP(byS16Ordered), MAP(byTime);
  MAP(byColor), MAP(byPoint), MAP(byPointOrdered), MAP(bySegment), MAP(byLabel), MAP(counter), MAP(counterByPoint);
  MAP_BY_FIELD(byField), MAP_BY_FIELD(byPointField);
  doors.closed(T::closedAttr, box(Name("k")), box(U32(1)));
  doors.seen(T::opaqueAttr);
}

TEST(Doors, OwnedEntities) {
  using T = Owner;
  Doors<T> doors(ownerFactory("o"));
  READ_ONLY(name);
  SINGLE(writes);
  SINGLETON(part, e.newPart("p"));
  SINGLETON(plain, e.newPlain());
  SINGLETON(placed, e.newPlaced(Point(1, 2), "n"));
  SINGLETON(folder, e.newFolder("f"));
  OWNED(parts, Part, e.newParts(k));
  OWNED(partsOrdered, Part, e.newPartsOrdered(k));
  OWNED(numbered, Numbered, e.newNumbered(k));
  OWNED(numberedOrdered, Numbered, e.newNumberedOrdered(k));
  OWNED(colored, Colored, e.newColored(k));
  OWNED(placedBy, Placed, e.newPlacedBy(k, "note"));
  OWNED(placedOrdered, Placed, e.newPlacedOrdered(k, "note"));
  doors.closed(T::closedAttr, box(Name("k")), nullptr);
}

TEST(Doors, Queues) {
  using T = Queues;
  Doors<T> doors(queuesFactory("q"));
  READ_ONLY(name);
  SINGLE(writes);
  QUEUE(numbers, false, e.numbersEnq(r.of<U32>()));
  QUEUE(tiny, false, e.tinyEnq(r.of<String8>()));
  QUEUE(points, false, e.pointsEnq(r.of<Point>()));
  QUEUE(opaque, false, e.opaqueEnq(r.of<Opaque>()));
  QUEUE(queued, true, e.queuedEnq(r.of<String8>()));
  QUEUE(plain, true, e.plainEnq());
  doors.closed(T::closedAttr, box(U32(0)), box(U32(1)));
  doors.closed(T::closedOwnAttr, box(U32(0)), nullptr);
}

// A value without comparison: every write is a change.
TEST(Doors, ValuesWithoutComparisonAlwaysChange) {
  Values::Ptr const values = valuesFactory("v", 1);
  Maps::Ptr const maps = mapsFactory("m");
  Watch watch(values), mapWatch(maps);
  for (int i = 0; i < 2; ++i) {
    values->opaqueIs(Opaque(1));
    boxed(values)->attributeIs(Values::opaqueAttr, nullptr, box(Opaque(1)));
    maps->opaqueIs(1, Opaque(1));
    boxed(maps)->attributeIs(Maps::opaqueAttr, box(U32(1)), box(Opaque(1)));
  }
  EXPECT_EQ(watch.told.size(), 4u);
  EXPECT_EQ(mapWatch.told.size(), 4u);
  EXPECT_EQ(messageOf<NoImplementationException>([] { box(Opaque(1))->valueEqual(*box(Opaque(1))); }), "operator==");
  auto const& access = Values::_fwkType()->attr(Values::opaqueAttr)->access();
  EXPECT_FALSE(access.equal(*values, *values));
}

}  // namespace
}  // namespace Gadgets
