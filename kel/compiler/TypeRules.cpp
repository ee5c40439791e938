#include "compiler/TypeRules.h"

#include <cfloat>
#include <cmath>

#include "compiler/Names.h"
#include "compiler/Suggest.h"

namespace kelc {

namespace {

struct IntegerRange {
  std::uint64_t below;  // the magnitude of the smallest value
  std::uint64_t above;
};

IntegerRange rangeOf(Builtin type) {
  switch (type) {
    case Builtin::u8: return {0, 0xff};
    case Builtin::u16: return {0, 0xffff};
    case Builtin::u32: return {0, 0xffffffff};
    case Builtin::u64: return {0, ~std::uint64_t{0}};
    case Builtin::s8: return {0x80, 0x7f};
    case Builtin::s16: return {0x8000, 0x7fff};
    case Builtin::s32: return {0x80000000, 0x7fffffff};
    case Builtin::s64: return {std::uint64_t{1} << 63, ~std::uint64_t{0} >> 1};
    default: return {0, 0};
  }
}

std::string spelled(Literal const& number) { return (number.negative ? "-" : "") + number.written; }

// `Seconds` is also a double.
Builtin canonical(Builtin type) { return type == Builtin::seconds ? Builtin::f64 : type; }

std::vector<Note> declaredHere(Decl const& decl) {
  if (!decl.model) return {};
  return {{decl.name.loc, inQuotes(decl.name.text) + " is declared here"}};
}

}  // namespace

std::string spelled(TypeRef const& type) {
  std::string const prefix = type.isRef ? (type.isConst ? "ref const " : "ref ") : "";
  return prefix + type.name.text;
}

char const* kindOf(TypeRef const& type) {
  if (!type.decl) return "a builtin type";
  switch (type.decl->kind) {
    case Decl::Kind::enumeration: return "an enumeration";
    case Decl::Kind::value: return "a value type";
    case Decl::Kind::counted: return "a counted object";
    default: return "an entity";
  }
}

std::string withRange(Builtin integer) {
  IntegerRange const range = rangeOf(integer);
  std::string const lowest = (range.below > 0 ? "-" : "") + std::to_string(range.below);
  return std::string(builtinName(integer)) + " (" + lowest + ".." + std::to_string(range.above) + ")";
}

bool isInteger(Builtin type) { return rangeOf(type).above > 0; }

bool sameType(TypeRef const& a, TypeRef const& b) {
  return a.isRef == b.isRef && a.isConst == b.isConst && canonical(a.builtin) == canonical(b.builtin) &&
         (a.decl == b.decl || (a.decl && b.decl && a.decl->qualified == b.decl->qualified));
}

ValueDecl const* valueDecl(TypeRef const& type) {
  return type.is(Decl::Kind::value) ? static_cast<ValueDecl const*>(type.decl) : nullptr;
}

EnumDecl const* enumDecl(TypeRef const& type) {
  return type.is(Decl::Kind::enumeration) ? static_cast<EnumDecl const*>(type.decl) : nullptr;
}

EntityDecl const* entityDecl(TypeRef const& type) {
  return type.is(Decl::Kind::entity) ? static_cast<EntityDecl const*>(type.decl) : nullptr;
}

void TypeRules::refuse(TypeRef const& type, std::string const& text) const {
  diagnostics_.error(type.name.loc, text, type.decl ? declaredHere(*type.decl) : std::vector<Note>());
}

void TypeRules::resolve(Model const& model, TypeRef& type) const {
  type.builtin = builtinOf(type.name.text);
  if (type.builtin == Builtin::none) {
    type.decl = scope_.find(model, type.name.text);
    if (!type.decl) refuseUnknown(model, type.name, "type", type.isRef);
  }
  for (TypeRef& arg : type.args) resolve(model, arg);
}

void TypeRules::refuseUnknown(Model const& model, QName const& name, std::string const& what, bool target) const {
  // A declaration that could not be read may have this name, unless it looks like a type of another language.
  bool const small = name.text[0] >= 'a' && name.text[0] <= 'z';
  bool const foreign = small && !(hintOfHabit(name.text) + typeOfHabit(name.text)).empty();
  if (!foreign && !scope_.isComplete(model)) return;
  std::string const text = "unknown " + what + " " + inQuotes(name.text);
  Decl const* const hidden = scope_.findNotImported(model, name.text);
  if (hidden) {
    std::string const note = inQuotes(hidden->name.text) + " is declared here, in a model that is not imported";
    return diagnostics_.error(name.loc, text, {{hidden->name.loc, note}});
  }
  std::vector<std::string_view> const builtins = target ? std::vector<std::string_view>() : builtinNames();
  std::string const near = scope_.nearest(model, name.text, target, builtins), hint = hintOfHabit(name.text);
  std::string const habit = target ? "" : typeOfHabit(name.text);
  bool const exact = !near.empty() && editDistance(near, name.text, 0) == 0;
  if (!exact && !hint.empty()) return diagnostics_.error(name.loc, text + hint);
  diagnostics_.error(name.loc, text + didYouMean(exact || habit.empty() ? near : habit));
}

void TypeRules::resolve(Model const& model, Shape& shape) const {
  resolve(model, shape.target);
  if (shape.kind == Shape::Kind::keyed && !shape.key.isField) resolve(model, shape.key.type);
  if (shape.kind == Shape::Kind::queue) resolve(model, shape.index);
}

void TypeRules::checkName(Ident const& name) const {
  std::string const why = whyNoName(name.text);
  if (!why.empty()) diagnostics_.error(name.loc, inQuotes(name.text) + " " + why);
}

bool TypeRules::checkNoArgs(TypeRef const& type) const {
  if (type.hasArgs) diagnostics_.error(type.name.loc, "only an owned entity takes arguments");
  return !type.hasArgs;
}

bool TypeRules::checkValue(TypeRef const& type, std::string const& what) const {
  if (!type.resolved()) return false;
  if (type.isRef) {
    diagnostics_.error(type.name.loc, what + " cannot be a pointer");
    return false;
  }
  if (type.is(Decl::Kind::counted)) {
    refuse(type, inQuotes(type.name.text) + " can only be used with 'ref'");
    return false;
  }
  if (type.decl && type.decl->isEntity()) {
    refuse(type, what + " cannot be an entity");
    return false;
  }
  return checkNoArgs(type);
}

bool TypeRules::checkPointer(TypeRef const& type) const {
  if (!type.resolved()) return false;
  if (type.decl && (type.decl->isEntity() || type.is(Decl::Kind::counted))) return checkNoArgs(type);
  refuse(type, "'ref' needs an entity, but " + inQuotes(type.name.text) + " is " + kindOf(type));
  return false;
}

bool TypeRules::checkValueOrPointer(TypeRef const& type, std::string const& what) const {
  return type.isRef ? checkPointer(type) : checkValue(type, what);
}

bool TypeRules::checkSingle(Shape const& shape, std::string const& what) const {
  if (shape.kind == Shape::Kind::single) return checkValueOrPointer(shape.target, what);
  diagnostics_.error(shape.target.name.loc,
                     what + " cannot be a " + (shape.kind == Shape::Kind::queue ? "queue" : "collection"));
  return false;
}

bool TypeRules::checkKey(Shape& shape) const {
  Key& key = shape.key;
  if (key.isField) return checkFieldKey(shape);
  if (!key.type.isRef) return checkValue(key.type, "a key") && checkKeyType(key.type, key.ordered, key.type.name.loc);
  if (!checkPointer(key.type)) return false;
  if (key.ordered) {
    diagnostics_.error(key.type.name.loc,
                       "a collection keyed by pointers cannot be 'ordered': it keeps the order of insertion");
  }
  return !key.ordered;
}

bool TypeRules::checkKeyType(TypeRef const& type, bool ordered, Loc loc) const {
  ValueDecl const* const value = valueDecl(type);
  if (!value || value->incomplete) return true;
  char const* missing = nullptr;
  if (value->has(Trait::Kind::noCompare)) {
    missing = "is 'noCompare'";
  } else if (!ordered && !value->isHashed()) {
    missing = "is neither 'hashed' nor 'xorHashed'";
  }
  if (!missing) return true;
  diagnostics_.error(loc, inQuotes(type.name.text) + " cannot be a key here: it " + missing, declaredHere(*value));
  return false;
}

bool TypeRules::checkFieldKey(Shape& shape) const {
  Key& key = shape.key;
  if (!shape.target.resolved()) return false;
  ValueDecl const* const value = shape.target.isRef ? nullptr : valueDecl(shape.target);
  if (!value) {
    diagnostics_.error(key.field.loc, "only a collection of value types can be keyed by a field");
    return false;
  }
  Field const* const field = value->field(key.field.text);
  if (!field && value->incomplete) return false;
  if (!field) {
    Nearest nearest(key.field.text);
    for (Field const& f : value->fields) nearest.consider(f.name.text);
    diagnostics_.error(
        key.field.loc,
        inQuotes(shape.target.name.text) + " has no field " + inQuotes(key.field.text) + didYouMean(nearest.best()),
        declaredHere(*value));
    return false;
  }
  key.type = field->shape.target;
  return key.type.resolved() && checkKeyType(key.type, key.ordered, key.field.loc);
}

void TypeRules::checkLiteral(Literal const& literal, TypeRef const& type) const {
  if (ValueDecl const* const value = valueDecl(type)) {
    return diagnostics_.error(literal.loc,
                              inQuotes(type.name.text) + " is a value type and takes its default from its fields",
                              declaredHere(*value));
  }
  if (EnumDecl const* const decl = enumDecl(type)) return checkEnumerator(literal, *decl);
  if (isInteger(type.builtin)) return checkInteger(literal, type);
  switch (type.builtin) {
    case Builtin::boolean:
      if (literal.kind == Literal::Kind::word && (literal.text == "true" || literal.text == "false")) return;
      return diagnostics_.error(literal.loc, "a bool must be 'true' or 'false'");
    case Builtin::character: return checkCharacter(literal);
    case Builtin::string:
      if (literal.kind != Literal::Kind::string) diagnostics_.error(literal.loc, "expected a string in double quotes");
      return;
    default: return checkFloating(literal, type);
  }
}

void TypeRules::checkInteger(Literal const& literal, TypeRef const& type) const {
  std::string const name(builtinName(type.builtin));
  if (literal.kind != Literal::Kind::integer) return diagnostics_.error(literal.loc, "expected an integer for " + name);
  checkRange(literal, type.builtin);
}

bool TypeRules::checkRange(Literal const& integer, Builtin type) const {
  IntegerRange const range = rangeOf(type);
  if (integer.magnitude <= (integer.negative ? range.below : range.above)) return true;
  diagnostics_.error(integer.loc, spelled(integer) + " is out of range for " + withRange(type));
  return false;
}

void TypeRules::checkFloating(Literal const& literal, TypeRef const& type) const {
  std::string const name(builtinName(type.builtin));
  bool const number = literal.kind == Literal::Kind::floating || literal.kind == Literal::Kind::integer;
  bool const infinite = literal.kind == Literal::Kind::word && literal.text == "infinity";
  if (!number && !infinite) return diagnostics_.error(literal.loc, "expected a number or 'infinity' for " + name);
  bool const fits = type.builtin != Builtin::f32 || literal.kind != Literal::Kind::floating ||
                    std::fabs(literal.floating) <= static_cast<double>(FLT_MAX);
  if (!fits)
    diagnostics_.error(literal.loc, spelled(literal) + " is out of range for F32 (-3.4028234e+38..3.4028234e+38)");
}

void TypeRules::checkCharacter(Literal const& literal) const {
  bool const one = literal.kind == Literal::Kind::string && literal.text.size() == 1;
  bool const code = literal.kind == Literal::Kind::integer && !literal.negative && literal.magnitude < 0x80;
  if (one || code) return;
  bool const number = literal.kind == Literal::Kind::integer;
  diagnostics_.error(literal.loc, number ? spelled(literal) + " is out of range for char (0..127)"
                                         : "a char must be a string of one character or a number (0..127)");
}

void TypeRules::checkEnumerator(Literal const& literal, EnumDecl const& decl) const {
  std::string const name = inQuotes(decl.name.text);
  if (literal.kind != Literal::Kind::word || literal.negative) {
    return diagnostics_.error(literal.loc, "expected an enumerator of " + name, declaredHere(decl));
  }
  // A name that is qualified as in C++ is suggested without the qualification.
  Nearest nearest(literal.text), last(std::string_view(literal.text).substr(literal.text.rfind(':') + 1));
  for (Enumerator const& e : decl.enumerators) {
    if (e.name.text == literal.text) return;
    nearest.consider(e.name.text);
    last.consider(e.name.text);
  }
  if (decl.incomplete) return;
  diagnostics_.error(literal.loc,
                     name + " has no enumerator " + inQuotes(literal.text) +
                         didYouMean(nearest.best().empty() ? last.best() : nearest.best()),
                     declaredHere(decl));
}

}  // namespace kelc
