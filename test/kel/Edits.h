// Edits at random, through the reflective interface and through the copy engine's.
#pragma once

#include "Kel/AttrAccess.h"
#include "Support.h"

namespace Gadgets {

// The same edits for the same seed. Values and keys are drawn from a few, so that they come up again.
class Edits {
 public:
  explicit Edits(unsigned seed) : random_(seed) {}

  Random& random() { return random_; }

  // One write of a writable attribute. It may change nothing.
  void write(Entity& entity, KelAttr const& attr) {
    GenericIf::Ptr const object = GenericIf::ofEntity(Entity::Ptr(&entity));
    if (attr.isQueue())
      queue(*object, attr);
    else if (attr.isCollection())
      collection(*object, attr);
    else if (attr.instantiating())
      singleton(*object, attr);
    else if (random_.once(4))
      object->attributeDel(attr.id());
    else
      object->attributeIs(attr.id(), nullptr, value(attr.type()));
  }

  // Makes an attribute more like that of another entity of the type, as the copy engine does.
  static void copy(Entity& dest, Entity const& src, KelAttr const& attr) {
    AttrAccess const& access = attr.access();
    if (attr.isQueue()) return;
    if (attr.instantiating())
      copyOwned(dest, src, attr);
    else if (attr.isCollection())
      copyMembers(dest, src, attr);
    else if (!attr.isPtr())
      access.copyValue(attr, dest, src);
    else if (attr.type()->isEntity())
      access.setTarget(attr, dest, access.target(src));
  }

  Gif value(KelType const* type) {
    Random few(random_.below(4));
    return anyValue(few, type);
  }

 private:
  static void copyMembers(Entity& dest, Entity const& src, KelAttr const& attr) {
    AttrAccess const& access = attr.access();
    IteratorRoom room;
    for (AttrIterator& at = access.iterate(attr, src, room); at.nonNull(); at.inc())
      access.copyMember(attr, dest, at, at.keyTarget(), at.target());
  }
  static void copyOwned(Entity& dest, Entity const& src, KelAttr const& attr) {
    AttrAccess const& access = attr.access();
    std::vector<Entity*> wanted;
    access.eachChild(
        src, [](Entity* child, void* to) { static_cast<std::vector<Entity*>*>(to)->push_back(child); }, &wanted);
    for (Entity const* child : wanted) {
      bool const there = attr.isCollection() ? access.findCounterpart(dest, *child, 0) : access.target(dest);
      if (!there && child->type() == attr.type() && attr.type()->createLike()) access.createLike(attr, dest, *child);
    }
  }

  Gif args(KelAttr const& attr) {
    return listOf(constructorArgs(attr, [this](KelType const* type) { return value(type); }));
  }
  void singleton(GenericIf& object, KelAttr const& attr) {
    if (random_.once(3))
      object.attributeDel(attr.id());
    else
      object.attributeIs(attr.id(), nullptr, args(attr));
  }
  void collection(GenericIf& object, KelAttr const& attr) {
    if (random_.once(12)) return object.attributeOp(AttributeOp::deleteAll, attr.id());
    if (random_.once(4)) return object.attributeDel(attr.id(), value(attr.keyType()));
    if (attr.instantiating()) return object.attributeIs(attr.id(), nullptr, args(attr));
    bool const counter = attr.name().pos("counter") == 0;
    if (counter && random_.once(2))
      return object.attributeOp(AttributeOp::increment, attr.id(), value(attr.keyType()), nullptr);
    Gif const member = value(attr.type());
    if (attr.name() == "byName" && attr.isPtr() && !member) return;  // refuses null members
    bool const keyIsField = attr.name() == "byField" || attr.name() == "byPointField";
    object.attributeIs(attr.id(), keyIsField ? nullptr : value(attr.keyType()), member);
  }
  void queue(GenericIf& object, KelAttr const& attr) {
    U32 const members = object.attributeCount(attr.id());
    if (random_.once(12))
      object.attributeOp(AttributeOp::deleteAll, attr.id());
    else if (members > 0 && random_.once(3))
      object.attributeSQDeq(attr.id());
    else if (members > 0 && random_.once(4))
      object.attributeDel(attr.id(), object.attributeIteratorConst(attr.id()).key());
    else
      object.attributeSQEnq(attr.id(), attr.instantiating() ? args(attr) : value(attr.type()));
  }

  Random random_;
};

}  // namespace Gadgets
