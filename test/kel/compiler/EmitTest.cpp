// What is written: the generated text against text that somebody has read.
#include <gtest/gtest.h>

#include "ModelTest.h"
#include "compiler/Emit.h"

namespace kelc::test {
namespace {

namespace fs = std::filesystem;

fs::path const broad = dataDir() / "sample" / "Sample" / "Broad.kel";

void expectGolden(std::string const& name, std::string const& text) {
  EXPECT_EQ(Tests::golden(dataDir() / "golden" / (name + ".golden"), text), text);
}

std::string longestLine(std::string const& text) {
  std::string longest;
  for (std::size_t start = 0; start < text.size();) {
    std::size_t const end = text.find('\n', start);
    if (end - start > longest.size()) longest = text.substr(start, end - start);
    start = end + 1;
  }
  return longest;
}

TEST(Emit, WritesWhatTheGoldenFilesSay) {
  Compiled const compiled(dataDir() / "golden" / "Lamp.kel");
  ASSERT_TRUE(compiled.diagnostics.empty());
  Generated const generated = emit(compiled.set);
  expectGolden("Lamp.h", generated.header);
  expectGolden("Lamp.cpp", generated.source);
  expectGolden("Lamp.stubs", emitStubs(compiled.set));
}

TEST(Emit, WritesTheSameTwice) {
  Compiled const one(broad), other(broad);
  EXPECT_EQ(emit(one.set).header, emit(other.set).header);
  EXPECT_EQ(emit(one.set).source, emit(other.set).source);
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
