// What has changed in two trees since they were equal, so that only that is compared. Not installed.
#pragma once

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "Kel/ChangeJournal.h"
#include "service/Difference.h"
#include "service/Roots.h"

namespace Cli::Service {

// How an entity has changed, or what it owns.
struct ChangedEntity {
  Kel::U8 change = 0;                       // 0: the entity itself has not changed; else a Kel::Change
  std::vector<Kel::KelAttr const*> queues;  // its queues with changes in an item
  std::vector<Kel::Entity const*> owned;    // those of its owned entities that are here, too
  bool has(Kel::Change least) const { return change >= static_cast<Kel::U8>(least); }
};

// The entities at which two trees may differ. They are the first tree's; each comes with its owners.
class ChangedEntities {
 public:
  ChangedEntities() = default;
  // Adds the changes of one root: entities of either tree.
  void add(Kel::Entity const& root, Kel::Entity const& otherRoot, std::vector<Kel::ChangeJournal::Entry> const& here,
           std::vector<Kel::ChangeJournal::Entry> const& other);
  ChangedEntity const* find(Kel::Entity const& e) const {
    auto const found = entities_.find(&e);
    return found == entities_.end() ? nullptr : &found->second;
  }

 private:
  ChangedEntity& at(Kel::Entity const& e, Kel::Entity const& root);
  void note(Kel::Entity const& e, Kel::Entity const& root, Kel::Change change);

  std::unordered_map<Kel::Entity const*, ChangedEntity> entities_;
};

// A moment at which two trees were equal.
class Checkpoint {
 public:
  Checkpoint() = default;  // they were never equal
  // Does not raise, because it is made after writes that cannot be taken back. If there is no memory, it knows nothing,
  // and everything is compared.
  Checkpoint(Tree const& a, Tree const& b) noexcept;
  // What has changed since then; null: this is not known, and everything has to be compared.
  std::unique_ptr<ChangedEntities> changedSince(Tree const& a, Tree const& b) const;

 private:
  void note(Tree const& a, Tree const& b);

  struct Root {
    Kel::U64 aJournal, a, bJournal, b;
  };
  bool known_ = false;
  Kel::U64 heldDepartures_ = 0, upheavals_ = 0;
  std::vector<Root> roots_;
};

}  // namespace Cli::Service
