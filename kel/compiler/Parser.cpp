#include "compiler/Parser.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "compiler/Names.h"
#include "compiler/Recovery.h"
#include "compiler/Suggest.h"

namespace kelc {

namespace {

template <class Kind>
struct Word {
  std::string_view text;
  Kind kind;
};

constexpr Word<Trait::Kind> traitWords[] = {
    {"ordered", Trait::Kind::ordered},         {"hashed", Trait::Kind::hashed},
    {"xorHashed", Trait::Kind::xorHashed},     {"noCompare", Trait::Kind::noCompare},
    {"autoconvert", Trait::Kind::autoconvert},
};

constexpr Word<Modifier::Kind> modifierWords[] = {
    {"inc", Modifier::Kind::inc},         {"nonnull", Modifier::Kind::nonnull},
    {"counter", Modifier::Kind::counter}, {"readonly", Modifier::Kind::readonly},
    {"nolog", Modifier::Kind::nolog},     {"onChange", Modifier::Kind::onChange},
};

// The use of a type, for messages.
enum class Use { attribute, owned, single };

bool startsWithCapital(std::string_view name) { return name[0] >= 'A' && name[0] <= 'Z'; }

class Parser : private Recovery {
 public:
  Parser(std::vector<Token> const& tokens, Diagnostics& diagnostics)
      : Recovery(tokens, diagnostics), model_(std::make_unique<Model>()) {}

  std::unique_ptr<Model> run() {
    model_->file = here().loc.file;
    nameSpace();
    while (!atEnd()) declaration();
    return std::move(model_);
  }

 private:
  // --- lists and words ---

  // Parses items up to a closing bracket, separated by commas. False after a mistake; then `all` has the items that
  // were understood.
  template <class Item>
  bool items(std::string_view close, ListOf what, std::vector<Item>& all, Item (Parser::*item)()) {
    bool whole = true;
    while (true) {
      bool understood = !startsDeclaration();
      try {
        if (understood) all.push_back((this->*item)());
      } catch (SyntaxError const&) {
        understood = whole = false;
        skipItem(close, what);
      }
      if (accept(close)) return whole;
      if (accept(",")) {
        if (what == ListOf::enumerators && acceptQuietly(close)) return whole;
        continue;
      }
      if (whole) reportExpected();
      whole = false;
      bool const begins = isIdentifier() && (what != ListOf::params || ahead().is(":"));
      if (begins && here().text != last().text && !endsList(close, what)) continue;  // Only the comma is missing.
      if (understood && !startsLine()) all.pop_back();
      skipItem(close, what);
      if (!acceptQuietly(",")) return acceptQuietly(close) && whole;
    }
  }

  template <class Item>
  bool list(std::string_view open, std::string_view close, ListOf what, std::vector<Item>& all,
            Item (Parser::*item)()) {
    unsigned const outside = depth();
    expect(open);
    bool const whole = accept(close) || items(close, what, all, item);
    depthIs(outside);
    return whole;
  }

  // Takes one of the words of a table. A misspelt word is reported, and counts as the word that was meant.
  template <class Kind, std::size_t count>
  Kind oneOf(Word<Kind> const (&words)[count], std::string const& what) {
    for (auto const& word : words) {
      if (acceptQuietly(word.text)) return word.kind;
    }
    Nearest nearest(here().text);
    for (std::size_t i = count; i-- > 0;) {
      alsoExpected(inQuotes(std::string(words[i].text)));
      nearest.consider(words[i].text);
    }
    if (!isIdentifier() || nearest.best().empty()) failExpected();
    report(here().loc, "unknown " + what + " " + inQuotes(std::string(here().text)) + didYouMean(nearest.best()));
    skip();
    return std::find_if(std::begin(words), std::end(words), [&](auto& w) { return w.text == nearest.best(); })->kind;
  }

  // --- names and types ---

  Ident identifier(char const* what) {
    alsoExpected(what);
    if (!isIdentifier()) failExpected();
    Token const& token = take();
    return {std::string(token.text), token.loc};
  }

  QName qualifiedName(char const* what) {
    Ident const first = identifier(what);
    QName name{first.text, first.loc};
    for (unsigned parts = 1; acceptQuietly("::"); ++parts) {
      if (parts == maxNameParts) fail(here().loc, "a qualified name has at most 32 parts");
      name.text += "::" + identifier("a name").text;
    }
    return name;
  }

  // Parses the name of a member and the colon after it.
  Ident memberName(char const* what) {
    Token const& first = here();
    Ident name = identifier(what);
    if (accept(":")) return name;
    bool const named = isIdentifier() && !startsLine();
    bool const known = builtinOf(name.text) != Builtin::none || !typeOfHabit(name.text).empty();
    bool const swapped = named && (known || (startsWithCapital(name.text) && !startsWithCapital(here().text)));
    if (!swapped) failExpected();
    std::string const type = typeOfHabit(name.text).empty() ? name.text : typeOfHabit(name.text);
    fail(first.loc, "the name comes before the type: " + inQuotes(std::string(here().text) + " : " + type));
  }

  TypeRef type(char const* what = "a type") {
    TypeRef type;
    // Both are keywords, so they cannot be names.
    type.isRef = acceptBefore("ref") || acceptQuietly("ref");
    if (type.isRef) type.isConst = acceptQuietly("const");
    if (is("const")) {
      alsoExpected("'ref'");
      failExpected();
    }
    // If the next line begins a member or declaration, it is not the type.
    if (startsMember() || startsDeclaration()) {
      alsoExpected(what);
      failExpected();
    }
    type.name = qualifiedName(what);
    refuseForeign(type.name);
    return type;
  }

  // Types in the notation of other languages.
  void refuseForeign(QName const& name) {
    std::string const hint = hintOfHabit(name.text);
    bool const named = isIdentifier() && !startsLine();
    if (is("*") || is("&")) fail(here().loc, "unexpected " + inQuotes(std::string(here().text)) + hintOfHabit("ptr"));
    if (is("<") && hint.empty()) fail(here().loc, "unexpected '<': a type takes no arguments");
    if (is("<") || (named && !hint.empty())) fail(name.loc, "unknown type " + inQuotes(name.text) + hint);
  }

  TypeRef target(Use use) {
    TypeRef target = type();
    if (!is("(")) {
      if (use == Use::owned) alsoExpected("'('");
      return target;
    }
    // Arguments that were not understood are not compared with the parameters.
    target.hasArgs = list("(", ")", ListOf::words, target.args, &Parser::argument);
    return target;
  }

  Shape shape(Use use) {
    Shape shape;
    if (acceptBefore("queue")) {
      shape.kind = Shape::Kind::queue;
      shape.target = target(use);
      shape.index.name = {"U32", shape.target.name.loc};
      if (accept("[")) {
        shape.index = type("the type of the index");
        expect("]");
      }
      return shape;
    }
    shape.target = target(use);
    if (use == Use::single ? acceptQuietly("[") : accept("[")) {
      shape.kind = Shape::Kind::keyed;
      shape.key = key();
      expect("]");
    }
    return shape;
  }

  Key key() {
    Key key;
    if (accept(".")) {
      key.isField = true;
      key.field = identifier("the name of a field");
      return key;
    }
    key.ordered = acceptBefore("ordered");
    key.type = type("the type of the key");
    return key;
  }

  TypeRef argument() { return type(); }

  Param param() {
    Param param;
    param.name = memberName("the name of a parameter");
    param.shape = shape(Use::single);
    return param;
  }

  Literal literal() {
    Literal literal;
    literal.loc = here().loc;
    literal.negative = acceptQuietly("-");
    alsoExpected(literal.negative ? "a number" : "a value");
    Token const& token = here();
    literal.written = std::string(token.text);
    switch (token.kind) {
      case Token::Kind::integer:
        literal.kind = Literal::Kind::integer;
        literal.magnitude = token.integer;
        break;
      case Token::Kind::floating:
        literal.kind = Literal::Kind::floating;
        literal.floating = token.floating;
        break;
      case Token::Kind::string:
        if (literal.negative) failExpected();
        literal.kind = Literal::Kind::string;
        literal.text = token.string;
        break;
      case Token::Kind::identifier:
        if (literal.negative && !is("infinity")) failExpected();
        // An enumerator is not qualified. A qualified one is refused by its whole name.
        literal.text = qualifiedName("a value").text;
        return literal;
      default: failExpected();
    }
    take();
    return literal;
  }

  std::optional<Literal> initializer() {
    if (!accept("=")) return std::nullopt;
    return literal();
  }

  // --- declarations ---

  void nameSpace() {
    std::string_view const word = is("namespace") ? "namespace" : misspelt({"namespace"});
    if (word.empty()) {
      model_->incomplete = true;
      report(here().loc, "a model must begin with 'namespace NAME;'");
      if (!isDeclarationWord()) skipDeclaration(0);
      return;
    }
    take();
    try {
      model_->nameSpace = qualifiedName("the name of a namespace");
      if (accept(";")) return;
      model_->incomplete = true;
      reportExpected();
      braced_ = acceptQuietly("{");
      depthIs(0);
    } catch (SyntaxError const&) {
      model_->incomplete = true;
    }
    if (!startsLine()) skipDeclaration(0);
  }

  // Between two declarations, or where one is wrongly nested in another.
  void declaration() {
    if (is(";") || is("}")) return superfluous();
    std::size_t const start = position();
    Outer const outer = enter();
    try {
      declarationOf(declarationWord());
    } catch (SyntaxError const&) {
      // An unknown name may be the name of this declaration.
      model_->incomplete = true;
      skipDeclaration(start);
    }
    leave(outer);
  }

  void superfluous() {
    bool const closesNamespace = is("}") && std::exchange(braced_, false);
    if (!closesNamespace) report(here().loc, "unexpected " + inQuotes(std::string(here().text)));
    skip();
    if (!startsLine()) lose();
  }

  std::string_view declarationWord() {
    if (isDeclarationWord()) return here().text;
    if (is("namespace")) fail(here().loc, "a model has only one namespace");
    std::string_view const meant = misspeltDeclaration();
    if (!meant.empty()) return meant;
    alsoExpected("a declaration");
    failExpected();
  }

  void declarationOf(std::string_view word) {
    if (word == "import") return import();
    take();
    if (word == "extern") return external();
    if (word == "enum") return enumeration();
    if (word == "value" || word == "rep") return value(word == "rep");
    entity(word == "abstract");
  }

  void import() {
    Model const& m = *model_;
    if (!m.enums.empty() || !m.values.empty() || !m.entities.empty() || !m.externs.empty()) {
      report(here().loc, "imports must come before the declarations");
    }
    take();
    alsoExpected("the path of a model in double quotes");
    if (here().kind != Token::Kind::string) failExpected();
    Token const& path = take();
    model_->imports.push_back({path.string, path.loc, nullptr});
    expectEnd();
  }

  void external() {
    expectKeyword("entity");
    QName const name = qualifiedName("the name of an entity");
    ExternDecl& decl = *model_->externs.emplace_back(std::make_unique<ExternDecl>());
    decl.written = name;
    alsoExpected("the header of the entity in double quotes");
    if (here().kind == Token::Kind::string) {
      decl.header = take().string;
    } else {
      reportExpected();
    }
    expectEnd();
  }

  // Parses the name of a declaration. A second keyword before it is superfluous.
  Ident declaredName(char const* what) {
    if (ahead().kind == Token::Kind::identifier && isDeclarationWord()) {
      alsoExpected(what);
      reportExpected();
      skip();
    }
    return identifier(what);
  }

  // From here on the name is known, even if the rest is wrong.
  template <class D>
  D& declare(std::vector<std::unique_ptr<D>>& all, Ident name) {
    if (is("::")) fail(here().loc, "the name of a declaration cannot be qualified");
    D& decl = *all.emplace_back(std::make_unique<D>());
    decl.name = std::move(name);
    decl.incomplete = true;
    return decl;
  }

  // Parses the members between the braces. A mistake in one does not affect the next. True if there was no mistake.
  template <class Member>
  bool body(Member const& member) {
    bool const opened = is("{");
    bool whole = opened;
    if (!openBody()) return false;
    Loc const open = last().loc;
    unsigned const inside = depth();
    while (is("{")) superfluous();
    depthIs(inside);
    while (!atEnd() && !is("}")) {
      bool const next = startsDeclaration();
      if (next && (isNested() || isAtMargin())) break;
      if (next) {
        report(here().loc, "a declaration cannot be nested in another");
        declaration();
      } else {
        whole = parseMember(member) && whole;
      }
    }
    depthIs(inside);
    if (accept("}")) return whole;
    if (opened) reportExpected({{open, "to match this '{'"}});
    return false;
  }

  template <class Member>
  bool parseMember(Member const& member) {
    std::size_t const start = position();
    unsigned const inside = depth();
    try {
      member();
      return true;
    } catch (SyntaxError const&) {
      skipMember(start, inside);
      return false;
    }
  }

  void enumeration() {
    EnumDecl& decl = declare(model_->enums, declaredName("the name of an enumeration"));
    bool const whole = is("{");
    if (!openBody()) return;
    bool const all = items("}", ListOf::enumerators, decl.enumerators, &Parser::enumerator);
    decl.incomplete = !whole || !all;
  }

  Enumerator enumerator() {
    Enumerator e;
    e.name = identifier("the name of an enumerator");
    e.init = initializer();
    return e;
  }

  void value(bool rep) {
    bool whole = !rep || expectKeyword("value");
    ValueDecl& decl = declare(model_->values, declaredName("the name of a value type"));
    decl.rep = rep;
    if (is("[")) {
      whole = list("[", "]", ListOf::words, decl.traits, &Parser::trait) && whole;
    } else {
      alsoExpected("'['");
    }
    decl.incomplete = !body([&] { field(decl); }) || !whole;
  }

  Trait trait() {
    Loc const loc = here().loc;
    return {oneOf(traitWords, "trait"), loc};
  }

  void field(ValueDecl& decl) {
    Field field;
    field.name = memberName("the name of a field");
    field.shape = shape(Use::single);
    field.init = initializer();
    expectEnd();
    decl.fields.push_back(std::move(field));
  }

  void entity(bool abstract) {
    bool const whole = !abstract || expectKeyword("entity");
    EntityDecl& decl = declare(model_->entities, declaredName("the name of an entity"));
    decl.abstract = abstract;
    if (is("(")) {
      constructorParams(decl);
    } else {
      alsoExpected("'('");
    }
    if (accept(":")) base(decl);
    if (!is("{")) decl.paramsUnknown = decl.baseUnknown = true;
    if (decl.paramsUnknown && !decl.baseName) decl.baseUnknown = true;
    decl.incomplete = !body([&] { member(decl); }) || !whole;
  }

  void constructorParams(EntityDecl& decl) {
    std::vector<Param> all;
    decl.paramsUnknown = !list("(", ")", ListOf::params, all, &Parser::param);
    for (Param& param : all) {
      Attribute a;
      a.name = std::move(param.name);
      a.shape = std::move(param.shape);
      a.kind = Attribute::Kind::parameter;
      decl.params.push_back(std::move(a));
    }
  }

  void base(EntityDecl& decl) {
    try {
      decl.baseName = qualifiedName("the name of the base");
    } catch (SyntaxError const&) {
      decl.baseUnknown = true;
    }
  }

  // --- members of entities ---

  // A name followed by a colon is an attribute, even if the name is a keyword elsewhere.
  void member(EntityDecl& decl) {
    if (ahead().is(":")) return attribute(decl, false);
    if (is("impl") && ahead().is(";")) return impl(decl);
    std::string_view const word = memberWord();
    if (word.empty()) return attribute(decl, false);
    take();
    if (word == "own") return attribute(decl, true);
    if (word == "const") return constant(decl);
    operation(decl, word);
  }

  std::string_view memberWord() {
    for (std::string_view word : {"own", "const", "virtual", "override", "hidden", "op"}) {
      if (is(word)) return word;
    }
    if (!isIdentifier()) {
      alsoExpected("an attribute, an operation or '}'");
      failExpected();
    }
    return misspeltMember();
  }

  void impl(EntityDecl& decl) {
    if (decl.hasImpl) report(here().loc, "duplicate 'impl'");
    decl.hasImpl = true;
    take();
    expectEnd();
  }

  void attribute(EntityDecl& decl, bool own) {
    Attribute a;
    a.own = own;
    a.name = memberName("the name of an attribute");
    a.shape = shape(own ? Use::owned : Use::attribute);
    a.init = initializer();
    if (is("{")) {
      list("{", "}", ListOf::words, a.modifiers, &Parser::modifier);
    } else {
      alsoExpected("'{'");
    }
    expectEnd();
    decl.attributes.push_back(std::move(a));
  }

  Modifier modifier() {
    Modifier m;
    m.loc = here().loc;
    m.kind = oneOf(modifierWords, "modifier");
    if (m.kind == Modifier::Kind::onChange) m.operation = identifier("the name of an operation");
    return m;
  }

  void constant(EntityDecl& decl) {
    Attribute a;
    a.kind = Attribute::Kind::constant;
    a.name = memberName("the name of a constant");
    a.shape = shape(Use::single);
    expect("=");
    a.init = literal();
    expectEnd();
    decl.attributes.push_back(std::move(a));
  }

  void operation(EntityDecl& decl, std::string_view word) {
    Operation op;
    if (word == "virtual") op.binding = Operation::Binding::virtualOp;
    if (word == "override") op.binding = Operation::Binding::overrideOp;
    op.hidden = word == "hidden" || (word != "op" && acceptQuietly("hidden"));
    if (word != "op") expectKeyword("op");
    op.name = identifier("the name of an operation");
    op.paramsUnknown = !list("(", ")", ListOf::params, op.params, &Parser::param);
    op.isConst = accept("const");
    if (accept("->")) op.result = type();
    expectEnd();
    decl.operations.push_back(std::move(op));
  }

  std::unique_ptr<Model> model_;
  bool braced_ = false;  // the namespace was opened with a brace, as in C++
};

}  // namespace

std::unique_ptr<Model> parse(std::vector<Token> const& tokens, Diagnostics& diagnostics) {
  return Parser(tokens, diagnostics).run();
}

}  // namespace kelc
