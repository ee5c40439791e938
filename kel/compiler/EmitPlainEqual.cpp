#include "compiler/CppTypes.h"
#include "compiler/Emit.h"

namespace kelc {

namespace {

bool isPlain(Attribute const& a) {
  using Kind = Attribute::Kind;
  for (Modifier::Kind const unfit : {Modifier::Kind::readonly, Modifier::Kind::nolog, Modifier::Kind::counter}) {
    if (a.has(unfit)) return false;
  }
  switch (a.kind) {
    case Kind::value:
    case Kind::valuesByField:
    case Kind::valueQueue: return isComparable(a.shape.target);
    case Kind::values: return isComparable(a.shape.target) && !a.shape.key.type.isRef;
    default: return false;
  }
}

bool anyPlain(EntityDecl const* entity) {
  for (; entity; entity = entity->base) {
    if (!plainAttributes(*entity).empty()) return true;
  }
  return false;
}

}  // namespace

std::vector<Attribute const*> plainAttributes(EntityDecl const& entity) {
  std::vector<Attribute const*> plain;
  for (bool const collections : {false, true}) {
    for (Attribute const& a : entity.attributes) {
      if (a.isCollection() == collections && isPlain(a)) plain.push_back(&a);
    }
  }
  return plain;
}

Lines plainEquality(EntityDecl const& entity, std::vector<Attribute const*> const& plain) {
  Lines terms;
  if (anyPlain(entity.base)) terms.push_back("Base::_plainEqual(o)");
  for (Attribute const* a : plain) terms.push_back(a->name.text + "_ == o." + a->name.text + "_");
  return returnAll(terms);
}

}  // namespace kelc
