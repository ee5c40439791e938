// The values of a type as people and files write them: what is taken, how it is spelt, what to say of anything else.
//
// For every type there are rules of its kind: numbers decimal or hexadecimal (0x) within their range; booleans true,
// on, yes, 1 and their opposites; enumerators without regard to case, '-' for '_'; a representation value as what it
// represents. A model library adds what its types have of their own by registering a `Spelling`, when it is loaded or
// before the first look-up. Registering and look-ups may be done on any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/GenericIf.h"
#include "Kel/KelType.h"
#include "service/Export.h"
#include "service/InputError.h"

namespace Cli::Service {

struct Spelling {
  // The text in the one spelling that the type's values have; nothing when it is none of them. Blanks around it are
  // gone. An empty function: the rules of the type's kind.
  std::function<std::optional<std::string>(std::string_view text)> canonical;
  // What to say is expected: "an address like 192.0.2.1 or 2001:db8::1". Empty: as for the type's kind.
  std::string expected;
  // Of an enumeration: enumerators that stand for "not set", and are not typed.
  std::vector<std::string> unset;
  // Words to offer besides enumerators: "auto", "all".
  std::vector<std::string> words;
};

CLI_SERVICE_API void registerSpelling(std::string const& fullTypeName, Spelling spelling);

// The canonical text, or nothing when the text is no value of the type.
CLI_SERVICE_API std::optional<std::string> canonicalText(Kel::KelType const& type, std::string_view text);
// The value; null when the text is no value of the type.
CLI_SERVICE_API Kel::GenericIf::Ptr valueOf(Kel::KelType const& type, std::string_view text);
// The same; raises InputError "'70000' is not a number from 0 to 65535".
CLI_SERVICE_API Kel::GenericIf::Ptr valueFromText(Kel::KelType const& type, std::string_view text);
// What would be taken: "a number from 0 to 65535", "one of up, down".
CLI_SERVICE_API std::string expectation(Kel::KelType const& type);
// The words that can be typed, where they can be listed: enumerators, true and false, registered words.
CLI_SERVICE_API std::vector<std::string> valueWords(Kel::KelType const& type);
// How a value is written: valueFromText reads it back, if the value is one that it takes. Value types with several
// fields are JSON.
CLI_SERVICE_API std::string textOf(Kel::GenericIf const& value);
// An enumerator that stands for "not set".
CLI_SERVICE_API bool isUnset(Kel::KelType const& type, std::string_view enumerator);

// An enumerator as the rules of its kind read it; nothing when the text is none.
CLI_SERVICE_API std::optional<std::string> enumeratorText(Kel::KelType const& type, std::string_view text);

// For models: what is taken by all numbers and booleans, and blanks.
CLI_SERVICE_API std::optional<std::uint64_t> unsignedNumber(std::string_view text);
CLI_SERVICE_API std::string_view trimmed(std::string_view text);
CLI_SERVICE_API std::string lowered(std::string_view text);

}  // namespace Cli::Service
