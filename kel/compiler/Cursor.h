// A position in the tokens of a file, and the syntax errors found there.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "compiler/Diagnostic.h"
#include "compiler/Lexer.h"

namespace kelc {

// Raised after a syntax error has been reported; caught where the item, member or declaration is parsed.
struct SyntaxError {};

// Remembers what would have been accepted at the current token, so that an error can list it.
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

  // The number of `{` taken so far minus that of `}`.
  unsigned depth() const { return depth_; }
  // For recovery from a missing or superfluous brace.
  void depthIs(unsigned depth) { depth_ = depth; }

  Token const& take();
  // Takes a token that is not understood.
  void skip();
  bool accept(std::string_view word);
  // The same, but is not listed in errors.
  bool acceptQuietly(std::string_view word);
  void expect(std::string_view word);
  // Adds to the list. `what` is not a word but the description of one: "the name of a field".
  void alsoExpected(std::string what) { expected_.push_back(std::move(what)); }

  // Reports a mistake after which parsing can go on.
  void report(Loc const& loc, std::string text) { add(loc, std::move(text), {}); }
  // Reports a mistake after which it cannot: what was expected here, or another text. Errors that only follow from it,
  // or from an error of the lexer, are not reported: on the same line, at least two tokens must be understood before
  // the next error.
  void reportExpected(std::vector<Note> notes = {});
  [[noreturn]] void failExpected();
  [[noreturn]] void fail(Loc const& loc, std::string text);
  // Notes that it is unclear how to go on from here.
  void lose();

 private:
  Loc behindLast() const;
  bool isBehindLast() const;
  void add(Loc const& loc, std::string text, std::vector<Note> notes);

  std::vector<Token> const& tokens_;
  Diagnostics& diagnostics_;
  std::vector<std::string> expected_;  // at the current token
  std::size_t at_ = 0;
  unsigned lostLine_ = 0;    // the last line on which it was unclear how to go on
  unsigned understood_ = 0;  // tokens since then
  unsigned depth_ = 0;
};

}  // namespace kelc
