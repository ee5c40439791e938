// The command: its exit status, what it writes and what it leaves alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "ModelTest.h"
#include "Process.h"
#include "compiler/Options.h"
#include "compiler/Output.h"

namespace kelc::test {
namespace {

namespace fs = std::filesystem;

class Command : public testing::Test {
 protected:
  // The exit status; what it printed is in `printed`.
  int run(std::string const& args) {
    Tests::Result const result = Tests::run("cd " + dir_.path().string() + " && " + KELC + " " + args);
    printed = result.output;
    return result.status;
  }
  void write(std::string const& name, std::string const& text) { dir_.write(name, text); }
  std::string read(std::string const& name) { return readFile(dir_.path() / name); }
  std::size_t files() {
    auto const all = fs::recursive_directory_iterator(dir_.path());
    return static_cast<std::size_t>(
        std::count_if(begin(all), end(all), [](auto const& e) { return !e.is_directory(); }));
  }

  TemporaryDir const dir_;
  std::string printed;
};

TEST_F(Command, WritesHeaderSourceAndDependencies) {
  write("src/Zuk/A.kel", "namespace N; enum E { a }");
  write("src/Zuk/B.kel", "namespace N; import \"Zuk/A.kel\"; value V { e : E; }");
  EXPECT_EQ(run("-I src -o gen --name Zuk/B --depfile gen/B.d src/Zuk/B.kel"), 0);
  EXPECT_EQ(printed, "");
  EXPECT_NE(read("gen/Zuk/B.h").find("#include \"Zuk/A.h\""), std::string::npos);
  EXPECT_NE(read("gen/Zuk/B.cpp").find("#include \"Zuk/B.h\""), std::string::npos);
  EXPECT_EQ(read("gen/B.d"), "gen/Zuk/B.h: \\\n  src/Zuk/B.kel \\\n  src/Zuk/A.kel\n");
  EXPECT_EQ(files(), 5u);
}

// The folder of the importing file comes first, and the header of what is found there is beside its own.
TEST_F(Command, ImportsFromBesideTheImportingFile) {
  write("src/Zuk/A.kel", "namespace N; import \"C.kel\"; enum E { a }");
  write("src/Zuk/C.kel", "namespace N; enum C { c }");
  write("src/C.kel", "namespace Wrong;");
  write("src/Zuk/B.kel", "namespace N; import \"A.kel\"; value V { e : E; c : C; }");
  EXPECT_EQ(run("-I src -o gen --name Zuk/B --depfile B.d src/Zuk/B.kel"), 0) << printed;
  EXPECT_EQ(read("B.d"), "gen/Zuk/B.h: \\\n  src/Zuk/B.kel \\\n  src/Zuk/A.kel \\\n  src/Zuk/C.kel\n");
  EXPECT_NE(read("gen/Zuk/B.h").find("#include \"Zuk/A.h\""), std::string::npos);

  // From a folder above it, the path on the include path is the header's.
  write("src/Top.kel", "namespace N; import \"Zuk/A.kel\"; value V { e : E; }");
  EXPECT_EQ(run("-I src -o gen --name Other/Top src/Top.kel"), 0) << printed;
  EXPECT_NE(read("gen/Other/Top.h").find("#include \"Zuk/A.h\""), std::string::npos);
}

TEST_F(Command, ListsWhereAnImportWasLookedFor) {
  write("src/A.kel", "namespace N; import \"B.kel\";");
  EXPECT_EQ(run("-I src -I other -I ./src/ src/A.kel"), 1);
  EXPECT_EQ(printed.substr(0, printed.find('\n')), "src/A.kel:1:21: error: cannot find 'B.kel' in 'src' or 'other'");
  write("C.kel", "namespace N; import \"B.kel\";");
  EXPECT_EQ(run("C.kel"), 1);
  EXPECT_EQ(printed.substr(0, printed.find('\n')), "C.kel:1:21: error: cannot find 'B.kel' in '.'");
}

TEST_F(Command, LeavesFilesAloneThatDidNotChange) {
  write("A.kel", "namespace N; enum E { a }");
  ASSERT_EQ(run("A.kel"), 0);
  auto const written = fs::last_write_time(dir_.path() / "A.h") - std::chrono::hours(1);
  fs::last_write_time(dir_.path() / "A.h", written);
  ASSERT_EQ(run("A.kel"), 0);
  EXPECT_EQ(fs::last_write_time(dir_.path() / "A.h"), written);
  write("A.kel", "namespace N; enum E { a, b }");
  ASSERT_EQ(run("A.kel"), 0);
  EXPECT_NE(fs::last_write_time(dir_.path() / "A.h"), written);
}

TEST_F(Command, LeavesNothingBehindAfterAnError) {
  write("A.kel", "namespace N; enum E { a, a }");
  EXPECT_EQ(run("--depfile A.d A.kel"), 1);
  EXPECT_EQ(printed,
            "A.kel:1:26: error: 'a' is already declared\n"
            "    namespace N; enum E { a, a }\n"
            "                             ^\n"
            "A.kel:1:23: note: the previous enumerator is here\n"
            "    namespace N; enum E { a, a }\n"
            "                          ^\n");
  EXPECT_EQ(files(), 1u);
}

TEST_F(Command, LeavesNothingBehindWhenItCannotWrite) {
  write("A.kel", "namespace N; enum E { a }");
  fs::create_directory(dir_.path() / "A.cpp.new");  // in the way of the second file
  EXPECT_EQ(run("A.kel"), 1);
  EXPECT_EQ(printed, "kelc: cannot write './A.cpp'\n");
  EXPECT_EQ(files(), 1u);
}

TEST_F(Command, SaysWhatIsWrongWithItsArguments) {
  write("A.kel", "namespace N;");
  EXPECT_EQ(run(""), 2);
  EXPECT_EQ(printed, "kelc: no model given; see 'kelc --help'\n");
  EXPECT_EQ(run("A.kel B.kel"), 2);
  EXPECT_EQ(printed, "kelc: more than one model given: 'A.kel' and 'B.kel'; see 'kelc --help'\n");
  EXPECT_EQ(run("--stub A.kel"), 2);
  EXPECT_EQ(printed, "kelc: unknown option '--stub'; did you mean '--stubs'?\n");
  EXPECT_EQ(run("A.kel -o"), 2);
  EXPECT_EQ(printed, "kelc: '-o' needs a value; see 'kelc --help'\n");
  EXPECT_EQ(run("--name ../A A.kel"), 2);
  EXPECT_EQ(printed, "kelc: '../A' is not on the include path; see 'kelc --help'\n");
  EXPECT_EQ(run("--anchor 1x A.kel"), 2);
  EXPECT_EQ(printed, "kelc: '1x' is not an identifier; see 'kelc --help'\n");
  for (std::string const wrong : {"0", "100", "2x", "-1"}) {
    EXPECT_EQ(run("--parts " + wrong + " A.kel"), 2);
    EXPECT_EQ(printed, "kelc: '--parts' needs a number from 1 to 99; see 'kelc --help'\n");
  }
  EXPECT_EQ(run("--help"), 0);
  EXPECT_EQ(printed, usage);
  EXPECT_EQ(run("B.kel"), 1);
  EXPECT_EQ(printed, "kelc: cannot read 'B.kel'\n");
}

TEST_F(Command, PrintsStubsAndWritesNothing) {
  write("A.kel", "namespace N; entity E { op f(a : U8) const -> String; }");
  EXPECT_EQ(run("--stubs A.kel"), 0);
  EXPECT_EQ(printed,
            "#include \"A.h\"\n\nnamespace N {\n\n"
            "Kel::String E::f(Kel::U8 a) const { return {}; }\n\n}  // namespace N\n");
  EXPECT_EQ(files(), 1u);
}

TEST(Dependencies, EscapeWhatMakeWouldRead) {
  EXPECT_EQ(dependencyRule("a b", {"c#d", "$e"}), "a\\ b: \\\n  c\\#d \\\n  $$e\n");
}

}  // namespace
}  // namespace kelc::test
