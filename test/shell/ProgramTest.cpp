// The programs as processes: exit status and output.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include "Files.h"

namespace {

struct Result {
  int status;
  std::string output;  // both streams
};

Result run(std::string const& command) {
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen((command + " 2>&1").c_str(), "r"), nullptr);
  Result result{-1, {}};
  std::array<char, 4096> buffer;
  while (std::size_t const n = fread(buffer.data(), 1, buffer.size(), pipe.get()))
    result.output.append(buffer.data(), n);
  int const status = pclose(pipe.release());
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + status;
  return result;
}

std::string const sample = SOURCE_DIR "/examples/config_db/leaf.json";

TEST(CliSession, EndsWithTheStatusOfItsLastCommand) {
  EXPECT_EQ(0, run(CLI_SESSION " " + sample + " -c 'session open s' -c compare").status);
  std::string const edit = " -c 'session open s' -c 'set network/ports.port/Ethernet0.mtu 1' -c compare";
  EXPECT_EQ(1, run(CLI_SESSION " " + sample + edit).status);
  EXPECT_EQ(0, run(CLI_SESSION " " + sample + edit + " -c replace").status);
  EXPECT_EQ(2, run(CLI_SESSION " " + sample + " -c nonsense -c 'session open s'").status);
  EXPECT_EQ(1,
            run("printf 'session open s\\ndelete network/vlans.vlan/Vlan101\\ncompare\\n' | " CLI_SESSION " " + sample)
                .status);
  EXPECT_EQ(2, run(CLI_SESSION).status);
  EXPECT_EQ(0, run(CLI_SESSION " --help").status);
}

TEST(CliSession, RefusesFilesItCannotReadAndSaysWhere) {
  Tests::TemporaryDir const dir;
  std::string const file = dir.write("x.json", R"({"PORT": {"Ethernet1": [1]}})").string();
  Result const result = run(CLI_SESSION " " + file + " -c help");
  EXPECT_EQ(2, result.status);
  EXPECT_EQ(0u, result.output.find(file + ":1:")) << result.output;
  EXPECT_NE(std::string::npos, result.output.find("PORT|Ethernet1")) << result.output;
  EXPECT_EQ(2, run(CLI_SESSION " /nonexistent.json").status);
  EXPECT_EQ(2, run(CLI_SESSION " /").status);
}

// What the README shows is what the tests compile and run.
TEST(Quickstart, PrintsTheEditsAndIsShownInTheReadme) {
  Result const result = run(QUICKSTART);
  EXPECT_EQ(0, result.status);
  EXPECT_EQ("set port at switch x1\nset mtu at switch.port/Ethernet1 x1\n", result.output);
  std::string const readme = Tests::readFile(SOURCE_DIR "/README.md");
  for (char const* file : {"Switch.kel", "main.cpp", "CMakeLists.txt"}) {
    std::string const text = Tests::readFile(std::string(SOURCE_DIR "/examples/quickstart/") + file);
    EXPECT_NE(std::string::npos, readme.find(text)) << file;
  }
  EXPECT_NE(std::string::npos, readme.find(result.output));
}

}  // namespace
