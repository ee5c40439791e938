#include "Kel/AttrAccess.h"

#include "Kel/Assert.h"
#include "Kel/Entity.h"

namespace Kel {

namespace {

[[noreturn, gnu::cold]] void lacks(char const* function) {
  assertionFailed(KEL_SOURCE_NAME, __LINE__, function, "the attribute's shape has it");
}

}  // namespace

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

bool AttrAccess::equal(Entity const&, Entity const&) const { lacks("equal"); }
bool AttrAccess::equalThrough(Entity const& dest, Entity const& src, SameTarget&) const { return equal(dest, src); }
AttrAccess::Found AttrAccess::findMember(Entity const&, AttrIterator const&, Entity*, Entity**) const {
  lacks("findMember");
}
void AttrAccess::copyMember(KelAttr const&, Entity&, AttrIterator const&, Entity*, Entity*) const {
  lacks("copyMember");
}
void AttrAccess::deleteMember(KelAttr const&, Entity&, AttrIterator const&) const { lacks("deleteMember"); }
AttrIterator& AttrAccess::iterateAt(Entity const&, U32, IteratorRoom&) const { lacks("iterateAt"); }
void AttrAccess::appendValue(KelAttr const&, Entity&, AttrIterator const&) const { lacks("appendValue"); }
void AttrAccess::copyValue(KelAttr const&, Entity&, Entity const&) const { lacks("copyValue"); }
Entity* AttrAccess::target(Entity const&) const { lacks("target"); }
void AttrAccess::setTarget(KelAttr const&, Entity&, Entity*) const { lacks("setTarget"); }
bool AttrAccess::dropPointers(Entity&) const { lacks("dropPointers"); }
U32 AttrAccess::gatherPairs(Entity const&, Entity const&, U32&, Pair*, U32) const { lacks("gatherPairs"); }
bool AttrAccess::membersEqual(Entity const&, Entity const&, PlainDifferences) const { lacks("membersEqual"); }
Entity* AttrAccess::findCounterpart(Entity const&, Entity const&, U32) const { lacks("findCounterpart"); }
U32 AttrAccess::positionOf(Entity const&, Entity const&) const { lacks("positionOf"); }
U32 AttrAccess::hashOfKey(Entity const&) const { lacks("hashOfKey"); }
Entity* AttrAccess::nextOfHash(Entity const&, U32, U32&) const { lacks("nextOfHash"); }
Entity* AttrAccess::createLike(KelAttr const&, Entity&, Entity const&) const { lacks("createLike"); }
void AttrAccess::reserveMembers(Entity&, U32) const { lacks("reserveMembers"); }
bool AttrAccess::sameKeyHashes(Entity const&, Entity const&) const { lacks("sameKeyHashes"); }
Entity* AttrAccess::child(Entity const&, std::string_view) const { lacks("child"); }
void AttrAccess::eachChild(Entity const&, void (*)(Entity*, void*), void*) const { lacks("eachChild"); }
void AttrAccess::takeChildren(Entity&, ChildTaken, void*) const { lacks("takeChildren"); }
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
