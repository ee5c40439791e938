// What the model adds when a file or a user makes or edits an entry: the spelling of keys, and attributes that are
// derived from them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Kel/GenericIf.h"
#include "examples/config_db/TableMap.h"
#include "service/Path.h"

namespace ConfigDb {

// Registers the spellings and the hooks of the model with the service, once.
void registerModel();

// The texts of a key's parts; a missing part is empty. The result is empty if the text is not a key of the table. The
// last part takes the rest of the text, bars included.
std::vector<std::string> splitKey(std::vector<KeyPart> const& parts, std::string_view text);
// A part of a key in its canonical spelling.
std::string canonicalPart(Kel::KelType const& type, KeyPart const& part, std::string const& text);

// Enters a value in the entry's `present`, or removes it. Call it for a given value that equals the type's default.
void notePresence(Kel::Entity& entry, Kel::KelAttr const& attr, bool given);

// The paths that an entry of that type would have: one for each table with such entries.
std::vector<std::string> expectedTargets(Kel::KelType const& type, std::string_view name);

}  // namespace ConfigDb
