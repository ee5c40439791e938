// How errors are printed: source line, caret, limits.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "ModelTest.h"
#include "compiler/Diagnostic.h"
#include "compiler/Excerpt.h"

namespace kelc::test {
namespace {

// The excerpt at the first `@` of the text, which is no part of it.
std::string excerptAt(std::string text) {
  std::size_t const at = text.find('@');
  text.erase(at, 1);
  SourceFile const file{"M.kel", text, 0};
  std::size_t const start = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;
  auto const line = 1 + std::count(text.begin(), text.begin() + static_cast<long>(at), '\n');
  return excerpt({&file, static_cast<unsigned>(line), static_cast<unsigned>(at - start + 1)});
}

TEST(Excerpt, ShowsTheLineWithACaretUnderTheName) {
  EXPECT_EQ(excerptAt("first\nown x : @Prot2[Name];\nlast"),
            "    own x : Prot2[Name];\n"
            "            ^~~~~\n");
  EXPECT_EQ(excerptAt("x : U8@\r\ny"), "    x : U8\n          ^\n");
  EXPECT_EQ(excerptAt("@;"), "    ;\n    ^\n");
  EXPECT_EQ(excerptAt("a : @A::B::;"), "    a : A::B::;\n        ^~~~\n");
  EXPECT_EQ(excerptAt("a = @-1.5e3;"), "    a = -1.5e3;\n        ^~~~~~\n");
  EXPECT_EQ(excerptAt("a = @\"b c\";"), "    a = \"b c\";\n        ^~~~~\n");
  EXPECT_EQ(excerptAt("a @-> \"b"), "    a -> \"b\n      ^\n");
  EXPECT_EQ(excerptAt("a\n  @"), "");
}

TEST(Excerpt, CountsColumnsAsATerminalDoes) {
  EXPECT_EQ(excerptAt("\ta\t@bc"),
            "            a       bc\n"
            "                    ^~\n");
  EXPECT_EQ(excerptAt("\u00e9 \u65e5\u672c e\u0301 @b"),
            "    \u00e9 \u65e5\u672c e\u0301 b\n"
            "             ^\n");
  EXPECT_EQ(excerptAt("\x1b[31m\xff\xc0\x80\u202e\u009f\xed\xa0\x80 @b"),
            "    \\x1b[31m\\xff\\xc0\\x80\\xe2\\x80\\xae\\xc2\\x9f\\xed\\xa0\\x80 b\n"
            "                                                         ^\n");
}

// At every position of a long line the caret stands under the character there, and the part shown is short.
TEST(Excerpt, CutsLongLinesAroundThePosition) {
  std::string line;
  for (int i = 0; i < 300; ++i) line += "\u00e9w" + std::to_string(i) + " ";
  for (std::size_t at = 0; at < line.size(); ++at) {
    if ((line[at] & 0x80) != 0 || line[at] == ' ') continue;
    std::string const shown = excerptAt(line.substr(0, at) + "@" + line.substr(at));
    std::size_t const end = shown.find('\n'), caret = shown.find('^') - end - 1;
    std::string columns;  // one byte each
    for (char const c : shown.substr(0, end))
      if ((c & 0xc0) != 0x80) columns += c;
    ASSERT_LE(columns.size(), 4u + 100 + 3) << at;
    ASSERT_GE(columns.size(), 4u + 70) << at;
    ASSERT_EQ(columns[caret], line[at]) << shown;
  }
}

// The whole output for a model with many mistakes, against text that somebody has read.
TEST(Diagnostics, PrintWhatTheGoldenFileSays) {
  std::ostringstream out;
  Compiled(dataDir() / "golden" / "Mistakes.kel").diagnostics.print(out);
  std::string printed = out.str();
  std::string const here = dataDir().string() + "/";
  for (std::size_t at = 0; (at = printed.find(here)) != std::string::npos;) printed.erase(at, here.size());
  Tests::expectGolden(dataDir() / "golden" / "Mistakes.golden", printed);
}

TEST(Diagnostics, CountWhatTheyDoNotShow) {
  SourceFile const file{"M.kel", "x", 0};
  auto const printed = [&](std::size_t errors) {
    Diagnostics all;
    for (std::size_t i = 0; i < errors; ++i) all.error({&file, 1, 1}, "wrong");
    std::ostringstream out;
    all.print(out);
    return out.str();
  };
  std::string const one = "M.kel:1:1: error: wrong\n    x\n    ^\n", full = printed(Diagnostics::most);
  EXPECT_EQ(printed(1), one);
  EXPECT_EQ(full.size(), one.size() * Diagnostics::most);
  EXPECT_EQ(printed(Diagnostics::most + 1), full + "kelc: 1 more error\n");
  EXPECT_EQ(printed(Diagnostics::most + 7), full + "kelc: 7 more errors\n");
}

TEST(Diagnostics, KeepControlCharactersFromTheTerminal) {
  SourceFile const file{"M.kel", "", 0};
  Diagnostics all;
  all.error({&file, 1, 1}, "cannot find 'a\nb\x1b.kel'");
  std::ostringstream out;
  all.print(out);
  EXPECT_EQ(out.str(), "M.kel:1:1: error: cannot find 'a\\x0ab\\x1b.kel'\n");
}

}  // namespace
}  // namespace kelc::test
