// Pointers in a tree: finding them, setting them, and what becomes of them when their targets go. Not installed.
#pragma once

#include <functional>
#include <vector>

#include "service/Path.h"
#include "service/PendingReferences.h"
#include "service/Walk.h"

namespace Cli::Service {

// A pointer that is set.
struct Reference {
  Kel::Entity* owner;
  Kel::KelAttr const* attr;
  Kel::GenericIf::PtrConst key;  // of a member: its key in this tree; null otherwise
  std::size_t position = 0;      // in a queue
  bool isKey;                    // the pointer is the member's key, not the member
  Kel::Entity* target;           // null: a member that is null, or under a null key
};
// Visits every pointer at or below `top`; members of collections that are null, and null keys, only when asked to.
// Cost: a walk over everything that may hold pointers.
void eachReference(Kel::Entity& top, std::function<void(Reference const&)> const& visit, bool nulls = false);
// The place of a pointer: the attribute, or the member. Nothing when it is not below `base`.
std::optional<Path> placeOf(Reference const& reference, Kel::Entity const& base);

// Points the place at a target, or enters a member under it. The answer is empty, or says why it cannot be.
std::string setReference(Kel::Dir::Ptr const& base, PendingReference const& reference);

class Undo;

// Entities that left the tree in the course of a change, and where their successors are. Keeps them alive.
class Departed {
 public:
  // Before it leaves. `now`: the path under which a successor may be found; nothing: there will be none.
  void note(Kel::Entity& entity, std::optional<Path> now);
  bool empty() const { return entities_.empty(); }
  // Leads pointers that still point at what has departed to the successors. Those that have none stay; they are
  // pending from then on, if a successor may come, and their places are the answer. `undo` may be null.
  std::vector<Path> repoint(Kel::Dir::Ptr const& base, PendingReferences* pending, Undo* undo);

 private:
  struct Gone {
    Kel::Entity::Ptr entity;
    std::optional<Path> now;
  };
  std::vector<Gone> entities_;
};

}  // namespace Cli::Service
