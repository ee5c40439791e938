#include "compiler/Ast.h"

#include <algorithm>

namespace kelc {

Modifier const* Attribute::modifier(Modifier::Kind wanted) const {
  for (Modifier const& m : modifiers) {
    if (m.kind == wanted) return &m;
  }
  return nullptr;
}

std::string Enumerator::text() const {
  return name.text.back() == '_' ? name.text.substr(0, name.text.size() - 1) : name.text;
}

bool ValueDecl::has(Trait::Kind wanted) const {
  return std::any_of(traits.begin(), traits.end(), [&](Trait const& t) { return t.kind == wanted; });
}

Field const* ValueDecl::field(std::string const& wanted) const {
  auto const found = std::find_if(fields.begin(), fields.end(), [&](Field const& f) { return f.name.text == wanted; });
  return found == fields.end() ? nullptr : &*found;
}

std::vector<Attribute const*> EntityDecl::allParams() const {
  std::vector<Attribute const*> all;
  if (base) all = base->allParams();
  for (Attribute const& p : params) all.push_back(&p);
  return all;
}

bool EntityDecl::paramsKnown() const { return !paramsUnknown && !baseUnknown && (!base || base->paramsKnown()); }

bool EntityDecl::membersKnown() const { return !incomplete && !baseUnknown && (!base || base->membersKnown()); }

}  // namespace kelc
