// Carrying differences out, and taking them back. Not installed.
#pragma once

#include <map>
#include <optional>
#include <unordered_map>

#include "service/Difference.h"
#include "service/PendingReferences.h"

namespace Cli::Service {

// One list of differences and the tree that it is carried out on. The list outlives it.
class Applying {
 public:
  // Notes what it takes to bring the tree back; changes nothing. The tree is as the `before`s say.
  Applying(std::vector<Difference> const& differences, Tree const& tree);
  // Carries them out; what it raises leaves the tree half way.
  void write();
  // Makes every node that the list names what it was at construction, whoever has written them since, wherever that
  // stopped. Does not raise: a step that fails is tried again, and then left. Answers whether all went well.
  bool takeBack() noexcept;
  // Pointers whose target is not there.
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

  bool isEntity(Difference const& d) const { return !d.run && (!d.attr || d.attr->instantiating()); }
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
  // Entities that may leave the tree while something points at them. Their handles keep their addresses from being used
  // again.
  struct Leaving {
    Kel::Entity::PtrConst handle;
    std::string path;  // of what is made in its place; empty: nothing is
  };
  std::unordered_map<Kel::Entity const*, Leaving> leaving_;
  std::vector<Difference> pointers_;  // what points at them, as it was
  PendingReferences pending_;
};

}  // namespace Cli::Service
