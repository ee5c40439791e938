#include "service/ValueText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "service/JsonTree.h"
#include "service/Listed.h"
#include "service/TypeRegistry.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelType;
using Text = std::optional<std::string>;
using B = KelType::Builtin;

namespace {

// The type's own spelling, or null.
Spelling const* spellingOf(KelType const& type) {
  return type.isBuiltin() ? nullptr : TypeRegistry<Spelling>::the().find(type.fullTypeName());
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

Text integerText(std::string_view text) {
  bool const negative = !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  auto const number = unsignedNumber(text);
  if (!number) return std::nullopt;
  return (negative && *number ? "-" : "") + std::to_string(*number);
}

Text floatText(std::string_view text) {
  std::string const word = lowered(text);
  if (word == "infinity" || word == "-infinity") return word.substr(0, word.size() - 5);
  if (word == "nan" || word == "-nan") return word;
  double number = 0;
  char const* const end = text.data() + text.size();
  auto const [at, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || at != end || !std::isfinite(number)) return std::nullopt;
  return std::string(text);
}

Text boolText(std::string_view text) {
  std::string const word = lowered(text);
  if (isOneOf(word, {"true", "on", "yes", "1"})) return "true";
  if (isOneOf(word, {"false", "off", "no", "0"})) return "false";
  return std::nullopt;
}

Text builtinText(KelType const& type, std::string_view text) {
  switch (type.builtin()) {
    case B::string: return std::string(text);
    case B::charT: return text.size() == 1 ? Text(text) : std::nullopt;
    case B::boolT: return boolText(trimmed(text));
    case B::f32:
    case B::f64: return floatText(trimmed(text));
    case B::none:
    case B::charPtr:
    case B::constCharPtr: return std::nullopt;
    default: return integerText(trimmed(text));
  }
}

bool isUnsetIn(Spelling const* spelling, std::string_view name) {
  return spelling && std::find(spelling->unset.begin(), spelling->unset.end(), name) != spelling->unset.end();
}

Text enumText(KelType const& type, Spelling const* spelling, std::string_view text) {
  auto const known = [&](std::string_view word, bool anyCase) -> KelType::Enumerator const* {
    for (auto const& enumerator : type.enumerators())
      if (!isUnsetIn(spelling, enumerator.name.view()) &&
          (anyCase ? lowered(enumerator.name.view()) == word : enumerator.name.view() == word))
        return &enumerator;
    return nullptr;
  };
  std::string word = lowered(text);
  std::replace(word.begin(), word.end(), '-', '_');
  auto const* found = known(text, false);
  if (!found) found = known(word, true);
  return found ? Text(found->name.str()) : std::nullopt;
}

template <class T>
std::string numberRange() {
  return "a number from " + std::to_string(std::numeric_limits<T>::min()) + " to " +
         std::to_string(std::numeric_limits<T>::max());
}

std::string builtinExpectation(B builtin) {
  switch (builtin) {
    case B::boolT: return "true or false";
    case B::charT: return "one character";
    case B::s8: return numberRange<Kel::S8>();
    case B::u8: return numberRange<Kel::U8>();
    case B::s16: return numberRange<Kel::S16>();
    case B::u16: return numberRange<Kel::U16>();
    case B::s32: return numberRange<Kel::S32>();
    case B::u32: return numberRange<Kel::U32>();
    case B::longT: return numberRange<long>();
    case B::s64: return numberRange<Kel::S64>();
    case B::u64: return numberRange<Kel::U64>();
    case B::f32:
    case B::f64: return "a number";
    case B::string: return "text";
    default: return "nothing that can be typed";
  }
}

// A value type with several fields, from JSON or from the framework's own form.
GenericIf::Ptr fieldsFromText(KelType const& type, std::string_view text) {
  if (text.starts_with('{')) {
    Json const json = Json::parse(text, nullptr, false);
    if (json.is_discarded()) return nullptr;
    try {
      return valueFromJson(type, json);
    } catch (InputError const&) {
      return nullptr;
    }
  }
  Kel::Expect const wrong(Kel::Exception::rangeId);
  try {
    return type.genericFromText(text);
  } catch (Kel::RangeException const&) {
    return nullptr;
  }
}

bool hasFields(KelType const& type) { return type.kind() == KelType::Kind::value && !type.valAttr(); }

}  // namespace

void registerSpelling(std::string const& fullTypeName, Spelling spelling) {
  TypeRegistry<Spelling>::the().set(fullTypeName, std::move(spelling));
}

std::optional<std::string> canonicalText(KelType const& type, std::string_view text) {
  if (type.isBuiltin()) return builtinText(type, text);
  Spelling const* const spelling = spellingOf(type);
  if (spelling && spelling->canonical) return spelling->canonical(trimmed(text));
  if (type.isEnum()) return enumText(type, spelling, trimmed(text));
  if (type.kind() != KelType::Kind::value) return std::nullopt;
  if (type.valAttr()) return canonicalText(*type.valAttr()->type(), text);
  GenericIf::Ptr const value = fieldsFromText(type, trimmed(text));
  return value ? Text(textOf(*value)) : std::nullopt;
}

GenericIf::Ptr valueOf(KelType const& type, std::string_view text) {
  Text const canonical = canonicalText(type, text);
  if (!canonical) return nullptr;
  if (hasFields(type)) return fieldsFromText(type, *canonical);
  Kel::Expect const outOfRange(Kel::Exception::rangeId);
  try {
    return type.genericFromText(*canonical);
  } catch (Kel::RangeException const&) {
    return nullptr;
  }
}

GenericIf::Ptr valueFromText(KelType const& type, std::string_view text) {
  if (GenericIf::Ptr value = valueOf(type, text)) return value;
  throw InputError("'" + std::string(text) + "' is not " + expectation(type));
}

std::string expectation(KelType const& type) {
  Spelling const* const spelling = spellingOf(type);
  if (spelling && !spelling->expected.empty()) return spelling->expected;
  if (type.isBuiltin()) return builtinExpectation(type.builtin());
  if (type.isEnum()) return "one of " + listed(valueWords(type));
  if (type.valAttr()) return expectation(*type.valAttr()->type());
  std::string fields;
  for (Kel::KelAttr const* field : type.attributeQ())
    if (field->isValue()) fields += (fields.empty() ? "\"" : ", \"") + field->name().str() + "\": …";
  return "JSON like '{" + fields + "}'";
}

std::vector<std::string> valueWords(KelType const& type) {
  Spelling const* const spelling = spellingOf(type);
  std::vector<std::string> words;
  if (type.isBuiltin() && type.builtin() == B::boolT) words = {"true", "false"};
  for (auto const& enumerator : type.enumerators())
    if (!isUnsetIn(spelling, enumerator.name.view())) words.push_back(enumerator.name.str());
  if (spelling) words.insert(words.end(), spelling->words.begin(), spelling->words.end());
  return words;
}

std::string textOf(GenericIf const& value) {
  KelType const* const type = value.type();
  if (!type || !type->isValue()) return value.text().str();
  if (hasFields(*type)) return exportValue(&value, *Kel::dirFactory("")).dump();
  if (type->valAttr()) return textOf(*value.attribute(type->valAttr()->id()));
  std::string const text = value.text().str();
  bool const isFloat = type->builtin() == B::f32 || type->builtin() == B::f64;
  return isFloat && text.ends_with("inf") ? text + "inity" : text;
}

std::optional<std::string> enumeratorText(KelType const& type, std::string_view text) {
  return enumText(type, spellingOf(type), trimmed(text));
}

bool isUnset(KelType const& type, std::string_view enumerator) { return isUnsetIn(spellingOf(type), enumerator); }

std::optional<std::uint64_t> unsignedNumber(std::string_view text) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && lower(text[1]) == 'x') {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint64_t number = 0;
  char const* const end = text.data() + text.size();
  auto const [at, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || at != end) return std::nullopt;
  return number;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  std::size_t const first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string lowered(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), lower);
  return out;
}

std::string shortened(std::string text, std::size_t most) {
  if (text.size() <= most) return text;
  while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xc0U) == 0x80) --most;
  return text.replace(most, std::string::npos, "...");
}

}  // namespace Cli::Service
