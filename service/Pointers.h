// The pointers of a tree. Not installed.
#pragma once

#include <functional>

#include "service/Path.h"

namespace Cli::Service {

// A pointer of a tree, and where it leads.
struct Pointer {
  Path place;  // of the pointer; if a key is the pointer, of the attribute
  Kel::Entity const* owner;
  Kel::KelAttr const* attr;
  Kel::Entity const* target;
  Kel::GenericIf::PtrConst content;  // the member, if its key is the pointer
};

// Visits the pointers at and below an entity. `at` is the entity's path.
void eachPointer(Kel::Entity const& top, Path const& at, std::function<void(Pointer const&)> const& visit);

}  // namespace Cli::Service
