// The values of a type as users and files write them: which texts are accepted, their canonical spelling, and what an
// error says is expected.
//
// Every kind of type has rules: numbers are decimal or hexadecimal (0x) within their range; booleans are true, on, yes,
// 1 and their opposites; enumerators may be in any case, with '-' for '_'; a representation value follows the rules of
// its field. A model library adds rules for its types by registering a `Spelling`, while it is loaded or before the
// first look-up. Any thread may register and look up.
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
  // The canonical spelling of a text; empty if the text is not a value of the type. Blanks around the text have been
  // removed. An empty function: the rules of the type's kind.
  std::function<std::optional<std::string>(std::string_view text)> canonical;
  // What errors say is expected: "an address like 192.0.2.1 or 2001:db8::1". Empty: as for the type's kind.
  std::string expected;
  // Of an enumeration: enumerators that mean "not set"; users do not type them.
  std::vector<std::string> unset;
  // Words to offer besides enumerators: "auto", "all".
  std::vector<std::string> words;
};

CLI_SERVICE_API void registerSpelling(std::string const& fullTypeName, Spelling spelling);

// The canonical spelling; empty if the text is not a value of the type.
CLI_SERVICE_API std::optional<std::string> canonicalText(Kel::KelType const& type, std::string_view text);
// The value; null if the text is not a value of the type.
CLI_SERVICE_API Kel::GenericIf::Ptr valueOf(Kel::KelType const& type, std::string_view text);
// The same; raises InputError "'70000' is not a number from 0 to 65535".
CLI_SERVICE_API Kel::GenericIf::Ptr valueFromText(Kel::KelType const& type, std::string_view text);
// What is accepted: "a number from 0 to 65535", "one of up, down".
CLI_SERVICE_API std::string expectation(Kel::KelType const& type);
// The words that a user may type, if they can be listed: enumerators, true and false, registered words.
CLI_SERVICE_API std::vector<std::string> valueWords(Kel::KelType const& type);
// The text of a value. valueFromText reads it back, if it accepts the value. Value types with several fields are JSON.
CLI_SERVICE_API std::string textOf(Kel::GenericIf const& value);
// Whether an enumerator means "not set" (Spelling::unset).
CLI_SERVICE_API bool isUnset(Kel::KelType const& type, std::string_view enumerator);

// The enumerator for a text by the rules of its kind; empty if there is none.
CLI_SERVICE_API std::optional<std::string> enumeratorText(Kel::KelType const& type, std::string_view text);

// For models: a number by the rules above (empty if it is not one), a text without blanks around it, in lower case.
CLI_SERVICE_API std::optional<std::uint64_t> unsignedNumber(std::string_view text);
CLI_SERVICE_API std::string_view trimmed(std::string_view text);
CLI_SERVICE_API std::string lowered(std::string_view text);
// A text that has more than `most` bytes is cut between two characters, and ends with "...".
CLI_SERVICE_API std::string shortened(std::string text, std::size_t most);

}  // namespace Cli::Service
