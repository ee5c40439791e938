// Entities: the nodes of the tree.
//
// An entity has a name, a type, a parent and the parent's attribute through which it is held. Owners are the attribute
// that instantiated it, or its directory; a child's link to its parent does not count. An entity that its owner deletes
// leaves the tree: its parent becomes null, and it and everything below it drop their pointer attributes, so that
// entities that point at each other do not keep each other alive. Of pointers among the constructor parameters only
// those at an owner of the entity itself are dropped. A handle that somebody still holds stays valid and reads that
// way. Dropping the last handle of a root lets go of the whole tree, at any depth, without deep recursion. Neither that
// nor leaving a tree takes memory, if the types are registered (generated ones are).
//
// What this does not take apart: a tree whose root is pointed at from inside. Clear such pointers before dropping the
// root, and delete entities whose constructor parameter is the root itself.
//
// One thread at a time per tree. An entity without reactors, attributes and children costs 48 bytes and its name.
#pragma once

#include <iosfwd>
#include <vector>

#include "Kel/Assert.h"
#include "Kel/KelType.h"
#include "Kel/Notifiee.h"
#include "Kel/Ptr.h"
#include "Kel/String8.h"

namespace Kel {

// A path as a look-up key. Absolute paths begin with '/', relative ones with a component or with '.' and an attribute.
class EntityUriPath {
 public:
  explicit EntityUriPath(String8 path) : path_(std::move(path)) {}
  String8 const& path() const { return path_; }

 private:
  String8 path_;
};

// What has changed of an entity. Each kind includes those in front of it.
enum class Change : U8 {
  content = 1,  // its own attributes: a value, a pointer, a collection or queue of them
  members,      // an entity that it owns came or went
  whole         // it came into the tree: everything below it is new
};

class KEL_API Entity : public VFPtrInterface {
 public:
  using Ptr = Kel::Ptr<Entity>;
  using PtrConst = Kel::Ptr<Entity const>;
  using Notifiee = EntityNotifiee;
  using NotifieeConst = EntityNotifiee;

  ~Entity() override;
  Entity(Entity const&) = delete;
  Entity& operator=(Entity const&) = delete;

  // The ids of a type's own attributes continue its base's.
  enum Attribute : AttributeId { endAttr = 0 };

  static KelType const* _fwkType();
  virtual KelType const* type() const = 0;
  String8 const& typeName() const { return type()->fullTypeName(); }

  // The key by which its owner holds it, as it prints.
  Name const& name() const { return name_; }
  // The path from the tree's root, whose own full name is empty. An entry of a directory adds "/name", a singleton
  // ".attribute", a member of a collection or queue ".attribute/key". Cost: the length of the path.
  String8 fullName() const;
  // The same text.
  String8 uriPath() const { return fullName(); }

  // The entity at a path, or null. An absolute path is looked up from this entity's tree's root, any other from this
  // entity; "" is null. Keys stand in a path as they print, and may hold '/' and '.': at each step the shortest
  // component that names a child and lets the rest resolve is taken. Look-up goes through containment only. Cost: a
  // hash look-up a step in the usual case.
  Ptr entity(EntityUriPath const& path) { return Ptr(const_cast<Entity*>(lookup(path.path()))); }
  PtrConst entity(EntityUriPath const& path) const { return PtrConst(lookup(path.path())); }
  Ptr entity(String8 const& path) { return Ptr(const_cast<Entity*>(lookup(path))); }
  PtrConst entity(String8 const& path) const { return PtrConst(lookup(path)); }

  Entity* parent() { return parent_; }
  Entity const* parent() const { return parent_; }
  Entity const* root() const;
  // Low level: moves the links to the parent only. Whoever calls it has put the entity where it says it is.
  void parentIs(Ptr const& parent) {
    parent_ = parent.ptr();
    departures_.fetch_add(1, std::memory_order_relaxed);
    upheavals_.fetch_add(1, std::memory_order_relaxed);
  }
  KelAttr const* parentAttr() const;
  AttributeId parentAttrId() const { return parentAttrId_; }
  void parentAttrIdIs(AttributeId id) { parentAttrId_ = id; }

  // The printable form of one attribute; see GenericIf::attributeString.
  String8 attributeString(AttributeId id) const;

  // --- For generated code ---

  // Takes a new child into the tree under the attribute `id`.
  void adopt(Entity& child, AttributeId id) {
    child.parent_ = this;
    child.parentAttrId_ = id;
    if (stampFloor_.load(std::memory_order_relaxed) != 0) noteArrival(child);
  }
  // Takes a child that its owner has let go of out of the tree.
  static void leaveTree(Ptr child) noexcept;
  // Tells the change journals and the reactors that an attribute changed; `key` points at the key of the changed
  // member, of the collection's key type.
  void notify(AttributeId id, void const* key = nullptr) const {
    mark(Change::content);
    if (hasReactors()) notifyReactors(id, key);
  }
  bool hasReactors() const { return extras_ && !extras_->reactors.empty(); }
  // Tells the change journals of the entities above, and of this one; see ChangeJournal.h.
  void mark(Change change) const noexcept {
    if (stamp_ < (stampFloor_.load(std::memory_order_relaxed) | static_cast<U32>(change))) note(change);
  }
  // Counts the times that entities have left a tree or a tree has ended, in the whole process: while it stands still,
  // what a path led to is there.
  static U64 departures() { return departures_.load(std::memory_order_relaxed); }

 protected:
  explicit Entity(Name name = Name()) : name_(std::move(name)) {
    if (TypeRegistration::pending()) TypeRegistration::makeRecords();
  }
  void destroySelf() noexcept override;

 private:
  friend class ChangeJournal;
  friend struct DebugLayout;
  friend class EntityNotifiee;
  friend class EntityStack;
  friend class Dismantling;
  Entity const* lookup(String8 const& path) const;
  void notifyReactors(AttributeId id, void const* key) const;
  EntityExtras& extras() const;
  void dropEmptyExtras() const noexcept;
  void note(Change change) const noexcept;
  void noteArrival(Entity& child) const noexcept;
  void noteLeaving() const noexcept;

  static std::atomic<U64> departures_, upheavals_;
  // The epoch of the change journals, shifted as in a stamp; 0: no journal was ever attached, or they are off.
  static std::atomic<U32> stampFloor_;

  Name name_;
  Entity* parent_ = nullptr;
  mutable EntityExtras* extras_ = nullptr;
  AttributeId parentAttrId_ = noAttribute;
  // The last epoch in which the entity changed, above two bits for the strongest change in it.
  mutable U32 stamp_ = static_cast<U32>(Change::whole);
};

// The entity's full name; "<null>" for null.
KEL_API std::ostream& operator<<(std::ostream& out, Entity const* entity);
template <class T>
requires std::is_base_of_v<Entity, T> std::ostream& operator<<(std::ostream& out, Ptr<T> const& entity) {
  return out << static_cast<Entity const*>(entity.ptr());
}

}  // namespace Kel
