#include "compiler/Parser.h"

#include <string>
#include <string_view>
#include <utility>

namespace kelc {

namespace {

// A qualified name has at most so many parts; every enclosing namespace is searched for every name.
constexpr unsigned maxNameParts = 32;

// Unwinds to the declaration or member that a syntax error, already reported, belongs to.
struct SyntaxError {};

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

class Parser {
 public:
  Parser(std::vector<Token> const& tokens, Diagnostics& diagnostics)
      : tokens_(tokens), diagnostics_(diagnostics), model_(std::make_unique<Model>()) {}

  std::unique_ptr<Model> run() {
    model_->file = here().loc.file;
    guarded([this] { nameSpace(); });
    while (!atEnd()) guarded([this] { declaration(); });
    return std::move(model_);
  }

 private:
  // --- tokens ---

  Token const& here() const { return tokens_[at_]; }
  Token const& ahead() const { return tokens_[at_ + 1 < tokens_.size() ? at_ + 1 : at_]; }
  bool atEnd() const { return here().kind == Token::Kind::end; }
  bool is(std::string_view word) const { return here().is(word); }
  bool isIdentifier() const { return here().kind == Token::Kind::identifier; }

  Token const& take() {
    Token const& token = here();
    if (is("{")) ++depth_;
    if (is("}") && depth_ > 0) --depth_;
    if (!atEnd()) ++at_;
    return token;
  }
  bool accept(std::string_view word) {
    if (!is(word)) return false;
    take();
    return true;
  }
  // A word that has a meaning only in front of another name: alone it is a name itself.
  bool acceptBefore(std::string_view word) {
    return is(word) && ahead().kind == Token::Kind::identifier && accept(word);
  }
  void expect(std::string_view word) {
    if (!accept(word)) fail("expected '" + std::string(word) + "'");
  }
  [[noreturn]] void fail(std::string const& what) {
    diagnostics_.error(here().loc, what + (atEnd() ? " at the end of the file" : ", not '" + shown(here()) + "'"));
    throw SyntaxError();
  }
  static std::string shown(Token const& token) {
    constexpr std::size_t longest = 40;
    return std::string(token.text.size() > longest ? token.text.substr(0, longest) : token.text);
  }

  // --- recovery ---

  template <class Parse>
  void guarded(Parse const& parse) {
    unsigned const depth = depth_;
    std::size_t const start = at_;
    try {
      parse();
    } catch (SyntaxError const&) {
      if (depth == 0) {
        skipDeclaration(start);
      } else {
        skipMember(depth);
      }
    }
  }

  // To behind the `;` that ends the member, or in front of the `}` that ends the body around it.
  void skipMember(unsigned depth) {
    while (!atEnd() && depth_ >= depth) {
      if (depth_ == depth && is("}")) return;
      bool const last = depth_ == depth && is(";");
      take();
      if (last) return;
    }
  }

  // To behind the `;` or `}` that ends the declaration, or in front of the next one.
  void skipDeclaration(std::size_t start) {
    while (!atEnd()) {
      if (depth_ == 0 && at_ > start && startsDeclaration()) return;
      bool const ends = is("}") || (depth_ == 0 && is(";"));
      take();
      if (ends && depth_ == 0) return;
    }
  }

  bool startsDeclaration() const {
    static constexpr std::string_view words[] = {"import", "extern", "enum", "value", "rep", "entity", "abstract"};
    for (std::string_view word : words) {
      if (is(word)) return true;
    }
    return false;
  }

  // --- names and types ---

  Ident identifier(char const* what) {
    if (!isIdentifier()) fail(std::string("expected ") + what);
    Token const& token = take();
    return {std::string(token.text), token.loc};
  }

  QName qualifiedName(char const* what) {
    Ident const first = identifier(what);
    QName name{first.text, first.loc};
    for (unsigned parts = 1; accept("::"); ++parts) {
      if (parts == maxNameParts) fail("expected at most 32 parts in a name");
      name.text += "::" + identifier("a name behind '::'").text;
    }
    return name;
  }

  TypeRef type() {
    TypeRef type;
    type.isRef = acceptBefore("ref");
    // `const` is a keyword of C++ and so the name of nothing.
    if (type.isRef) type.isConst = accept("const");
    type.name = qualifiedName("a type");
    return type;
  }

  TypeRef target() {
    TypeRef target = type();
    if (!is("(")) return target;
    target.hasArgs = true;
    list("(", ")", [&] { target.args.push_back(type()); });
    return target;
  }

  Shape shape() {
    Shape shape;
    if (acceptBefore("queue")) {
      shape.kind = Shape::Kind::queue;
      shape.target = target();
      shape.index.name = {"U32", shape.target.name.loc};
      if (accept("[")) {
        shape.index = type();
        expect("]");
      }
      return shape;
    }
    shape.target = target();
    if (accept("[")) {
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
    key.type = type();
    return key;
  }

  // Items between brackets, parted by commas; none is fine.
  template <class Item>
  void list(std::string_view open, std::string_view close, Item const& item) {
    expect(open);
    if (accept(close)) return;
    do item();
    while (accept(","));
    if (!accept(close)) fail("expected ',' or '" + std::string(close) + "'");
  }

  std::vector<Param> params() {
    std::vector<Param> all;
    list("(", ")", [&] {
      Param param;
      param.name = identifier("the name of a parameter");
      expect(":");
      param.shape = shape();
      all.push_back(std::move(param));
    });
    return all;
  }

  Literal literal() {
    Literal literal;
    literal.loc = here().loc;
    literal.negative = accept("-");
    Token const& token = here();
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
        if (literal.negative) fail("expected a number");
        literal.kind = Literal::Kind::string;
        literal.text = token.string;
        break;
      case Token::Kind::identifier:
        if (literal.negative && !is("infinity")) fail("expected a number");
        literal.text = std::string(token.text);
        break;
      default: fail("expected a value");
    }
    take();
    return literal;
  }

  std::optional<Literal> initializer() {
    if (!accept("=")) return std::nullopt;
    return literal();
  }

  template <class Kind, std::size_t count>
  Kind oneOf(Word<Kind> const (&words)[count], char const* what) {
    for (auto const& word : words) {
      if (accept(word.text)) return word.kind;
    }
    fail(std::string("expected ") + what);
  }

  // --- declarations ---

  void nameSpace() {
    if (!accept("namespace")) return diagnostics_.error(here().loc, "a model begins with 'namespace'");
    model_->nameSpace = qualifiedName("the name of a namespace");
    expect(";");
  }

  void declaration() {
    if (is("import")) return import();
    if (is("extern")) return external();
    if (is("enum")) return enumeration();
    if (is("value") || is("rep")) return value();
    if (is("entity") || is("abstract")) return entity();
    fail("expected a declaration");
  }

  template <class D>
  bool declared(std::vector<std::unique_ptr<D>> const& of) const {
    return !of.empty();
  }

  void import() {
    Model const& m = *model_;
    if (declared(m.enums) || declared(m.values) || declared(m.entities) || declared(m.externs)) {
      diagnostics_.error(here().loc, "imports stand before the declarations");
    }
    take();
    if (here().kind != Token::Kind::string) fail("expected the path of a model in quotes");
    Token const& path = take();
    expect(";");
    model_->imports.push_back({path.string, path.loc, nullptr});
  }

  void external() {
    take();
    expect("entity");
    auto decl = std::make_unique<ExternDecl>();
    decl->written = qualifiedName("the name of an entity");
    if (here().kind != Token::Kind::string) fail("expected the header of the entity in quotes");
    decl->header = take().string;
    expect(";");
    model_->externs.push_back(std::move(decl));
  }

  void enumeration() {
    take();
    auto decl = std::make_unique<EnumDecl>();
    decl->name = identifier("the name of an enumeration");
    expect("{");
    do {
      if (is("}") && !decl->enumerators.empty()) break;
      Enumerator e;
      e.name = identifier("the name of an enumerator");
      e.init = initializer();
      decl->enumerators.push_back(std::move(e));
    } while (accept(","));
    if (!accept("}")) fail("expected ',' or '}'");
    model_->enums.push_back(std::move(decl));
  }

  // The members between the braces; an error in one does not touch the next. The declaration is kept whatever they are,
  // so that its name is known.
  template <class Member>
  void body(Member const& member) {
    expect("{");
    while (!atEnd() && !is("}")) guarded(member);
    expect("}");
  }

  void value() {
    auto owned = std::make_unique<ValueDecl>();
    ValueDecl& decl = *owned;
    decl.rep = accept("rep");
    expect("value");
    decl.name = identifier("the name of a value type");
    if (is("[")) {
      list("[", "]", [&] {
        Loc const loc = here().loc;
        decl.traits.push_back({oneOf(traitWords, "a trait of a value type"), loc});
      });
    }
    model_->values.push_back(std::move(owned));
    body([&] { field(decl); });
  }

  void field(ValueDecl& decl) {
    Field field;
    field.name = identifier("the name of a field");
    expect(":");
    field.shape = shape();
    field.init = initializer();
    expect(";");
    decl.fields.push_back(std::move(field));
  }

  void entity() {
    auto owned = std::make_unique<EntityDecl>();
    EntityDecl& decl = *owned;
    decl.abstract = accept("abstract");
    expect("entity");
    decl.name = identifier("the name of an entity");
    if (is("(")) constructorParams(decl);
    if (accept(":")) decl.baseName = qualifiedName("the name of the base");
    model_->entities.push_back(std::move(owned));
    body([&] { member(decl); });
  }

  void constructorParams(EntityDecl& decl) {
    for (Param& param : params()) {
      Attribute a;
      a.name = std::move(param.name);
      a.shape = std::move(param.shape);
      a.kind = Attribute::Kind::parameter;
      decl.params.push_back(std::move(a));
    }
  }

  // --- members of entities ---

  // A name followed by a colon is an attribute, whatever the name means elsewhere.
  void member(EntityDecl& decl) {
    if (ahead().is(":")) return attribute(decl);
    if (is("impl") && ahead().is(";")) return impl(decl);
    if (is("own")) return attribute(decl);
    if (is("const")) return constant(decl);
    if (is("virtual") || is("override") || is("hidden") || is("op")) return operation(decl);
    if (isIdentifier()) {
      take();
      fail("expected ':' behind the name of an attribute");
    }
    fail("expected an attribute, an operation or '}'");
  }

  void impl(EntityDecl& decl) {
    if (decl.hasImpl) diagnostics_.error(here().loc, "'impl' is already there");
    decl.hasImpl = true;
    take();
    expect(";");
  }

  void attribute(EntityDecl& decl) {
    Attribute a;
    a.own = acceptBefore("own");
    a.name = identifier("the name of an attribute");
    expect(":");
    a.shape = shape();
    a.init = initializer();
    if (is("{")) {
      list("{", "}", [&] { a.modifiers.push_back(modifier()); });
    }
    expect(";");
    decl.attributes.push_back(std::move(a));
  }

  Modifier modifier() {
    Modifier m;
    m.loc = here().loc;
    m.kind = oneOf(modifierWords, "a modifier");
    if (m.kind == Modifier::Kind::onChange) m.operation = identifier("the name of an operation");
    return m;
  }

  void constant(EntityDecl& decl) {
    take();
    Attribute a;
    a.kind = Attribute::Kind::constant;
    a.name = identifier("the name of a constant");
    expect(":");
    a.shape = shape();
    expect("=");
    a.init = literal();
    expect(";");
    decl.attributes.push_back(std::move(a));
  }

  void operation(EntityDecl& decl) {
    Operation op;
    if (accept("virtual")) {
      op.binding = Operation::Binding::virtualOp;
    } else if (accept("override")) {
      op.binding = Operation::Binding::overrideOp;
    }
    op.hidden = accept("hidden");
    expect("op");
    op.name = identifier("the name of an operation");
    op.params = params();
    op.isConst = accept("const");
    if (accept("->")) op.result = type();
    expect(";");
    decl.operations.push_back(std::move(op));
  }

  std::vector<Token> const& tokens_;
  Diagnostics& diagnostics_;
  std::unique_ptr<Model> model_;
  std::size_t at_ = 0;
  unsigned depth_ = 0;  // of open braces
};

}  // namespace

std::unique_ptr<Model> parse(std::vector<Token> const& tokens, Diagnostics& diagnostics) {
  return Parser(tokens, diagnostics).run();
}

}  // namespace kelc
