#include "examples/config_db/Values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <initializer_list>
#include <set>

#include "Kel/Exception.h"
#include "examples/config_db/TableMap.h"

namespace ConfigDb {

using Cli::Service::unsignedNumber;
using Text = std::optional<std::string>;

namespace {

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// --- Numbers ---

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
  if (!text.empty() && (text.back() == 'm' || text.back() == 'M')) text.remove_suffix(1);
  auto const number = unsignedNumber(trimmed(text));
  return number ? Text(std::to_string(*number)) : std::nullopt;
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

// The bits after the prefix belong to the host, and are kept. An address alone is a prefix of full length.
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

struct Known {
  char const* type;
  Text (*canonical)(std::string_view);
  char const* expected;
  char const* word;  // that may stand there; null: none
};
constexpr Known knownTypes[] = {
    {"Ip", ip, "an address like 192.0.2.1 or 2001:db8::1", nullptr},
    {"Prefix", prefix, "a prefix like 192.0.2.0/24 or 2001:db8::/32", nullptr},
    {"IpOrPrefix", ipOrPrefix, "an address or a prefix, like 192.0.2.1 or 2001:db8::/32", nullptr},
    {"IpOrName", ipOrName, "an address or the name of an interface", nullptr},
    {"Mac", mac, "a MAC address like 02:00:5e:00:53:01", nullptr},
    {"Range", range, "a number or a range from 0 to 65535, like 3 or 3-4", nullptr},
    {"NumberOrAuto", numberOrAuto, "a number from 0 to 65535, or auto", "auto"},
    {"NumberOrAll", numberOrAll, "a number from 0 to 4294967295, or all", "all"},
    {"Metres", metres, "a length in metres, like 300m", nullptr},
    {"HexMask", hexMask, "a number, or a number and a mask, like 0x2/0x12", nullptr},
};

bool isUnset(Kel::KelType::Enumerator const& enumerator) { return enumerator.name == "unset"; }

// The status of a port is a boolean in some files.
Text adminStatus(std::string_view text) {
  Kel::KelType const& type = *Kel::KelType::find("ConfigDb::AdminStatus");
  std::string const word = Cli::Service::lowered(text);
  return Cli::Service::enumeratorText(type, word == "true" ? "up" : word == "false" ? "down" : std::string(text));
}

// Enumerations that have `unset`, in everything below a type.
void registerUnset(Kel::KelType const& type, std::set<Kel::KelType const*>& seen) {
  if (!seen.insert(&type).second) return;
  for (Kel::KelAttr const* attr : type.attributeQ()) {
    if (attr->isFunction()) continue;
    Kel::KelType const& inner = *attr->type();
    if (inner.isEntity() && attr->instantiating()) registerUnset(inner, seen);
    if (!inner.isEnum() || inner.enumerators().empty() || !isUnset(inner.enumerators().front())) continue;
    Cli::Service::Spelling spelling;
    spelling.unset = {"unset"};
    if (inner.name() == "AdminStatus") spelling.canonical = adminStatus;
    Cli::Service::registerSpelling(inner.fullTypeName().str(), std::move(spelling));
  }
}

}  // namespace

bool isAbsent(std::string_view text) { return isOneOf(trimmed(text), {"", "None", "NULL", "null"}); }

void registerSpellings() {
  for (Known const& known : knownTypes) {
    Cli::Service::Spelling spelling{known.canonical, known.expected, {}, {}};
    if (known.word) spelling.words = {known.word};
    Cli::Service::registerSpelling(std::string("ConfigDb::") + known.type, std::move(spelling));
  }
  std::set<Kel::KelType const*> seen;
  for (Root const& root : roots()) registerUnset(*Kel::KelType::find(root.type), seen);
}

std::string refusal(Kel::KelType const& type) {
  if (!type.isEnum()) return "is no " + type.name().str();
  std::string names;
  for (auto const& enumerator : type.enumerators())
    if (!isUnset(enumerator)) names += (names.empty() ? "is none of " : ", ") + enumerator.name.str();
  return names;
}

}  // namespace ConfigDb
