// From the texts of a file to typed values: one canonical text for everything that means the same.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Kel/GenericIf.h"
#include "Kel/KelType.h"

namespace ConfigDb {

std::string_view trimmed(std::string_view text);
std::string lowered(std::string_view text);

// The texts that stand for "not given".
bool isAbsent(std::string_view text);

// The text in the spelling that the type's values have, or nothing when it is none of them.
std::optional<std::string> canonicalText(Kel::KelType const& type, std::string_view text);

// The value, or null when the text is none of the type's or is out of its range.
Kel::GenericIf::Ptr valueFromText(Kel::KelType const& type, std::string_view text);

// What a text is that is no value of the type: "is no U16", "is none of up, down".
std::string refusal(Kel::KelType const& type);

}  // namespace ConfigDb
