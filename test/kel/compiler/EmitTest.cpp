// What is written: stubs against text that somebody has read, and what holds for all generated text.
#include <gtest/gtest.h>

#include <cctype>
#include <set>
#include <sstream>

#include "ModelTest.h"
#include "compiler/Emit.h"

namespace kelc::test {
namespace {

namespace fs = std::filesystem;

fs::path const broad = dataDir() / "sample" / "Sample" / "Broad.kel";

std::string longestLine(std::string const& text) {
  std::string longest;
  for (std::size_t start = 0; start < text.size();) {
    std::size_t const end = text.find('\n', start);
    if (end - start > longest.size()) longest = text.substr(start, end - start);
    start = end + 1;
  }
  return longest;
}

// What is generated from them is for the tests of what it does; the stubs are there to be read.
TEST(Emit, WritesStubs) {
  Compiled const compiled(dataDir() / "golden" / "Lamp.kel");
  ASSERT_TRUE(compiled.diagnostics.empty());
  Tests::expectGolden(dataDir() / "golden" / "Lamp.stubs.golden", emitStubs(compiled.set));
}

TEST(Emit, WritesTheSameTwice) {
  Compiled const one(broad), other(broad);
  EXPECT_EQ(emit(one.set).header, emit(other.set).header);
  EXPECT_EQ(emit(one.set).source, emit(other.set).source);
}

// The marks are all that distinguishes a model for export; that they are where they have to be shows when libraries are
// built of it.
TEST(Emit, MarksForExportAndChangesNothingElse) {
  Compiled const compiled(dataDir() / "golden" / "Lamp.kel");
  Generated const plain = emit(compiled.set), marked = emit(compiled.set, {true, "lamp_anchor"});
  std::string header = marked.header;
  std::size_t marks = 0;
  for (std::string const mark = "KEL_API "; header.find(mark) != std::string::npos; ++marks)
    header.erase(header.find(mark), mark.size());
  EXPECT_LT(20u, marks);
  EXPECT_EQ(plain.header, header);
  std::string const anchor =
      "\nextern \"C\" KEL_API char const lamp_anchor;\nchar const lamp_anchor = 0;\n\n}  // namespace Home\n";
  ASSERT_GT(marked.source.size(), anchor.size());
  std::string const start = marked.source.substr(0, marked.source.size() - anchor.size());
  EXPECT_EQ(marked.source, start + anchor);
  EXPECT_EQ(plain.source, start + "\n}  // namespace Home\n");
}

// Lines that begin a definition.
std::multiset<std::string> definitions(std::string const& source) {
  std::multiset<std::string> heads;
  std::istringstream in(source);
  for (std::string line; std::getline(in, line);)
    if (!line.empty() && std::isalpha(static_cast<unsigned char>(line[0])) && line.find('(') != std::string::npos)
      heads.insert(line);
  return heads;
}

TEST(Emit, SpreadsDefinitionsOverSources) {
  Compiled const compiled(broad);
  Generated const one = emit(compiled.set), three = emit(compiled.set, {false, "", 3});
  EXPECT_EQ(three.header, one.header);
  ASSERT_EQ(three.furtherSources.size(), 2u);
  std::multiset<std::string> spread = definitions(three.source);
  for (std::string const& source : three.furtherSources) {
    EXPECT_GT(source.size(), one.source.size() / 6);
    spread.merge(definitions(source));
  }
  EXPECT_EQ(spread, definitions(one.source));
}

TEST(Emit, KeepsToTheWidthOfALine) {
  Compiled const compiled(broad);
  ASSERT_TRUE(compiled.diagnostics.empty());
  EXPECT_LE(longestLine(emit(compiled.set).header).size(), CppText::columns);
  EXPECT_LE(longestLine(emit(compiled.set).source).size(), CppText::columns);
}

// A name of the model's own namespace that is also the first part of another namespace would be found first.
TEST(Emit, WritesFullNamesWhereShortOnesMeanSomethingElse) {
  TemporaryDir const dir;
  Compiled const compiled(dir.write("M.kel", R"(namespace A::B;
    extern entity Other::T "T.h";
    extern entity A::Other::U "U.h";
    entity X { t : ref Other::T; }
    entity Y { X : U8; own item : X; })"));
  ASSERT_TRUE(compiled.diagnostics.empty());
  std::string const header = emit(compiled.set).header;
  EXPECT_NE(header.find("Kel::Ptr<::Other::T> t_;"), std::string::npos);
  EXPECT_NE(header.find("Kel::Ptr<A::B::X> item_;"), std::string::npos);
}

}  // namespace
}  // namespace kelc::test
