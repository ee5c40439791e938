#include "examples/config_db/Json.h"

#include <unordered_map>
#include <utility>

namespace ConfigDb {

JsonValue const* JsonValue::find(std::string_view name) const {
  for (JsonMember const& member : members)
    if (member.name == name) return &member.value;
  return nullptr;
}

char const* kindName(JsonValue::Kind kind) {
  switch (kind) {
    case JsonValue::Kind::null: return "null";
    case JsonValue::Kind::boolean: return "a boolean";
    case JsonValue::Kind::number: return "a number";
    case JsonValue::Kind::string: return "a string";
    case JsonValue::Kind::array: return "an array";
    case JsonValue::Kind::object: return "an object";
  }
  return "";
}

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The length of the well-formed UTF-8 sequence that `text` begins with; 0 when it is none.
std::size_t utf8Length(std::string_view text) {
  auto const byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  unsigned const first = byte(0);
  if (first < 0x80) return 1;
  std::size_t const length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4) return 0;
  // What the first byte leaves to the second: no overlong forms, no surrogates, nothing above U+10FFFF.
  unsigned const low = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
  unsigned const high = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
  if (byte(1) < low || byte(1) > high) return 0;
  for (std::size_t i = 2; i < length; ++i)
    if (byte(i) < 0x80 || byte(i) > 0xbf) return 0;
  return length;
}

void appendUtf8(std::string& out, unsigned code) {
  auto const add = [&](unsigned byte) { out += static_cast<char>(byte); };
  if (code < 0x80) return add(code);
  if (code < 0x800) {
    add(0xc0 | code >> 6);
  } else {
    if (code < 0x10000) {
      add(0xe0 | code >> 12);
    } else {
      add(0xf0 | code >> 18);
      add(0x80 | (code >> 12 & 0x3f));
    }
    add(0x80 | (code >> 6 & 0x3f));
  }
  add(0x80 | (code & 0x3f));
}

class Parser {
 public:
  Parser(std::string_view text, JsonLimits const& limits) : text_(text), limits_(limits) {}

  JsonDocument document() {
    if (text_.substr(0, 3) == "\xef\xbb\xbf") at_ = lineStart_ = 3;
    value(document_.value);
    skipBlanks();
    if (at_ < text_.size()) fail("text after the end of the value");
    return std::move(document_);
  }

 private:
  JsonPlace here() const { return {line_, at_ - lineStart_ + 1}; }
  [[noreturn]] void fail(std::string const& what) const { throw JsonError(here(), what); }
  char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

  void skipBlanks() {
    for (; at_ < text_.size(); ++at_) {
      char const c = text_[at_];
      if (c == '\n') {
        ++line_;
        lineStart_ = at_ + 1;
      } else if (c != ' ' && c != '\t' && c != '\r') {
        return;
      }
    }
  }

  bool take(char c) {
    skipBlanks();
    if (at_ >= text_.size() || text_[at_] != c) return false;
    ++at_;
    return true;
  }

  void expect(char c, char const* what) {
    if (!take(c)) fail(at_ < text_.size() ? std::string(what) + " expected" : "the text ends too early");
  }

  void value(JsonValue& out) {
    skipBlanks();
    out.place = here();
    if (++values_ > limits_.values) fail("more than " + std::to_string(limits_.values) + " values");
    switch (peek()) {
      case '{': return object(out);
      case '[': return array(out);
      case '"': return string(out);
      case 't': return literal(out, JsonValue::Kind::boolean, "true");
      case 'f': return literal(out, JsonValue::Kind::boolean, "false");
      case 'n': return literal(out, JsonValue::Kind::null, "null");
      default: return number(out);
    }
  }

  void enter() {
    if (++depth_ > limits_.depth) fail("nested deeper than " + std::to_string(limits_.depth) + " levels");
    ++at_;
  }

  void object(JsonValue& out) {
    enter();
    out.kind = JsonValue::Kind::object;
    std::unordered_map<std::string, std::size_t> index;
    if (!take('}')) {
      do {
        member(out, index);
      } while (take(','));
      expect('}', "',' or '}'");
    }
    --depth_;
  }

  // A name that is there already keeps its position and gets the later value.
  void member(JsonValue& out, std::unordered_map<std::string, std::size_t>& index) {
    skipBlanks();
    JsonPlace const place = here();
    if (peek() != '"') fail(at_ < text_.size() ? "a member name in quotes expected" : "the text ends too early");
    std::string name = characters();
    path_.push_back(name);
    auto const [found, added] = index.emplace(name, out.members.size());
    if (!added) document_.duplicates.push_back({path_, place});
    expect(':', "':'");
    JsonValue read;
    value(read);
    path_.pop_back();
    if (added)
      out.members.push_back({std::move(name), std::move(read)});
    else
      out.members[found->second].value = std::move(read);
  }

  void array(JsonValue& out) {
    enter();
    out.kind = JsonValue::Kind::array;
    if (!take(']')) {
      do {
        value(out.items.emplace_back());
      } while (take(','));
      expect(']', "',' or ']'");
    }
    --depth_;
  }

  void string(JsonValue& out) {
    out.kind = JsonValue::Kind::string;
    out.text = characters();
  }

  std::string characters() {
    std::string out;
    for (++at_; peek() != '"';) {
      if (at_ >= text_.size()) fail("the text ends within a string");
      if (static_cast<unsigned char>(text_[at_]) < 0x20) fail("a control character within a string");
      if (text_[at_] == '\\') {
        escape(out);
        continue;
      }
      std::size_t const length = utf8Length(text_.substr(at_));
      if (length == 0) fail("bytes that are no UTF-8");
      out += text_.substr(at_, length);
      at_ += length;
    }
    ++at_;
    return out;
  }

  void escape(std::string& out) {
    constexpr std::string_view names = "\"\\/bfnrt";
    constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
    ++at_;
    if (peek() == 'u') return appendUtf8(out, escapedCode());
    std::size_t const i = peek() ? names.find(peek()) : std::string_view::npos;
    if (i == std::string_view::npos) fail("an unknown escape");
    out += meanings[i];
    ++at_;
  }

  unsigned escapedCode() {
    unsigned const high = hexUnit();
    if (high < 0xd800 || high > 0xdfff) return high;
    unsigned low = 0;
    if (high < 0xdc00 && text_.substr(at_, 2) == "\\u") {
      ++at_;
      low = hexUnit();
    }
    if (low < 0xdc00 || low > 0xdfff) fail("half a surrogate pair");
    return 0x10000 + ((high - 0xd800) << 10) + (low - 0xdc00);
  }

  // On the 'u' of an escape; leaves the four digits behind.
  unsigned hexUnit() {
    unsigned code = 0;
    for (int i = 0; i < 4; ++i) {
      ++at_;
      char const c = peek();
      char const lower = static_cast<char>(c | 0x20);
      bool const letter = lower >= 'a' && lower <= 'f';
      if (!isDigit(c) && !letter) fail("four hexadecimal digits expected");
      code = code * 16 + static_cast<unsigned>(letter ? lower - 'a' + 10 : c - '0');
    }
    ++at_;
    return code;
  }

  void literal(JsonValue& out, JsonValue::Kind kind, std::string_view word) {
    if (text_.substr(at_, word.size()) != word) fail("a value expected");
    out.kind = kind;
    out.text = word;
    at_ += word.size();
  }

  void digits() {
    if (!isDigit(peek())) fail("a digit expected");
    while (isDigit(peek())) ++at_;
  }

  void number(JsonValue& out) {
    if (at_ >= text_.size()) fail("the text ends too early");
    std::size_t const begin = at_;
    if (peek() == '-') ++at_;
    if (at_ == begin && !isDigit(peek())) fail("a value expected");
    if (peek() == '0') {
      ++at_;
    } else {
      digits();
    }
    if (peek() == '.') {
      ++at_;
      digits();
    }
    if (peek() == 'e' || peek() == 'E') {
      ++at_;
      if (peek() == '+' || peek() == '-') ++at_;
      digits();
    }
    out.kind = JsonValue::Kind::number;
    out.text = text_.substr(begin, at_ - begin);
  }

  std::string_view text_;
  JsonLimits const limits_;
  std::size_t at_ = 0;
  std::size_t line_ = 1;
  std::size_t lineStart_ = 0;
  std::size_t depth_ = 0;
  std::size_t values_ = 0;
  std::vector<std::string> path_;
  JsonDocument document_;
};

}  // namespace

JsonDocument parseJson(std::string_view text, JsonLimits const& limits) { return Parser(text, limits).document(); }

}  // namespace ConfigDb
