// What a model adds when a user makes or edits an entity: the spelling of keys, and attributes that are derived from a
// key or a value.
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
  std::string text;  // for the user: "vlan|port"
  char separator = '|';
  std::vector<Kel::KelAttr const*> parts;  // the entity's attribute for each part; null: none
};

struct EntityHooks {
  // The canonical key for a text that names a member of a collection of this type. Raises InputError for a text that
  // cannot be a key. An empty function: any text that the key's type accepts.
  std::function<std::string(Kel::KelAttr const& attr, std::string_view text)> key;
  // The form of such a text, for help and completion. An empty function: the key has one part.
  std::function<KeyForm(Kel::KelAttr const& attr)> keyForm;
  // The name of a singleton of this type that is made without one being given.
  std::function<std::string(Kel::KelAttr const& attr)> singletonName;
  // Called after an entity was made, to set attributes that are derived from its key. It may write to the entity and
  // below it, and adds pointers whose targets do not exist to `pending`.
  std::function<void(Kel::Dir::Ptr const& base, Kel::Entity::Ptr const& made, PendingReferences& pending)> created;
  // Called after a user has set a value, pointer or collection (`given`), or put it back to its default. It may write
  // to the attributes of that entity, not to those of the entities below it.
  std::function<void(Kel::Entity& entity, Kel::KelAttr const& attr, bool given)> changed;
  // True if a pointer's text stands for null: it names an entity that every device has but that is not in the tree.
  std::function<bool(Kel::KelAttr const& attr, std::string_view text)> isImplied;
};

// Registers the hooks of an entity type, also for derived types without hooks of their own. Call it while the model's
// library is loaded, or before the first look-up.
CLI_SERVICE_API void registerHooks(std::string const& fullTypeName, EntityHooks hooks);
// The hooks of a type, those of its nearest base, or empty ones.
CLI_SERVICE_API EntityHooks const& hooksOf(Kel::KelType const& type);

}  // namespace Cli::Service
