// Attribute storage: single entities, pointed at or owned; see AttrStorage.h. One class serves all entity types,
// because the attribute's record has the type.
#pragma once

#include "Kel/AttrStorage.h"
#include "Kel/Offset.h"

namespace Kel {

// A pointer to an entity held elsewhere.
class KEL_API EntityPtrAccess final : public AttrAccess {
 public:
  explicit EntityPtrAccess(EntityHandleAt at) : at_(at) {}
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override;
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override;
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override;
  bool equal(Entity const& a, Entity const& b) const override;
  bool equalThrough(Entity const& dest, Entity const& src, SameTarget& same) const override;
  Entity* target(Entity const& e) const override;
  void setTarget(KelAttr const& attr, Entity& e, Entity* target) const override;
  bool dropPointers(Entity& e) const override;
  void write(KelAttr const& attr, void const* object, AttrLogOut& out) const override;
  void read(KelAttr const& attr, void* object, AttrLogIn& in) const override;

 private:
  EntityHandleAt at_;
};

// A pointer to another counted object of the framework.
template <class T>
class ObjectPtrAccess final : public AttrAccess {
 public:
  explicit ObjectPtrAccess(Offset at) : at_(at) {}

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool) const override {
    wantNoKey(attr, key);
    return box(of(*static_cast<Entity const*>(object)));
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    wantNoKey(attr, key);
    assign(attr, e, unbox<Ptr<T>>(value, attr.fullName()));
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    wantNoKey(attr, key);
    assign(attr, e, nullptr);
  }
  bool equal(Entity const& a, Entity const& b) const override { return of(a) == of(b); }
  Entity* target(Entity const&) const override { return nullptr; }
  bool dropPointers(Entity& e) const override { return std::exchange(at_.in<Ptr<T>>(e), nullptr) != nullptr; }
  void write(KelAttr const&, void const* object, AttrLogOut& out) const override {
    streamOut(out, of(*static_cast<Entity const*>(object)));
  }
  void read(KelAttr const&, void* object, AttrLogIn& in) const override {
    at_.in<Ptr<T>>(*static_cast<Entity*>(object)) = streamIn<Ptr<T>>(in);
  }

 private:
  Ptr<T> const& of(Entity const& e) const { return at_.in<Ptr<T>>(e); }
  void assign(KelAttr const& attr, Entity& e, Ptr<T> const& target) const {
    if (writeValue(e, at_.in<Ptr<T>>(e), attr.id(), target)) afterChange(attr, e);
  }

  Offset at_;
};

template <class C, class T>
AttrAccess const* newPtrAccess(Ptr<T> C::*at) {
  if constexpr (std::is_base_of_v<Entity, T>)
    return new EntityPtrAccess(at);
  else
    return new ObjectPtrAccess<T>(Offset(at));
}

// A single entity that its owner creates.
class KEL_API SingletonAccess final : public AttrAccess {
 public:
  explicit SingletonAccess(EntityHandleAt at) : at_(at) {}
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override;
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override;
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override;
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override;
  bool equalThrough(Entity const& dest, Entity const& src, SameTarget& same) const override;
  Entity* target(Entity const& e) const override;
  Entity* createLike(KelAttr const& attr, Entity& owner, Entity const& like) const override;
  Entity* child(Entity const& e, std::string_view key) const override;
  void eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const override;
  void takeChildren(Entity& e, AttrAccess::ChildTaken taken, void* context) const override;
  void write(KelAttr const& attr, void const* object, AttrLogOut& out) const override;
  void read(KelAttr const& attr, void* object, AttrLogIn& in) const override;
  void restore(KelAttr const& attr, Entity& owner, Ptr<Entity> const& child, U64 sequence) const override;

 private:
  void put(KelAttr const& attr, Entity& e, Ptr<Entity> const& made) const;

  EntityHandleAt at_;
};

}  // namespace Kel
