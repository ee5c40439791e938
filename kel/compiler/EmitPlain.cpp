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

// An attribute that differs is the exception, so that equal entities take no branch.
Lines plainDifferences(EntityDecl const& entity, std::vector<Attribute const*> const& plain) {
  Lines body{std::string("Kel::U64 differences = ") + (anyPlain(entity.base) ? "Base::_plainDifferences(o);" : "0;")};
  for (Attribute const* a : plain) {
    std::string const& x = a->name.text;
    body.push_back("if (" + x + "_ != o." + x + "_) [[unlikely]]");
    body.push_back("  differences |= Kel::plainBit(" + x + "Attr);");
  }
  body.push_back("return differences;");
  return body;
}

}  // namespace kelc
