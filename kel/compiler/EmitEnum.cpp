#include "compiler/Emit.h"

namespace kelc {

namespace {

std::string tableName(EnumDecl const& decl) { return "namesOf" + decl.name.text; }

// The arguments that describe an enumeration to functions of the framework.
std::string tableArgs(EnumDecl const& decl) {
  return cppString(decl.name.text) + ", " + tableName(decl) + ", std::size(" + tableName(decl) + ")";
}

}  // namespace

void emitEnumNames(EnumDecl const& decl, CppText& source) {
  Lines entries;
  for (Enumerator const& e : decl.enumerators) {
    entries.push_back("{" + cppString(e.text()) + ", " + cppInteger(e.value) + "}");
  }
  source.list({}, "constexpr Kel::EnumName " + tableName(decl) + "[] = {", entries, "};");
}

void emitEnum(EnumDecl const& decl, Texts& out) {
  std::string const& name = decl.name.text;
  Lines enumerators;
  for (Enumerator const& e : decl.enumerators) enumerators.push_back(e.name.text + " = " + cppInteger(e.value));
  heading(out.header, "enum " + name);
  out.header.braced({}, "enum class " + out.exported + name + " : Kel::S32", enumerators);
  out.header.gap();

  std::string const cast = "static_cast<Kel::S32>(value)";
  std::vector<CppMethod> functions;
  auto const function = [&](std::string const& result, std::string const& called) -> CppMethod& {
    return functions.emplace_back(result, called);
  };
  function("Kel::KelType const*", "_fwkType")
      .takes(name, "")
      .does({
          "static Kel::KelType const* const type =",
          "    Kel::EnumTypeBuilder<" + name + ">(" + cppString(decl.qualified) + ", " + tableName(decl) + ").done();",
          "return type;",
      });
  function("Kel::String8", "stringValue")
      .takes(name, "value")
      .does({
          "return Kel::enumeratorName(" + tableArgs(decl) + ", " + cast + ");",
      });
  function("Kel::String8", "valueToStrep")
      .takes(name + " const&", "value")
      .does({
          "return Kel::valueToStrep(stringValue(value));",
      });
  function("void", "sequenceToValue")
      .takes("char const*&", "begin")
      .takes("char const*", "end")
      .takes(name + "*", "value")
      .does({"*value = static_cast<" + name + ">(Kel::parseEnumerator(" + tableArgs(decl) + ", begin, end));"});
  function("std::ostream&", "operator<<")
      .takes("std::ostream&", "out")
      .takes(name, "value")
      .does({
          "return out << stringValue(value);",
      });

  heading(out.source, "enum " + name);
  for (CppMethod const& f : functions) {
    f.declare(out.header, {}, out.exported);
    out.source.gap();
    f.define(out.source, {});
  }
}

}  // namespace kelc
