// The spellings of the model's values, which files and people share (service/ValueText.h): one canonical text for
// everything that means the same.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Kel/GenericIf.h"
#include "Kel/KelType.h"
#include "service/ValueText.h"

namespace ConfigDb {

using Cli::Service::canonicalText;
using Cli::Service::lowered;
using Cli::Service::trimmed;

// Registers how the model's types are spelt, for everybody who reads or shows their values.
void registerSpellings();

// The texts that stand for "not given".
bool isAbsent(std::string_view text);

// What a text is that is no value of the type: "is no U16", "is none of up, down".
std::string refusal(Kel::KelType const& type);

}  // namespace ConfigDb
