#include "compiler/Recovery.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "compiler/Suggest.h"

namespace kelc {

// --- what begins here ---

bool Recovery::isDeclarationWord() const {
  static constexpr std::string_view words[] = {"import", "extern", "enum", "value", "rep", "abstract", "entity"};
  return std::any_of(std::begin(words), std::end(words), [this](std::string_view word) { return is(word); });
}

bool Recovery::startsDeclaration() const {
  bool const named = ahead().kind == Token::Kind::identifier;
  if (named && isDeclarationWord() && isAtMargin()) return true;
  if (is("import")) return ahead().kind == Token::Kind::string;
  if (is("extern") || is("abstract")) return ahead().is("entity");
  if (is("rep")) return ahead().is("value");
  if (is("enum")) return named && ahead(2).is("{");
  if (is("value")) return named && (ahead(2).is("{") || ahead(2).is("["));
  if (!is("entity") || !named) return false;
  if (!ahead(2).is(":")) return ahead(2).is("{") || ahead(2).is("(");
  // Either an entity with a base, or an attribute after a superfluous word.
  std::size_t last = 3;
  while (ahead(last + 1).is("::") && last < std::size_t{2} * maxNameParts) last += 2;
  return ahead(last + 1).is("{") || ahead(last).is("{");
}

bool Recovery::startsMember() const {
  if (!startsLine() || !isIdentifier()) return false;
  if (ahead().is(":")) return !startsParam();
  return startsKeywordMember() || (is("impl") && ahead().is(";"));
}

bool Recovery::startsKeywordMember() const {
  if (!startsLine()) return false;
  if (is("own") || is("const")) return ahead(2).is(":");
  if (is("op")) return ahead(2).is("(");
  return (is("virtual") || is("override") || is("hidden")) && (ahead().is("op") || ahead().is("hidden"));
}

// Whether the tokens after `name : type` are those after a parameter, in a list over several lines.
bool Recovery::startsParam() const {
  std::size_t count = 2;
  while (ahead(count).kind == Token::Kind::identifier || ahead(count).is("::")) ++count;
  return ahead(count).is(",") || ahead(count).is(")");
}

Recovery::Outer Recovery::enter() { return std::exchange(outer_, {depth(), here().loc.column}); }

void Recovery::leave(Outer const& outer) {
  depthIs(outer_.depth);
  outer_ = outer;
}

bool Recovery::isAtMargin() const { return startsLine() && here().loc.column <= outer_.column; }

// --- skipping ---

void Recovery::skipDeclaration(std::size_t start) {
  while (!atEnd()) {
    bool const outside = depth() == outer_.depth;
    bool const next = startsDeclaration() ? outside || isAtMargin() : outside && startsLine() && isDeclarationWord();
    if (position() > start && next) return depthIs(outer_.depth);
    if (outside && isNested() && is("}")) return;
    bool const ends = is("}") || (outside && is(";"));
    skip();
    if (ends && depth() <= outer_.depth) return;
  }
}

void Recovery::skipMember(std::size_t start, unsigned inside) {
  while (!atEnd()) {
    bool const outside = depth() == inside;
    if (outside && is("}") && !closesModifiers()) return;
    bool const next = outside ? startsMember() || startsDeclaration() : startsDeclaration() && isAtMargin();
    if (position() > start && next) return depthIs(inside);
    bool const ends = outside && is(";"), brace = is("}");
    skip();
    if (ends || (brace && depth() <= inside)) return depthIs(inside);
  }
}

// Whether this `}` ends a list of modifiers whose `{` is missing: no semicolon follows the end of a body.
bool Recovery::closesModifiers() const { return is("}") && !startsLine() && ahead().is(";"); }

void Recovery::skipItem(std::string_view close, ListOf what) {
  while (!is(",") && !is(close) && !endsList(close, what)) skip();
}

bool Recovery::endsList(std::string_view close, ListOf what) const {
  if (atEnd() || startsDeclaration()) return true;
  if (what == ListOf::enumerators) return false;
  if (is("{") || is("}") || (what == ListOf::words ? startsMember() : startsKeywordMember())) return true;
  return is(";") && !(close == "}" && closesOnLine());
}

// Whether a `}` follows on this line, with no member before it.
bool Recovery::closesOnLine() const {
  for (std::size_t count = 1; ahead(count).loc.line == here().loc.line; ++count) {
    if (ahead(count).is("}")) return true;
    if (ahead(count).is(":") || ahead(count).is("{") || ahead(count).kind == Token::Kind::end) return false;
  }
  return false;
}

// --- parts that may be missing ---

void Recovery::expectEnd() {
  if (accept(";")) return;
  reportExpected();
  if (!startsLine()) throw SyntaxError();
}

bool Recovery::openBody() {
  if (accept("{")) return true;
  reportExpected();
  bool const brace = braceAhead();
  while (brace && !is("{") && !startsMember() && !startsDeclaration()) skip();
  if (acceptQuietly("{")) return true;
  if (atEnd() || startsDeclaration() || (isNested() && is("}"))) return false;
  if (!isIdentifier()) {
    // There is another token in its place, or there is no body.
    skip();
    if (!startsMember()) return false;
  }
  depthIs(depth() + 1);
  return true;
}

// Whether the brace follows, on this line or before the end of anything else.
bool Recovery::braceAhead() const {
  constexpr std::size_t most = 1000;  // so that a long file of broken declarations does not take quadratic time
  bool ended = false;
  for (std::size_t count = 0; count < most && ahead(count).kind != Token::Kind::end; ++count) {
    Token const& token = ahead(count);
    ended = ended || token.is("}") || token.is(";");
    if (ended && token.loc.line > here().loc.line) return false;
    if (token.is("{")) return true;
  }
  return false;
}

// --- misspelt words ---

std::string_view Recovery::misspelt(std::initializer_list<std::string_view> words) {
  if (!isIdentifier()) return {};
  std::string_view const habit = keywordOfHabit(here().text);
  auto meant = std::find(words.begin(), words.end(), habit);
  if (meant == words.end()) {
    Nearest nearest(here().text);
    for (std::string_view word : words) nearest.consider(word);
    meant = std::find(words.begin(), words.end(), nearest.best());
  }
  if (meant == words.end()) return {};
  report(here().loc, "unknown word " + inQuotes(std::string(here().text)) + didYouMean(std::string(*meant)));
  return *meant;
}

std::string_view Recovery::misspeltDeclaration() {
  if (ahead().kind == Token::Kind::string) return misspelt({"import"});
  if (ahead().is("entity")) return misspelt({"abstract", "extern"});
  if (ahead().is("value")) return misspelt({"rep"});
  if (ahead(2).is("{")) return misspelt({"entity", "value", "enum"});
  if (ahead(2).is("[")) return misspelt({"value"});
  return ahead(2).is("(") || ahead(2).is(":") ? misspelt({"entity"}) : std::string_view();
}

std::string_view Recovery::misspeltMember() {
  if (ahead().is("op") || ahead().is("hidden")) return misspelt({"virtual", "override", "hidden"});
  if (ahead().kind != Token::Kind::identifier || here().loc.line < ahead().loc.line) return {};
  if (ahead(2).is("(")) return misspelt({"op"});
  return ahead(2).is(":") ? misspelt({"own", "const"}) : std::string_view();
}

bool Recovery::acceptBefore(std::string_view word) {
  if (ahead().kind != Token::Kind::identifier) return false;
  if (acceptQuietly(word)) return true;
  bool const together = here().loc.line == ahead().loc.line;
  if (!together || misspelt({word}).empty()) return false;
  skip();
  return true;
}

bool Recovery::expectKeyword(std::string_view word) {
  if (accept(word)) return true;
  if (!isIdentifier()) failExpected();
  bool const named = ahead().kind == Token::Kind::identifier;
  bool const meant = named && !misspelt({word}).empty();
  if (!meant) reportExpected();
  if (named) skip();
  return acceptQuietly(word) || meant;
}

}  // namespace kelc
