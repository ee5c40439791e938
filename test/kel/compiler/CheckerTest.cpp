// Models that say, on the offending lines, which messages the compiler prints about them:
//
//   a : Nothing;  // expected-error: unknown type 'Nothing'
//   own h : Named[U32];  // expected-error at U32: the key of 'Named' must have the type of its parameter 'name : Name'
//
// A message has to point at a word that it quotes, or at the one behind `at`. Every `.kel` in `models` is compiled by
// itself; missing and unexpected messages both fail. What is below `models/import` is compiled as an import of those.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "ModelTest.h"

namespace kelc::test {
namespace {

namespace fs = std::filesystem;

// One `file:line: severity at WORD: text` each, sorted.
using Lines = std::vector<std::string>;

std::string line(std::string const& path, std::size_t number, std::string const& rest) {
  return fs::path(path).filename().string() + ":" + std::to_string(number) + ": " + rest;
}

void addExpected(SourceFile const& file, Lines& expected) {
  static std::string const mark = "expected-";
  std::istringstream in(file.text);
  std::string text;
  for (std::size_t number = 1; std::getline(in, text); ++number) {
    for (std::size_t at = text.find(mark); at != std::string::npos;) {
      std::size_t const start = at + mark.size();
      at = text.find(mark, start);
      std::size_t const end = at == std::string::npos ? text.size() : text.rfind("  // ", at);
      expected.push_back(line(file.path, number, text.substr(start, end - start)));
    }
  }
}

Lines expectedIn(ModelSet const& set) {
  Lines expected;
  for (auto const& file : set.files) addExpected(*file, expected);
  std::sort(expected.begin(), expected.end());
  return expected;
}

// The name, number or string that begins at a position, or one character. What cannot stand in a comment is described.
std::string wordAt(Loc const& loc) {
  std::istringstream in(loc.file->text);
  std::string text;
  for (unsigned number = 0; number < loc.line; ++number) std::getline(in, text);
  text = text.substr(std::min<std::size_t>(loc.column - 1, text.size()));
  if (text.empty() || text[0] == ' ') return "the end";
  std::size_t const quote = text.find('"', 1);
  if (text[0] == '"') return quote == std::string::npos ? "the string" : text.substr(1, quote - 1);
  if ((text[0] & 0x80) != 0 || text[0] == '\t') return "the character";
  text = text.substr(0, std::max<std::size_t>(text.find_first_of(" \t,;()[]{}<>*=\""), 1));
  return text.size() > 1 && text.back() == ':' ? text.substr(0, text.size() - 1) : text;
}

std::string message(Loc const& loc, std::string const& severity, std::string text) {
  std::string const here = dataDir().string() + "/";
  for (std::size_t at = 0; (at = text.find(here)) != std::string::npos;) text.erase(at, here.size());
  std::string const word = wordAt(loc);
  bool const quoted = text.find("'" + word + "'") != std::string::npos;
  return line(loc.file->path, loc.line, severity + (quoted ? "" : " at " + word) + ": " + text);
}

Lines found(Diagnostics const& diagnostics) {
  Lines all;
  for (Diagnostic const& d : diagnostics.sorted()) {
    all.push_back(message(d.loc, "error", d.text));
    for (Note const& note : d.notes) all.push_back(message(note.loc, "note", note.text));
  }
  std::sort(all.begin(), all.end());
  return all;
}

std::string difference(Lines const& expected, Lines const& actual) {
  std::ostringstream out;
  Lines only;
  std::set_difference(expected.begin(), expected.end(), actual.begin(), actual.end(), std::back_inserter(only));
  for (std::string const& text : only) out << "missing:    " << text << '\n';
  only.clear();
  std::set_difference(actual.begin(), actual.end(), expected.begin(), expected.end(), std::back_inserter(only));
  for (std::string const& text : only) out << "unexpected: " << text << '\n';
  return out.str();
}

std::vector<std::string> models() {
  std::vector<std::string> names;
  for (auto const& entry : fs::directory_iterator(dataDir() / "models")) {
    if (entry.path().extension() == ".kel") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

class Checker : public testing::TestWithParam<std::string> {};

TEST_P(Checker, SaysWhatTheModelExpects) {
  Compiled const compiled(dataDir() / "models" / (GetParam() + ".kel"));
  ASSERT_TRUE(compiled.readable);
  EXPECT_EQ(difference(expectedIn(compiled.set), found(compiled.diagnostics)), "");
}

INSTANTIATE_TEST_SUITE_P(Models, Checker, testing::ValuesIn(models()), [](auto const& tested) { return tested.param; });

std::string firstError(std::string const& text) {
  TemporaryDir const dir;
  Compiled const compiled(dir.write("Model.kel", text));
  std::vector<Diagnostic> const errors = compiled.diagnostics.sorted();
  return errors.empty() ? "" : errors.front().text;
}

std::string entityWithAttributes(std::size_t count) {
  std::string text = "namespace N; entity E {";
  for (std::size_t i = 0; i < count; ++i) text += "a" + std::to_string(i) + "x:U8;";
  return text + "}";
}

TEST(Limits, AttributesOfOneEntity) {
  EXPECT_EQ(firstError(entityWithAttributes(65534)), "");
  EXPECT_EQ(firstError(entityWithAttributes(65534) + "entity D : E { x : U8; }"), "'D' has more than 65534 attributes");
}

TEST(Limits, ChainOfBases) {
  auto const chain = [](int length) {
    std::string text = "namespace N; entity E0 {}";
    for (int i = 1; i <= length; ++i) {
      text += "entity E" + std::to_string(i) + ":E" + std::to_string(i - 1) + "{}";
    }
    return text;
  };
  EXPECT_EQ(firstError(chain(64)), "");
  EXPECT_EQ(firstError(chain(65)), "the base 'E64' is the last in a chain of more than 64 bases");
}

TEST(Limits, Identifiers) {
  EXPECT_EQ(firstError("namespace N; enum " + std::string(255, 'x') + "{a}"), "");
  EXPECT_EQ(firstError("namespace N; enum " + std::string(256, 'x') + "{a}"),
            "identifier is longer than 255 characters");
}

TEST(Robustness, SurvivesLongRuns) {
  for (std::string const piece : {"{", "(", "[", "a:", "::", "value V{a:", "entity E(", "\"", "/*", "-", "ref ", "\xff",
                                  "enum a\n", "entity E{\n", "a:a,\n", "enum E{a,"}) {
    std::string text = "namespace N; ";
    for (int i = 0; i < 20000; ++i) text += piece;
    EXPECT_NE(firstError(text), "") << piece;
  }
}

}  // namespace
}  // namespace kelc::test
