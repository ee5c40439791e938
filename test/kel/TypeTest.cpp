// Type records.
#include <thread>

#include "Support.h"

namespace Gadgets {
namespace {

std::vector<KelType const*> allTypes() {
  std::vector<KelType const*> types{Dir::_fwkType(), Dir::EntryState::_fwkType(), Entity::_fwkType()};
  for (char const* name :
       {"Color",   "Level",      "Point",    "Segment", "Every", "Opaque", "Label", "Count",  "Part",   "Numbered",
        "Colored", "Placed",     "Queued",   "Plain",   "Even",  "Odd",    "Bound", "Binder", "Housed", "Defaults",
        "Values",  "MoreValues", "Pointers", "Maps",    "Owner", "Queues", "Shape", "Square"})
    types.push_back(KelType::find(String8("Gadgets::") + name));
  return types;
}

// First in this file, so that nothing else has made the records when it runs alone.
TEST(Types, AreFoundByNameOnAnyThreadBeforeTheirFirstUse) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([] {
      for (char const* name : {"Gadgets::Square", "Gadgets::Color", "Kel::Dir", "Kel::Dir::EntryState", "Kel::Entity",
                               "U32", "Kel::String8", "bool", "Kel::KelAttr", "Gadgets::Defaults"})
        if (!KelType::find(name) || KelType::find(name)->fullTypeName() != String8(name)) ADD_FAILURE() << name;
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(KelType::find("Gadgets::None"), nullptr);
  EXPECT_EQ(KelType::find(""), nullptr);
}

TEST(Types, ListTheirAttributesConsistently) {
  for (KelType const* type : allTypes()) {
    ASSERT_TRUE(type);
    EXPECT_EQ(type->fullTypeName().str().substr(type->fullTypeName().chars() - type->name().chars()), type->name());
    auto const& queue = type->attributeQ();
    std::size_t params = 0;
    while (params < queue.size() && queue[params]->ctorParam()) ++params;
    EXPECT_EQ(params, type->ctorArgs().size()) << *type;
    for (std::size_t n = 0; n < queue.size(); ++n) {
      KelAttr const& attr = *queue[n];
      EXPECT_EQ(type->attributeQ(static_cast<unsigned>(n)), &attr);
      EXPECT_EQ(type->attr(attr.id()), &attr);
      EXPECT_EQ(type->findAttr(attr.name()), &attr);
      EXPECT_EQ(type->getAttr(attr.name()), &attr);
      EXPECT_TRUE(type->isA(attr.ownerType()));
      EXPECT_EQ(attr.fullName(), attr.ownerType()->fullTypeName() + "::" + attr.name());
      EXPECT_LE(attr.flags().value(), 0x3f);
      EXPECT_EQ(attr.ctorParam(), n < params);
      EXPECT_EQ(attr.copiable(), attr.writable() && attr.logging());
      if (attr.ctorParam()) {
        EXPECT_EQ(type->ctorArgs()[n].name, attr.name());
        EXPECT_EQ(type->ctorArgs()[n].type(), attr.type());
        EXPECT_TRUE(attr.logging() && !attr.writable());
      }
      if (attr.isFunction() || attr.isConstant()) {
        EXPECT_FALSE(attr.logging() || attr.writable()) << attr.fullName();
      } else {
        EXPECT_EQ(attr.isValue() + attr.isEntity() + attr.isPtr(), 1) << attr.fullName();
        EXPECT_EQ(attr.isCollection(), attr.keyType() != nullptr);
      }
      EXPECT_TRUE(!attr.instantiating() || attr.isEntity());
    }
    EXPECT_EQ(type->attributeQ(static_cast<unsigned>(queue.size())), nullptr);
    EXPECT_EQ(type->attr(static_cast<AttributeId>(queue.size())), nullptr);
    EXPECT_EQ(type->findAttr(""), nullptr);
    if (!type->base()) continue;
    for (KelAttr const* attr : type->base()->attributeQ()) EXPECT_EQ(type->attr(attr->id()), attr) << *type;
  }
}

TEST(Types, ParametersComeFirstAndTheRestInTheOrderOfTheModel) {
  std::string names;
  for (KelAttr const* attr : Square::_fwkType()->attributeQ()) names += attr->name().str() + " ";
  EXPECT_EQ(names, "name side scale area calls all echo self mid fail ");
  EXPECT_EQ(Square::_fwkType()->base(), Shape::_fwkType());
  EXPECT_EQ(Shape::_fwkType()->base(), Entity::_fwkType());
  EXPECT_TRUE(Square::_fwkType()->isA(Shape::_fwkType()));
  EXPECT_FALSE(Shape::_fwkType()->isA(Square::_fwkType()));
  EXPECT_TRUE(Shape::_fwkType()->isAbstract());
  EXPECT_FALSE(Square::_fwkType()->isAbstract());
}

TEST(Types, FlagsFollowTheModel) {
  auto flags = [](AttributeId id, KelType const* type) { return static_cast<int>(type->attr(id)->flags().value()); };
  using F = KelAttrIntrospectionFlags;
  EXPECT_EQ(flags(Values::textAttr, Values::_fwkType()), F::writable | F::logging);
  EXPECT_EQ(flags(Values::rankAttr, Values::_fwkType()), F::ctorParam | F::logging);
  EXPECT_EQ(flags(Values::secretAttr, Values::_fwkType()), F::logging);
  EXPECT_EQ(flags(Values::localAttr, Values::_fwkType()), F::writable);
  EXPECT_EQ(flags(Values::limitAttr, Values::_fwkType()), 0);
  EXPECT_EQ(flags(Values::countedAttr, Values::_fwkType()), F::function);
  EXPECT_EQ(flags(Pointers::byNameAttr, Pointers::_fwkType()), F::pointer | F::writable | F::logging);
  EXPECT_EQ(flags(Pointers::byPartAttr, Pointers::_fwkType()), F::writable | F::logging);
  EXPECT_EQ(flags(Owner::partsAttr, Owner::_fwkType()), F::instantiating | F::writable | F::logging);
  EXPECT_EQ(flags(Owner::closedAttr, Owner::_fwkType()), F::instantiating | F::logging);
  EXPECT_EQ(flags(Bound::toAttr, Bound::_fwkType()), F::ctorParam | F::logging | F::pointer);
  EXPECT_TRUE(Pointers::_fwkType()->attr(Pointers::constPartAttr)->isConstPtr());
  EXPECT_TRUE(Pointers::_fwkType()->attr(Pointers::byPartAttr)->keyIsPtr());
  EXPECT_EQ(messageOf<RangeException>([] { KelAttrIntrospectionFlags(0x40); }),
            "KelAttrIntrospectionFlags::value > 0x3f not allowed");
  EXPECT_EQ(KelAttrIntrospectionFlags(0x3f).value(), 0x3f);
}

TEST(Types, CollectionsSayWhatTheyHold) {
  auto attr = [](KelType const* type, AttributeId id) { return type->attr(id); };
  using C = KelAttr::Collection;
  EXPECT_EQ(attr(Maps::_fwkType(), Maps::byTextAttr)->collectionKind(), C::hashMap);
  EXPECT_EQ(attr(Maps::_fwkType(), Maps::counterAttr)->collectionKind(), C::hashMap);
  EXPECT_EQ(attr(Maps::_fwkType(), Maps::byTimeAttr)->collectionKind(), C::orderedMap);
  EXPECT_EQ(attr(Maps::_fwkType(), Maps::byPointFieldAttr)->keyType(), Point::_fwkType());
  EXPECT_EQ(attr(Queues::_fwkType(), Queues::pointsAttr)->collectionKind(), C::queue);
  EXPECT_EQ(attr(Queues::_fwkType(), Queues::pointsAttr)->keyType(), TypeOf<S16>::type());
  EXPECT_EQ(attr(Owner::_fwkType(), Owner::partAttr)->collectionKind(), C::none);
  EXPECT_EQ(attr(Owner::_fwkType(), Owner::partsOrderedAttr)->collectionKind(), C::orderedMap);
  auto const constraint = attr(Owner::_fwkType(), Owner::placedByAttr)->constraint();
  EXPECT_EQ(constraint.args(), 2u);
  EXPECT_EQ(constraint.argPtr(1)->name, "note");
  EXPECT_EQ(constraint.argPtr(0)->type(), Point::_fwkType());
  EXPECT_EQ(constraint.argPtr(2), nullptr);
  auto const* all = attr(Square::_fwkType(), Square::allAttr);
  EXPECT_EQ(all->args().size(), 11u);
  EXPECT_TRUE(all->args()[8].pointer);
  EXPECT_EQ(all->type(), TypeOf<String8>::type());
  EXPECT_EQ(attr(Square::_fwkType(), Square::failAttr)->type(), nullptr);
}

TEST(Types, ValueTypesSayWhatTheyAre) {
  EXPECT_TRUE(Label::_fwkType()->autoconvertToRepType());
  EXPECT_EQ(Label::_fwkType()->valAttr(), Label::_fwkType()->findAttr("text"));
  EXPECT_FALSE(Count::_fwkType()->autoconvertToRepType());
  EXPECT_TRUE(Count::_fwkType()->valAttr());
  EXPECT_EQ(Point::_fwkType()->valAttr(), nullptr);
  EXPECT_EQ(Opaque::_fwkType()->valueOps().equal, nullptr);
  EXPECT_TRUE(Point::_fwkType()->isValue() && !Point::_fwkType()->isEntity());
  KelType const* const color = _fwkType(Color{});
  EXPECT_TRUE(color->isEnum() && color->isValue());
  ASSERT_EQ(color->enumerators().size(), 3u);
  EXPECT_EQ(color->enumerators()[2].name, "blue");
  EXPECT_EQ(color->enumerators()[2].value, 7);
}

TEST(Types, MakeEntitiesByNameWithDefaultsForTheRest) {
  Dir::Ptr const dir = dirFactory("dir");
  auto const made = ptrCast<Defaults>(Defaults::_fwkType()->newEntity("d", dir.ptr()));
  ASSERT_TRUE(made);
  EXPECT_EQ(made->fullName(), "/d");
  EXPECT_FALSE(made->b());
  EXPECT_EQ(made->c(), '\0');
  EXPECT_EQ(made->n(), 0);
  EXPECT_EQ(made->f(), 0.0);
  EXPECT_EQ(made->text(), "");
  EXPECT_EQ(made->color(), Color::red);
  EXPECT_EQ(made->level(), Level::none);
  EXPECT_EQ(made->point(), Point(0, 5));
  EXPECT_EQ(made->label(), Label());
  EXPECT_EQ(made->count(), Count(3));
  EXPECT_EQ(made->to(), nullptr);
  EXPECT_EQ(Defaults::_fwkType()->newEntity("alone")->parent(), nullptr);
  EXPECT_EQ(ptrCast<Housed>(Housed::_fwkType()->newEntity("alone"))->home(), nullptr);
  for (KelType const* wrong : {Shape::_fwkType(), Numbered::_fwkType(), Plain::_fwkType(), Point::_fwkType(),
                               Entity::_fwkType(), TypeOf<U32>::type()})
    EXPECT_NE(messageOf<TypeException>([&] { wrong->newEntity("x", dir.ptr()); }).find(wrong->fullTypeName().str()),
              std::string::npos);
  EXPECT_THROW(Square::_fwkType()->newEntity({box(Name("x"))}), UnknownArgException);
  EXPECT_THROW(Square::_fwkType()->genericIf(Entity::Ptr(made)), TypeException);
  EXPECT_EQ(Entity::_fwkType()->genericIf(Entity::PtrConst(made))->type(), Defaults::_fwkType());
  EXPECT_EQ(Dir::_fwkType()->nestedTypes(), std::vector<KelType const*>{Dir::EntryState::_fwkType()});
  EXPECT_THROW(Square::_fwkType()->newEntity({box(Name("x")), box(S32(1))}), TypeException);
  EXPECT_EQ(dir->entryStates(), 1u);
}

TEST(Types, ReadPlainText) {
  auto text = [](KelType const* type, char const* from) { return type->genericFromText(from)->text().str(); };
  EXPECT_EQ(text(TypeOf<U8>::type(), "255"), "255");
  EXPECT_EQ(text(TypeOf<bool>::type(), "True"), "true");
  EXPECT_EQ(text(TypeOf<F64>::type(), "1e3"), "1000");
  EXPECT_EQ(text(TypeOf<String8>::type(), " as is"), " as is");
  EXPECT_EQ(text(_fwkType(Color{}), "blue"), "blue");
  EXPECT_EQ(text(Label::_fwkType(), "it's"), "it's");
  EXPECT_EQ(text(Count::_fwkType(), "9"), "9");
  EXPECT_EQ(text(Point::_fwkType(), "Value('Gadgets::Point', ** {'x': 3})"),
            "Value('Gadgets::Point', ** {'x': 3, 'y': 5})");
  EXPECT_EQ(messageOf<RangeException>([&] { text(TypeOf<U8>::type(), "256"); }), "256 is out of the range of U8");
  EXPECT_EQ(messageOf<RangeException>([&] { text(TypeOf<U8>::type(), "12x"); }), "'12x': U8 expected");
  EXPECT_EQ(messageOf<RangeException>([&] { text(_fwkType(Color{}), "blue_"); }),
            "'blue_': one of red, green, blue expected");
  for (char const* wrong : {"", " 1", "1 ", "-1", "+1", "0x1", "1.0", "'1'"})
    EXPECT_THROW(text(TypeOf<U16>::type(), wrong), RangeException) << wrong;
  EXPECT_THROW(text(Part::_fwkType(), "p"), TypeException);
}

}  // namespace
}  // namespace Gadgets
