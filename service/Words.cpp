// Splitting a line into words, and finding similar words.
#include <algorithm>
#include <numeric>

#include "service/PathWords.h"

namespace Cli::Service {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

int hexDigit(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

class Splitter {
 public:
  explicit Splitter(std::string_view line) : line_(line) {}

  Words run() {
    Words words;
    while (skipBlanks()) words.push_back(word());
    return words;
  }

 private:
  bool skipBlanks() {
    while (at_ < line_.size() && isBlank(line_[at_])) ++at_;
    return at_ < line_.size();
  }

  std::string word() {
    std::string word;
    while (at_ < line_.size() && !isBlank(line_[at_])) {
      char const c = line_[at_++];
      if (c == '\'')
        single(word);
      else if (c == '"')
        doubled(word);
      else if (c == '\\' && at_ < line_.size())
        word += line_[at_++];
      else
        word += c;
    }
    return word;
  }

  void single(std::string& word) {
    std::size_t const end = line_.find('\'', at_);
    if (end == std::string_view::npos)
      throw InputError("the quote ' in column " + std::to_string(at_) + " is not closed");
    word += line_.substr(at_, end - at_);
    at_ = end + 1;
  }

  void doubled(std::string& word) {
    std::size_t const begin = at_;
    while (at_ < line_.size() && line_[at_] != '"') {
      char const c = line_[at_++];
      if (c == '\\' && at_ < line_.size())
        escaped(word);
      else
        word += c;
    }
    if (at_ >= line_.size()) throw InputError("the quote \" in column " + std::to_string(begin) + " is not closed");
    ++at_;
  }

  void escaped(std::string& word) {
    char const c = line_[at_++];
    if (c == 'x' && at_ + 1 < line_.size() && hexDigit(line_[at_]) >= 0 && hexDigit(line_[at_ + 1]) >= 0) {
      word += static_cast<char>(hexDigit(line_[at_]) * 16 + hexDigit(line_[at_ + 1]));
      at_ += 2;
    } else {
      word += c == 'n' ? '\n' : c == 't' ? '\t' : c;
    }
  }

  std::string_view line_;
  std::size_t at_ = 0;
};

// The edit distance: insertions, deletions, replacements and swaps of neighbours.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> before(b.size() + 1), last(b.size() + 1), now(b.size() + 1);
  std::iota(last.begin(), last.end(), 0U);
  for (std::size_t i = 1; i <= a.size(); ++i) {
    now[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) now[j] = std::min(now[j], before[j - 2] + 1);
    }
    std::swap(before, last);
    std::swap(last, now);
  }
  return last[b.size()];
}

std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

}  // namespace

Words splitWords(std::string_view line) { return Splitter(line).run(); }

std::string quotedWord(std::string_view word) {
  auto const plain = [](char c) {
    return static_cast<unsigned char>(c) > ' ' && c != 0x7f && c != '\'' && c != '"' && c != '\\' && c != ';' &&
           c != '#';
  };
  bool const bar = word == "|";  // begins a filter of the shell
  if (!word.empty() && !bar && std::all_of(word.begin(), word.end(), plain)) return std::string(word);
  std::string out = "\"";
  for (char const c : word) {
    unsigned char const byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (c == '\n' || c == '\t') {
      out += c == '\n' ? "\\n" : "\\t";
    } else if (byte < ' ' || byte == 0x7f) {
      char const* const digits = "0123456789abcdef";
      out += {'\\', 'x', digits[byte / 16], digits[byte % 16]};
    } else {
      out += c;
    }
  }
  return out + '"';
}

std::string joinedWords(std::span<std::string const> words) {
  std::string line;
  for (std::string const& word : words) line += (line.empty() ? "" : " ") + quotedWord(word);
  return line;
}

std::string nearest(std::string_view word, std::vector<std::string> const& candidates) {
  constexpr std::size_t most = 3, longest = 64;
  if (word.empty() || word.size() > longest) return {};
  std::string const wanted = lower(word);
  std::vector<std::pair<std::size_t, std::string const*>> near;
  for (std::string const& candidate : candidates) {
    if (candidate.size() > longest) continue;
    std::string const name = lower(candidate);
    bool const begins = name.starts_with(wanted) || wanted.starts_with(name);
    std::size_t const far = begins ? 1 : distance(wanted, name);
    if (far <= std::max<std::size_t>(1, std::min(wanted.size(), name.size()) / 3)) near.emplace_back(far, &candidate);
  }
  std::stable_sort(near.begin(), near.end(), [](auto const& a, auto const& b) { return a.first < b.first; });
  std::string text;
  for (std::size_t i = 0; i < std::min(near.size(), most); ++i) text += (i ? ", " : "") + *near[i].second;
  return text;
}

bool naturalLess(std::string_view a, std::string_view b) {
  std::size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    if (isDigit(a[i]) && isDigit(b[j])) {
      auto const number = [](std::string_view text, std::size_t& at) {
        while (at + 1 < text.size() && text[at] == '0' && isDigit(text[at + 1])) ++at;
        std::size_t const begin = at;
        while (at < text.size() && isDigit(text[at])) ++at;
        return text.substr(begin, at - begin);
      };
      std::string_view const x = number(a, i), y = number(b, j);
      if (x.size() != y.size()) return x.size() < y.size();
      if (x != y) return x < y;
    } else {
      if (a[i] != b[j]) return a[i] < b[j];
      ++i;
      ++j;
    }
  }
  if (i < a.size() || j < b.size()) return i >= a.size() && j < b.size();
  return a < b;  // they differ in leading zeros at most
}

}  // namespace Cli::Service
