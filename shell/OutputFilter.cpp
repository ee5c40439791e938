#include "OutputFilter.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "CommandTable.h"

namespace Shell {

namespace {

enum Rule { include, exclude, begin, first, last, count, more, noMore, toFile };

bool isBar(Word const& word) { return word.text == "|" && !word.quoted; }

std::vector<std::string> lines(std::string const& text) {
  std::vector<std::string> out;
  for (std::size_t from = 0; from < text.size();) {
    std::size_t const end = std::min(text.find('\n', from), text.size());
    out.push_back(text.substr(from, end - from));
    from = end + 1;
  }
  return out;
}

// Whether a line contains a text, in upper or lower case.
bool holds(std::string const& line, std::string const& text) {
  auto const same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
  return std::search(line.begin(), line.end(), text.begin(), text.end(), same) != line.end();
}

}  // namespace

OutputFilter::OutputFilter(std::vector<Word>& words) {
  auto const bar = std::find_if(words.begin(), words.end(), isBar);
  if (bar == words.end()) return;
  if (bar == words.begin()) throw UsageError("a command is missing in front of '|'");
  for (auto at = bar; at != words.end();) {
    auto const end = std::find_if(at + 1, words.end(), isBar);
    std::vector<Word> const part(at + 1, end);
    auto const accepts = [](std::string const& argument, std::vector<std::string> const&, std::string const& word) {
      return argument != "COUNT" || (word.size() < 10 && std::all_of(word.begin(), word.end(), ::isdigit));
    };
    Grammar::Match match;
    try {
      match = filterGrammar().match(part, accepts);
    } catch (UsageError const& e) {
      throw UsageError(std::string("behind '|': ") + e.what());
    }
    if (match.rule == noMore) paged_ = false;
    std::string const text = match.rule == toFile ? match.arguments.text("FILE") : match.arguments.text("TEXT");
    steps_.push_back({match.rule, text, match.arguments.number("COUNT")});
    at = end;
  }
  words.erase(bar, words.end());
}

std::string OutputFilter::filtered(std::string output) const {
  if (steps_.empty()) return output;
  for (Step const& step : steps_) {
    if (step.rule == more || step.rule == noMore) continue;
    if (step.rule == toFile) {
      writeFile(step.text, output);
      output = "written to " + shown(step.text) + "\n";
      continue;
    }
    std::vector<std::string> const all = lines(output);
    if (step.rule == count) {
      output = std::to_string(all.size()) + "\n";
      continue;
    }
    bool begun = false;
    std::size_t at = 0;
    output.clear();
    for (std::string const& line : all) {
      bool const found = !step.text.empty() && holds(line, step.text);
      begun = begun || found;
      bool const kept = step.rule == include   ? found
                        : step.rule == exclude ? !found
                        : step.rule == begin   ? begun
                        : step.rule == first   ? at < step.count
                                               : at + step.count >= all.size();
      if (kept) output += line + "\n";
      ++at;
    }
  }
  return output;
}

void writeFile(std::string const& file, std::string const& text) {
  std::string const temporary = file + ".new-" + std::to_string(::getpid());
  std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (out && std::rename(temporary.c_str(), file.c_str()) == 0) return;
  std::string const reason = std::strerror(errno);
  std::remove(temporary.c_str());
  throw CommandError(shown(file) + ": cannot be written: " + reason);
}

}  // namespace Shell
