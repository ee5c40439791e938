// A tree as text: what every attribute of every entity prints, a line each.
#pragma once

#include <string>

#include "CliSession/Tree.h"

namespace Tests {

inline std::string dump(Kel::Entity::PtrConst const& top) {
  std::string text;
  for (Kel::Entity const* entity : entitiesOf(const_cast<Kel::Entity&>(*top))) {
    std::string const name = entity->fullName().str();
    text += name + " " + entity->typeName().str() + "\n";
    for (Kel::KelAttr const* attr : entity->type()->attributeQ())
      if (!attr->isFunction())
        text += name + "." + attr->name().str() + " = " + entity->attributeString(attr->id()).str() + "\n";
  }
  return text;
}

}  // namespace Tests
