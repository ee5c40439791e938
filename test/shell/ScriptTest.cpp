// Where commands come from, and what filters their output.
#include "Script.h"

#include <gtest/gtest.h>

#include <sstream>

#include "Files.h"
#include "Grammar.h"
#include "OutputFilter.h"

namespace Shell {
namespace {

TEST(Script, NumbersItsLines) {
  std::istringstream in("one\r\ntwo \\\nmore\n\nlast");
  auto const script = Script::ofStream(in, "f");
  std::string said;
  for (std::string line; script->next(line);) said += script->place() + line + "\n";
  EXPECT_EQ("f:1: one\nf:2: two  more\nf:4: \nf:5: last\n", said);
}

// Some editors begin a file with a mark of its encoding.
TEST(Script, PassesByTheMarkOfItsEncoding) {
  std::istringstream in("\xef\xbb\xbfone\n\xef\xbb\xbftwo");
  auto const script = Script::ofStream(in, "f");
  std::string said;
  for (std::string line; script->next(line);) said += line + "|";
  EXPECT_EQ("one|\xef\xbb\xbftwo|", said);
}

TEST(Script, OfAFileThatCannotBeReadSaysSo) {
  Tests::TemporaryDir const dir;
  EXPECT_THROW(Script::ofFile(dir.path() / "missing"), std::runtime_error);
  EXPECT_THROW(Script::ofFile(dir.path()), std::runtime_error);
  std::string line;
  EXPECT_FALSE(Script::ofFile(dir.write("empty", ""))->next(line));
}

std::string filtered(std::string const& command, std::string const& output) {
  std::vector<Word> words = splitLine(command).words;
  OutputFilter const filter(words);
  return filter.filtered(output);
}

TEST(OutputFilter, KeepsTheLinesThatItSays) {
  std::string const text = "Ethernet0 up\nEthernet4 down\nEthernet8 up\n";
  EXPECT_EQ("Ethernet0 up\nEthernet8 up\n", filtered("show | include UP", text));
  EXPECT_EQ("Ethernet4 down\n", filtered("show | exclude up", text));
  EXPECT_EQ("Ethernet4 down\nEthernet8 up\n", filtered("show | begin Ethernet4", text));
  EXPECT_EQ("Ethernet0 up\n", filtered("show | first 1", text));
  EXPECT_EQ("Ethernet8 up\n", filtered("show | last 1", text));
  EXPECT_EQ("2\n", filtered("show | include up | count", text));
  EXPECT_EQ(text, filtered("show x\\|y \"|\"", text));
}

TEST(OutputFilter, RefusesWhatIsNoFilter) {
  for (char const* line : {"show |", "| count", "show | nonsense", "show | first", "show | first x", "show | count |"})
    EXPECT_THROW(filtered(line, ""), UsageError) << line;
}

TEST(OutputFilter, WritesFilesWholeOrNotAtAll) {
  Tests::TemporaryDir const dir;
  std::string const file = (dir.path() / "out").string();
  filtered("show | save " + file, "text\n");
  EXPECT_EQ("text\n", Tests::readFile(file));
  std::filesystem::create_hard_link(file, file + ".old");
  filtered("show | save " + file, "other\n");
  EXPECT_EQ("other\n", Tests::readFile(file));
  EXPECT_EQ("text\n", Tests::readFile(file + ".old")) << "written in place";
  std::filesystem::remove(file + ".old");
  EXPECT_ANY_THROW(filtered("show | save " + (dir.path() / "no" / "dir").string(), "text\n"));
  EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(dir.path()), {}));
}

}  // namespace
}  // namespace Shell
