// Splits a command line.
//
// The words are those of Cli::Service::splitWords, here with their positions, and also for unfinished lines. A bar that
// is a word by itself begins an output filter.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Shell {

struct Word {
  std::string text;
  std::size_t begin = 0, end = 0;  // its position in the line
  bool quoted = false;             // part of it is quoted, so it is not a keyword
};

struct Line {
  std::vector<Word> words;
  bool openQuote = false;   // the last word's quote is not closed
  bool endsInBlank = true;  // a new word would begin at the end
  bool isComment() const { return !words.empty() && !words.front().quoted && words.front().text.rfind('#', 0) == 0; }
};

// Raises nothing: `openQuote` says whether a quote is not closed.
Line splitLine(std::string_view line);

std::vector<std::string> texts(std::vector<Word> const& words);

// The text as a word that splitLine reads back: as it is if possible, else in quotes, without control characters.
std::string asWord(std::string_view text);

// The text for a terminal: control characters, and bytes that are not UTF-8, as "\n" or "\x1b".
std::string shown(std::string_view text);

}  // namespace Shell
