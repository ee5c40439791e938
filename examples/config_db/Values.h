// The spellings of the model's values, for files and users (service/ValueText.h): one canonical text for each meaning.
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

// Registers the spellings of the model's types with the service.
void registerSpellings();

// The texts that stand for "not given".
bool isAbsent(std::string_view text);

// The complaint about a text that is not a value of the type: "is no U16", "is none of up, down".
std::string refusal(Kel::KelType const& type);

}  // namespace ConfigDb
