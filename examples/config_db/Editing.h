// What the model adds to entries that are made and edited, by a file or by a person: keys and what follows from them.
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

// The texts of a key's parts; one that is missing is empty. Nothing when the text is no key of the table. The last part
// takes what is left, bars included.
std::vector<std::string> splitKey(std::vector<KeyPart> const& parts, std::string_view text);
// A part in the one spelling that it has in names.
std::string canonicalPart(Kel::KelType const& type, KeyPart const& part, std::string const& text);

// Enters a value in the entry's `present`, or takes it out: one that was given and would pass for one that was not.
void notePresence(Kel::Entity& entry, Kel::KelAttr const& attr, bool given);

// Where an entry of that type would be: in each table that holds such entries, as paths.
std::vector<std::string> expectedTargets(Kel::KelType const& type, std::string_view name);

}  // namespace ConfigDb
