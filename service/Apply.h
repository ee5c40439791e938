// Applies differences, and takes them back. Not installed.
#pragma once

#include <map>
#include <optional>
#include <unordered_map>

#include "service/Difference.h"
#include "service/PendingReferences.h"

namespace Cli::Service {

// One list of differences and the tree to which it is applied. REQUIRES: the list outlives it.
class Applying {
 public:
  // Notes what `takeBack` will need; changes nothing. REQUIRES: the nodes that the list names are as `before` says.
  Applying(std::vector<Difference> const& differences, Tree const& tree);
  // Applies the list. If it raises, the tree is changed in part.
  void write();
  // Restores every node that the list names to its content at construction, whatever has been written since. A step
  // that fails is tried again, a few times. Answers whether every step succeeded.
  bool takeBack() noexcept;
  // Pointers that `write` left null because they have no target.
  std::vector<Path> dangling() const;

 private:
  struct Queue {
    Path path;
    Kel::KelAttr const* attr = nullptr;
    std::vector<Difference const*> runs;
  };
  struct SavedQueue {
    Path path;
    Json content;
  };

  bool isReference(Difference const& d) const { return d.attr && (d.attr->isPtr() || d.attr->keyIsPtr()); }
  bool goesWithItsKey(Difference const& d) const {
    return d.attr && d.attr->keyIsPtr() && d.kind == DifferenceKind::deleted && !d.run;
  }
  bool isSaved(Path const& path) const;
  void saveQueues();
  void noteLeaving();
  void noteLeaving(Kel::Entity const& top);
  void notePointers();
  void followItems(Queue const& queue, std::vector<std::optional<std::size_t>> const& positions);

  void remove(Difference const& d);
  void create(Path const& path, Json const& content);
  void set(Difference const& d);
  void point(Difference const& d);
  void arrange(Queue const& queue);
  void settle();
  void repoint();

  bool step(void (Applying::*what)(Difference const&), Difference const& d) noexcept;
  bool backOnce() noexcept;
  void backEntity(Difference const& d);
  void dropStrayKeys(Difference const& d);
  void backValue(Difference const& d);
  void backQueue(SavedQueue const& queue);

  Kel::Entity::Ptr owner(Difference const& d) const;

  std::vector<Difference> const& differences_;
  Tree tree_;
  std::vector<Difference> inverse_;
  std::vector<Queue> queues_;
  std::vector<SavedQueue> saved_;
  // Entities that may leave the tree while a pointer leads to them. The handles keep the addresses from being reused.
  struct Leaving {
    Kel::Entity::PtrConst handle;
    std::string path;  // of the entity that is made in its place; empty: none
  };
  std::unordered_map<Kel::Entity const*, Leaving> leaving_;
  std::vector<Difference> pointers_;  // the pointers to them, as they were
  PendingReferences pending_;
};

}  // namespace Cli::Service
