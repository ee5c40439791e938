#include "examples/config_db/Values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <initializer_list>

#include "Kel/Exception.h"

namespace ConfigDb {

using Text = std::optional<std::string>;

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// --- Numbers ---

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

Text integerText(std::string_view text) {
  bool const negative = !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  auto const number = unsignedNumber(text);
  if (!number) return std::nullopt;
  return (negative && *number ? "-" : "") + std::to_string(*number);
}

Text floatText(std::string_view text) {
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

Text numberOr(std::string_view text, std::string_view word, std::uint64_t max) {
  if (lowered(text) == word) return std::string(word);
  auto const number = unsignedNumber(text);
  return number && *number <= max ? Text(std::to_string(*number)) : std::nullopt;
}

Text numberOrAuto(std::string_view text) { return numberOr(text, "auto", UINT16_MAX); }
Text numberOrAll(std::string_view text) { return numberOr(text, "all", UINT32_MAX); }

// "3", "3-4"; a range of one is that one.
Text range(std::string_view text) {
  std::size_t const dash = text.find('-');
  auto const first = unsignedNumber(trimmed(text.substr(0, dash)));
  auto const last = dash == std::string_view::npos ? first : unsignedNumber(trimmed(text.substr(dash + 1)));
  if (!first || !last || *first > *last || *last > UINT16_MAX) return std::nullopt;
  return *first == *last ? std::to_string(*first) : std::to_string(*first) + "-" + std::to_string(*last);
}

// "0x12/0x3f", "0x12"
Text hexMask(std::string_view text) {
  std::size_t const slash = text.find('/');
  auto const number = unsignedNumber(trimmed(text.substr(0, slash)));
  if (!number) return std::nullopt;
  auto const hex = [](std::uint64_t n) {
    char digits[16];
    return "0x" + std::string(digits, std::to_chars(digits, digits + sizeof digits, n, 16).ptr);
  };
  if (slash == std::string_view::npos) return hex(*number);
  auto const mask = unsignedNumber(trimmed(text.substr(slash + 1)));
  return mask ? Text(hex(*number) + "/" + hex(*mask)) : std::nullopt;
}

// "300m"
Text metres(std::string_view text) {
  if (!text.empty() && lower(text.back()) == 'm') text.remove_suffix(1);
  return integerText(trimmed(text));
}

// --- Addresses ---

struct Address {
  std::string text;
  unsigned bits;  // its whole length
};

std::optional<Address> address(std::string_view text) {
  std::string const copy(text);
  unsigned char bytes[sizeof(in6_addr)];
  char canonical[INET6_ADDRSTRLEN];
  for (int const family : {AF_INET, AF_INET6}) {
    if (copy.find('\0') != std::string::npos || inet_pton(family, copy.c_str(), bytes) != 1) continue;
    if (!inet_ntop(family, bytes, canonical, sizeof canonical)) continue;
    return Address{canonical, family == AF_INET ? 32U : 128U};
  }
  return std::nullopt;
}

Text ip(std::string_view text) {
  auto const found = address(text);
  return found ? Text(found->text) : std::nullopt;
}

// The bits behind the prefix are the host's, and stay. An address alone is a prefix of its whole length.
Text prefix(std::string_view text) {
  std::size_t const slash = text.find('/');
  auto const found = address(trimmed(text.substr(0, slash)));
  if (!found) return std::nullopt;
  std::uint64_t length = found->bits;
  if (slash != std::string_view::npos) {
    auto const given = unsignedNumber(trimmed(text.substr(slash + 1)));
    if (!given || *given > found->bits) return std::nullopt;
    length = *given;
  }
  return found->text + "/" + std::to_string(length);
}

Text ipOrPrefix(std::string_view text) { return text.find('/') == std::string_view::npos ? ip(text) : prefix(text); }

Text ipOrName(std::string_view text) {
  auto const found = address(text);
  return found ? found->text : std::string(text);
}

// Six bytes of two digits, between them colons or dashes.
Text mac(std::string_view text) {
  if (text.size() != 17) return std::nullopt;
  std::string canonical = lowered(text);
  for (std::size_t i = 0; i < canonical.size(); ++i) {
    bool const separator = i % 3 == 2;
    if (separator && canonical[i] == '-') canonical[i] = ':';
    std::string_view const allowed = separator ? ":" : "0123456789abcdef";
    if (allowed.find(canonical[i]) == std::string_view::npos) return std::nullopt;
  }
  return canonical;
}

// --- By type ---

struct Spelling {
  std::string_view type;
  Text (*canonical)(std::string_view);
};
constexpr Spelling spellings[] = {
    {"Ip", ip},         {"Prefix", prefix},   {"IpOrPrefix", ipOrPrefix},     {"IpOrName", ipOrName},
    {"Mac", mac},       {"Range", range},     {"NumberOrAuto", numberOrAuto}, {"NumberOrAll", numberOrAll},
    {"Metres", metres}, {"HexMask", hexMask},
};

bool isUnset(Kel::KelType::Enumerator const& enumerator) { return enumerator.name == "unset"; }

// An enumerator's text is the file's word in lower case, '-' as '_'.
Text enumText(Kel::KelType const& type, std::string_view text) {
  std::string word = lowered(text);
  std::replace(word.begin(), word.end(), '-', '_');
  if (type.name() == "AdminStatus" && word == "true") word = "up";
  if (type.name() == "AdminStatus" && word == "false") word = "down";
  for (auto const& enumerator : type.enumerators())
    if (!isUnset(enumerator) && enumerator.name.view() == word) return word;
  return std::nullopt;
}

Text builtinText(Kel::KelType const& type, std::string_view text) {
  using B = Kel::KelType::Builtin;
  switch (type.builtin()) {
    case B::string: return std::string(text);
    case B::boolT: return boolText(trimmed(text));
    case B::f32:
    case B::f64: return floatText(trimmed(text));
    default: return integerText(trimmed(text));
  }
}

}  // namespace

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

bool isAbsent(std::string_view text) { return isOneOf(trimmed(text), {"", "None", "NULL", "null"}); }

Text canonicalText(Kel::KelType const& type, std::string_view text) {
  if (type.isBuiltin()) return builtinText(type, text);
  if (type.isEnum()) return enumText(type, trimmed(text));
  for (Spelling const& spelling : spellings)
    if (type.name() == spelling.type) return spelling.canonical(trimmed(text));
  return std::nullopt;
}

Kel::GenericIf::Ptr valueFromText(Kel::KelType const& type, std::string_view text) {
  Text const canonical = canonicalText(type, text);
  if (!canonical) return nullptr;
  Kel::Expect const outOfRange(Kel::Exception::rangeId);
  try {
    return type.genericFromText(*canonical);
  } catch (Kel::RangeException const&) {
    return nullptr;
  }
}

std::string refusal(Kel::KelType const& type) {
  if (!type.isEnum()) return "is no " + type.name().str();
  std::string names;
  for (auto const& enumerator : type.enumerators())
    if (!isUnset(enumerator)) names += (names.empty() ? "is none of " : ", ") + enumerator.name.str();
  return names;
}

}  // namespace ConfigDb
