// Where the entities of a source stand in the destination.
#pragma once

#include <unordered_map>

#include "CliSession/EntityCopy.h"

namespace Cli::Session {

// The entity below `destTop` that stands where `src` stands below `srcTop`: found step by step by what holds it,
// without any path. Null when there is none, or when a step is one that only a path can take.
Kel::Entity* standIn(Kel::Entity const& src, Kel::Entity const& srcTop, Kel::Entity& destTop);

// As far as that can be followed: the last entity that stands where an owner of `src`, or `src` itself, stands.
struct Nearest {
  Kel::Entity* entity;
  Kel::Entity const* missing;  // the first that has no counterpart; null: `entity` stands where `src` stands
};
Nearest nearestStandIn(Kel::Entity const& src, Kel::Entity const& srcTop, Kel::Entity& destTop);

// True if `dest` will still be the counterpart of `src` when the run ends: neither it nor any of its owners differs in
// constructor parameters, which would make the run delete and create it anew. A pointer to one that differs waits for
// its successor.
bool keepsIdentity(EntityCopy const& ec, Kel::Entity const& dest, Kel::Entity const& src);

// The entity of that full name in the tree of another one. Keys may hold separators, so that two entities can bear one
// name. Of these it is the one that stands where `srcTarget` stands in the source, or `srcTarget` itself.
Kel::Ptr<Kel::Entity> targetInTree(EntityCopy const& ec, Kel::Entity const& member, Kel::String8 const& fullName,
                                   Kel::Entity const* srcTarget);

// The targets of pointers, for handlers that keep them (EntityCopyHandler::keepsTargets): found by their position, once
// the root of their part of the tree is known. What was found is forgotten when anything leaves a tree.
class Counterparts {
 public:
  struct Answer {
    Kel::Entity* target;  // null: the handler has to be asked
    bool rootKnown;       // the target's root is there, or the target has none, so that asking creates nothing
    // Where the root is there and the target is missing: the last owner that has a counterpart, and this counterpart.
    Kel::Entity const* owner = nullptr;
    Kel::Entity const* destOwner = nullptr;
  };
  // Cost: the distance to the target's root.
  Answer find(EntityCopy& ec, Kel::Entity& srcTarget);
  // Whether find would answer `dest`. Cost: a comparison of keys in the usual case.
  bool same(EntityCopy& ec, Kel::Entity& dest, Kel::Entity& src) {
    if (departures_ == Kel::Entity::departures() && src.parent() == owner_ && src.parentAttrId() == through_ &&
        paramsEqual_)
      return dest.parent() == destOwner_ && dest.parentAttrId() == through_ && paramsEqual_(dest, src);
    return find(ec, src).target == &dest;
  }
  // The name that the missing target of an answer will have. Empty where a path might lead elsewhere, because a key on
  // the way holds separators: the handler has to be asked.
  static Kel::String8 missingName(EntityCopy const& ec, Kel::Entity const& srcTarget, Answer const& answer);
  // Remembers what the handler said of a target that was not found by its position.
  void remember(Kel::Entity& srcTarget, Kel::Entity& target);
  void forget();

 private:
  void forgetIfLeft();

  std::unordered_map<Kel::Entity const*, Kel::Entity*> roots_, asked_;
  // An owner below one of the roots and its counterpart, what it owns them through, and how two of these are compared;
  // null: the long way.
  Kel::Entity const* owner_ = nullptr;
  Kel::Entity* destOwner_ = nullptr;
  Kel::AttributeId through_ = Kel::noAttribute;
  bool (*paramsEqual_)(Kel::Entity const&, Kel::Entity const&) = nullptr;
  Kel::U64 departures_ = 0;
};

}  // namespace Cli::Session
