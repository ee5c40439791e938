// The text form of values.
#include <sstream>

#include "Golden.h"
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
  for (int i = 0; i < 500; ++i) {
    TypeParam const v = random.of<TypeParam>();
    String8 const strep = valueToStrep(v);
    ASSERT_TRUE(strepToValue<TypeParam>(strep) == v) << strep;
    ASSERT_TRUE(strepToValue<TypeParam>(" \t\r\n" + strep) == v) << strep;
    ASSERT_EQ(box(v)->strep(), strep);
    for (char const c : strep.view()) ASSERT_GE(static_cast<unsigned char>(c), 0x20);  // one line
  }
  std::string const premature = messageOf<RangeException>([] { strepToValue<TypeParam>(" "); });
  EXPECT_EQ(premature.find("premature end of value type "), 0u);
}

template <class... Vs>
std::string read(std::string const& typeName, String8 const& text) {
  std::string strep;
  (void)((TypeOf<Vs>::type()->fullTypeName() == String8(typeName) &&
          (strep = valueToStrep(strepToValue<Vs>(text)).str(), true)) ||
         ...);
  return strep;
}

// To "TYPE TEXT" the answer is the value that is read from the text form, as it is written, or why there is none; to
// "TYPE=TEXT" the same of plain text.
TEST(Strep, SaysWhatTheTranscriptSays) {
  std::string const path = SOURCE_DIR "/test/kel/strep.golden";
  std::string const said = Tests::answered(path, [](std::string const& question) {
    std::size_t const end = question.find_first_of(" =");
    std::string const typeName = question.substr(0, end);
    String8 const text = question.substr(end + 1);
    try {
      if (question[end] == '=') return KelType::find(typeName)->genericFromText(text)->strep().str() + "\n";
      return read<bool, char, U8, S8, F64, String8, Color, Point, Segment, Label, Count>(typeName, text) + "\n";
    } catch (RangeException const& e) {
      return "refused: " + e.message().str() + "\n";
    } catch (TypeException const& e) {
      return "no value: " + e.message().str() + "\n";
    }
  });
  Tests::expectGolden(path, said);
}

TEST(Strep, IsPrintedWithoutQuotesAndReadUpToItsEnd) {
  std::ostringstream out;
  out << Point(1, -2) << Color::green << Label("l");
  EXPECT_EQ(out.str(), "Value('Gadgets::Point', ** {'x': 1, 'y': -2})greenl");
  String8 const text("Value\n(\t'Gadgets::Point', ** {'x': 7}) rest");
  char const* at = text.charPtr();
  EXPECT_EQ(Point(at, at + text.chars()), Point(7, 5));
  EXPECT_EQ(std::string(at, text.charPtr() + text.chars()), " rest");
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
