#include "compiler/Lexer.h"

#include <array>
#include <charconv>
#include <system_error>
#include <utility>

#include "compiler/Characters.h"

namespace kelc {

namespace {

bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }
bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string quoted(char c) {
  if (c > ' ' && c <= '~') return std::string("'") + c + "'";
  static constexpr char digits[] = "0123456789abcdef";
  auto const byte = static_cast<unsigned char>(c);
  return std::string("'\\x") + digits[byte >> 4] + digits[byte & 15] + "'";
}

class Lexer {
 public:
  Lexer(SourceFile const& file, Diagnostics& diagnostics) : file_(file), text_(file.text), diagnostics_(diagnostics) {}

  std::vector<Token> run() {
    while (skipBlank()) next();
    add(Token::Kind::end, here(), pos_);
    return std::move(tokens_);
  }

 private:
  Loc here() const { return {&file_, line_, static_cast<unsigned>(pos_ - lineStart_ + 1)}; }
  bool atEnd() const { return pos_ >= text_.size(); }
  char peek(std::size_t ahead = 0) const { return pos_ + ahead < text_.size() ? text_[pos_ + ahead] : '\0'; }
  bool at(std::string_view s) const { return text_.substr(pos_, s.size()) == s; }

  void step() {
    if (text_[pos_++] != '\n') return;
    ++line_;
    lineStart_ = pos_;
  }

  Token& add(Token::Kind kind, Loc loc, std::size_t start) {
    Token token;
    token.kind = kind;
    token.loc = loc;
    token.text = text_.substr(start, pos_ - start);
    return tokens_.emplace_back(std::move(token));
  }

  // Reports bytes outside ASCII, once for each line, and skips them.
  void refuseNonAscii() {
    if (std::exchange(nonAsciiLine_, line_) != line_) diagnostics_.error(here(), "non-ASCII character");
    while (!atEnd() && !isAscii(peek())) ++pos_;
  }

  void nonAscii() {
    Loc const loc = here();
    std::size_t const start = pos_;
    refuseNonAscii();
    add(Token::Kind::unknown, loc, start);
  }

  void stepAscii() {
    if (isAscii(peek())) {
      step();
    } else {
      refuseNonAscii();
    }
  }

  // True when a token follows.
  bool skipBlank() {
    while (!atEnd()) {
      if (isSpace(peek())) {
        step();
      } else if (at("//")) {
        while (!atEnd() && peek() != '\n') stepAscii();
      } else if (at("/*")) {
        skipComment();
      } else {
        return true;
      }
    }
    return false;
  }

  void skipComment() {
    Loc const start = here();
    pos_ += 2;
    while (!atEnd() && !at("*/")) stepAscii();
    if (!atEnd()) {
      pos_ += 2;
      return;
    }
    diagnostics_.error(start, "unterminated comment");
    add(Token::Kind::unknown, start, pos_);
  }

  void next() {
    char const c = peek();
    if (isLetter(c)) return identifier();
    if (isDigit(c) || (c == '.' && isDigit(peek(1)))) return number();
    if (c == '"') return string();
    if (!isAscii(c)) return nonAscii();
    punctuation();
  }

  void identifier() {
    Loc const loc = here();
    std::size_t const start = pos_;
    while (isWord(peek())) ++pos_;
    add(Token::Kind::identifier, loc, start);
    if (pos_ - start > maxIdentifier) diagnostics_.error(loc, "identifier is longer than 255 characters");
  }

  // Takes everything that looks like a part of the number, so that a malformed number is reported as a whole.
  void number() {
    Loc const loc = here();
    std::size_t const start = pos_;
    bool const hex = peek() == '0' && (peek(1) == 'x' || peek(1) == 'X');
    while (isWord(peek()) || peek() == '.') {
      bool const exponent = !hex && (peek() == 'e' || peek() == 'E');
      ++pos_;
      if (exponent && (peek() == '+' || peek() == '-')) ++pos_;
    }
    std::string_view const text = text_.substr(start, pos_ - start);
    bool const integer = hex || text.find_first_not_of("0123456789") == std::string_view::npos;
    if (integer) {
      addInteger(loc, start, hex ? text.substr(2) : text, hex ? 16 : 10);
    } else {
      addFloating(loc, start, text);
    }
  }

  void addInteger(Loc loc, std::size_t start, std::string_view digits, int base) {
    Token& token = add(Token::Kind::integer, loc, start);
    char const* const end = digits.data() + digits.size();
    auto const [stop, error] = std::from_chars(digits.data(), end, token.integer, base);
    checkNumber(token, error, stop == end, "the largest integer is 18446744073709551615");
  }

  void addFloating(Loc loc, std::size_t start, std::string_view text) {
    Token& token = add(Token::Kind::floating, loc, start);
    char const* const end = text.data() + text.size();
    auto const [stop, error] = std::from_chars(text.data(), end, token.floating);
    checkNumber(token, error, stop == end, "the numbers of F64 go from 4.9e-324 to 1.7976931348623157e+308");
  }

  void checkNumber(Token& token, std::errc error, bool whole, char const* limits) {
    if (error == std::errc() && whole) return;
    bool const range = error == std::errc::result_out_of_range && whole;
    std::string const text(token.text.substr(0, 40));
    diagnostics_.error(token.loc, range ? text + " is out of range: " + limits : "malformed number " + inQuotes(text));
    token.kind = Token::Kind::unknown;
  }

  void string() {
    Loc const loc = here();
    std::size_t const start = pos_++;
    std::string value;
    while (peek() != '"') {
      if (atEnd() || peek() == '\n') {
        diagnostics_.error(loc, "unterminated string");
        add(Token::Kind::unknown, loc, start);
        return;
      }
      if (!isAscii(peek())) {
        refuseNonAscii();
      } else if (static_cast<unsigned char>(peek()) < ' ' || peek() == '\x7f') {
        diagnostics_.error(here(), "control character in a string");
        ++pos_;
      } else if (peek() == '\\') {
        escape(value);
      } else {
        value += text_[pos_++];
      }
    }
    ++pos_;
    add(Token::Kind::string, loc, start).string = std::move(value);
  }

  void escape(std::string& value) {
    static constexpr std::array<std::pair<char, char>, 4> escapes = {
        {{'"', '"'}, {'\\', '\\'}, {'n', '\n'}, {'t', '\t'}}};
    for (auto const& [letter, meaning] : escapes) {
      if (peek(1) != letter) continue;
      value += meaning;
      pos_ += 2;
      return;
    }
    diagnostics_.error(here(), "unknown escape sequence; use \\\", \\\\, \\n or \\t");
    ++pos_;
  }

  void punctuation() {
    static constexpr std::string_view single = ";:,={}()[].-<>*&";
    Loc const loc = here();
    std::size_t const start = pos_;
    bool const known = single.find(peek()) != std::string_view::npos;
    pos_ += at("::") || at("->") ? 2 : 1;
    if (!known) diagnostics_.error(loc, "unexpected character " + quoted(text_[start]));
    add(known ? Token::Kind::punctuation : Token::Kind::unknown, loc, start);
  }

  SourceFile const& file_;
  std::string_view text_;
  Diagnostics& diagnostics_;
  std::vector<Token> tokens_;
  std::size_t pos_ = 0;
  std::size_t lineStart_ = 0;
  unsigned line_ = 1;
  unsigned nonAsciiLine_ = 0;  // the last line with an error about it
};

}  // namespace

std::vector<Token> lex(SourceFile const& file, Diagnostics& diagnostics) { return Lexer(file, diagnostics).run(); }

}  // namespace kelc
