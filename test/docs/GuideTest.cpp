// What the guide shows is what is compiled, and what it says is printed is what is printed.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "CodeBlocks.h"
#include "Process.h"

namespace {

namespace fs = std::filesystem;
fs::path const chapters = SOURCE_DIR "/docs/guide", samples = SOURCE_DIR "/examples/guide";

// Lines without the empty ones: a chapter may break a sample off at any of these.
std::string withoutEmptyLines(std::string const& text) {
  std::istringstream in(text);
  std::string lines;
  for (std::string line; std::getline(in, line);)
    if (!line.empty()) lines += line + "\n";
  return lines;
}

std::set<fs::path> filesIn(fs::path const& dir, std::set<std::string> const& extensions) {
  std::set<fs::path> files;
  for (auto const& entry : fs::directory_iterator(dir))
    if (extensions.count(entry.path().extension().string())) files.insert(entry.path());
  return files;
}

TEST(Guide, ShowsEverySampleInFull) {
  std::map<std::string, std::string> shown;
  for (fs::path const& chapter : filesIn(chapters, {".md"}))
    for (auto const& [name, text] : Tests::codeBlocks(chapter)) {
      std::size_t const blank = name.find(' ');
      if (blank != std::string::npos) shown[name.substr(blank + 1)] += text;
    }
  for (fs::path const& sample : filesIn(samples, {".cpp", ".h", ".kel"})) {
    std::string const name = sample.filename().string();
    EXPECT_EQ(withoutEmptyLines(shown[name]), withoutEmptyLines(Tests::readFile(sample))) << name;
    shown.erase(name);
  }
  for (auto const& [name, text] : shown) ADD_FAILURE() << "no such sample: " << name;
}

TEST(Guide, ShowsWhatTheSamplesPrint) {
  for (fs::path const& chapter : filesIn(chapters, {".md"})) {
    std::string const program = PROGRAMS "/guide-" + chapter.stem().string();
    if (chapter.stem() == "README") continue;
    Tests::Result const result = Tests::run(program);
    EXPECT_EQ(result.status, 0) << program;
    EXPECT_EQ(Tests::codeBlocks(chapter)["text"], result.output) << chapter.filename();
  }
}

// Each relative link of every document leads to a file.
TEST(Documents, LinkToFilesThatAreThere) {
  std::set<fs::path> documents = filesIn(SOURCE_DIR, {".md"});
  for (auto const& entry : fs::recursive_directory_iterator(SOURCE_DIR "/docs"))
    if (entry.path().extension() == ".md") documents.insert(entry.path());
  for (fs::path const& document : documents) {
    std::string const text = Tests::readFile(document);
    for (std::size_t at = text.find("]("); at != std::string::npos; at = text.find("](", at + 1)) {
      std::string const link = text.substr(at + 2, text.find_first_of(")#", at + 2) - at - 2);
      if (link.empty() || link.find("://") != std::string::npos || link.find(' ') != std::string::npos) continue;
      EXPECT_TRUE(fs::exists(document.parent_path() / link)) << document << ": " << link;
    }
  }
}

}  // namespace
