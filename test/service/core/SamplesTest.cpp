// What docs/service.md shows is what is compiled, and what it says is printed is what is printed.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>

#include "Files.h"

namespace {

// The code blocks of the document, by what stands behind the three backquotes.
std::map<std::string, std::string> blocks() {
  std::istringstream in(Tests::readFile(SOURCE_DIR "/docs/service.md"));
  std::map<std::string, std::string> texts;
  std::string* block = nullptr;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("```", 0) == 0)
      block = block ? nullptr : &texts[line.substr(3)];
    else if (block)
      *block += line + "\n";
  }
  return texts;
}

std::string printed(std::string const& command) {
  FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
  std::string text;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += static_cast<char>(c);
  EXPECT_EQ(::pclose(pipe), 0) << command;
  return text;
}

TEST(ServiceSamples, AreWhatTheDocumentShows) {
  for (char const* name : {"Switch.kel", "owner.cpp", "agent.cpp"}) {
    std::string const file = name;
    std::string const language = file.substr(file.find('.') + 1);
    EXPECT_EQ(blocks()[language + " " + file], Tests::readFile(SOURCE_DIR "/examples/service/" + file));
  }
}

TEST(ServiceSamples, PrintWhatTheDocumentSays) {
  EXPECT_EQ(printed(OWNER), blocks()["text owner"]);
  Tests::TemporaryDir const dir;
  EXPECT_EQ(printed(AGENT " " + (dir.path() / "ports.txt").string()), blocks()["text agent"]);
}

}  // namespace
