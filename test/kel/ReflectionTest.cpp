// The reflective interface: what it refuses, and how; calls by name; printable forms; handles to const.
#include <sstream>

#include "Support.h"

namespace Gadgets {
namespace {

using Args = GenericIf::Args;

// Each refusal is of its own class, names type and attribute, and changes nothing.
template <class E, class F>
void expectRefused(char const* where, F const& write) {
  std::string const message = messageOf<E>(write);
  EXPECT_NE(message.find(where), std::string::npos) << message;
  for (char const* id : {"no exception", "of another class"}) EXPECT_EQ(message.find(id), std::string::npos) << message;
}

TEST(Reflection, RefusesUnknownAttributes) {
  auto const object = boxed(valuesFactory("v", 1));
  expectRefused<UnknownAttrException>("Gadgets::Values", [&] { object->attributeId("missing"); });
  expectRefused<UnknownAttrException>("missing", [&] { object->attributeId("missing"); });
  expectRefused<UnknownAttrException>("", [&] { object->attributeId(""); });
  expectRefused<UnknownAttrException>("#999", [&] { object->attribute(999); });
  expectRefused<UnknownAttrException>("#65535", [&] { object->attributeIs(noAttribute, nullptr, box(true)); });
  expectRefused<UnknownAttrException>("Gadgets::Point", [] { box(Point())->attributeId("z"); });
  expectRefused<UnknownAttrException>("list", [] { listOf({})->attributeId("z"); });
  EXPECT_EQ(object->attributeId("text"), Values::textAttr);
}

TEST(Reflection, RefusesValuesOfAnotherType) {
  Values::Ptr const values = valuesFactory("v", 1);
  auto const object = boxed(values);
  Watch watch(values);
  for (GenericIf::PtrConst const& wrong :
       {GenericIf::PtrConst(box(U32(1))), GenericIf::PtrConst(box(U16(1))), GenericIf::PtrConst(box(Color::green)),
        GenericIf::PtrConst(object), GenericIf::PtrConst(listOf({})), GenericIf::PtrConst()})
    expectRefused<TypeException>("Gadgets::Values::level",
                                 [&] { object->attributeIs(Values::levelAttr, nullptr, wrong); });
  EXPECT_TRUE(watch.told.empty());

  Pointers::Ptr const pointers = pointersFactory("p");
  expectRefused<TypeException>("Entity is the wrong type",
                               [&] { boxed(pointers)->attributeIs(Pointers::partAttr, nullptr, object); });
  expectRefused<TypeException>("Gadgets::Pointers::byName",
                               [&] { boxed(pointers)->attributeIs(Pointers::byNameAttr, box(Name("k")), object); });
  EXPECT_EQ(pointers->byNames(), 0u);
  boxed(pointers)->attributeIs(Pointers::anyAttr, nullptr, object);
  EXPECT_EQ(pointers->any(), values);
}

TEST(Reflection, RefusesBadKeys) {
  Maps::Ptr const maps = mapsFactory("m");
  auto const object = boxed(maps);
  expectRefused<BadIndexAttrException>("the member's own", [&] {
    object->attributeIs(Maps::byFieldAttr, box(String8("other")), box(Segment(Point(), Color::red, "own")));
  });
  EXPECT_EQ(maps->byFields(), 0u);

  auto const owner = boxed(ownerFactory("o"));
  expectRefused<BadIndexAttrException>(
      "the member's own", [&] { owner->attributeIs(Owner::partsAttr, box(Name("a")), listOf({box(Name("b"))})); });
  expectRefused<BadIndexAttrException>("Gadgets::Pointers::byPart",
                                       [&] { boxed(pointersFactory("p"))->attribute(Pointers::byPartAttr, owner); });
}

TEST(Reflection, RefusesTakenKeysAndBadConstructorArguments) {
  Owner::Ptr const owner = ownerFactory("o");
  auto const object = boxed(owner);
  auto const part = owner->newParts("x");
  expectRefused<NameInUseException>(
      "'x'", [&] { object->attributeOp(AttributeOp::create, Owner::partsAttr, nullptr, listOf({box(Name("x"))})); });
  EXPECT_EQ(owner->parts("x"), part);
  expectRefused<UnknownArgException>(
      "Gadgets::Placed", [&] { object->attributeIs(Owner::placedByAttr, nullptr, listOf({box(Point())})); });
  expectRefused<TypeException>("Gadgets::Placed(note)", [&] {
    object->attributeIs(Owner::placedByAttr, nullptr, listOf({box(Point()), box(U32(1))}));
  });
  expectRefused<TypeException>("Gadgets::Numbered(id)",
                               [&] { object->attributeIs(Owner::numberedAttr, nullptr, listOf({box(U64(1))})); });
  expectRefused<UnknownArgException>("Gadgets::Owner::part",
                                     [&] { object->attributeIs(Owner::partAttr, nullptr, nullptr); });
  expectRefused<UnknownArgException>("Gadgets::Plain",
                                     [&] { object->attributeIs(Owner::plainAttr, nullptr, listOf({box(true)})); });
  object->attributeIs(Owner::plainAttr, nullptr, nullptr);
  EXPECT_TRUE(owner->plain());
  object->attributeIs(Owner::numberedAttr, box(U32(7)), nullptr);  // the key alone will do
  EXPECT_TRUE(owner->numbered(7));
  Maps::Ptr const maps = mapsFactory("m");
  maps->byTextIs("k", 1);
  expectRefused<NameInUseException>("Gadgets::Maps::byText: 'k'", [&] {
    boxed(maps)->attributeOp(AttributeOp::create, Maps::byTextAttr, box(Name("k")), box(U32(2)));
  });
  EXPECT_EQ(maps->byText("k"), 1u);
}

// A member that is set with other parameters is replaced; a pointer is another parameter when its target is another.
TEST(Reflection, SettingAMemberWithOtherParametersReplacesIt) {
  Binder::Ptr const binder = binderFactory("b");
  auto const object = boxed(binder);
  auto set = [&](Entity::Ptr const& to, char const* note) {
    object->attributeIs(Binder::boundsAttr, nullptr, listOf({box(Name("k")), boxed(to), box(String8(note))}));
    object->attributeIs(Binder::onlyAttr, nullptr, listOf({box(Name("k")), boxed(to), box(String8(note))}));
    EXPECT_EQ(binder->bounds("k")->to(), to);
    EXPECT_EQ(binder->only()->note(), note);
    return std::pair(binder->bounds("k"), binder->only());
  };
  Entity::Ptr const to = someParts()[0], other = someParts()[1];
  auto const first = set(to, "n");
  EXPECT_EQ(set(to, "n"), first);
  auto const second = set(other, "n");
  EXPECT_NE(second.first, first.first);
  EXPECT_NE(second.second, first.second);
  EXPECT_EQ(first.first->parent(), nullptr);
  EXPECT_NE(set(other, "m").first, second.first);
  EXPECT_EQ(binder->boundss(), 1u);
}

TEST(Reflection, RefusesOperationsThatAnAttributeDoesNotHave) {
  auto const object = boxed(valuesFactory("v", 1));
  auto refused = [](auto const& write) { expectRefused<OpNotSupportedException>("Gadgets::", write); };
  refused([&] { object->attributeIs(Values::countedAttr, nullptr, nullptr); });
  refused([&] { object->attribute(Values::countedAttr); });
  for (AttributeId id : {Values::textAttr, Values::u16Attr, Values::limitAttr})
    refused([&] { object->attributeOp(AttributeOp::increment, id); });
  refused([&] { object->attributeOp(AttributeOp::create, Values::textAttr, nullptr, box(String8("x"))); });
  refused([&] { boxed(mapsFactory("m"))->attributeOp(AttributeOp::increment, Maps::byTextAttr, box(Name("k"))); });
  refused([&] { box(Point())->attributeIs(0, nullptr, box(S32(1))); });
}

TEST(Reflection, HandlesToConstAreReadOnlyAllTheWayDown) {
  Owner::Ptr const owner = ownerFactory("o");
  owner->newParts("x")->newParts("y");
  owner->newPart("p")->peerIs(partFactory("peer"));
  owner->newFolder("f")->newEntity("Gadgets::Part", "z");
  auto const object = GenericIf::ofEntity(Owner::PtrConst(owner));
  EXPECT_TRUE(object->isConst());
  EXPECT_EQ(object->entity(), nullptr);
  EXPECT_EQ(object->entityConst(), owner);
  std::vector<GenericIf::PtrConst> reached{object};
  for (std::size_t i = 0; i < reached.size(); ++i) {
    GenericIf::PtrConst const e = reached[i];
    EXPECT_EQ(e->entity(), nullptr) << e->text();
    for (KelAttr const* attr : e->type()->attributeQ()) {
      AttributeId const id = attr->id();
      if (attr->isFunction() || attr->type()->isValue()) continue;
      std::string const message = messageOf<ConstException>([&] { e->attributeDel(id); });
      EXPECT_EQ(message, attr->fullName().str() + ": attempting to modify a const instance");
      EXPECT_THROW(e->attributeIs(id, nullptr, nullptr), ConstException);
      EXPECT_THROW(e->attributeSQEnq(id, nullptr), ConstException);
      EXPECT_THROW(e->attributeSQDeq(id), ConstException);
      EXPECT_THROW(e->attributeOp(AttributeOp::deleteAll, id), ConstException);
      if (!attr->isCollection()) {
        if (auto const child = e->attribute(id)) reached.push_back(child);
        continue;
      }
      for (auto it = e->attributeIteratorConst(id); it; ++it) {
        EXPECT_THROW(it.attributeIterator_iterDel(), ConstException);
        reached.push_back(it.obj());
        EXPECT_TRUE(e->attribute(id, it.key())->isConst());
      }
    }
  }
  EXPECT_GE(reached.size(), 6u);
  // What is only a constant pointer stays one for a mutable owner, and cannot be given where a mutable one is needed.
  Pointers::Ptr const pointers = pointersFactory("p");
  pointers->constPartIs(partFactory("c"));
  auto const constPart = boxed(pointers)->attribute(Pointers::constPartAttr);
  EXPECT_TRUE(constPart->isConst());
  EXPECT_THROW(boxed(pointers)->attributeIs(Pointers::partAttr, nullptr, constPart), ConstException);
  EXPECT_EQ(pointers->part(), nullptr);
}

TEST(Reflection, IteratorsKeepTheirOwnerAndSurviveDeletion) {
  Owner::Ptr owner = ownerFactory("o");
  for (U32 i = 0; i < 10; ++i) owner->newNumbered(i), owner->newNumberedOrdered(i);
  for (AttributeId id : {Owner::numberedAttr, Owner::numberedOrderedAttr}) {
    auto it = boxed(owner)->attributeIterator(id);
    U32 visited = 0;
    for (; it; ++it) {
      auto const copy = it.attributeIterator_iterClone();
      if (++visited % 2) it.attributeIterator_iterDel();
      EXPECT_EQ(copy.attributeIterator_nonNull(), visited % 2 == 0);
    }
    EXPECT_EQ(visited, 10u);
    EXPECT_EQ(boxed(owner)->attributeCount(id), 5u);
  }
  auto it = boxed(owner)->attributeIteratorKey(Owner::numberedAttr, box(U32(3)));
  owner = nullptr;
  EXPECT_EQ(it.key()->attrVal<U32>(), 3u);
  EXPECT_EQ(it.obj()->text(), ".numbered/3");
  it = it.attributeIterator_iterClone();
  EXPECT_TRUE(it);
}

// --- Values ---

TEST(Reflection, BuiltinsAnswerToTheirExactTypeOnly) {
  auto const u16 = box(U16(7));
  EXPECT_EQ(*u16->attrValPtr<U16>(), 7);
  EXPECT_EQ(u16->attrValPtr<S16>(), nullptr);
  EXPECT_EQ(u16->attrValPtr<U32>(), nullptr);
  EXPECT_EQ(u16->attrValPtr<String8>(), nullptr);
  EXPECT_EQ(box(1L)->attrValPtr<S64>(), nullptr);
  EXPECT_EQ(*box(1L)->attrValPtr<long>(), 1);
  EXPECT_EQ(box('c')->attrValPtr<S8>(), nullptr);
  EXPECT_EQ(boxed(partFactory("p"))->attrValPtr<bool>(), nullptr);
  EXPECT_EQ(box(Color::green)->attrValPtr<S32>(), nullptr);
  char const* const text = "text";
  EXPECT_EQ(*box(text)->attrValPtr<char const*>(), text);
  EXPECT_EQ(box(String8("s"))->attrVal<String8>(), "s");
  EXPECT_THROW(u16->attrVal<U32>(), TypeException);
  EXPECT_TRUE(u16->valueEqual(*box(U16(7))));
  EXPECT_FALSE(box(Every())->valueEqual(
      *box(Every(true, 'c', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, "", Color::red, Level::none, Point()))));
  EXPECT_THROW(u16->valueEqual(*box(U32(7))), TypeException);
  EXPECT_THROW(listOf({})->valueEqual(*listOf({})), TypeException);
}

TEST(Reflection, ValuesAreReadFieldByField) {
  auto const segment = box(Segment(Point(1, 2), Color::blue_, "l"));
  auto const from = segment->attribute(segment->attributeId("from"));
  EXPECT_EQ(from->attribute(from->attributeId("y"))->attrVal<S32>(), 2);
  EXPECT_EQ(segment->attribute(segment->attributeId("color"))->text(), "blue");
  Point const raw(3, 4);
  EXPECT_TRUE(Point::_fwkType()->genericIf(&raw)->valueEqual(*box(Point(3, 4))));
  EXPECT_THROW(Part::_fwkType()->genericIf(&raw), TypeException);
  EXPECT_THROW(Point::_fwkType()->genericIf(&raw, false), TypeException);
}

TEST(Reflection, AttributesPrint) {
  Owner::Ptr const owner = ownerFactory("o");
  owner->newParts("b");
  owner->newParts("a");
  owner->newPart("p");
  EXPECT_EQ(owner->attributeString(Owner::partsAttr), "{b, a}");
  EXPECT_EQ(owner->attributeString(Owner::partAttr), ".part");
  EXPECT_EQ(owner->attributeString(Owner::plainAttr), "<null>");
  EXPECT_EQ(owner->attributeString(Owner::countedAttr), "counted()");
  Maps::Ptr const maps = mapsFactory("m");
  maps->byTextOrderedIs("k", "v");
  maps->byTextOrderedIs("j", "it's");
  maps->byU8Is(200, Point(1, 2));
  EXPECT_EQ(maps->attributeString(Maps::byTextOrderedAttr), "{j: it's, k: v}");
  EXPECT_EQ(maps->attributeString(Maps::byU8Attr), "{200: Value('Gadgets::Point', ** {'x': 1, 'y': 2})}");
  EXPECT_EQ(boxed(valuesFactory("v", 3))->attributeString(Values::colorAttr), "blue");
  EXPECT_EQ(listOf({box(true), nullptr, box(String8("x"))})->text(), "(true, <null>, x)");
  std::ostringstream out;
  out << static_cast<Entity const*>(owner->part().ptr()) << static_cast<Entity const*>(nullptr);
  EXPECT_EQ(out.str(), ".part<null>");
}

// --- Calls ---

TEST(Calls, TakeArgumentsByNameInAnyOrder) {
  Square::Ptr const square = squareFactory("s", 3);
  auto const object = boxed(square);
  Part::Ptr const part = partFactory("p");
  Dir::Ptr const dir = dirFactory("d");
  Args args{{"b", box(true)},
            {"c", box('x')},
            {"n", box(S64(-9))},
            {"f", box(F32(0.5))},
            {"text", box(Name("t"))},
            {"color", box(Color::green)},
            {"point", box(Point(4, 5))},
            {"label", box(Label("l"))},
            {"part", boxed(part)},
            {"constPart", GenericIf::ofEntity(Part::PtrConst(part))},
            {"dir", nullptr}};
  String8 const expected = square->all(true, 'x', -9, 0.5f, "t", Color::green, Point(4, 5), Label("l"), part, part, {});
  Random random(1);
  for (int i = 0; i < 20; ++i) {
    std::swap(args[random.below(11)], args[random.below(11)]);
    EXPECT_EQ(object->attributeCall(Square::allAttr, args)->attrVal<String8>(), expected);
  }
  EXPECT_EQ(expected, "1|x|-9|0.5|t|green|4|l|p|p|null");
}

TEST(Calls, AreVirtualAndReturnWhatTheyReturn) {
  auto const object = boxed(squareFactory("s", 3));
  EXPECT_EQ(object->attributeCall(object->attributeId("area"), {})->attrVal<F64>(), 9);
  EXPECT_EQ(object->attributeCall(Shape::scaleAttr, {{"text", box(Name("t"))}, {"by", box(F64(2))}})->text(), "t*2");
  auto const self = object->attributeCall(Square::selfAttr, {});
  EXPECT_EQ(self->entityConst(), object->entity());
  EXPECT_TRUE(self->isConst());
  EXPECT_TRUE(object->attributeCall(Square::midAttr, {{"a", box(Point(2, 2))}, {"b", box(Point(4, 6))}})
                  ->valueEqual(*box(Point(3, 4))));
  EXPECT_EQ(object->attributeCall(Square::echoAttr, {{"value", nullptr}}), nullptr);
  EXPECT_EQ(object->attributeCall(Square::echoAttr, {{"value", box(U8(3))}})->attrVal<U8>(), 3);
  EXPECT_EQ(Square::_fwkType()->findAttr("unseen"), nullptr);
}

TEST(Calls, RefuseWrongArgumentsBeforeTheyRun) {
  Square::Ptr const square = squareFactory("s", 3);
  auto const object = boxed(square);
  auto call = [&](Args const& args) { object->attributeCall(Square::failAttr, args); };
  expectRefused<UnknownArgException>("'message' is given twice", [&] {
    call({{"message", box(Name("m"))}, {"message", box(Name("n"))}});
  });
  expectRefused<TypeException>("Gadgets::Square::fail(message)", [&] { call({{"message", box(U32(1))}}); });
  expectRefused<TypeException>("Gadgets::Square::fail(message)", [&] { call({{"message", nullptr}}); });
  expectRefused<UnknownArgException>("argument 'message' is missing", [&] { call({}); });
  expectRefused<UnknownArgException>("unknown argument 'none'", [&] {
    call({{"message", box(Name("m"))}, {"none", nullptr}});
  });
  EXPECT_EQ(square->calls(), 0u);
  expectRefused<ConstException>("Gadgets::Square::fail", [&] {
    GenericIf::ofEntity(Square::PtrConst(square))->attributeCall(Square::failAttr, {{"message", box(Name("m"))}});
  });
  EXPECT_EQ(square->calls(), 0u);
  EXPECT_EQ(messageOf<RangeException>([&] { call({{"message", box(Name("m"))}}); }), "m");
  EXPECT_EQ(square->calls(), 1u);
  EXPECT_EQ(GenericIf::ofEntity(Square::PtrConst(square))->attributeCall(Square::areaAttr, {})->text(), "9");
}

}  // namespace
}  // namespace Gadgets
