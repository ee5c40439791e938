// A tree as text: what every attribute of every entity prints, a line each.
#pragma once

#include <string>
#include <vector>

#include "Kel/Dir.h"
#include "Kel/GenericIf.h"

namespace Tests {

// The entities from `top` down, owners before what they own.
inline std::vector<Kel::Entity::PtrConst> entitiesFrom(Kel::Entity::PtrConst const& top) {
  std::vector<Kel::Entity::PtrConst> all{top};
  for (std::size_t i = 0; i < all.size(); ++i) {
    auto const gif = Kel::GenericIf::ofEntity(all[i]);
    auto const add = [&all](Kel::GenericIf::PtrConst const& child) {
      if (!child) return;
      auto const* state = dynamic_cast<Kel::Dir::EntryState const*>(child->entityConst().ptr());
      Kel::Entity::PtrConst const entity = state ? state->entityPtr() : child->entityConst();
      if (entity) all.push_back(entity);
    };
    for (Kel::KelAttr const* attr : gif->type()->attributeQ()) {
      if (!attr->instantiating()) continue;
      if (!attr->isCollection()) add(gif->attribute(attr->id()));
      if (attr->isCollection())
        for (auto it = gif->attributeIteratorConst(attr->id()); it; ++it) add(it.obj());
    }
  }
  return all;
}

inline std::string dump(Kel::Entity::PtrConst const& top) {
  std::string text;
  for (auto const& entity : entitiesFrom(top)) {
    std::string const name = entity->fullName().str();
    text += name + " " + entity->typeName().str() + "\n";
    for (Kel::KelAttr const* attr : entity->type()->attributeQ())
      if (!attr->isFunction())
        text += name + "." + attr->name().str() + " = " + entity->attributeString(attr->id()).str() + "\n";
  }
  return text;
}

}  // namespace Tests
