#include "compiler/Names.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

namespace kelc {

namespace {

// Tables are sorted, so that a look-up is a binary search.
template <std::size_t count>
constexpr bool isSorted(std::string_view const (&table)[count]) {
  return std::is_sorted(std::begin(table), std::end(table));
}
template <std::size_t count>
bool contains(std::string_view const (&sorted)[count], std::string_view name) {
  return std::binary_search(std::begin(sorted), std::end(sorted), name);
}

constexpr std::string_view cppKeywords[] = {
    "alignas",     "alignof",  "and",        "and_eq",    "asm",       "auto",         "bitand",
    "bitor",       "bool",     "break",      "case",      "catch",     "char",         "char16_t",
    "char32_t",    "char8_t",  "class",      "co_await",  "co_return", "co_yield",     "compl",
    "concept",     "const",    "const_cast", "consteval", "constexpr", "constinit",    "continue",
    "decltype",    "default",  "delete",     "do",        "double",    "dynamic_cast", "else",
    "enum",        "explicit", "export",     "extern",    "false",     "float",        "for",
    "friend",      "goto",     "if",         "inline",    "int",       "long",         "mutable",
    "namespace",   "new",      "noexcept",   "not",       "not_eq",    "nullptr",      "operator",
    "or",          "or_eq",    "private",    "protected", "public",    "register",     "reinterpret_cast",
    "requires",    "return",   "short",      "signed",    "sizeof",    "static",       "static_assert",
    "static_cast", "struct",   "switch",     "template",  "this",      "thread_local", "throw",
    "true",        "try",      "typedef",    "typeid",    "typename",  "union",        "unsigned",
    "using",       "virtual",  "void",       "volatile",  "wchar_t",   "while",        "xor",
    "xor_eq",
};

// Macros that compilers and the headers of generated code define.
constexpr std::string_view macros[] = {
    "EOF", "INFINITY", "NAN", "NULL", "assert", "errno", "linux", "stderr", "stdin", "stdout", "unix",
};

constexpr std::string_view modelWords[] = {
    "abstract", "const",    "entity", "enum", "extern", "false", "import", "infinity", "namespace",
    "op",       "override", "own",    "ref",  "rep",    "true",  "value",  "virtual",
};

struct BuiltinWord {
  std::string_view name;
  Builtin type;
};

// Of several names for one type, diagnostics use the first.
constexpr BuiltinWord builtins[] = {
    {"bool", Builtin::boolean},    {"char", Builtin::character}, {"U8", Builtin::u8},
    {"U16", Builtin::u16},         {"U32", Builtin::u32},        {"U64", Builtin::u64},
    {"S8", Builtin::s8},           {"S16", Builtin::s16},        {"S32", Builtin::s32},
    {"S64", Builtin::s64},         {"F32", Builtin::f32},        {"F64", Builtin::f64},
    {"Seconds", Builtin::seconds}, {"String", Builtin::string},  {"String8", Builtin::string},
    {"Name", Builtin::string},
};

constexpr std::string_view entityMembers[] = {
    "Attribute",         "Base",  "Impl",  "Notifiee",    "NotifieeConst", "Ptr",       "PtrConst", "_fwkType",
    "_plainDifferences", "adopt", "bits_", "destroySelf", "endAttr",       "leaveTree", "notify",   "type",
};

// Other names that an entity inherits from the framework: attributes may hide these.
constexpr std::string_view frameworkMembers[] = {
    "Entity",
    "EntityNotifiee",
    "PtrInterface",
    "VFPtrInterface",
    "attributeString",
    "departures",
    "dropEmptyExtras",
    "entity",
    "extras",
    "fullName",
    "hasReactors",
    "isNondestructing",
    "isNondestructingIs",
    "lookup",
    "mark",
    "name",
    "note",
    "noteArrival",
    "noteLeaving",
    "notifyReactors",
    "parent",
    "parentAttr",
    "parentAttrId",
    "parentAttrIdIs",
    "parentIs",
    "refDec",
    "refInc",
    "refs",
    "root",
    "typeName",
    "uriPath",
};

constexpr std::string_view valueMembers[] = {"_fwkType", "compare", "hash"};

constexpr std::string_view reactorMembers[] = {"bind", "bound", "dispatch", "notifier", "notifierIs"};

constexpr std::string_view namespaceMembers[] = {
    "Kel", "_fwkType", "sequenceToValue", "std", "stringValue", "valueToStrep",
};

static_assert(isSorted(cppKeywords) && isSorted(macros) && isSorted(modelWords));
static_assert(isSorted(entityMembers) && isSorted(valueMembers) && isSorted(reactorMembers) &&
              isSorted(namespaceMembers));

}  // namespace

std::string upperFirst(std::string text) {
  if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
  return text;
}

std::string lowerFirst(std::string text) {
  if (!text.empty() && text[0] >= 'A' && text[0] <= 'Z') text[0] = static_cast<char>(text[0] - 'A' + 'a');
  return text;
}

std::string whyNoName(std::string_view name) {
  if (contains(cppKeywords, name)) return "is a keyword of C++";
  if (contains(macros, name)) return "is a macro of the C++ library";
  bool const reserved = name.size() > 1 && name[0] == '_' && name[1] >= 'A' && name[1] <= 'Z';
  if (reserved || name.find("__") != std::string_view::npos) return "is reserved in C++";
  return {};
}

bool isModelWord(std::string_view name) { return contains(modelWords, name) || builtinOf(name) != Builtin::none; }

Builtin builtinOf(std::string_view name) {
  for (auto const& word : builtins) {
    if (word.name == name) return word.type;
  }
  return Builtin::none;
}

std::string_view builtinName(Builtin type) {
  for (auto const& word : builtins) {
    if (word.type == type) return word.name;
  }
  return {};
}

std::vector<std::string_view> builtinNames() {
  std::vector<std::string_view> names;
  for (auto const& word : builtins) names.push_back(word.name);
  return names;
}

std::vector<std::string> namesOf(Attribute const& attribute) {
  using Kind = Attribute::Kind;
  std::string const& x = attribute.name.text;
  std::vector<std::string> names = {x, x + "Attr"};
  auto const add = [&](std::initializer_list<char const*> suffixes) {
    for (char const* suffix : suffixes) names.push_back(x + suffix);
  };
  if (attribute.kind == Kind::constant) return names;
  names.push_back(x + "_");
  if (attribute.kind == Kind::parameter) return names;
  add({"Del", "Notify"});
  if (attribute.isCollection()) {
    add({"DelAll", "s", "Iterator", "IteratorConst"});
    names.insert(names.end(), {upperFirst(x) + "Iterator", upperFirst(x) + "IteratorConst"});
  }
  if (attribute.shape.kind == Shape::Kind::queue) {
    add({"Enq", "Deq"});
    return names;
  }
  add({"Is"});
  bool const makesMembers = attribute.isCollection() || attribute.kind == Kind::singleton;
  if (makesMembers) names.push_back("new" + upperFirst(x));
  if (makesMembers && !attribute.own) add({"Has"});
  if (attribute.has(Modifier::Kind::inc)) add({"Inc"});
  if (attribute.has(Modifier::Kind::counter)) add({"CounterInc"});
  return names;
}

std::vector<std::string> namesOf(Operation const& op) {
  if (!hasId(op)) return {op.name.text};
  return {op.name.text, op.name.text + "Attr"};
}

bool hasId(Operation const& op) { return !op.hidden && op.binding != Operation::Binding::overrideOp; }

std::set<std::string> memberNames(EntityDecl const& entity) {
  std::set<std::string> names(std::begin(entityMembers), std::end(entityMembers));
  names.insert(std::begin(frameworkMembers), std::end(frameworkMembers));
  names.insert(std::begin(reactorMembers), std::end(reactorMembers));
  for (EntityDecl const* e = &entity; e; e = e->base) {
    auto const add = [&](auto const& members) {
      for (auto const& member : members) {
        for (std::string const& name : namesOf(member)) names.insert(name);
      }
    };
    add(e->params);
    add(e->attributes);
    add(e->operations);
    for (Attribute const& a : e->attributes) names.insert(reactorName(a));
  }
  return names;
}

std::string reactorName(Attribute const& attribute) {
  using Kind = Attribute::Kind;
  if (attribute.kind == Kind::parameter || attribute.kind == Kind::constant) return {};
  return "on" + upperFirst(attribute.name.text);
}

std::string factoryName(EntityDecl const& entity) { return lowerFirst(entity.name.text) + "Factory"; }

bool isEntityMember(std::string_view name) { return contains(entityMembers, name); }
bool isValueMember(std::string_view name) { return contains(valueMembers, name); }
bool isReactorMember(std::string_view name) { return contains(reactorMembers, name); }
bool isNamespaceMember(std::string_view name) { return contains(namespaceMembers, name); }

}  // namespace kelc
