#include "Kel/AttrEntity.h"

namespace Kel {

// --- Pointers ---

GenericIf::Ptr EntityPtrAccess::get(KelAttr const& attr, void const* object, GenericIf const* key,
                                    bool constView) const {
  wantNoKey(attr, key);
  return boxView(Ptr<Entity>(target(*static_cast<Entity const*>(object))), constView || attr.isConstPtr());
}
void EntityPtrAccess::set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const {
  wantNoKey(attr, key);
  setTarget(attr, e, unboxEntity(value, attr.type(), attr.isConstPtr(), attr.fullName()));
}
void EntityPtrAccess::del(KelAttr const& attr, Entity& e, GenericIf const* key) const {
  wantNoKey(attr, key);
  setTarget(attr, e, nullptr);
}
bool EntityPtrAccess::equal(Entity const& a, Entity const& b) const { return at_.get(a) == at_.get(b); }
bool EntityPtrAccess::equalThrough(Entity const& dest, Entity const& src, SameTarget& same) const {
  Entity *const a = at_.get(dest), *const b = at_.get(src);
  return a && b ? same(*a, *b) : a == b;
}
Entity* EntityPtrAccess::target(Entity const& e) const { return at_.get(e); }
void EntityPtrAccess::setTarget(KelAttr const& attr, Entity& e, Entity* target) const {
  if (writeValue(e, at_.in(e), attr.id(), target)) afterChange(attr, e);
}
bool EntityPtrAccess::dropPointers(Entity& e) const { return at_.take(e) != nullptr; }
void EntityPtrAccess::write(KelAttr const&, void const* object, AttrLogOut& out) const {
  out.reference(at_.get(*static_cast<Entity const*>(object)));
}
void EntityPtrAccess::read(KelAttr const& attr, void* object, AttrLogIn& in) const {
  at_.set(*static_cast<Entity*>(object), in.reference(attr.type()));
}

// --- Singletons ---

void putSingleton(Entity& owner, EntityHandleAt slot, AttributeId id, Ptr<Entity> const& made) {
  if (Ptr<Entity> old = slot.take(owner)) Entity::leaveTree(std::move(old));
  slot.set(owner, made.ptr());
  if (made) owner.adopt(*made, id);
  owner.notify(id);
}
bool eraseSingleton(Entity& owner, EntityHandleAt slot, AttributeId id) {
  if (!slot.get(owner)) return false;
  putSingleton(owner, slot, id, nullptr);
  return true;
}

GenericIf::Ptr SingletonAccess::get(KelAttr const& attr, void const* object, GenericIf const* key,
                                    bool constView) const {
  wantNoKey(attr, key);
  return boxView(Ptr<Entity>(target(*static_cast<Entity const*>(object))), constView);
}
void SingletonAccess::set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const {
  wantNoKey(attr, key);
  Ptr<Entity> const made = attr.type()->newEntity(creationArgs(attr, nullptr, value));
  if (Entity const* const held = target(e); held && sameParams(*held, *made)) return;
  put(attr, e, made);
}
bool SingletonAccess::equalThrough(Entity const& dest, Entity const& src, SameTarget&) const {
  return !at_.get(dest) && !at_.get(src);
}
void SingletonAccess::del(KelAttr const& attr, Entity& e, GenericIf const* key) const {
  wantNoKey(attr, key);
  if (eraseSingleton(e, at_, attr.id())) afterChange(attr, e);
}
void SingletonAccess::op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key,
                         GenericIf const* value) const {
  if (op != AttributeOp::create) return AttrAccess::op(attr, e, op, key, value);
  if (Entity const* const held = target(e)) throwTaken(attr, held->name());
  put(attr, e, attr.type()->newEntity(creationArgs(attr, nullptr, value)));
}
Entity* SingletonAccess::target(Entity const& e) const { return at_.get(e); }
Entity* SingletonAccess::createLike(KelAttr const& attr, Entity& owner, Entity const& like) const {
  put(attr, owner, Ptr<Entity>(attr.type()->createLike()(like)));
  return target(owner);
}
Entity* SingletonAccess::child(Entity const& e, std::string_view key) const {
  return key.empty() ? target(e) : nullptr;
}
void SingletonAccess::eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const {
  if (Entity* const held = target(e)) visit(held, context);
}
void SingletonAccess::takeChildren(Entity& e, AttrAccess::ChildTaken taken, void* context) const {
  if (Ptr<Entity> held = at_.take(e)) taken(std::move(held), context);
}
void SingletonAccess::write(KelAttr const&, void const*, AttrLogOut&) const {}
void SingletonAccess::read(KelAttr const&, void*, AttrLogIn&) const {}
void SingletonAccess::restore(KelAttr const& attr, Entity& owner, Ptr<Entity> const& child, U64) const {
  if (Entity const* const held = target(owner)) throwTaken(attr, held->name());
  wantOwnable(attr, *child);
  at_.set(owner, child.ptr());
  owner.adopt(*child, attr.id());
}
void SingletonAccess::put(KelAttr const& attr, Entity& e, Ptr<Entity> const& made) const {
  putSingleton(e, at_, attr.id(), made);
  afterChange(attr, e);
}

}  // namespace Kel
