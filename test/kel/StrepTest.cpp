// The text form of values.
#include <cmath>
#include <sstream>

#include "Support.h"

namespace Gadgets {

using Kel::valueToStrep;  // or a number would first become a Count

namespace {

template <class V>
class Streps : public testing::Test {};
using AllValues = testing::Types<bool, char, U8, U16, U32, U64, S8, S16, S32, long, S64, F32, F64, String8, Color,
                                 Level, Point, Segment, Every, Label, Count>;
TYPED_TEST_SUITE(Streps, AllValues);

TYPED_TEST(Streps, ReadBackWhatWasPrinted) {
  Random random(17);
  KelType const* const type = TypeOf<TypeParam>::type();
  for (int i = 0; i < 500; ++i) {
    TypeParam const v = random.of<TypeParam>();
    String8 const strep = valueToStrep(v);
    ASSERT_TRUE(strepToValue<TypeParam>(strep) == v) << strep;
    ASSERT_TRUE(strepToValue<TypeParam>(" \t\r\n" + strep) == v) << strep;
    ASSERT_EQ(box(v)->strep(), strep);
    for (char const c : strep.view()) ASSERT_GE(static_cast<unsigned char>(c), 0x20);  // one line

    char const* at = strep.charPtr();
    EXPECT_TRUE(type->valueOps().parse(at, at + strep.chars())->valueEqual(*box(v)));
    // Whatever is left over is junk, blanks included.
    for (char const* junk : {" ", "\n", ")", "'", ","}) {
      std::string const expected = "junk at column " + std::to_string(strep.chars()) + " deserializing ";
      EXPECT_EQ(messageOf<RangeException>([&] { strepToValue<TypeParam>(strep + junk); }),
                expected + type->name().str())
          << strep;
    }
    // A text that was cut anywhere is never taken for a value of a longer form.
    if (type->isBuiltin() && type != TypeOf<String8>::type()) continue;
    if (type == Count::_fwkType()) continue;
    std::string const cut = strep.str().substr(0, random.below(strep.chars()));
    EXPECT_NE(messageOf<RangeException>([&] { strepToValue<TypeParam>(cut); }).find("premature end of value type "),
              std::string::npos)
        << cut;
  }
  std::string const premature = messageOf<RangeException>([] { strepToValue<TypeParam>(" "); });
  EXPECT_EQ(premature.find("premature end of value type "), 0u);
}

TEST(Strep, NumbersThatCompareToNothing) {
  EXPECT_TRUE(std::isnan(strepToValue<F64>(valueToStrep(std::nan("")))));
  EXPECT_TRUE(std::signbit(strepToValue<F64>(valueToStrep(-0.0))));
}

TEST(Strep, Forms) {
  EXPECT_EQ(valueToStrep(true), "True");
  EXPECT_EQ(valueToStrep(S8(-128)), "-128");
  EXPECT_EQ(valueToStrep(String8("it's a \\ \n\t\r\x01")), "'it\\'s a \\\\ \\n\\t\\r\\x01'");
  EXPECT_EQ(valueToStrep(0.1), "0.1");
  EXPECT_EQ(valueToStrep(-std::numeric_limits<F64>::infinity()), "-inf");
  EXPECT_EQ(valueToStrep(Color::blue_), "'blue'");
  EXPECT_EQ(valueToStrep(Label("l")), "'l'");
  Segment const segment(Point(1, -2), Color::red, "x");
  EXPECT_EQ(valueToStrep(segment),
            "Value('Gadgets::Segment', ** {'from': Value('Gadgets::Point', ** {'x': 1, 'y': -2}), 'color': 'red', "
            "'label': 'x'})");
  std::ostringstream out;
  out << segment << Color::green << Label("l");
  EXPECT_EQ(out.str(), valueToStrep(segment).str() + "greenl");
}

// Fields may come in any order, may be missing, and may be given with any blanks between.
TEST(Strep, FieldsAreFree) {
  EXPECT_EQ(strepToValue<Point>("Value('Gadgets::Point', ** {'y': 2, 'x': 1})"), Point(1, 2));
  EXPECT_EQ(strepToValue<Point>("Value('Gadgets::Point',**{})"), Point());
  EXPECT_EQ(strepToValue<Point>(" Value\n(\t'Gadgets::Point' , ** { 'x' : 7 } )"), Point(7, 5));
  String8 const text("Value('Gadgets::Point', ** {'x': 7}) rest");
  char const* at = text.charPtr();
  Point const parsed(at, at + text.chars());
  EXPECT_EQ(parsed, Point(7, 5));
  EXPECT_EQ(std::string(at, text.charPtr() + text.chars()), " rest");
}

TEST(Strep, ErrorsSayWhatAndWhere) {
  auto error = [](char const* text) { return messageOf<RangeException>([text] { strepToValue<Segment>(text); }); };
  EXPECT_EQ(error(""), "premature end of value type Segment");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {"), "premature end of value type Segment");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {}"), "premature end of value type Segment");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'label': 'l'"), "premature end of value type Segment");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'lab"), "premature end of value type Segment");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'lab\\x"), "premature end of value type Segment");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'label': 'l"), "Segment.label: premature end of value type String8");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'size': 3})"), "Segment has no such attribute: size");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'color': 'pink'})"), "Segment.color: Color has no such value: pink");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'from': Value('Gadgets::Point', ** {'z': 1})})"),
            "Segment.from: Point has no such attribute: z");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'from': Value('Gadgets::Point', ** {'x': 2147483648})})"),
            "Segment.from: Point.x: 2147483648 is out of the range of S32");
  EXPECT_EQ(error("value"), "Value expected at column 0");
  EXPECT_EQ(error("Value('Gadgets::Point', ** {})"), "'Gadgets::Segment' expected at column 16");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {,})"), "quoted string expected at column 30");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'label': 'a',})"), "quoted string expected at column 43");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'label': 'a' 'color': 'red'})"), ", expected at column 43");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'label': 7})"), "Segment.label: quoted string expected at column 39");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'from': Value('Gadgets::Point', ** {'x': y})})"),
            "Segment.from: Point.x: S32 expected at column 71");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {'label': 'a\\q'})"),
            "Segment.label: escape sequence expected at column 42");
  EXPECT_EQ(error("Value('Gadgets::Segment', ** {}) "), "junk at column 32 deserializing Segment");
}

TEST(Strep, BuiltinsAreReadStrictly) {
  EXPECT_EQ(messageOf<RangeException>([] { strepToValue<char>(" 'ab'"); }),
            "one quoted character expected at column 1");
  auto refused = [](auto v, char const* text) {
    std::string const message = messageOf<RangeException>([&] { strepToValue<decltype(v)>(text); });
    EXPECT_EQ(message.find("no exception"), std::string::npos) << text;
    EXPECT_EQ(message.find("of another class"), std::string::npos) << text;
  };
  for (char const* text : {"256", "-1", "+1", "1.0", "0x1", "one", "'1'", "1e2", "--1", "18446744073709551616"})
    refused(U8(), text);
  for (char const* text : {"true", "TRUE", "1", "'True'", "Truely", "True1"}) refused(bool(), text);
  for (char const* text : {"'ab'", "''", "a", "'a"}) refused(char(), text);
  for (char const* text : {"\"a\"", "a", "'\\x1'", "'\\xg0'", "'\\", "'\\'"}) refused(String8(), text);
  for (char const* text : {"1e999", ".", "e5", "1,5", "0x1p3"}) refused(F64(), text);
  for (char const* text : {"Color(3)", "'Color(3)'", "red", "'Red'", "'blue_'", "''", "0"}) refused(Color(), text);
}

TEST(Strep, EnumeratorsOutsideTheTablePrintButDoNotParse) {
  EXPECT_EQ(stringValue(static_cast<Color>(3)), "Color(3)");
  EXPECT_EQ(stringValue(static_cast<Level>(-2147483647 - 1)), "Level(-2147483648)");
  EXPECT_EQ(valueToStrep(static_cast<Color>(3)), "'Color(3)'");
  EXPECT_THROW(strepToValue<Color>(valueToStrep(static_cast<Color>(3))), RangeException);
}

TEST(ValueTypes, HashAndOrderAgreeWithEquality) {
  Random random(23);
  for (int i = 0; i < 2000; ++i) {
    Every const a = random.of<Every>(), b = random.once(2) ? a : random.of<Every>();
    EXPECT_EQ(a == b, !(a < b) && !(b < a));
    EXPECT_EQ(a <= b, a < b || a == b);
    EXPECT_EQ(a > b, b < a);
    EXPECT_EQ(a != b, !(a == b));
    EXPECT_TRUE(a != b || a.hash() == b.hash());
  }
  Segment const red(Point(), Color::red, "l"), green(Point(), Color::green, "l");
  EXPECT_EQ(red.hash() ^ green.hash(), 1u);  // the plain exclusive-or, an enumerator hashing to itself
  EXPECT_EQ(red.hash(), Point().hash() ^ String8("l").hash());
}

}  // namespace
}  // namespace Gadgets
