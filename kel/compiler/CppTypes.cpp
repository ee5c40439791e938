#include "compiler/CppTypes.h"

#include <charconv>
#include <limits>
#include <utility>

#include "compiler/Names.h"
#include "compiler/TypeRules.h"

namespace kelc {

namespace {

std::string escaped(char c, char quote) {
  static constexpr char digits[] = "0123456789abcdef";
  if (c == '\n') return "\\n";
  if (c == '\t') return "\\t";
  if (c == quote || c == '\\') return std::string("\\") + c;
  if (c >= ' ' && c <= '~') return std::string(1, c);
  return std::string("\\x") + digits[(c >> 4) & 15] + digits[c & 15];
}

template <class F>
std::string shortest(F value) {
  char buffer[64];
  auto const end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
  std::string text(buffer, end);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

// C++ has no literal for the most negative number of a type: its magnitude is out of range.
std::string unsignedInteger(std::uint64_t magnitude) {
  std::string digits = std::to_string(magnitude);
  if (magnitude <= 0x7fffffff) return digits;
  return digits + (magnitude <= 0xffffffff ? "u" : "ull");
}

std::string signedInteger(Literal const& literal) {
  std::uint64_t const magnitude = literal.magnitude;
  std::string const suffix = magnitude > 0x80000000 ? "ll" : "";
  if (!literal.negative) return std::to_string(magnitude) + (magnitude > 0x7fffffff ? "ll" : "");
  bool const lowest = magnitude == 0x80000000 || magnitude == std::uint64_t{1} << 63;
  if (lowest) return "(-" + std::to_string(magnitude - 1) + suffix + " - 1)";
  return "-" + std::to_string(magnitude) + suffix;
}

std::string floating(Builtin type, Literal const& literal) {
  double const value =
      literal.kind == Literal::Kind::integer ? static_cast<double>(literal.magnitude) : literal.floating;
  std::string const digits = type == Builtin::f32 ? shortest(static_cast<float>(value)) + "f" : shortest(value);
  return (literal.negative ? "-" : "") + digits;
}

}  // namespace

std::string cppString(std::string const& text) {
  std::string quoted = "\"";
  for (char c : text) quoted += escaped(c, '"');
  return quoted + "\"";
}

std::string cppInteger(std::int64_t value) {
  Literal literal;
  literal.negative = value < 0;
  literal.magnitude =
      literal.negative ? std::uint64_t{0} - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  return signedInteger(literal);
}

bool isScalar(TypeRef const& type) { return scalarSize(type) != 0; }

unsigned scalarSize(TypeRef const& type) {
  if (type.isRef) return 0;
  switch (type.builtin) {
    case Builtin::none: return enumDecl(type) ? 4 : 0;
    case Builtin::string: return 0;
    case Builtin::boolean:
    case Builtin::character:
    case Builtin::u8:
    case Builtin::s8: return 1;
    case Builtin::u16:
    case Builtin::s16: return 2;
    case Builtin::u32:
    case Builtin::s32:
    case Builtin::f32: return 4;
    case Builtin::u64:
    case Builtin::s64:
    case Builtin::f64:
    case Builtin::seconds: return 8;
  }
  return 0;
}

bool isComparable(TypeRef const& type) {
  ValueDecl const* const value = type.isRef ? nullptr : valueDecl(type);
  return !value || !value->has(Trait::Kind::noCompare);
}

std::string cppParam(std::string const& name) {
  std::size_t const last = name.find_last_not_of('_');
  return name.back() == '_' && last != std::string::npos ? name.substr(0, last + 1) + "Arg" : name;
}

CppTypes::CppTypes(ModelSet const& set, Model const& model) : nameSpace_(model.nameSpace.text) {
  auto const add = [&](std::string name) {
    for (; known_.insert(name).second; name.resize(name.rfind("::"))) {
      if (name.find("::") == std::string::npos) return;
    }
  };
  auto const addAll = [&](auto const& decls) {
    for (auto const& decl : decls) add(decl->qualified);
  };
  for (auto const& other : set.models) {
    addAll(other->enums);
    addAll(other->values);
    addAll(other->entities);
    addAll(other->externs);
  }
  addAll(set.framework);
  for (auto const& other : set.models) {
    for (auto const& decl : other->entities) hideParams(*decl);
  }
}

// A parameter hides a type from the parameters after it. An entity's parameters also appear in the accessors of its
// owners.
void CppTypes::hideParams(EntityDecl const& entity) {
  for (Attribute const& param : entity.params) hidden_.insert(param.name.text);
  for (Operation const& op : entity.operations) {
    for (Param const& param : op.params) hidden_.insert(param.name.text);
  }
}

CppTypes CppTypes::inside(std::set<std::string> const& memberNames) const {
  CppTypes types = *this;
  types.hidden_.insert(memberNames.begin(), memberNames.end());
  return types;
}

// Whether the first part of a full name means something else inside the class or the namespace.
bool CppTypes::needsGlobal(std::string const& qualified) const {
  std::string const first = qualified.substr(0, qualified.find("::"));
  if (hidden_.count(first) > 0) return true;
  for (std::string scope = nameSpace_;;) {
    if (known_.count(scope + "::" + first) > 0) return true;
    std::size_t const last = scope.rfind("::");
    if (last == std::string::npos) return false;
    scope.resize(last);
  }
}

std::string CppTypes::name(Decl const& decl) const {
  bool const own = decl.qualified == nameSpace_ + "::" + decl.name.text;
  if (own && hidden_.count(decl.name.text) == 0) return decl.name.text;
  return (needsGlobal(decl.qualified) ? "::" : "") + decl.qualified;
}

std::string CppTypes::type(TypeRef const& type) const {
  if (type.isRef) return "Kel::Ptr<" + name(*type.decl) + (type.isConst ? " const>" : ">");
  if (type.decl) return name(*type.decl);
  if (type.builtin == Builtin::boolean || type.builtin == Builtin::character) return type.name.text;
  return "Kel::" + type.name.text;
}

std::string CppTypes::param(TypeRef const& t) const { return isScalar(t) ? type(t) : type(t) + " const&"; }

std::string CppTypes::opParam(TypeRef const& t) const { return t.builtin == Builtin::string ? type(t) : param(t); }

std::string CppTypes::initial(TypeRef const& type, std::optional<Literal> const& given) const {
  bool const text = type.builtin == Builtin::string;
  if (type.isRef || valueDecl(type) || (text && (!given || given->text.empty()))) return {};
  return initialValue(type, given);
}

std::string CppTypes::initialValue(TypeRef const& t, std::optional<Literal> const& given) const {
  if (given) return literal(t, *given);
  if (EnumDecl const* const decl = enumDecl(t)) return name(*decl) + "::" + decl->enumerators.front().name.text;
  switch (t.builtin) {
    case Builtin::none: return t.isRef ? "nullptr" : type(t) + "()";
    case Builtin::string: return type(t) + "()";
    case Builtin::boolean: return "false";
    case Builtin::character: return "'\\0'";
    case Builtin::f32: return "0.0f";
    case Builtin::f64:
    case Builtin::seconds: return "0.0";
    default: return "0";
  }
}

std::string CppTypes::literal(TypeRef const& t, Literal const& literal) const {
  if (EnumDecl const* const decl = enumDecl(t)) return name(*decl) + "::" + literal.text;
  switch (t.builtin) {
    case Builtin::boolean: return literal.text;
    case Builtin::string: return cppString(literal.text);
    case Builtin::character: {
      bool const code = literal.kind == Literal::Kind::integer;
      char const c = code ? static_cast<char>(literal.magnitude) : literal.text.front();
      return "'" + (c == '\0' ? std::string("\\0") : escaped(c, '\'')) + "'";
    }
    case Builtin::f32:
    case Builtin::f64:
    case Builtin::seconds:
      if (literal.kind != Literal::Kind::word) return floating(t.builtin, literal);
      return std::string(literal.negative ? "-" : "") + "std::numeric_limits<" + type(t) + ">::infinity()";
    case Builtin::u8:
    case Builtin::u16:
    case Builtin::u32:
    case Builtin::u64: return unsignedInteger(literal.magnitude);
    default: return signedInteger(literal);
  }
}

}  // namespace kelc
