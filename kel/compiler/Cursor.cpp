#include "compiler/Cursor.h"

#include <algorithm>
#include <utility>

namespace kelc {

namespace {

std::string shown(Token const& token) {
  constexpr std::size_t longest = 40;
  return "'" + std::string(token.text.substr(0, longest)) + "'";
}

// "';', '{' or '='". What was tried last comes first, because it is required; the others are optional.
std::string alternatives(std::vector<std::string> const& tried) {
  std::string list;
  for (auto one = tried.rbegin(); one != tried.rend(); ++one) {
    list += (list.empty() ? "" : one + 1 == tried.rend() ? " or " : ", ") + *one;
  }
  return list;
}

}  // namespace

Token const& Cursor::ahead(std::size_t count) const { return tokens_[std::min(at_ + count, tokens_.size() - 1)]; }

Token const& Cursor::take() {
  Token const& token = here();
  skip();
  ++understood_;
  return token;
}

void Cursor::skip() {
  if (is("{")) ++depth_;
  if (is("}") && depth_ > 0) --depth_;
  if (!atEnd()) ++at_;
  expected_.clear();
}

bool Cursor::accept(std::string_view word) {
  if (acceptQuietly(word)) return true;
  alsoExpected("'" + std::string(word) + "'");
  return false;
}

bool Cursor::acceptQuietly(std::string_view word) {
  if (!is(word)) return false;
  take();
  return true;
}

void Cursor::expect(std::string_view word) {
  if (!accept(word)) failExpected();
}

Loc Cursor::behindLast() const {
  Loc loc = last().loc;
  loc.column += static_cast<unsigned>(last().text.size());
  return loc;
}

// Whether the expected token is missing at the end of the last token's line, rather than wrong at the start of this
// line.
bool Cursor::isBehindLast() const {
  static constexpr std::string_view openers[] = {"{", "}", "(", "[", ",", ";"};
  if (at_ == 0 || !startsLine()) return false;
  return atEnd() || std::none_of(std::begin(openers), std::end(openers), [&](auto word) { return last().is(word); });
}

void Cursor::reportExpected(std::vector<Note> notes) {
  std::string const text = "expected " + alternatives(expected_);
  bool const behind = isBehindLast();
  std::string const found = atEnd()  ? " at the end of the file"
                            : behind ? " after " + shown(last())
                                     : ", not " + shown(here());
  add(behind ? behindLast() : here().loc, text + found, std::move(notes));
  lose();
}

void Cursor::failExpected() {
  reportExpected();
  throw SyntaxError();
}

void Cursor::fail(Loc const& loc, std::string text) {
  add(loc, std::move(text), {});
  lose();
  throw SyntaxError();
}

void Cursor::add(Loc const& loc, std::string text, std::vector<Note> notes) {
  bool const follows = here().loc.line == lostLine_ && understood_ < 2;
  bool const lexical = here().kind == Token::Kind::unknown || last().kind == Token::Kind::unknown;
  if (!follows && !lexical) diagnostics_.error(loc, std::move(text), std::move(notes));
}

void Cursor::lose() {
  lostLine_ = here().loc.line;
  understood_ = 0;
}

}  // namespace kelc
