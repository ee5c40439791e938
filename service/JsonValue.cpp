// Values as JSON, and back.
#include <charconv>
#include <cmath>

#include "service/JsonKeys.h"
#include "service/JsonText.h"
#include "service/JsonTree.h"
#include "service/ValueText.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;
using B = KelType::Builtin;

namespace {

bool isUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    auto const byte = [&](std::size_t n) { return i + n < text.size() ? static_cast<unsigned char>(text[i + n]) : 0U; };
    auto const follows = [&](std::size_t n) { return (byte(n) & 0xc0U) == 0x80U; };
    unsigned const first = byte(0);
    std::size_t length = 1;
    if (first >= 0xf0) {
      unsigned const second = byte(1);
      if (first > 0xf4 || (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f)) return false;
      length = 4;
    } else if (first >= 0xe0) {
      unsigned const second = byte(1);
      if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f)) return false;
      length = 3;
    } else if (first >= 0x80) {
      if (first < 0xc2) return false;
      length = 2;
    }
    for (std::size_t n = 1; n < length; ++n)
      if (!follows(n)) return false;
    i += length;
  }
  return true;
}

Json textJson(std::string_view text) {
  if (isUtf8(text)) return std::string(text);
  std::string hex;
  for (char const c : text) {
    char const* const digits = "0123456789abcdef";
    hex += digits[static_cast<unsigned char>(c) / 16];
    hex += digits[static_cast<unsigned char>(c) % 16];
  }
  Json bytes = Json::object();
  bytes["$bytes"] = hex;
  return bytes;
}

Json numberJson(std::string const& text) {
  if (text.ends_with("inf")) return text + "inity";
  if (text.ends_with("nan")) return text;
  return Json::parse(text);
}

// The shortest text of a number with a fraction may look like an integer: -0, 1e22.
Json floatJson(std::string const& text) {
  if (text.ends_with("inf") || text.ends_with("nan")) return numberJson(text);
  double number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

Json builtinJson(GenericIf const& value) {
  switch (value.type()->builtin()) {
    case B::boolT: return value.attrVal<bool>();
    case B::string: return textJson(value.attrVal<Kel::String8>().view());
    case B::charT: return textJson(std::string(1, value.attrVal<char>()));
    case B::f32:
    case B::f64: return floatJson(value.text().str());
    case B::charPtr:
    case B::constCharPtr: return nullptr;
    default: return numberJson(value.text().str());
  }
}

Json enumJson(GenericIf const& value) {
  for (auto const& enumerator : value.type()->enumerators())
    if (enumerator.value == value.enumValue()) return enumerator.name.str();
  return value.enumValue();
}

Json valueJson(GenericIf const& value) {
  KelType const& type = *value.type();
  if (type.isBuiltin()) return builtinJson(value);
  if (type.isEnum()) return enumJson(value);
  if (type.valAttr()) return valueJson(*value.attribute(type.valAttr()->id()));
  Json fields = Json::object();
  for (KelAttr const* field : type.attributeQ())
    if (field->isValue()) fields[field->name().str()] = valueJson(*value.attribute(field->id()));
  return fields;
}

// --- From JSON ---

[[noreturn]] void refuse(KelType const& type, Json const& json) {
  throw InputError(shortText(json, 60) + " is not " + expectation(type));
}

std::optional<std::string> textFromJson(Json const& json) {
  if (json.is_string()) return json.get<std::string>();
  if (!json.is_object() || json.size() != 1 || !json.contains("$bytes") || !json["$bytes"].is_string())
    return std::nullopt;
  std::string const hex = json["$bytes"];
  std::string text;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    unsigned byte = 0;
    auto const [at, error] = std::from_chars(hex.data() + i, hex.data() + std::min(i + 2, hex.size()), byte, 16);
    if (error != std::errc() || at != hex.data() + i + 2) return std::nullopt;
    text += static_cast<char>(byte);
  }
  return text;
}

GenericIf::Ptr fromText(KelType const& type, std::string const& text) {
  Kel::Expect const wrong(Kel::Exception::rangeId);
  try {
    return type.genericFromText(text);
  } catch (Kel::RangeException const&) {
    return nullptr;
  }
}

GenericIf::Ptr floatFromJson(KelType const& type, double number) {
  if (type.builtin() == B::f64) return GenericIf::of(number);
  auto const narrow = static_cast<Kel::F32>(number);
  return std::isfinite(narrow) == std::isfinite(number) ? GenericIf::of(narrow) : nullptr;
}

// Null if it is not a value of the type.
GenericIf::Ptr builtinFromJson(KelType const& type, Json const& json, ValueRule rule) {
  B const builtin = type.builtin();
  bool const isFloat = builtin == B::f32 || builtin == B::f64;
  if (builtin == B::string) {
    auto const text = textFromJson(json);
    return text ? GenericIf::of(Kel::String8(*text)) : nullptr;
  }
  if (builtin == B::charT) {
    auto const text = textFromJson(json);
    return text && text->size() == 1 ? GenericIf::of(text->front()) : nullptr;
  }
  if (json.is_boolean()) return builtin == B::boolT ? GenericIf::of(json.get<bool>()) : nullptr;
  if (json.is_number() && isFloat) return floatFromJson(type, json.get<double>());
  if (json.is_number_integer() && builtin != B::boolT) return fromText(type, json.dump());
  if (!json.is_string()) return nullptr;
  std::string const text = json.get<std::string>();
  bool const special = text.ends_with("infinity") || text.ends_with("nan");
  return rule == ValueRule::checked || (isFloat && special) ? valueOf(type, text) : nullptr;
}

GenericIf::Ptr enumFromJson(KelType const& type, Json const& json, ValueRule rule) {
  if (json.is_number_integer()) {
    auto const number = json.get<std::int64_t>();
    return number == static_cast<Kel::S32>(number) ? GenericIf::ofEnum(&type, static_cast<Kel::S32>(number)) : nullptr;
  }
  if (!json.is_string()) return nullptr;
  std::string const text = json.get<std::string>();
  if (GenericIf::Ptr exact = fromText(type, text)) return exact;
  return rule == ValueRule::checked ? valueOf(type, text) : nullptr;
}

GenericIf::Ptr fromStrep(KelType const& type, Kel::String8 const& strep) {
  char const* at = strep.charPtr();
  return type.valueOps().parse(at, at + strep.chars());
}

// A representation value. The type's default means "not given", and is always accepted.
GenericIf::Ptr representationFromJson(KelType const& type, Json const& json, ValueRule rule) {
  KelType const& inner = *type.valAttr()->type();
  if (rule == ValueRule::checked && json.is_string() && inner.builtin() != B::string && !inner.valAttr())
    return valueOf(type, json.get<std::string>());
  GenericIf::Ptr made = fromStrep(type, valueFromJson(inner, json, rule)->strep());
  if (rule == ValueRule::asWritten || made->strep() == type.valueOps().initial()->strep()) return made;
  return valueOf(type, textOf(*made));
}

GenericIf::Ptr fieldsFromJson(KelType const& type, Json const& json, ValueRule rule) {
  if (!json.is_object()) return nullptr;
  for (auto const& member : json.items()) {
    KelAttr const* const field = type.findAttr(member.key());
    if (!field || !field->isValue()) throw InputError(type.name().str() + " has no field '" + member.key() + "'");
  }
  GenericIf::Ptr const initial = type.valueOps().initial();
  std::string text = "Value('" + type.fullTypeName().str() + "', ** {";
  char const* separator = "";
  for (KelAttr const* field : type.attributeQ()) {
    if (!field->isValue()) continue;
    std::string const name = field->name().str();
    auto const given = json.find(name);
    GenericIf::Ptr const value =
        given == json.end() ? initial->attribute(field->id()) : valueFromJson(*field->type(), *given, rule);
    text += separator + ("'" + name + "': ") + value->strep().str();
    separator = ", ";
  }
  return fromStrep(type, Kel::String8(text + "})"));
}

}  // namespace

GenericIf::PtrConst keyFromName(KelType const& type, std::string const& name) {
  if (type.isBuiltin() && type.builtin() == B::string) return GenericIf::of(Kel::String8(name));
  if (type.valAttr()) return fromStrep(type, keyFromName(*type.valAttr()->type(), name)->strep());
  if (GenericIf::Ptr exact = fromText(type, name)) return exact;
  return valueFromJson(type, Json(name));
}

GenericIf::Ptr writtenValue(KelType const& type, std::string const& text) {
  if (type.isBuiltin() && type.builtin() == B::string) return GenericIf::of(Kel::String8(text));
  if (type.valAttr()) return fromStrep(type, writtenValue(*type.valAttr()->type(), text)->strep());
  if (type.kind() == KelType::Kind::value && text.starts_with('{'))
    return valueFromJson(type, Json::parse(text, nullptr, false), ValueRule::asWritten);
  GenericIf::Ptr const exact = fromText(type, text);
  return exact ? exact : valueFromText(type, text);
}

Json exportValue(GenericIf const* value, Kel::Entity const& base) {
  if (!value) return nullptr;
  if (!value->isEntity()) return value->type() && value->type()->isValue() ? valueJson(*value) : Json(nullptr);
  std::string const text = targetText(*value->entityConst(), base);
  return text.empty() ? Json(nullptr) : textJson(text);
}

GenericIf::Ptr valueFromJson(KelType const& type, Json const& json, ValueRule rule) {
  GenericIf::Ptr value;
  Kel::Expect const wrong(Kel::Exception::rangeId);
  try {
    if (type.isBuiltin())
      value = builtinFromJson(type, json, rule);
    else if (type.isEnum())
      value = enumFromJson(type, json, rule);
    else if (type.kind() == KelType::Kind::value)
      value = type.valAttr() ? representationFromJson(type, json, rule) : fieldsFromJson(type, json, rule);
  } catch (Kel::RangeException const&) {
    value = nullptr;
  }
  if (!value) refuse(type, json);
  return value;
}

}  // namespace Cli::Service
