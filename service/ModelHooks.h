// What a model adds to entities that a person makes or edits, beyond what the type records say: the spelling of keys,
// and what follows from a key or from a value that was given.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Dir.h"
#include "Kel/KelType.h"
#include "service/Export.h"
#include "service/InputError.h"
#include "service/PendingReferences.h"

namespace Cli::Service {

// A key of several parts.
struct KeyForm {
  std::string text;  // for people: "vlan|port"
  char separator = '|';
  std::vector<Kel::KelAttr const*> parts;  // the entity's attribute for each part; null: none
};

struct EntityHooks {
  // The name under which a text makes a member of a collection of this type, in the one spelling that names have.
  // Raises InputError for a text that cannot be a key. Empty: any text that the key's type takes.
  std::function<std::string(Kel::KelAttr const& attr, std::string_view text)> key;
  // What such a text looks like, for help and completion. Empty: one part.
  std::function<KeyForm(Kel::KelAttr const& attr)> keyForm;
  // The name of a singleton of this type that is made without one being given.
  std::function<std::string(Kel::KelAttr const& attr)> singletonName;
  // An entity was made: fills what follows from its key, in the entity and below it. A pointer whose target is not
  // there is entered in `pending`.
  std::function<void(Kel::Dir::Ptr const& base, Kel::Entity::Ptr const& made, PendingReferences& pending)> created;
  // A value, pointer or collection of the entity was set by a person (`given`), or put back to its default.
  std::function<void(Kel::Entity& entity, Kel::KelAttr const& attr, bool given)> changed;
  // True if a pointer's text stands for null: an entity that every device has without an entry of its own.
  std::function<bool(Kel::KelAttr const& attr, std::string_view text)> isImplied;
};

// Registers the hooks of an entity type; they are used for derived types, too, unless these have their own. When the
// model's library is loaded, or before the first look-up.
CLI_SERVICE_API void registerHooks(std::string const& fullTypeName, EntityHooks hooks);
// The hooks of a type, those of its nearest base, or empty ones.
CLI_SERVICE_API EntityHooks const& hooksOf(Kel::KelType const& type);

}  // namespace Cli::Service
