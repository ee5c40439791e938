// What has changed in two trees since they were equal, so that only that is compared. Not installed.
#pragma once

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "Kel/ChangeJournal.h"
#include "service/Difference.h"

namespace Cli::Service {

// The entities at which two trees may differ, by the first tree's entities.
class Marks {
 public:
  struct Mark {
    Kel::U8 change = 0;                       // 0: the entity itself has not changed; else a Kel::Change
    std::vector<Kel::KelAttr const*> queues;  // its queues with changes in an item
    std::vector<Kel::Entity const*> owned;    // the marked entities that it owns
    bool has(Kel::Change least) const { return change >= static_cast<Kel::U8>(least); }
  };

  Marks() = default;
  // Adds the changes of one root: entities of either tree.
  void add(Kel::Entity const& root, Kel::Entity const& otherRoot, std::vector<Kel::ChangeJournal::Entry> const& here,
           std::vector<Kel::ChangeJournal::Entry> const& other);
  Mark const* find(Kel::Entity const& e) const {
    auto const found = marks_.find(&e);
    return found == marks_.end() ? nullptr : &found->second;
  }

 private:
  Mark& at(Kel::Entity const& e, Kel::Entity const& root);
  void note(Kel::Entity const& e, Kel::Entity const& root, Kel::Change change);

  std::unordered_map<Kel::Entity const*, Mark> marks_;
};

// Remembers that two trees were equal when it was made.
class EqualPoint {
 public:
  EqualPoint() = default;  // never
  // Does not raise, because it is made after writes that cannot be taken back. If there is no memory, it knows nothing,
  // and everything is compared.
  EqualPoint(Tree const& a, Tree const& b) noexcept;
  // The marks on `a`'s entities; null: everything has to be looked at.
  std::unique_ptr<Marks> changes(Tree const& a, Tree const& b) const;

 private:
  void note(Tree const& a, Tree const& b);

  struct Root {
    Kel::U64 aJournal, a, bJournal, b;
  };
  bool known_ = false;
  Kel::U64 heldDepartures_ = 0, upheavals_ = 0;
  std::vector<Root> roots_;
};

// The session roots that do not lie in another one.
std::vector<std::string> outerRoots(std::vector<std::string> const& roots);
// The entity at a session root, or null.
Kel::Entity* rootAt(Tree const& tree, std::string const& path);
// The path of a session root: a step for each directory on the way.
Path rootPath(std::string const& path);
// The entity that `owner` has under the attribute and key of `e`; null if there is none, or if `e` is in a queue.
Kel::Entity* heldLike(Kel::Entity const& owner, Kel::Entity const& e);

}  // namespace Cli::Service
