// A position in the tokens of a file, and the syntax errors found there.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "compiler/Diagnostic.h"
#include "compiler/Lexer.h"

namespace kelc {

// Unwinds to the item, member or declaration that a syntax error belongs to. The error has been reported.
struct SyntaxError {};

// Remembers what would have been accepted at the current token, so that an error lists it.
class Cursor {
 public:
  Cursor(std::vector<Token> const& tokens, Diagnostics& diagnostics) : tokens_(tokens), diagnostics_(diagnostics) {}

  std::size_t position() const { return at_; }
  Token const& here() const { return tokens_[at_]; }
  Token const& ahead(std::size_t count = 1) const;
  Token const& last() const { return tokens_[at_ == 0 ? 0 : at_ - 1]; }
  bool atEnd() const { return here().kind == Token::Kind::end; }
  bool is(std::string_view word) const { return here().is(word); }
  bool isIdentifier() const { return here().kind == Token::Kind::identifier; }
  bool startsLine() const { return at_ == 0 || last().loc.line < here().loc.line; }

  // The number of `{` taken whose `}` was not.
  unsigned depth() const { return depth_; }
  // For recovery from a missing or superfluous brace.
  void depthIs(unsigned depth) { depth_ = depth; }

  Token const& take();
  // Takes what cannot be understood.
  void skip();
  bool accept(std::string_view word);
  // The same for what is not worth being listed.
  bool acceptQuietly(std::string_view word);
  void expect(std::string_view word);
  // Adds to what is listed; `what` is not a word but describes one: "the name of a field".
  void alsoExpected(std::string what) { expected_.push_back(std::move(what)); }

  // A mistake after which it is clear how to go on.
  void report(Loc const& loc, std::string text) { add(loc, std::move(text), {}); }
  // One after which it is not: what was expected here, or something else. What follows from it, or from an error of the
  // lexer, is not reported: on its line, at least two tokens have to be understood before another error is believed.
  void reportExpected(std::vector<Note> notes = {});
  [[noreturn]] void failExpected();
  [[noreturn]] void fail(Loc const& loc, std::string text);
  // From here on, it is unclear how to go on.
  void lose();

 private:
  Loc behindLast() const;
  bool isBehindLast() const;
  void add(Loc const& loc, std::string text, std::vector<Note> notes);

  std::vector<Token> const& tokens_;
  Diagnostics& diagnostics_;
  std::vector<std::string> expected_;  // at the current token
  std::size_t at_ = 0;
  unsigned lostLine_ = 0;    // where it was last unclear how to go on
  unsigned understood_ = 0;  // tokens since then
  unsigned depth_ = 0;
};

}  // namespace kelc
