// What generated code does on a model that goes to the ends of the language.
#include <gtest/gtest.h>

#include <sstream>

#include "Kel/Strep.h"
#include "Kel/TypeBuilder.h"
#include "Sample/Broad.h"
#include "Sample/Outside.h"

namespace Sample {

// --- The operations' bodies ---

class Derived::Impl {};
class Hammer::Impl {};

Kel::String Root::describe(Kel::F64, Kel::String text) const { return "root " + text; }
Kel::String Derived::describe(Kel::F64, Kel::String text) const { return "derived " + text; }
void Tool::act(Kel::U8, Kel::F64) {}
void Hammer::act(Kel::U8, Kel::Seconds) {}
Kel::Ptr<Outside const> Hiding::hide(Kel::U8, Kel::Ptr<Titled> const&, Kel::Ptr<Elsewhere::Stranger const> const&) {
  return nullptr;
}

namespace {

using Types::Color;
using Types::Extreme;

template <class V>
void expectRoundTrip(V const& value, char const* text, char const* printed = nullptr) {
  EXPECT_EQ(valueToStrep(value), text);
  EXPECT_EQ(Kel::strepToValue<V>(text), value);
  std::ostringstream out;
  out << value;
  EXPECT_EQ(out.str(), printed ? printed : text);
}

TEST(GeneratedValues, StartWithTheDefaultsOfTheModelAndReadWhatTheyPrint) {
  expectRoundTrip(Types::Scalars(),
                  "Value('Sample::Types::Scalars', ** {'a': True, 'b': '\\'', 'c': 255, 'd': 18446744073709551615, "
                  "'e': -2147483648, 'f': -9223372036854775808, 'g': -2.5e-300, 'h': -inf, 'i': 'lowest', "
                  "'j': 'a \"quoted\"\\n\\\\\\t', 'default_': 'blue'})");
  expectRoundTrip(Types::EmptyKey(), "Value('Sample::Types::EmptyKey', ** {})");
  expectRoundTrip(Types::One(3), "Value('Sample::Types::One', ** {'only': 3})");
  expectRoundTrip(Extreme::delete_, "'delete'", "delete");
  expectRoundTrip(Types::Text("it's"), "'it\\'s'", "it's");
  expectRoundTrip(Types::Flag(true), "True", "true");
  expectRoundTrip(Types::Number(65), "65");
  expectRoundTrip(Types::Ratio(0.1), "0.1");
  EXPECT_LT(Types::One(1).compare(Types::One(2)), 0);
  Types::Text const value("converts");
  Kel::String const& text = value;
  EXPECT_EQ(text, "converts");
}

TEST(GeneratedEntities, AreNamedByTheirKeys) {
  EXPECT_EQ(titledFactory("t")->name(), "t");
  EXPECT_EQ(numberedFactory(17, nullptr)->name(), "17");
  EXPECT_EQ(colouredFactory(Color::green_)->name(), "green");
  EXPECT_EQ(scaledFactory(0.1)->name(), "0.1");
  EXPECT_EQ(letteredFactory('c')->name(), "c");
  EXPECT_EQ(switchedFactory(true)->name(), "true");
  EXPECT_EQ(textedFactory(Types::Text("text"))->name(), "text");
  EXPECT_EQ(pointingFactory(nullptr)->name(), "");
  EXPECT_EQ(bareFactory()->name(), "");
  Root::Ptr const root = hammerFactory("h", 1, nullptr, 2);
  EXPECT_EQ(root->describe(1, "x"), "derived x");
}

// Whatever the kind of an attribute and however it is named, its text is there.
TEST(GeneratedRecords, ReachEveryAttribute) {
  for (Kel::Entity::Ptr const& entity : std::initializer_list<Kel::Entity::Ptr>{
           collectionsFactory("c"), ownerFactory("o"), shadowFactory(1, "m", nullptr), holderFactory(), hiderFactory(),
           hidingFactory(1, nullptr, Types::Text("a"), Types::Text("b"))})
    for (auto const* attr : entity->type()->attributeQ())
      EXPECT_NO_THROW(entity->attributeString(attr->id())) << attr->fullName();
  for (char const* name : {"Sample::Types::Extreme", "Sample::Outside", "Elsewhere::Stranger"})
    EXPECT_TRUE(Kel::KelType::find(name)) << name;
}

}  // namespace
}  // namespace Sample
