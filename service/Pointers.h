// The pointers of a tree. Not installed.
#pragma once

#include <functional>

#include "service/Path.h"

namespace Cli::Service {

// A pointer of a tree, and where it leads.
struct Pointer {
  Path place;  // of the pointer; if a key is a pointer, of the attribute
  Kel::Entity const* owner;
  Kel::KelAttr const* attr;
  Kel::Entity const* target;
  // Of a member whose key is a pointer: the key's target, and what the member holds. Both may be null.
  Kel::Entity const* key;
  Kel::GenericIf::PtrConst content;
};

// The place of a pointer; of one that is a key, or is under such a key, the member's. `base` is the tree's directory.
Path placeOf(Pointer const& pointer, Kel::Entity const& base);

// Visits the pointers at and below an entity. `at` is the entity's path.
void eachPointer(Kel::Entity const& top, Path const& at, std::function<void(Pointer const&)> const& visit);

}  // namespace Cli::Service
