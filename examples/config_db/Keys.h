// The keys of entries: their parts, and the one spelling that names have.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Kel/KelType.h"
#include "examples/config_db/TableMap.h"

namespace ConfigDb {

// The texts of a key's parts; one that is missing is empty. Nothing when the text is no key of the table. The last part
// takes what is left, bars included.
std::vector<std::string> splitKey(std::vector<KeyPart> const& parts, std::string_view text);

// A part in the one spelling that it has in names. `type` has the part's attribute.
std::string canonicalPart(Kel::KelType const& type, KeyPart const& part, std::string const& text);

}  // namespace ConfigDb
