#include "service/Checkpoint.h"

namespace Cli::Service {

namespace {

// Calls back with each session root and its counterpart. Answers false, and ends, if one is missing or if the callback
// answers false.
template <class Visit>
bool eachRoot(Tree const& a, Tree const& b, Visit const& visit) {
  for (std::string const& path : outerRoots(*a.roots)) {
    Kel::Entity const *const x = rootAt(a, path), *const y = rootAt(b, path);
    if (!x || !y || !visit(*x, *y)) return false;
  }
  return Kel::ChangeJournal::enabled();
}

}  // namespace

Checkpoint::Checkpoint(Tree const& a, Tree const& b) noexcept {
  try {
    known_ = eachRoot(a, b, [&](Kel::Entity const& x, Kel::Entity const& y) {
      roots_.emplace_back(x, y);
      return true;
    });
  } catch (...) {
    // It stays unknown.
  }
}

std::unique_ptr<Kel::ChangedEntities> Checkpoint::changedSince(Tree const& a, Tree const& b) const {
  auto changed = std::make_unique<Kel::ChangedEntities>();
  auto next = roots_.begin();
  bool const known = known_ && eachRoot(a, b, [&](Kel::Entity const& x, Kel::Entity const& y) {
                       return next != roots_.end() && next++->addChanges(x, y, *changed);
                     });
  return known ? std::move(changed) : nullptr;
}

}  // namespace Cli::Service
