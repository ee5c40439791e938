// Directories: entities whose only job is to hold named children.
//
// Each entry has an entry state, which records its name, the type name of the entity that it stands for, and the entity
// once it is there. The entity's parent is the directory. Entries are walked in key order; sub-directories are entries
// like any other. Reflectively a directory has `name`, `subdir` (the names of the entries that are directories: derived
// and read-only, so that a copy passes it by) and the instantiating collection `entryState`.
//
// A directory that is copied without a directory handler gets the entries of the source by name and type only: the
// children themselves are not visited, and no entity of the source ever gets into the destination.
#pragma once

#include "Kel/Entity.h"
#include "Kel/RbTreeMap.h"

namespace Kel {

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

  // A new directory, an entry of `parent` when one is given. Raises NameInUseException.
  explicit Dir(Name name, Dir* parent = nullptr);
  ~Dir() override;
  static KelType const* _fwkType();
  KelType const* type() const override { return _fwkType(); }

  // The entry record of that name, or null.
  Kel::Ptr<EntryState> entry(Name const& name);
  Kel::Ptr<EntryState const> entry(Name const& name) const;
  Kel::Ptr<EntryState> entryState(Name const& name) { return entry(name); }
  Kel::Ptr<EntryState const> entryState(Name const& name) const { return entry(name); }
  U32 entryStates() const { return entryState_.members(); }
  EntryStateIterator entryStateIterator() { return entryState_.iterator(); }
  EntryStateIteratorConst entryStateIteratorConst() const { return entryState_.iteratorConst(); }

  // The child of that name, or null. On a mutable directory a child that has an entry state but is not there yet is
  // made from the entry state's type; raises TypeException when that type is unknown or cannot be made from a name.
  Entity::Ptr entityRef(Name const& name);
  Entity::PtrConst entityRef(Name const& name) const;
  // The child of that name, or null; for look-ups, which take no handle and no copy of the name.
  Entity const* child(std::string_view name) const;
  // Whether the name of some entry begins so.
  bool anyNameBegins(std::string_view prefix) const { return entryState_.anyKeyBegins(prefix); }

  // The entry state of that name: made when it is missing, replaced when it is of another type.
  Kel::Ptr<EntryState> entryStateIs(Name const& name, String8 const& typeName);
  // The same, but a taken name raises NameInUseException.
  Kel::Ptr<EntryState> newEntryState(Name const& name, String8 const& typeName);
  // A new child of that type under a free name; raises NameInUseException, TypeException.
  Entity::Ptr newEntity(String8 const& typeName, Name const& name);
  // Takes an entity that has no parent in as an entry under its own name; raises NameInUseException, RangeException.
  void entryIs(Entity::Ptr const& entity);
  // Deletes the entry and its child. What is not there is not an error.
  void entryStateDel(Name const& name);
  void entryDel(Name const& name) { entryStateDel(name); }
  void entryStateDelAll();
  void entryStateNotify(Name const& name) const { notify(entryStateAttr, &name); }

 private:
  friend struct DirAccess;
  void attach(EntryState& state, Entity::Ptr const& entity);

  EntityTree<EntryState> entryState_;
};

class KEL_API Dir::EntryState : public Entity {
 public:
  using Ptr = Kel::Ptr<EntryState>;
  using PtrConst = Kel::Ptr<EntryState const>;
  enum EntryAttribute : AttributeId { entryNameAttr, typeNameAttr, entityPtrAttr };

  EntryState(Name name, String8 typeName) : Entity(std::move(name)), typeName_(std::move(typeName)) {}
  static KelType const* _fwkType();
  KelType const* type() const override { return _fwkType(); }

  // The type name of the entity that the entry stands for.
  String8 const& entityTypeName() const { return typeName_; }
  // The entity, or null while it is not there.
  Entity::Ptr const& entityPtr() { return entity_; }
  Entity::PtrConst entityPtr() const { return entity_; }

 private:
  friend class Dir;
  friend struct DirAccess;
  String8 const typeName_;
  Entity::Ptr entity_;
};

// The reactor of a directory: called with the name of the entry that came, got its entity, or went.
class KEL_API Dir::Notifiee : public EntityNotifiee {
 public:
  using Ptr = Kel::Ptr<Notifiee>;
  Dir::Ptr notifier() const;
  void notifierIs(Dir::Ptr const& dir) { bind(dir); }
  virtual void onEntryState(Name const&) {}

 protected:
  void dispatch(AttributeId id, void const* key) override;
};

class KEL_API Dir::NotifieeConst : public EntityNotifiee {
 public:
  using Ptr = Kel::Ptr<NotifieeConst>;
  Dir::PtrConst notifier() const;
  void notifierIs(Dir::PtrConst const& dir) { bind(dir); }
  virtual void onEntryState(Name const&) {}

 protected:
  void dispatch(AttributeId id, void const* key) override;
};

KEL_API Dir::Ptr dirFactory(Name const& name);

}  // namespace Kel
