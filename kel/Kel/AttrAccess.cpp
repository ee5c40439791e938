#include "Kel/AttrAccess.h"

#include "Kel/Entity.h"

namespace Kel {

GenericIf::Ptr AttrAccess::get(KelAttr const& attr, void const*, GenericIf const*, bool) const {
  throwOpNotSupportedException(attr.fullName(), "attribute");
}
void AttrAccess::set(KelAttr const& attr, Entity&, GenericIf const*, GenericIf const*) const {
  throwOpNotSupportedException(attr.fullName(), "attributeIs");
}
void AttrAccess::del(KelAttr const& attr, Entity&, GenericIf const*) const {
  throwOpNotSupportedException(attr.fullName(), "attributeDel");
}
void AttrAccess::enq(KelAttr const& attr, Entity&, GenericIf const*) const {
  throwOpNotSupportedException(attr.fullName(), "attributeSQEnq");
}
void AttrAccess::deq(KelAttr const& attr, Entity&) const {
  throwOpNotSupportedException(attr.fullName(), "attributeSQDeq");
}
void AttrAccess::op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const*, GenericIf const*) const {
  if (op == AttributeOp::notify && !attr.isCollection() && !attr.isFunction() && !attr.isConstant())
    return e.notify(attr.id());
  throwOpNotSupportedException(attr.fullName(), "attributeOp");
}
GenericIf::Ptr AttrAccess::call(KelAttr const& attr, Entity const&, bool, GenericIf::Args const&) const {
  throwOpNotSupportedException(attr.fullName(), "attributeCall");
}
AttrIterator& AttrAccess::iterate(KelAttr const& attr, Entity const&, GenericIf const*, IteratorRoom&) const {
  throwOpNotSupportedException(attr.fullName(), "attributeIterator");
}
U32 AttrAccess::count(KelAttr const& attr, Entity const&) const {
  throwOpNotSupportedException(attr.fullName(), "attributeCount");
}

bool AttrAccess::equal(Entity const&, Entity const&) const { return false; }
bool AttrAccess::equalThrough(Entity const&, Entity const&, SameTarget&) const { return false; }
AttrAccess::Found AttrAccess::findMember(Entity const&, AttrIterator const&, Entity*, Entity**) const {
  return Found::absent;
}
void AttrAccess::copyMember(KelAttr const& attr, Entity&, AttrIterator const&, Entity*, Entity*) const {
  throwOpNotSupportedException(attr.fullName(), "copyMember");
}
void AttrAccess::appendValue(KelAttr const& attr, Entity&, AttrIterator const&) const {
  throwOpNotSupportedException(attr.fullName(), "appendValue");
}
void AttrAccess::copyValue(KelAttr const&, Entity&, Entity const&) const {}
Entity* AttrAccess::single(Entity const&) const { return nullptr; }
void AttrAccess::point(KelAttr const&, Entity&, Entity*) const {}
U32 AttrAccess::memberEnd(Entity const&) const { return 0; }
Entity* AttrAccess::memberAt(Entity const&, U32) const { return nullptr; }
U32 AttrAccess::gatherPairs(Entity const&, Entity const&, U32&, Pair*) const { return 0; }
bool AttrAccess::membersEqual(Entity const&, Entity const&, bool (*)(Entity const&, Entity const&)) const {
  return false;
}
Entity* AttrAccess::memberLike(Entity const&, Entity const&, U32) const { return nullptr; }
U32 AttrAccess::positionOf(Entity const&, Entity const&) const { return 0; }
Entity* AttrAccess::newLike(KelAttr const& attr, Entity&, Entity const&) const {
  throwOpNotSupportedException(attr.fullName(), "newLike");
}
void AttrAccess::reserveMembers(Entity&, U32) const {}
bool AttrAccess::sameShape(Entity const&, Entity const&) const { return false; }
Entity* AttrAccess::child(Entity const&, std::string_view) const { return nullptr; }
void AttrAccess::eachChild(Entity const&, void (*)(Entity*, void*), void*) const {}
void AttrAccess::takeChildren(Entity&, ChildTaken, void*) const {}
void AttrAccess::dropPointers(Entity&) const {}
void AttrAccess::write(KelAttr const&, void const*, AttrLogOut&) const {
  throwNoImplementationException("AttrAccess::write");
}
void AttrAccess::read(KelAttr const& attr, void*, AttrLogIn&) const {
  throwOpNotSupportedException(attr.fullName(), "read");
}
void AttrAccess::eachOwned(Entity const& e, OwnedVisit visit, void* context) const {
  struct To {
    OwnedVisit visit;
    void* context;
  } to{visit, context};
  eachChild(
      e, [](Entity* child, void* all) { static_cast<To*>(all)->visit(child, 0, static_cast<To*>(all)->context); }, &to);
}
void AttrAccess::restore(KelAttr const& attr, Entity&, Ptr<Entity> const&, U64) const {
  throwOpNotSupportedException(attr.fullName(), "restore");
}

}  // namespace Kel
