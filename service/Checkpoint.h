// A moment at which two trees were equal, so that only what has changed since is compared. Not installed.
#pragma once

#include <memory>
#include <vector>

#include "Kel/TreePair.h"
#include "service/Difference.h"
#include "service/Roots.h"

namespace Cli::Service {

class Checkpoint {
 public:
  Checkpoint() = default;  // they were never equal
  // Does not raise, because it is made after writes that cannot be taken back. If there is no memory, it knows nothing,
  // and everything is compared.
  Checkpoint(Tree const& a, Tree const& b) noexcept;
  // What has changed since then, as entities of `a`; null: this is not known, and everything has to be compared.
  std::unique_ptr<Kel::ChangedEntities> changedSince(Tree const& a, Tree const& b) const;

 private:
  bool known_ = false;
  std::vector<Kel::EqualTrees> roots_;
};

}  // namespace Cli::Service
