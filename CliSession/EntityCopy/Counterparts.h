// Finds the counterparts, in the destination, of entities of the source.
#pragma once

#include <unordered_map>

#include "CliSession/EntityCopy.h"

namespace Cli::Session {

// The entity below the copy's destination at the position that `src` has below its source, or null.
Kel::Entity* counterpartByPosition(EntityCopy const& ec, Kel::Entity const& src);

// True if `dest` will still be the counterpart of `src` when the run ends: neither it nor any of its owners differs in
// constructor parameters, which would make the run delete and create it anew. A pointer to an entity that is created
// anew has to wait. `known` is an owner of `src` for which it is true; null: none is known.
bool keepsIdentity(EntityCopy const& ec, Kel::Entity const& dest, Kel::Entity const& src,
                   Kel::Entity const* known = nullptr);

// The entity with a full name in the tree of `member`, or null. Keys may contain separators, so two entities can have
// the same full name: the one at the position of `srcTarget` is preferred, then `srcTarget` itself.
Kel::Ptr<Kel::Entity> targetInTree(EntityCopy const& ec, Kel::Entity const& member, Kel::String8 const& fullName,
                                   Kel::Entity const* srcTarget);

// Finds the targets of pointers by position, for handlers that decide as a session handler does. That is asked for the
// root only. Everything found is forgotten when any entity leaves its tree.
class Counterparts {
 public:
  struct Answer {
    Kel::Entity* target = nullptr;  // null: the handler has to be asked, unless `missing` is given
    bool rootKnown = false;         // the target's root exists, or it has none: asking the handler creates nothing
    Kel::String8 missing;           // if the target does not exist: the full name that it will have
  };
  // Cost: the distance to the nearest known owner of the target, usually its own.
  Answer find(EntityCopy& ec, Kel::Entity const& srcTarget);
  // Whether find would answer `dest`. Cost: a comparison of keys in the usual case.
  bool same(EntityCopy& ec, Kel::Entity const& dest, Kel::Entity const& src) {
    if (isBesideLast(src))
      return dest.parent() == destOwner_ && dest.parentAttrId() == through_ && paramsEqual_(dest, src);
    return find(ec, src).target == &dest;
  }
  // Remembers the handler's answer for a target that was not found by its position.
  void remember(Kel::Entity const& srcTarget, Kel::Entity& target) { asked_.try_emplace(&srcTarget, &target); }
  void forget() {
    if (!owners_.empty() || !asked_.empty()) *this = Counterparts();
  }

 private:
  // Whether an entity has the same owner as the target found last, and its place is told by its parameters.
  bool isBesideLast(Kel::Entity const& src) const {
    return departures_ == Kel::Entity::departures() && src.parent() == owner_ && src.parentAttrId() == through_ &&
           paramsEqual_;
  }

  // The counterparts of roots and of owners of targets; what is below one has the same position on both sides.
  std::unordered_map<Kel::Entity const*, Kel::Entity*> owners_;
  // The handler's answers.
  std::unordered_map<Kel::Entity const*, Kel::Entity*> asked_;
  // The owner of the target found last, the owner's counterpart, the attribute that owns the targets, and the
  // comparison of two targets. Without a comparison, `same` calls `find`.
  Kel::Entity const* owner_ = nullptr;
  Kel::Entity* destOwner_ = nullptr;
  Kel::AttributeId through_ = Kel::noAttribute;
  bool (*paramsEqual_)(Kel::Entity const&, Kel::Entity const&) = nullptr;
  Kel::U64 departures_ = 0;
};

}  // namespace Cli::Session
