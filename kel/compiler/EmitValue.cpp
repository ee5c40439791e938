#include "compiler/Emit.h"
#include "compiler/Names.h"

namespace kelc {

namespace {

class ValueEmitter {
 public:
  ValueEmitter(ValueDecl const& decl, CppTypes const& types)
      : decl_(decl), types_(types.inside(hiddenNames(decl))), name_(decl.name.text), class_(name_) {}

  void emit(Texts& out) {
    addConstructors();
    addFields();
    if (comparable()) addComparison();
    if (decl_.isHashed()) addHash();
    heading(out.header, "value " + name_);
    class_.declare(out.header, out.exported);
    heading(out.source, "value " + name_);
    class_.define(out.source);
    out.header.gap();
    for (CppMethod const& f : textFunctions()) {
      f.declare(out.header, {}, out.exported);
      out.source.gap();
      f.define(out.source, {});
    }
  }

 private:
  static std::set<std::string> hiddenNames(ValueDecl const& decl) {
    std::set<std::string> names = {"_fwkType", "compare", "hash"};
    for (Field const& field : decl.fields) names.insert({field.name.text, field.name.text + "Is"});
    return names;
  }

  bool comparable() const { return !decl_.has(Trait::Kind::noCompare); }
  static std::string slot(Field const& field) { return field.name.text + "_"; }
  TypeRef const& typeOf(Field const& field) const { return field.shape.target; }

  // The parameters of the constructor: one for each field.
  std::vector<CppParam> params(bool byValue) const {
    std::vector<CppParam> all;
    for (Field const& f : decl_.fields) {
      all.push_back({byValue ? types_.type(typeOf(f)) : types_.param(typeOf(f)), cppParam(f.name.text)});
    }
    return all;
  }

  void addConstructors() {
    CppGroup& group = class_.group();
    group.add("", name_).suffixed("= default");
    if (!decl_.fields.empty()) {
      Lines initializers;
      for (Field const& f : decl_.fields) {
        std::string const param = cppParam(f.name.text);
        initializers.push_back(slot(f) + "(" + (isScalar(typeOf(f)) ? param : "std::move(" + param + ")") + ")");
      }
      CppMethod& constructor = group.add("", name_).takes(params(true)).initializes(initializers).does({});
      if (decl_.fields.size() == 1 && !decl_.rep) constructor.prefixed("explicit");
      if (decl_.rep) constructor.commented("A value and its representation are as good as each other: not explicit.");
    }
    group.add("", name_)
        .takes("char const*&", "begin")
        .takes("char const*", "end")
        .does(parser())
        .commented("Parses the text form, and advances `begin`.");
    group.add("", name_)
        .prefixed("explicit")
        .takes("Kel::AttrLogIn&", "in")
        .does({"Kel::readAttrLogValue(in, *_fwkType(), this);"})
        .commented("Reads the value from an attribute log.");
    group.add("Kel::KelType const*", "_fwkType").prefixed("static").does(typeRecord());
  }

  Lines parser() const {
    if (decl_.rep)
      return {"using Kel::sequenceToValue;", "sequenceToValue(begin, end, &" + slot(decl_.fields[0]) + ");"};
    Lines body = {"Kel::ValueParser parser(" + cppString(decl_.qualified) + ", " + cppString(name_) + ", begin, end);",
                  "while (parser.nextField()) {"};
    std::string branch = "  ";
    for (Field const& f : decl_.fields) {
      body.push_back(branch + "if (parser.is(" + cppString(f.name.text) + ")) {");
      body.push_back("    parser.read(&" + slot(f) + ");");
      branch = "  } else ";
    }
    if (decl_.fields.empty()) {
      body.push_back("  parser.unknown();");
    } else {
      body.insert(body.end(), {"  } else {", "    parser.unknown();", "  }"});
    }
    body.push_back("}");
    return body;
  }

  Lines typeRecord() const {
    Lines body = {"static Kel::KelType const* const type = [] {",
                  "  Kel::ValueTypeBuilder<" + name_ + "> b(" + cppString(decl_.qualified) + ");"};
    for (Field const& f : decl_.fields) {
      std::string const field = "&" + name_ + "::" + f.name.text;
      std::string const getter = "<" + field + ", " + field + "Is>(" + cppString(f.name.text);
      std::string const convert = decl_.has(Trait::Kind::autoconvert) ? ", true);" : ", false);";
      body.push_back(decl_.rep ? "  b.representationField" + getter + convert : "  b.field" + getter + ");");
    }
    body.insert(body.end(), {"  return b.done();", "}();", "return type;"});
    return body;
  }

  void addFields() {
    CppGroup& group = class_.group();
    for (Field const& f : decl_.fields) {
      std::string const& x = f.name.text;
      std::string const type = types_.param(typeOf(f));
      group.add(type, x).asConst().inlined("return " + slot(f) + ";");
      group.add("void", x + "Is").takes(type, cppParam(x)).inlined(slot(f) + " = " + cppParam(x) + ";");
      std::string const initial = types_.initial(typeOf(f), f.init);
      class_.fields.push_back(
          {types_.type(typeOf(f)) + " " + slot(f) + (initial.empty() ? ";" : " = " + initial + ";")});
    }
    if (decl_.fields.empty()) return;
    if (decl_.has(Trait::Kind::autoconvert)) {
      Field const& f = decl_.fields[0];
      group.add("", "operator " + types_.param(typeOf(f))).asConst().inlined("return " + slot(f) + ";");
    }
    Lines args;
    for (Field const& f : decl_.fields) args.push_back(cppParam(f.name.text));
    group.add("void", name_ + "Is").takes(params(false)).does({"*this = " + name_ + "(" + joined(args) + ");"});
  }

  void addComparison() {
    CppGroup& group = class_.group();
    std::string const type = name_ + " const&";
    std::string const other = decl_.fields.empty() ? "" : "o";
    auto const compare = [&](std::string const& op, std::string const& expression) {
      group.add("bool", "operator" + op).takes(type, "o").asConst().inlined("return " + expression + ";");
    };
    group.add("bool", "operator==").takes(type, other).asConst().does(equality());
    compare("!=", "!(*this == o)");
    group.add("int", "compare").takes(type, other).asConst().does(threeWay()).commented("Three-way, field by field.");
    if (!decl_.has(Trait::Kind::ordered)) return;
    for (std::string const op : {"<", "<=", ">", ">="}) compare(op, "compare(o) " + op + " 0");
  }

  Lines equality() const {
    Lines terms;
    for (Field const& f : decl_.fields) terms.push_back(slot(f) + " == o." + slot(f));
    return terms.empty() ? Lines{"return true;"} : returnAll(terms);
  }

  Lines threeWay() const {
    if (decl_.fields.empty()) return {"return 0;"};
    Lines body;
    for (Field const& f : decl_.fields) {
      std::string const compared = "Kel::fieldCompare(" + slot(f) + ", o." + slot(f) + ")";
      bool const last = &f == &decl_.fields.back();
      body.push_back(last ? "return " + compared + ";" : "if (int const c = " + compared + ") return c;");
    }
    return body;
  }

  void addHash() {
    Lines body;
    bool const plain = decl_.has(Trait::Kind::xorHashed);
    for (Field const& f : decl_.fields) {
      std::string const hashed = "Kel::fieldHash(" + slot(f) + ")";
      if (body.empty()) {
        body.push_back("Kel::U32 h = " + hashed + ";");
      } else {
        body.push_back(plain ? "h ^= " + hashed + ";" : "h = Kel::combineHash(h, " + hashed + ");");
      }
    }
    body.push_back(body.empty() ? "return 0;" : "return h;");
    class_.group().add("Kel::U32", "hash").asConst().does(body);
  }

  std::vector<CppMethod> textFunctions() const {
    std::vector<CppMethod> all;
    std::string const used = decl_.fields.empty() ? "" : "value";
    all.emplace_back("Kel::String8", "valueToStrep").takes(name_ + " const&", used).does(strep());
    all.emplace_back("void", "sequenceToValue")
        .takes("char const*&", "begin")
        .takes("char const*", "end")
        .takes(name_ + "*", "value")
        .does({"*value = " + name_ + "(begin, end);"});
    all.emplace_back("std::ostream&", "operator<<")
        .takes("std::ostream&", "out")
        .takes(name_ + " const&", "value")
        .does({"return out << " + printed() + ";"});
    return all;
  }

  Lines strep() const {
    std::string const start = "Value('" + decl_.qualified + "', ** {";
    if (decl_.fields.empty()) return {"return Kel::String8(" + cppString(start + "})") + ");"};
    Lines body = {"using Kel::valueToStrep;"};
    if (decl_.rep) {
      body.push_back("return valueToStrep(value." + decl_.fields[0].name.text + "());");
      return body;
    }
    for (Field const& f : decl_.fields) {
      std::string const& x = f.name.text;
      bool const first = &f == &decl_.fields.front();
      std::string const label = cppString((first ? start : ", ") + "'" + x + "': ");
      if (!first) body.back() += " +";
      body.push_back((first ? "return Kel::String8(" + label + ")" : "       " + label) + " + valueToStrep(value." + x +
                     "())");
    }
    body.back() += " + \"})\";";
    return body;
  }

  // A representation prints as the framework prints its type: an 8-bit number is printed as a number, not as a
  // character.
  std::string printed() const {
    if (!decl_.rep) return "valueToStrep(value)";
    Field const& f = decl_.fields[0];
    std::string field = "value." + f.name.text + "()";
    switch (typeOf(f).builtin) {
      case Builtin::none:
      case Builtin::string:
      case Builtin::character: return field;
      case Builtin::boolean: return "(" + field + " ? \"true\" : \"false\")";
      default: return "Kel::valueToStrep(" + field + ")";
    }
  }

  ValueDecl const& decl_;
  CppTypes types_;
  std::string const& name_;
  CppClass class_;
};

}  // namespace

void emitValue(ValueDecl const& decl, CppTypes const& types, Texts& out) { ValueEmitter(decl, types).emit(out); }

}  // namespace kelc
