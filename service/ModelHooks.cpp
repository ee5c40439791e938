#include "service/ModelHooks.h"

#include <utility>

#include "service/TypeRegistry.h"

namespace Cli::Service {

void registerHooks(std::string const& fullTypeName, EntityHooks hooks) {
  TypeRegistry<EntityHooks>::the().set(fullTypeName, std::move(hooks));
}

EntityHooks const& hooksOf(Kel::KelType const& type) {
  static EntityHooks const nothing;
  for (Kel::KelType const* at = &type; at; at = at->base())
    if (auto const* hooks = TypeRegistry<EntityHooks>::the().find(at->fullTypeName())) return *hooks;
  return nothing;
}

}  // namespace Cli::Service
