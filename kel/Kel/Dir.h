// Directories: entities whose only job is to hold named children.
//
// Each entry has an entry state. It records the name, the name of the entity's type, and the entity once it exists. The
// entity's parent is the directory. Iterators visit entries in the order of their names; subdirectories are entries
// like any other. Through reflection, a directory has `name`, the instantiating collection `entryState`, and `subdir`,
// the names of the entries that are directories. `subdir` is derived and read-only, so copies skip it.
//
// A copy without a directory handler copies the names and types of the entries only: it does not visit the children. No
// entity of the source ever gets into the destination.
#pragma once

#include "Kel/Entity.h"
#include "Kel/EntityTree.h"

namespace Kel {

// A directory.
class KEL_API Dir : public Entity {
 public:
  using Ptr = Kel::Ptr<Dir>;
  using PtrConst = Kel::Ptr<Dir const>;
  class EntryState;
  class Notifiee;
  class NotifieeConst;
  using EntryStateIterator = EntityTree<EntryState>::Iterator;
  using EntryStateIteratorConst = EntityTree<EntryState>::IteratorConst;
  enum Attribute : AttributeId { nameAttr, subdirAttr, entryStateAttr, endAttr };

  // A new directory. If `parent` is given, it becomes an entry there; raises NameInUseException if the name is taken.
  explicit Dir(Name name, Dir* parent = nullptr);
  ~Dir() override;
  // The record of this class.
  static KelType const* _fwkType();
  KelType const* type() const override { return _fwkType(); }

  // The entry record of that name, or null.
  Kel::Ptr<EntryState> entry(Name const& name);
  Kel::Ptr<EntryState const> entry(Name const& name) const;
  // The same, under the name that the accessor of a collection has.
  Kel::Ptr<EntryState> entryState(Name const& name) { return entry(name); }
  Kel::Ptr<EntryState const> entryState(Name const& name) const { return entry(name); }
  // The number of entries.
  U32 entryStates() const { return entryState_.members(); }
  EntryStateIterator entryStateIterator() { return entryState_.iterator(); }
  EntryStateIteratorConst entryStateIteratorConst() const { return entryState_.iteratorConst(); }

  // The child of that name, or null. If it has an entry state but does not exist yet, a mutable directory makes it from
  // the entry state's type, and raises TypeException if that type is unknown or cannot be made from a name. A const
  // directory answers null.
  Entity::Ptr entityRef(Name const& name);
  Entity::PtrConst entityRef(Name const& name) const;
  // The child of that name, or null. Takes no handle and no copy of the name, and makes nothing.
  Entity const* child(std::string_view name) const;
  // Whether the name of some entry begins with `prefix`.
  bool anyNameBegins(std::string_view prefix) const { return entryState_.anyKeyBegins(prefix); }

  // The entry state of that name. Makes it if it is missing. If it is of another type, deletes it with its entity and
  // makes a new one.
  Kel::Ptr<EntryState> entryStateIs(Name const& name, String8 const& typeName);
  // Makes an entry state, without its entity. Raises NameInUseException if the name is taken.
  Kel::Ptr<EntryState> newEntryState(Name const& name, String8 const& typeName);
  // Makes a child. Raises NameInUseException if the name is taken, TypeException if the type is unknown or cannot be
  // made from a name.
  Entity::Ptr newEntity(String8 const& typeName, Name const& name);
  // Adds an entity as an entry under its own name. Raises NameInUseException if the name is taken, RangeException for
  // null, for an entity that has a parent, and for the root of this directory's own tree.
  void entryIs(Entity::Ptr const& entity);
  // Deletes the entry and its child, if there is one of that name.
  void entryStateDel(Name const& name);
  void entryDel(Name const& name) { entryStateDel(name); }
  void entryStateDelAll();
  // Calls the reactors for the entry, though nothing has changed.
  void entryStateNotify(Name const& name) const { notify(entryStateAttr, &name); }

 private:
  friend struct DirAccess;
  void attach(EntryState& state, Entity::Ptr const& entity);

  EntityTree<EntryState> entryState_;
};

// The record of one entry of a directory.
class KEL_API Dir::EntryState : public Entity {
 public:
  using Ptr = Kel::Ptr<EntryState>;
  using PtrConst = Kel::Ptr<EntryState const>;
  enum EntryAttribute : AttributeId { entryNameAttr, typeNameAttr, entityPtrAttr };

  EntryState(Name name, String8 typeName) : Entity(std::move(name)), typeName_(std::move(typeName)) {}
  // The record of this class.
  static KelType const* _fwkType();
  KelType const* type() const override { return _fwkType(); }

  // The full name of the type of the entry's entity.
  String8 const& entityTypeName() const { return typeName_; }
  // The entity, or null while it does not exist.
  Entity::Ptr const& entityPtr() { return entity_; }
  Entity::PtrConst entityPtr() const { return entity_; }

 private:
  friend class Dir;
  friend struct DirAccess;
  String8 const typeName_;
  Entity::Ptr entity_;
};

// The reactor of a directory. It is called with the name of an entry that came, got its entity, or went.
class KEL_API Dir::Notifiee : public EntityNotifiee {
 public:
  using Ptr = Kel::Ptr<Notifiee>;
  Dir::Ptr notifier() const;
  // Watches another directory, or none.
  void notifierIs(Dir::Ptr const& dir) { bind(dir); }
  virtual void onEntryState(Name const&) {}

 protected:
  void dispatch(AttributeId id, void const* key) override;
};

// The same for a const directory.
class KEL_API Dir::NotifieeConst : public EntityNotifiee {
 public:
  using Ptr = Kel::Ptr<NotifieeConst>;
  Dir::PtrConst notifier() const;
  void notifierIs(Dir::PtrConst const& dir) { bind(dir); }
  virtual void onEntryState(Name const&) {}

 protected:
  void dispatch(AttributeId id, void const* key) override;
};

// A new directory without a parent.
KEL_API Dir::Ptr dirFactory(Name const& name);

}  // namespace Kel
