#include "service/ModelHooks.h"

#include <map>
#include <mutex>
#include <shared_mutex>

namespace Cli::Service {

namespace {

struct Registry {
  std::shared_mutex lock;
  std::map<std::string, EntityHooks, std::less<>> byType;
};
Registry& registry() {
  static auto* const all = new Registry;  // outlives the libraries that registered
  return *all;
}

}  // namespace

void registerHooks(std::string const& fullTypeName, EntityHooks hooks) {
  std::unique_lock const guard(registry().lock);
  registry().byType[fullTypeName] = std::move(hooks);
}

EntityHooks const& hooksOf(Kel::KelType const& type) {
  static EntityHooks const nothing;
  std::shared_lock const guard(registry().lock);
  for (Kel::KelType const* at = &type; at; at = at->base()) {
    auto const found = registry().byType.find(at->fullTypeName().view());
    if (found != registry().byType.end()) return found->second;
  }
  return nothing;
}

}  // namespace Cli::Service
