// Helpers for code that goes through trees by their type records. Not installed.
#pragma once

#include <string_view>
#include <vector>

#include "Kel/AttrAccess.h"
#include "Kel/Dir.h"
#include "Kel/GenericIf.h"

namespace Cli::Service {

inline Kel::GenericIf::Ptr gifOf(Kel::Entity const& e) {
  return Kel::GenericIf::ofEntity(Kel::Entity::Ptr(const_cast<Kel::Entity*>(&e)));
}
inline Kel::Dir const* asDir(Kel::Entity const* e) {
  return e && e->type()->isA(Kel::Dir::_fwkType()) ? static_cast<Kel::Dir const*>(e) : nullptr;
}
inline bool isDirType(Kel::KelType const* type) { return type && type->isA(Kel::Dir::_fwkType()); }

// The attribute that is the first constructor parameter, or null.
inline Kel::KelAttr const* keyParam(Kel::KelType const& type) {
  Kel::KelAttr const* const first = type.attributeQ(0);
  return first && first->ctorParam() ? first : nullptr;
}
// The constructor parameters after the key.
inline std::vector<Kel::KelAttr const*> furtherParams(Kel::KelType const& type, bool afterKey = true) {
  std::vector<Kel::KelAttr const*> params;
  for (Kel::KelAttr const* attr : type.attributeQ())
    if (attr->ctorParam() && !(afterKey && attr == keyParam(type))) params.push_back(attr);
  return params;
}
inline Kel::GenericIf::Ptr valueOfAttr(Kel::Entity const& e, Kel::KelAttr const& attr) {
  return attr.access().get(attr, &e, nullptr, false);
}
// The entity of an attribute that is a pointer or a singleton; null for none.
inline Kel::Entity* singleTarget(Kel::Entity const& e, Kel::KelAttr const& attr) { return attr.access().target(e); }

// Visits the members of a collection as (iterator, position); stops when `visit` answers false.
template <class Visit>
void eachMember(Kel::Entity const& e, Kel::KelAttr const& attr, Visit const& visit) {
  Kel::IteratorRoom room;
  Kel::AttrIterator& it = attr.access().iterate(attr, e, room);
  for (std::size_t position = 0; it.nonNull(); it.inc(), ++position)
    if (!visit(it, position)) return;
}

// Whether a collection has a member under a key; a null key is the null pointer.
inline bool hasMember(Kel::Entity const& e, Kel::KelAttr const& attr, Kel::GenericIf const* key) {
  Kel::IteratorRoom room;
  Kel::AttrIterator& it = attr.access().iterate(attr, e, key, room);
  while (!key && it.nonNull() && it.keyTarget()) it.inc();
  return it.nonNull();
}

// Visits every entity below `top` that is in its attributes or entries (not `top` itself), owners first.
template <class Visit>
void eachOwned(Kel::Entity const& e, Visit const& visit) {
  if (Kel::Dir const* dir = asDir(&e)) {
    for (auto it = dir->entryStateIteratorConst(); it; ++it)
      if (Kel::Entity::PtrConst const child = it->entityPtr()) visit(*child);
    return;
  }
  for (Kel::KelAttr const* attr : e.type()->ownAttrs())
    attr->access().eachChild(
        e, [](Kel::Entity* child, void* context) { (*static_cast<Visit const*>(context))(*child); },
        const_cast<Visit*>(&visit));
}

}  // namespace Cli::Service
