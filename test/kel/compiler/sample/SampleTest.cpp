// What generated code does, on a model with every kind of attribute, key and operation.
#include <gtest/gtest.h>

#include <limits>
#include <sstream>

#include "Kel/Strep.h"
#include "Kel/TypeBuilder.h"
#include "Sample/Broad.h"
#include "Sample/Outside.h"

namespace Sample {

// --- The operations' bodies ---

class Derived::Impl {};

namespace {
int changes = 0;
}

void Root::changed() { ++changes; }
Kel::String Root::describe(Kel::F64, Kel::String text) const { return "root " + text; }
Kel::Ptr<Root> Root::secret(Kel::Ptr<Root> const& with) { return with; }
Kel::String Derived::describe(Kel::F64, Kel::String text) const { return "derived " + text; }
Kel::Ptr<Root> Derived::secret(Kel::Ptr<Root> const&) { return this; }
void Values::changed() { ++changes; }
void Pointers::changed() { ++changes; }
void Collections::changed() { ++changes; }
void Owner::changed() { ++changes; }
void Calls::nothing() {}
Kel::Ptr<Calls> Calls::everything(bool, char, Kel::U8, Kel::S64, Kel::F32, Kel::Seconds, Kel::String, Kel::Name,
                                  Types::Color, Types::Scalars const&, Types::Opaque const&, Kel::Ptr<Outside> const&,
                                  Kel::Ptr<Elsewhere::Stranger const> const&, Kel::Ptr<Kel::KelAttr const> const&,
                                  Kel::Ptr<Kel::GenericIf> const&, Kel::Ptr<Kel::Dir> const&,
                                  Kel::Ptr<Calls> const& q) const {
  return q;
}
Kel::U8 Calls::number() const { return 8; }
Kel::Name Calls::text() const { return "text"; }
Types::Nested Calls::value() const { return {}; }
Kel::Ptr<Kel::GenericIf const> Calls::object() { return nullptr; }
Kel::Ptr<Outside const> Calls::outside(Kel::U32) { return nullptr; }
void Calls::later() {}
void MoreCalls::later() {}
void Hiding::hide(Kel::U8, Kel::Ptr<Complex> const&) {}

namespace {

using Kel::String8;
using Types::Color;
using Types::Extreme;

template <class T>
std::string printed(T const& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

// The notifications that an entity sent, by attribute.
struct Watch : Owner::Notifiee {
  void onNumbered(Kel::U32 key) override { said += "numbered " + std::to_string(key) + ";"; }
  void onBare() override { said += "bare;"; }
  void onTiny(Kel::U8 index) override { said += "tiny " + std::to_string(index) + ";"; }
  void onTodo(Kel::U8 index) override { said += "todo " + std::to_string(index) + ";"; }
  std::string said;
};

template <class V>
void expectRoundTrip(V const& value, char const* text) {
  EXPECT_EQ(valueToStrep(value), text);
  EXPECT_EQ(Kel::strepToValue<V>(text), value);
}

TEST(GeneratedEnum, NamesItsValues) {
  EXPECT_EQ(printed(Color::green_), "green");
  EXPECT_EQ(printed(static_cast<Color>(3)), "Color(3)");
  expectRoundTrip(Extreme::delete_, "'delete'");
  EXPECT_EQ(static_cast<Kel::S32>(Extreme::lowest), std::numeric_limits<Kel::S32>::min());
  EXPECT_EQ(static_cast<Kel::S32>(Extreme::highest), std::numeric_limits<Kel::S32>::max());
  EXPECT_THROW(Kel::strepToValue<Color>("'purple'"), Kel::RangeException);
}

TEST(GeneratedValue, StartsWithTheDefaultsOfTheModel) {
  Types::Scalars const v;
  EXPECT_TRUE(v.a());
  EXPECT_EQ(v.b(), '\'');
  EXPECT_EQ(v.c(), 255);
  EXPECT_EQ(v.e(), std::numeric_limits<Kel::U32>::max());
  EXPECT_EQ(v.f(), std::numeric_limits<Kel::U64>::max());
  EXPECT_EQ(v.i(), std::numeric_limits<Kel::S32>::min());
  EXPECT_EQ(v.j(), std::numeric_limits<Kel::S64>::min());
  EXPECT_EQ(v.k(), 1.5f);
  EXPECT_EQ(v.l(), -2.5e-300);
  EXPECT_EQ(v.m(), -std::numeric_limits<double>::infinity());
  EXPECT_EQ(v.n(), Color::blue);
  EXPECT_EQ(v.o(), Extreme::lowest);
  EXPECT_EQ(v.p(), "a \"quoted\"\n\\\t");
}

TEST(GeneratedValue, ReadsWhatItPrints) {
  Types::Scalars const v;
  EXPECT_EQ(Kel::strepToValue<Types::Scalars>(valueToStrep(v)), v);
  EXPECT_EQ(Kel::strepToValue<Types::Nested>(valueToStrep(Types::Nested())), Types::Nested());
  expectRoundTrip(Types::Empty(), "Value('Sample::Types::Empty', ** {})");
  expectRoundTrip(Types::One(3), "Value('Sample::Types::One', ** {'only': 3})");
  expectRoundTrip(Types::Text("it's"), "'it\\'s'");
  expectRoundTrip(Types::Flag(true), "True");
  expectRoundTrip(Types::Shade(Color::green_), "'green'");
}

TEST(GeneratedValue, RepresentationPrintsAsItsType) {
  EXPECT_EQ(printed(Types::Number(65)), "65");
  EXPECT_EQ(printed(Types::Flag(true)), "true");
  EXPECT_EQ(printed(Types::Ratio(0.1)), "0.1");
  EXPECT_EQ(printed(Types::Text("text")), "text");
  EXPECT_EQ(printed(Types::Shade(Color::blue)), "blue");
}

TEST(GeneratedValue, ComparesFieldByField) {
  Types::Scalars a, b;
  EXPECT_EQ(a.hash(), b.hash());
  b.default_Is("z");
  EXPECT_NE(a, b);
  EXPECT_LT(a, b);
  EXPECT_GE(b, a);
  EXPECT_NE(a.hash(), b.hash());
  EXPECT_LT(Types::One(1).compare(Types::One(2)), 0);
  Types::Text const value("converts");
  Kel::String const& text = value;
  EXPECT_EQ(text, "converts");
}

TEST(GeneratedEntity, SingleValues) {
  Values::Ptr const v = valuesFactory("v");
  EXPECT_TRUE(v->a());
  EXPECT_EQ(v->e(), std::numeric_limits<Kel::U64>::max());
  EXPECT_EQ(v->h(), 3.0);
  EXPECT_EQ(v->l(), Extreme::lowest);
  EXPECT_EQ(v->default_(), 3);
  EXPECT_EQ(Values::limit(), 4096u);
  EXPECT_EQ(Values::title(), "values");
  v->cIs(255);
  v->cInc();
  EXPECT_EQ(v->c(), 0);
  changes = 0;
  v->dInc();
  EXPECT_EQ(v->d(), std::numeric_limits<Kel::S32>::min());
  v->dIs(v->d());
  EXPECT_EQ(changes, 1);
  v->jIs("some");
  v->jDel();
  EXPECT_EQ(v->j(), "none");
}

TEST(GeneratedEntity, KeysAreNames) {
  EXPECT_EQ(titledFactory("t")->name(), "t");
  EXPECT_EQ(derivedFactory("d", 3, nullptr)->name(), "d");
  EXPECT_EQ(numberedFactory(17, nullptr)->name(), "17");
  EXPECT_EQ(smallFactory(65, "x")->name(), "65");
  EXPECT_EQ(colouredFactory(Color::green_)->name(), "green");
  EXPECT_EQ(scaledFactory(0.1)->name(), "0.1");
  EXPECT_EQ(letteredFactory('c')->name(), "c");
  EXPECT_EQ(switchedFactory(true)->name(), "true");
  EXPECT_EQ(textedFactory(Types::Text("text"))->name(), "text");
  EXPECT_EQ(pointingFactory(nullptr)->name(), "");
  EXPECT_EQ(bareFactory()->name(), "");
}

TEST(GeneratedEntity, CollectionsOfValues) {
  Collections::Ptr const c = collectionsFactory("c");
  c->byStringIs("a", 1);
  EXPECT_EQ(c->byString("a"), 1u);
  EXPECT_EQ(c->byString("b"), 0u);
  EXPECT_TRUE(c->byStringHas("a"));
  EXPECT_THROW(c->newByString("a", 2), Kel::NameInUseException);
  c->newByField(Types::Scalars());
  EXPECT_THROW(c->newByField(Types::Scalars()), Kel::NameInUseException);
  EXPECT_EQ(c->byField(std::numeric_limits<Kel::U32>::max()), Types::Scalars());
  EXPECT_EQ(c->byStrings(), 1u);
  c->byStringDel(c->byStringIterator().key());
  EXPECT_EQ(c->byStrings(), 0u);

  changes = 0;
  Types::Scalars key;
  c->byValueIs(key, Types::Nested());
  c->byValueDelAll();
  c->byValueDelAll();
  EXPECT_EQ(changes, 2);

  c->byTimeIs(2.0, 2);
  c->byTimeIs(1.0, 1);
  EXPECT_EQ(c->byTimeIterator().key(), 1.0);
  c->opaqueIs(1, Types::Opaque());
  c->opaqueIs(1, Types::Opaque());
  EXPECT_EQ(c->opaques(), 1u);
}

TEST(GeneratedEntity, Counters) {
  Collections::Ptr const c = collectionsFactory("c");
  for (int i = 0; i < 257; ++i) c->countCounterInc("a");
  EXPECT_EQ(c->count("a"), 1);
  changes = 0;
  c->countByValueCounterInc(Types::Text("t"));
  EXPECT_EQ(changes, 1);
}

TEST(GeneratedEntity, CollectionsOfPointers) {
  Pointers::Ptr const p = pointersFactory("p");
  Outside::Ptr const outside = outsideFactory("o");
  Derived::Ptr const root = derivedFactory("d", 1, nullptr);
  EXPECT_THROW(p->byNameIs("x", nullptr), Kel::RangeException);
  p->byNameIs("x", outside);
  EXPECT_EQ(p->byName("x"), outside);
  p->byPointerIs(root, outside);
  EXPECT_THROW(p->newByPointer(root, outside), Kel::NameInUseException);
  EXPECT_EQ(p->byPointerIterator().value(), outside);
  p->outsideIs(outside);
  p->outsideDel();
  EXPECT_EQ(p->outside(), nullptr);
}

TEST(GeneratedEntity, OwnedEntities) {
  Owner::Ptr const o = ownerFactory("o");
  Watch watch;
  watch.isNondestructingIs(true);
  watch.notifierIs(o);
  Numbered::Ptr const n = o->newNumbered(3, nullptr);
  EXPECT_EQ(o->numberedIs(3, nullptr), n);
  EXPECT_THROW(o->newNumbered(3, nullptr), Kel::NameInUseException);
  EXPECT_EQ(n->parent(), o.ptr());
  EXPECT_EQ(n->fullName(), ".numbered/3");
  o->numberedDel(o->numberedIterator()->id());
  EXPECT_EQ(n->parent(), nullptr);
  Bare::Ptr const bare = o->newBare();
  EXPECT_EQ(o->bareIs(), bare);
  EXPECT_THROW(o->newBare(), Kel::NameInUseException);
  o->bareDel();
  EXPECT_EQ(o->bare(), nullptr);
  EXPECT_EQ(watch.said, "numbered 3;numbered 3;bare;bare;");
  watch.notifierIs(nullptr);

  Types::Nested key;
  Complex::Ptr const complex = o->complexIs(key, "a");
  EXPECT_EQ(o->complexIs(key, "b"), complex);
  key.colorIs(Color::red);
  EXPECT_NE(o->complexIs(key, "b"), complex);
  EXPECT_EQ(o->folderIs("f")->name(), "f");
}

TEST(GeneratedEntity, Queues) {
  Owner::Ptr const o = ownerFactory("o");
  Watch watch;
  watch.isNondestructingIs(true);
  watch.notifierIs(o);
  EXPECT_EQ(o->tinyEnq("a"), 0);
  EXPECT_EQ(o->tinyEnq("b"), 1);
  EXPECT_EQ(o->tinyDeq(), "a");
  EXPECT_EQ(o->tiny(1), "b");
  EXPECT_THROW(o->tiny(0), Kel::RangeException);
  Small::Ptr const first = o->todoEnq("first");
  EXPECT_EQ(first->index(), 0);
  EXPECT_EQ(o->todo(0), first);
  EXPECT_EQ(o->todo(1), nullptr);
  EXPECT_EQ(o->todoDeq(), first);
  EXPECT_EQ(first->parent(), nullptr);
  EXPECT_THROW(o->todoDeq(), Kel::RangeException);
  EXPECT_EQ(watch.said, "tiny 0;tiny 1;tiny 0;todo 0;todo 0;");
  watch.notifierIs(nullptr);
  o->spareEnq();
  o->spareEnq();
  o->spareDelAll();
  EXPECT_EQ(o->spares(), 0u);
}

TEST(GeneratedEntity, OverridesAreVirtual) {
  Root::Ptr const root = derivedFactory("d", 1, nullptr);
  EXPECT_EQ(root->describe(1, "x"), "derived x");
  EXPECT_EQ(root->secret(nullptr), root);
}

TEST(GeneratedRecord, ListsAttributesInTheOrderOfTheModel) {
  std::string names;
  for (auto const* attr : Derived::_fwkType()->attributeQ()) names += attr->name().str() + " ";
  EXPECT_EQ(names, "name weight home depth describe changed deeper ");
  EXPECT_EQ(Derived::deeperAttr, Derived::_fwkType()->findAttr("deeper")->id());
  EXPECT_EQ(Derived::_fwkType()->findAttr("secret"), nullptr);
}

TEST(GeneratedRecord, AllTypesAreFoundByName) {
  for (char const* name :
       {"Sample::Types::Color", "Sample::Types::Scalars", "Sample::Types::Text", "Sample::Root", "Sample::Derived",
        "Sample::Owner", "Sample::Collections", "Sample::Calls", "Sample::Outside", "Elsewhere::Stranger"}) {
    ASSERT_NE(Kel::KelType::find(name), nullptr) << name;
    EXPECT_EQ(Kel::KelType::find(name)->fullTypeName(), name);
  }
  EXPECT_TRUE(Root::_fwkType()->isAbstract());
  EXPECT_TRUE(Derived::_fwkType()->isA(Root::_fwkType()));
}

// The attribute's text is there whatever its kind, and resetting it by reflection has the default of the model.
TEST(GeneratedRecord, ReachesEveryAttribute) {
  Kel::Entity::Ptr const all[] = {valuesFactory("v"), pointersFactory("p"),           collectionsFactory("c"),
                                  ownerFactory("o"),  shadowFactory(1, "m", nullptr), holderFactory()};
  for (Kel::Entity::Ptr const& entity : all) {
    auto const object = Kel::GenericIf::ofEntity(entity);
    for (auto const* attr : entity->type()->attributeQ()) {
      if (attr->isFunction()) continue;
      EXPECT_NO_THROW(object->attributeString(attr->id())) << attr->fullName();
    }
  }
  auto const values = Kel::GenericIf::ofEntity(all[0]);
  values->attributeIs(Values::jAttr, nullptr, Kel::GenericIf::of(String8("x")));
  values->attributeDel(Values::jAttr);
  EXPECT_EQ(values->attribute(Values::jAttr)->text(), "none");
}

}  // namespace
}  // namespace Sample
