// Entities: the nodes of the tree.
//
// An entity has a name, a type, a parent, and the attribute of the parent that holds it. It is owned by the attribute
// that created it, or by its directory; it does not own its parent.
//
// An entity that its owner deletes leaves the tree. Its parent becomes null. It and everything below it drop their
// pointer attributes, so that entities that point at each other do not keep each other alive. Pointers among the
// constructor parameters stay, except those that lead to an owner of the entity. Handles to the entity stay valid.
//
// Dropping the last handle of a root destroys the whole tree. This takes no deep recursion, whatever the depth. Neither
// this nor leaving a tree allocates memory, if the types are registered (generated types are).
//
// Not collected: a tree whose root is the target of a pointer inside it. Clear such pointers before dropping the root,
// and delete entities that have the root as a constructor parameter.
//
// A tree belongs to one thread at a time. An entity without reactors, attributes and children takes 48 bytes and its
// name.
#pragma once

#include <iosfwd>

#include "Kel/Assert.h"
#include "Kel/KelType.h"
#include "Kel/Notifiee.h"
#include "Kel/Ptr.h"
#include "Kel/String8.h"

namespace Kel {

// A path as a look-up key. An absolute path begins with '/', a relative one with a component, or with '.' and an
// attribute.
class EntityUriPath {
 public:
  explicit EntityUriPath(String8 path) : path_(std::move(path)) {}
  String8 const& path() const { return path_; }

 private:
  String8 path_;
};

// What has changed in an entity. Each kind includes those listed before it.
enum class Change : U8 {
  content = 1,  // its own attributes: a value, a pointer, a collection or queue of them
  members,      // an entity that it owns came or went
  whole         // it came into the tree: everything below it is new
};

// A node of the tree; the base of all entity types.
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

  // The record of this class.
  static KelType const* _fwkType();
  // The record of the entity's own, most derived type.
  virtual KelType const* type() const = 0;
  // The full name of that type, such as "Cli::Session::Status".
  String8 const& typeName() const { return type()->fullTypeName(); }

  // The text of the key under which its owner holds it.
  Name const& name() const {
    if (nameIsDue_) makeName();
    return name_;
  }
  // The path from the tree's root, whose own full name is empty. An entry of a directory adds "/name", a singleton
  // ".attribute", a member of a collection or queue ".attribute/key". Cost: the length of the path.
  String8 fullName() const;
  // The same text.
  String8 uriPath() const { return fullName(); }
  // The part of the full name after that of `top`, with the separator: ".port/Et1". The whole full name if `top` is not
  // above this entity.
  String8 pathFrom(Entity const* top) const;
  // The same without the separator that it begins with: "port/Et1".
  String8 localPath(Entity const* top) const;
  // Whether a text is the full name, which need not be made for it. Cost: the length of the path.
  bool hasFullName(std::string_view text) const;

  // The entity at a path, or null. An absolute path starts at the root of this entity's tree, any other at this entity;
  // "" is null. Keys appear in a path as they print, and may contain '/' and '.': each step takes the shortest
  // component that names a child and lets the rest resolve. Paths follow ownership, never pointers. Cost: usually one
  // hash look-up a step.
  Ptr entity(EntityUriPath const& path) { return Ptr(const_cast<Entity*>(lookup(path.path()))); }
  PtrConst entity(EntityUriPath const& path) const { return PtrConst(lookup(path.path())); }
  Ptr entity(String8 const& path) { return Ptr(const_cast<Entity*>(lookup(path))); }
  PtrConst entity(String8 const& path) const { return PtrConst(lookup(path)); }

  // The entity above: the owner, or the directory. Null for a root, and for an entity that has left its tree.
  Entity* parent() { return parent_; }
  Entity const* parent() const { return parent_; }
  // The top of the tree; the entity itself if it has no parent. Cost: the depth.
  Entity const* root() const;
  // Low level: sets the link to the parent and nothing else. REQUIRES: `parent` already holds the entity.
  void parentIs(Ptr const& parent) {
    parent_ = parent.ptr();
    departures_.fetch_add(1, Order::relaxed);
    upheavals_.fetch_add(1, Order::relaxed);
  }
  // The attribute of the parent that holds the entity; null without a parent.
  KelAttr const* parentAttr() const;
  AttributeId parentAttrId() const { return parentAttrId_; }
  // Low level, as parentIs.
  void parentAttrIdIs(AttributeId id) { parentAttrId_ = id; }

  // The printable form of one attribute; see GenericIf::attributeString.
  String8 attributeString(AttributeId id) const;

  // --- For generated code ---

  // Links a new child to this entity, as a member of the attribute `id`. REQUIRES: that attribute holds it already.
  void adopt(Entity& child, AttributeId id) {
    child.parent_ = this;
    child.parentAttrId_ = id;
    if (stampFloor_.load(Order::relaxed) != 0) noteArrival(child);
  }
  // Takes a child out of the tree, with all that is below it. REQUIRES: its owner no longer holds it.
  static void leaveTree(Ptr child) noexcept;
  // Tells the change journals and the reactors that an attribute changed. For a collection, `key` points at the key of
  // the changed member. REQUIRES: `key` is null or of the collection's key type.
  void notify(AttributeId id, void const* key = nullptr) const {
    if (hasReactors()) return notifyReactors(id, key);
    mark(Change::content);
  }
  bool hasReactors() const { return extras_ && !extras_->reactors.empty(); }
  // Tells the change journals of the entities above, and of this one; see ChangeJournal.h.
  void mark(Change change) const noexcept {
    U32 const stamp = stampFloor_.load(Order::relaxed) | static_cast<U32>(change);
    if (stamp_ < stamp) note(stamp);
  }
  // How often, in this process, entities have left a tree or a tree has ended. While the number stays the same, an
  // entity that was found by a path is still there.
  static U64 departures() { return departures_.load(Order::relaxed); }

 protected:
  explicit Entity(Name name = Name()) : name_(std::move(name)) {
    if (TypeRegistration::pending()) TypeRegistration::makeRecords();
  }
  void destroySelf() noexcept override;
  // The name is the first constructor parameter as it prints. It is made when it is first asked for.
  void nameFollowsKey() { nameIsDue_ = true; }

 private:
  friend struct NameKey;
  friend class ChangeJournal;
  friend struct DebugLayout;
  friend class EntityNotifiee;
  friend class EntityStack;
  friend class Dismantling;
  Entity const* lookup(String8 const& path) const;
  void notifyReactors(AttributeId id, void const* key) const;
  void makeName() const;
  EntityExtras& extras() const;
  void dropEmptyExtras() const noexcept;
  void note(U32 stamp) const noexcept;
  void noteArrival(Entity& child) const noexcept;
  void noteLeaving() const noexcept;

  static Atomic<U64> departures_, upheavals_;
  // The epoch of the change journals, shifted as in a stamp. 0: no journal was ever attached, or journals are off.
  static Atomic<U32> stampFloor_;

  mutable Name name_;
  Entity* parent_ = nullptr;
  mutable EntityExtras* extras_ = nullptr;
  AttributeId parentAttrId_ = noAttribute;
  mutable bool nameIsDue_ = false;
  // The last epoch in which the entity changed, above two bits for the strongest change in it.
  mutable U32 stamp_ = static_cast<U32>(Change::whole);
};

// Prints the entity's full name, or "<null>".
KEL_API std::ostream& operator<<(std::ostream& out, Entity const* entity);
// Prints the full name of the entity, or "<null>".
template <class T>
requires std::is_base_of_v<Entity, T> std::ostream& operator<<(std::ostream& out, Ptr<T> const& entity) {
  return out << static_cast<Entity const*>(entity.ptr());
}

}  // namespace Kel
