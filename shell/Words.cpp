#include "Words.h"

#include <cstdint>

namespace Shell {

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The character that a backslash at `at` stands for in quotes; moves `at` to the last character of the escape.
char escaped(std::string_view line, std::size_t& at) {
  char const c = line[++at];
  if (c == 'n') return '\n';
  if (c == 't') return '\t';
  if (c != 'x' || at + 2 >= line.size()) return c;
  int const high = hexDigit(line[at + 1]), low = hexDigit(line[at + 2]);
  if (high < 0 || low < 0) return c;
  at += 2;
  return static_cast<char>(high * 16 + low);
}

bool isControl(std::uint32_t c) {
  bool const invisible = (c >= 0x200b && c <= 0x200f) || (c >= 0x2028 && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069);
  return c < ' ' || (c >= 0x7f && c < 0xa0) || invisible || c == 0xfeff;
}

void appendEscape(std::string& out, unsigned char c) {
  constexpr char digits[] = "0123456789abcdef";
  switch (c) {
    case '\n': out += "\\n"; break;
    case '\t': out += "\\t"; break;
    case '\r': out += "\\r"; break;
    default: out += {'\\', 'x', digits[c >> 4U], digits[c & 15U]};
  }
}

struct Character {
  std::uint32_t code = 0;
  std::size_t bytes = 0;  // 0: not UTF-8
};

Character decode(std::string_view text) {
  auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  unsigned char const first = byte(0);
  if (first < 0x80) return {first, 1};
  std::size_t const bytes = first >= 0xf0 && first < 0xf5 ? 4 : first >= 0xe0 && first < 0xf0 ? 3 : 2;
  if (first < 0xc2 || first >= 0xf5 || text.size() < bytes) return {};
  std::uint32_t code = first & (0xffU >> (bytes + 1));
  for (std::size_t i = 1; i < bytes; ++i) {
    if ((byte(i) & 0xc0U) != 0x80) return {};
    code = code << 6U | (byte(i) & 0x3fU);
  }
  constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  bool const surrogate = code >= 0xd800 && code < 0xe000;
  return code < least[bytes] || surrogate || code > 0x10ffff ? Character{} : Character{code, bytes};
}

// Calls `plain` with each run of printable characters, `control` with each other byte.
template <class Plain, class Control>
void eachPart(std::string_view text, Plain const& plain, Control const& control) {
  while (!text.empty()) {
    Character const c = decode(text);
    std::size_t const bytes = c.bytes ? c.bytes : 1;
    if (c.bytes && !isControl(c.code))
      plain(text.substr(0, bytes));
    else
      for (char const byte : text.substr(0, bytes)) control(static_cast<unsigned char>(byte));
    text.remove_prefix(bytes);
  }
}

}  // namespace

Line splitLine(std::string_view line) {
  Line out;
  Word word;
  bool started = false;
  char quote = 0;
  auto const finish = [&](std::size_t end) {
    word.end = end;
    out.words.push_back(word);
    word = {};
    started = false;
  };
  for (std::size_t i = 0; i < line.size(); ++i) {
    char const c = line[i];
    bool const blank = c == ' ' || c == '\t' || c == '\r' || c == '\n';
    if (!quote && blank) {
      if (started) finish(i);
      continue;
    }
    if (!started) word.begin = i;
    started = true;
    bool const opens = !quote && (c == '"' || c == '\'');
    if (opens || c == quote) {
      quote = opens ? c : '\0';
      word.quoted = true;
    } else if (c == '\\' && quote != '\'' && i + 1 < line.size()) {
      word.text += quote ? escaped(line, i) : line[++i];
      word.quoted = true;
    } else {
      word.text += c;
    }
  }
  out.openQuote = quote != 0;
  out.endsInBlank = !started;
  if (started) finish(line.size());
  return out;
}

std::vector<std::string> texts(std::vector<Word> const& words) {
  std::vector<std::string> out;
  out.reserve(words.size());
  for (Word const& word : words) out.push_back(word.text);
  return out;
}

std::string asWord(std::string_view text) {
  bool needsQuotes = text.empty() || text == "|" || text.front() == '#';
  std::string inner;
  eachPart(
      text,
      [&](std::string_view plain) {
        if (plain == " " || plain == "'") needsQuotes = true;
        if (plain == "\"" || plain == "\\") {
          needsQuotes = true;
          inner += '\\';
        }
        inner += plain;
      },
      [&](unsigned char c) {
        needsQuotes = true;
        appendEscape(inner, c);
      });
  return needsQuotes ? '"' + inner + '"' : inner;
}

std::string shown(std::string_view text) {
  std::string out;
  eachPart(
      text, [&](std::string_view plain) { out += plain; }, [&](unsigned char c) { appendEscape(out, c); });
  return out;
}

}  // namespace Shell
