// What docs/service.md shows is what is compiled, and what it says is printed is what is printed.
#include <gtest/gtest.h>

#include <map>

#include "CodeBlocks.h"
#include "Process.h"

namespace {

std::map<std::string, std::string> blocks() { return Tests::codeBlocks(SOURCE_DIR "/docs/service.md"); }

std::string printed(std::string const& command) {
  Tests::Result const result = Tests::run(command);
  EXPECT_EQ(result.status, 0) << command;
  return result.output;
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
