// What model libraries register for their types. Not installed.
#pragma once

#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <utility>

namespace Cli::Service {

// One T for each type, by the type's full name. Any thread may use it.
template <class T>
class TypeRegistry {
 public:
  // The registry of this T. Never destroyed, so it outlives the model libraries.
  static TypeRegistry& the() {
    static auto* const all = new TypeRegistry;
    return *all;
  }
  void set(std::string const& fullTypeName, T entry) {
    std::unique_lock const guard(lock_);
    byType_[fullTypeName] = std::move(entry);
  }
  // The type's own entry, or null. The pointer stays valid.
  T const* find(std::string_view fullTypeName) const {
    std::shared_lock const guard(lock_);
    auto const found = byType_.find(fullTypeName);
    return found == byType_.end() ? nullptr : &found->second;
  }

 private:
  mutable std::shared_mutex lock_;
  std::map<std::string, T, std::less<>> byType_;
};

}  // namespace Cli::Service
