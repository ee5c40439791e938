// Type records. That they are made on any thread is the thread tests'.
#include "Support.h"

namespace Gadgets {
namespace {

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

TEST(Types, SayWhatTheyAre) {
  for (char const* none : {"", "Gadgets::None"}) EXPECT_EQ(KelType::find(none), nullptr);
  EXPECT_TRUE(Square::_fwkType()->isA(Shape::_fwkType()) && !Shape::_fwkType()->isA(Square::_fwkType()));
  EXPECT_TRUE(Shape::_fwkType()->isAbstract() && !Square::_fwkType()->isAbstract());
  EXPECT_TRUE(Label::_fwkType()->autoconvertToRepType() && !Count::_fwkType()->autoconvertToRepType());
  EXPECT_EQ(Bound::_fwkType()->attr(Bound::toAttr)->flags().value(), KelAttrIntrospectionFlags(0x2a).value());
  EXPECT_EQ(Owner::_fwkType()->attr(Owner::placedByAttr)->constraint().argPtr(1)->name, "note");
  EXPECT_EQ(messageOf<RangeException>([] { KelAttrIntrospectionFlags(0x40); }),
            "KelAttrIntrospectionFlags::value > 0x3f not allowed");
}

TEST(Types, MakeEntitiesByNameWithDefaultsForTheRest) {
  Dir::Ptr const dir = dirFactory("dir");
  auto const made = ptrCast<Defaults>(Defaults::_fwkType()->newEntity("d", dir.ptr()));
  ASSERT_TRUE(made);
  EXPECT_EQ(made->fullName(), "/d");
  for (KelAttr const* attr : made->type()->attributeQ()) {
    if (!attr->isValue() || attr->type()->isEnum() || attr->name() == "name") continue;
    EXPECT_TRUE(boxed(made)->attribute(attr->id())->valueEqual(*attr->type()->valueOps().initial())) << attr->name();
  }
  EXPECT_EQ(made->color(), Color::red);
  EXPECT_EQ(made->level(), Level::none);
  EXPECT_EQ(made->point(), Point(0, 5));
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

}  // namespace
}  // namespace Gadgets
