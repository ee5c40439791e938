// docs/errors.md lists every exception and assertion of the libraries.
#include <gtest/gtest.h>

#include <regex>
#include <vector>

#include "Files.h"

namespace {

namespace fs = std::filesystem;

std::string withoutBlankRuns(std::string const& text) { return std::regex_replace(text, std::regex("\\s+"), " "); }

// The call that begins at `at`, up to the parenthesis that closes it.
std::string callAt(std::string const& source, std::size_t at) {
  int depth = 0;
  bool quoted = false;
  for (std::size_t i = at; i < source.size(); ++i) {
    char const c = source[i];
    if (quoted && c == '\\')
      ++i;
    else if (c == '"')
      quoted = !quoted;
    else if (!quoted && c == '(')
      ++depth;
    else if (!quoted && c == ')' && --depth == 0)
      return withoutBlankRuns(source.substr(at, i + 1 - at));
  }
  return "";
}

// The pieces of a message: literals of more than one word, or what an assertion shows.
std::vector<std::string> messages(std::string const& call) {
  static std::regex const plain("KEL_ASSERT\\((.*)\\)"),
      literal("\"((?:[^\"\\\\]|\\\\.)*)\"(?: \"((?:[^\"\\\\]|\\\\.)*)\")?");
  std::smatch match;
  if (std::regex_match(call, match, plain)) return {match[1]};
  std::vector<std::string> found;
  for (std::sregex_iterator it(call.begin(), call.end(), literal), end; it != end; ++it) {
    std::string text = (*it)[1].str() + (*it)[2].str();
    text = std::regex_replace(text, std::regex("\\\\(.)"), "$1");
    text = std::regex_replace(text, std::regex("^[ ':,]+|[ ':,]+$"), "");
    if (text.find(' ') != std::string::npos || call.rfind("KEL_ASSERT", 0) == 0) found.push_back(text);
  }
  return found;
}

TEST(Errors, AreAllInTheCatalogue) {
  std::string const catalogue = withoutBlankRuns(Tests::readFile(SOURCE_DIR "/docs/errors.md"));
  std::regex const raises(
      "\\b(throw\\w*Exception|throwAttrLog\\w+|throwRecord|throwEntity|throwExpected|KEL_ASSERT\\w*) ?\\(");
  std::size_t calls = 0;
  for (char const* dir : {"kel/Kel", "Zuk", "CliSession", "CliSession/EntityCopy"})
    for (auto const& entry : fs::directory_iterator(fs::path(SOURCE_DIR) / dir)) {
      if (entry.path().filename() == "Assert.h" || entry.path().filename() == "Exception.h") continue;
      if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
      std::string const source = Tests::readFile(entry.path());
      for (std::sregex_iterator it(source.begin(), source.end(), raises), end; it != end; ++it, ++calls)
        for (std::string const& message : messages(callAt(source, static_cast<std::size_t>(it->position()))))
          EXPECT_NE(catalogue.find(message), std::string::npos)
              << entry.path().filename() << ": docs/errors.md lacks: " << message;
    }
  EXPECT_GT(calls, 100u) << "where are the sources?";
}

}  // namespace
