// What docs/service.md shows is what is compiled, and what it says is printed is what is printed.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>

#include "CodeBlocks.h"

namespace {

std::map<std::string, std::string> blocks() { return Tests::codeBlocks(SOURCE_DIR "/docs/service.md"); }

std::string printed(std::string const& command) {
  FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
  std::string text;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += static_cast<char>(c);
  EXPECT_EQ(::pclose(pipe), 0) << command;
  return text;
}

TEST(ServiceSamples, AreWhatTheDocumentShows) {
  for (char const* name : {"Switch.kel", "owner.cpp", "agent.cpp", "spelling.cpp"}) {
    std::string const file = name;
    std::string const language = file.substr(file.find('.') + 1);
    EXPECT_EQ(blocks()[language + " " + file], Tests::readFile(SOURCE_DIR "/examples/service/" + file));
  }
}

TEST(ServiceSamples, PrintWhatTheDocumentSays) {
  EXPECT_EQ(printed(OWNER), blocks()["text owner"]);
  EXPECT_EQ(printed(SPELLING), blocks()["text spelling"]);
  Tests::TemporaryDir const dir;
  EXPECT_EQ(printed(AGENT " " + (dir.path() / "ports.txt").string()), blocks()["text agent"]);
}

}  // namespace
