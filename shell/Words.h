// A command line, taken apart.
//
// The words are those of Cli::Service::splitWords; here with where they stand, and of unfinished lines, too. A bar that
// is a word of its own begins an output filter.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Shell {

struct Word {
  std::string text;
  std::size_t begin = 0, end = 0;  // where it stands in the line
  bool quoted = false;             // part of it is: it is no keyword
};

struct Line {
  std::vector<Word> words;
  bool openQuote = false;   // the last word's quote is not closed
  bool endsInBlank = true;  // a new word would begin at the end
  bool isComment() const { return !words.empty() && !words.front().quoted && words.front().text.rfind('#', 0) == 0; }
};

// Never fails: `openQuote` tells of a quote that is not closed.
Line splitLine(std::string_view line);

std::vector<std::string> texts(std::vector<Word> const& words);

// The text as a word that is read back: as it is where it can be, else in quotes, without control characters.
std::string asWord(std::string_view text);

// The text for a terminal: control characters, and bytes that are not UTF-8, as "\n" or "\x1b".
std::string shown(std::string_view text);

}  // namespace Shell
