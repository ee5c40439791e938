// Finds and sets the pointers of a tree, and repairs those that lose their targets. Not installed.
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
  Kel::Entity* target;           // null: the member, or its key, is null
};
// Visits every pointer at or below `top`. With `nulls`, also null members and null keys of collections. Cost: a walk
// over everything that may hold pointers.
void eachReference(Kel::Entity& top, std::function<void(Reference const&)> const& visit, bool nulls = false);
// The place of a pointer: the attribute, or the member. Empty if it is not below `base`.
std::optional<Path> placeOf(Reference const& reference, Kel::Entity const& base);

// Sets a pending reference: the pointer, or the member under the pointer key. Answers why it could not, or "".
std::string setReference(Kel::Dir::Ptr const& base, PendingReference const& reference);
// The same with the first of its texts that leads to a target. If there is none, answers why the first could not be
// set.
std::string setToAny(Kel::Dir::Ptr const& base, PendingReference const& reference);
// Sets the pointer to null, and deletes a member that cannot be null. A pointer that is a key stays as it is.
void clearReference(Kel::Dir::Ptr const& base, PendingReference const& reference);
// What JSON has at the place of a pending reference.
Json contentOf(PendingReference const& reference);

class Undo;

// Notes in `undo` what these functions will overwrite.
void noteBefore(Undo& undo, Kel::Dir::Ptr const& base, PendingReference const& reference);
// PendingReferences::retry as a part of a change that the caller takes back. Keeps references whose owner is gone.
std::vector<Path> retry(PendingReferences& pending, Kel::Dir::Ptr const& base, Undo& undo);
// The same, but forgets them.
std::vector<Path> retryOwned(PendingReferences& pending, Kel::Dir::Ptr const& base, Undo& undo);

// Entities that leave the tree during a change, and the paths of their successors. Keeps the entities alive.
class Departed {
 public:
  // Call it before an entity leaves. `now`: the path at which there may be a successor; empty: there will be none.
  void note(Kel::Entity& entity, std::optional<Path> now);
  bool empty() const { return entities_.empty(); }
  // Sets the pointers that still lead to a departed entity to its successor. Without a successor, a pointer becomes
  // pending if one may still be made. Answers the places of these pointers. `undo` may be null.
  std::vector<Path> repoint(Kel::Dir::Ptr const& base, PendingReferences* pending, Undo* undo);

 private:
  struct Gone {
    Kel::Entity::Ptr entity;
    std::optional<Path> now;
  };
  std::vector<Gone> entities_;
};

}  // namespace Cli::Service
