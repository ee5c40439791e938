// Where an entity's counterpart is, if their owners are counterparts. Not installed; the service uses it, too.
#pragma once

#include "Kel/AttrAccess.h"
#include "Kel/Dir.h"

namespace Cli::Session {

// The entity that `owner` has under the attribute and key of `e`; null if there is none, if the owners have different
// types, or if `e` is in a queue, where an index says nothing about another queue's item.
inline Kel::Entity* heldLike(Kel::Entity const& owner, Kel::Entity const& e) {
  Kel::KelAttr const* const held = e.parentAttr();
  if (!held || owner.type() != e.parent()->type()) return nullptr;
  if (owner.type() == Kel::Dir::_fwkType()) {
    if (e.type() == Kel::Dir::EntryState::_fwkType()) return nullptr;
    return const_cast<Kel::Entity*>(static_cast<Kel::Dir const&>(owner).child(e.name()));
  }
  return held->isCollection() ? held->access().findCounterpart(owner, e, 0) : held->access().target(owner);
}

}  // namespace Cli::Session
