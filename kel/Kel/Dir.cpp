#include "Kel/Dir.h"

#include <vector>

#include "Kel/AttrMaps.h"
#include "Kel/TypeBuilder.h"

namespace Kel {

Dir::Dir(Name name, Dir* parent) : Entity(std::move(name)) {
  if (!parent) return;
  // No handle holds the new directory yet. A temporary handle must not destroy it.
  isNondestructingIs(true);
  try {
    parent->entryIs(Entity::Ptr(this));
  } catch (...) {
    // A reactor of the parent raised an exception. There will be no directory, so there must be no entry.
    if (this->parent() == parent) {
      Entity::Ptr state = parent->entryState_.take(this->name());
      static_cast<EntryState&>(*state).entity_.release();
      leaveTree(Entity::Ptr(this));
      leaveTree(std::move(state));
    }
    throw;
  }
  isNondestructingIs(false);
}

Dir::~Dir() = default;

Kel::Ptr<Dir::EntryState> Dir::entry(Name const& name) { return Kel::Ptr<EntryState>(entryState_.find(name)); }
Kel::Ptr<Dir::EntryState const> Dir::entry(Name const& name) const {
  return Kel::Ptr<EntryState const>(entryState_.find(name));
}

Entity::Ptr Dir::entityRef(Name const& name) {
  Kel::Ptr<EntryState> const state = entry(name);  // held: a reactor may delete the entry
  if (!state) return nullptr;
  if (!state->entity_) {
    KelType const* type = KelType::find(state->typeName_);
    if (!type || !type->isEntity())
      throwTypeException(fullName() + "/" + name,
                         String8("Entity is the wrong type: no entity type '") + state->typeName_ + "'");
    attach(*state, type->newEntityFor(name, this));
  }
  return state->entity_;
}

Entity::PtrConst Dir::entityRef(Name const& name) const { return Entity::PtrConst(child(name)); }

Entity const* Dir::child(std::string_view name) const {
  EntryState const* state = entryState_.find(name);
  return state ? state->entity_.ptr() : nullptr;
}

void Dir::attach(EntryState& state, Entity::Ptr const& entity) {
  state.entity_ = entity;
  state.mark(Change::content);
  adopt(*entity, entryStateAttr);
  Name const name = state.name();
  notify(entryStateAttr, &name);
}

Kel::Ptr<Dir::EntryState> Dir::newEntryState(Name const& name, String8 const& typeName) {
  if (entryState_.find(name)) throwNameInUseException(fullName() + "/" + name + " is taken");
  Kel::Ptr<EntryState> state(new EntryState(name, typeName));
  entryState_.insert(state);
  adopt(*state, entryStateAttr);
  notify(entryStateAttr, &name);
  return state;
}

Kel::Ptr<Dir::EntryState> Dir::entryStateIs(Name const& name, String8 const& typeName) {
  Kel::Ptr<EntryState> state = entry(name);
  if (state && state->typeName_ == typeName) return state;
  if (state) entryStateDel(name);
  return newEntryState(name, typeName);
}

Entity::Ptr Dir::newEntity(String8 const& typeName, Name const& name) {
  KelType const* type = KelType::find(typeName);
  if (!type || !type->isEntity())
    throwTypeException(fullName() + "/" + name, String8("Entity is the wrong type: no entity type '") + typeName + "'");
  return type->newEntity(name, this);
}

namespace {

bool hasChildren(Entity const& e) {
  bool any = false;
  for (KelAttr const* attr : e.type()->ownAttrs())
    attr->access().eachChild(
        e, [](Entity*, void* found) { *static_cast<bool*>(found) = true; }, &any);
  return any;
}

}  // namespace

void Dir::entryIs(Entity::Ptr const& entity) {
  if (!entity) throwNullValidPtr();
  if (entity->parent()) throwRangeException(entity->fullName() + " has a parent already");
  // Only an entity with children can contain this directory. So building a deep tree from the root down needs no walk
  // up for each entity.
  if (entity.ptr() == this || (hasChildren(*entity) && entity.ptr() == root()))
    throwRangeException(fullName() + " cannot be put below itself");
  Kel::Ptr<EntryState> const state = newEntryState(entity->name(), entity->typeName());
  // Reactors have run: one may have deleted the entry state, or asked for its entity and so made another one.
  if (state->parent() != this || state->entity_) throwRangeException(fullName() + "/" + state->name() + " has changed");
  attach(*state, entity);
}

void Dir::entryStateDel(Name const& name) {
  Name const key = name;  // `name` may belong to the entry
  Entity::Ptr state = entryState_.take(key);
  if (!state) return;
  Entity::Ptr& entity = static_cast<EntryState&>(*state).entity_;
  if (entity) leaveTree(std::exchange(entity, nullptr));
  leaveTree(std::move(state));
  notify(entryStateAttr, &key);
}

void Dir::entryStateDelAll() {
  std::vector<Name> names;
  for (auto it = entryState_.iteratorConst(); it; ++it) names.push_back(it.key());
  for (Name const& name : names) entryStateDel(name);
}

// Defined here because KelType.cpp does not include Dir.h.
Entity::Ptr KelType::newEntityFor(Name const& name, Dir* dir) const {
  std::vector<GenericIf::PtrConst> args = argsForName(name);
  if (dir && args.size() > 1 && ctorArgs_[1].pointer && ctorArgs_[1].type() == Dir::_fwkType())
    args[1] = GenericIf::ofEntity(Entity::Ptr(dir));
  return newEntity(args);
}
Entity::Ptr KelType::newEntity(Name const& name, Dir* dir) const {
  Entity::Ptr made = newEntityFor(name, dir);
  if (dir) dir->entryIs(made);
  return made;
}

Dir::Ptr dirFactory(Name const& name) { return Dir::Ptr(new Dir(name)); }

// --- Reflection ---

namespace {

// The names of the entries that are directories.
class SubdirAccess final : public AttrAccess {
 public:
  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool) const override {
    auto const& dir = static_cast<Dir const&>(*static_cast<Entity const*>(object));
    Name const name = unboxKey<Name>(attr, key);
    return isSubdir(dir.entry(name)) ? GenericIf::of(true) : GenericIf::Ptr();
  }
  AttrIterator& iterate(KelAttr const& attr, Entity const& e, GenericIf const* key, IteratorRoom& room) const override;
  U32 count(KelAttr const&, Entity const& e) const override { return static_cast<U32>(names(e).size()); }
  bool derived() const override { return true; }

 private:
  static bool isSubdir(Kel::Ptr<Dir::EntryState const> const& state) {
    return state && state->entityTypeName() == Dir::_fwkType()->fullTypeName();
  }
  static std::vector<Name> names(Entity const& e) {
    std::vector<Name> list;
    for (auto it = static_cast<Dir const&>(e).entryStateIteratorConst(); it; ++it)
      if (isSubdir(it.ptr())) list.push_back(it.key());
    return list;
  }
};

// Iterates over the names as they were when it was made.
class SubdirIterator final : public AttrIterator {
 public:
  explicit SubdirIterator(std::vector<Name> names) : names_(std::move(names)) {}
  bool nonNull() const override { return at_ < names_.size(); }
  GenericIf::Ptr key() const override { return box(names_[at_]); }
  GenericIf::Ptr obj(bool) const override { return box(true); }
  void inc() override { ++at_; }
  void cloneInto(IteratorRoom& room) const override { room.emplace(*this); }
  Entity* keyTarget() const override { return nullptr; }
  Entity* target() const override { return nullptr; }

 private:
  std::vector<Name> names_;
  std::size_t at_ = 0;
};

AttrIterator& SubdirAccess::iterate(KelAttr const& attr, Entity const& e, GenericIf const* key,
                                    IteratorRoom& room) const {
  std::vector<Name> list = names(e);
  if (key) std::erase_if(list, [name = unboxKey<Name>(attr, key)](Name const& n) { return !(n == name); });
  return room.emplace(SubdirIterator(std::move(list)));
}

}  // namespace

// The entry states, which hold the children.
struct DirAccess final : AttrAccess {
  static Dir const& dirOf(Entity const& e) { return static_cast<Dir const&>(e); }
  static Dir& dirOf(Entity& e) { return static_cast<Dir&>(e); }

  GenericIf::Ptr get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const override {
    Dir const& dir = dirOf(*static_cast<Entity const*>(object));
    return boxView(Kel::Ptr<Dir::EntryState>(dir.entryState_.find(unboxKey<Name>(attr, key))), constView);
  }
  void set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const override {
    NameAndType const made = nameAndType(attr, key, value);
    dirOf(e).entryStateIs(made.name, made.typeName);
  }
  void del(KelAttr const& attr, Entity& e, GenericIf const* key) const override {
    dirOf(e).entryStateDel(unboxKey<Name>(attr, key));
  }
  void op(KelAttr const& attr, Entity& e, AttributeOp op, GenericIf const* key, GenericIf const* value) const override {
    switch (op) {
      case AttributeOp::create: {
        NameAndType const made = nameAndType(attr, key, value);
        dirOf(e).newEntryState(made.name, made.typeName);
        return;
      }
      case AttributeOp::deleteAll: return dirOf(e).entryStateDelAll();
      case AttributeOp::notify: return dirOf(e).entryStateNotify(unboxKey<Name>(attr, key));
      default: return AttrAccess::op(attr, e, op, key, value);
    }
  }
  AttrIterator& iterate(KelAttr const& attr, Entity const& e, GenericIf const* key, IteratorRoom& room) const override {
    auto& states = dirOf(e).entryState_;
    return iteratorIn<MemberPtr>(room, key ? states.entities(unboxKey<Name>(attr, key)) : states.entities());
  }
  U32 count(KelAttr const&, Entity const& e) const override { return dirOf(e).entryStates(); }
  bool equalThrough(Entity const& dest, Entity const& src, SameTarget&) const override {
    return dirOf(dest).entryStates() == 0 && dirOf(src).entryStates() == 0;
  }
  Entity* child(Entity const& e, std::string_view key) const override { return dirOf(e).entryState_.find(key); }
  Entity* findCounterpart(Entity const& e, Entity const& member, U32) const override { return child(e, member.name()); }
  bool sameKeyHashes(Entity const&, Entity const&) const override { return false; }
  Entity* createLike(KelAttr const&, Entity& owner, Entity const& like) const override {
    auto const& state = static_cast<Dir::EntryState const&>(like);
    return dirOf(owner).newEntryState(state.name(), state.entityTypeName()).ptr();
  }

  void eachChild(Entity const& e, void (*visit)(Entity*, void*), void* context) const override {
    for (auto it = dirOf(e).entryState_.iteratorConst(); it; ++it)
      if (it->entity_) visit(it->entity_.ptr(), context);
  }
  void takeChildren(Entity& e, ChildTaken taken, void* context) const override {
    dirOf(e).entryState_.takeAll([&](Entity::Ptr state) {
      Entity::Ptr& entity = static_cast<Dir::EntryState&>(*state).entity_;
      if (entity) taken(std::move(entity), context);
      taken(std::move(state), context);
    });
  }
  void write(KelAttr const&, void const*, AttrLogOut&) const override {}
  void read(KelAttr const&, void*, AttrLogIn&) const override {}
  // Each entry state, followed by its child.
  void eachOwned(Entity const& e, OwnedVisit visit, void* context) const override {
    for (auto it = dirOf(e).entryState_.iteratorConst(); it; ++it) {
      visit(const_cast<Dir::EntryState*>(it.ptr().ptr()), 0, context);
      if (it->entity_) visit(it->entity_.ptr(), 0, context);
    }
  }
  void restore(KelAttr const& attr, Entity& owner, Ptr<Entity> const& child, U64) const override {
    auto& states = dirOf(owner).entryState_;
    Dir::EntryState* const state = states.find(child->name());
    if (child->type() == Dir::EntryState::_fwkType()) {
      if (state) throwTaken(attr, child->name());
      states.insert(child);
    } else {
      if (!state || state->typeName_ != child->typeName()) throwWrongEntity(attr, *child);
      if (state->entity_) throwTaken(attr, child->name());
      state->entity_ = child;
    }
    owner.adopt(*child, attr.id());
  }

 private:
  struct NameAndType {
    Name name;
    String8 typeName;
  };
  static NameAndType nameAndType(KelAttr const& attr, GenericIf const* key, GenericIf const* value) {
    auto const args = creationArgs(attr, key, value);
    if (args.size() != 2) throwUnknownArgException(attr.fullName(), "name and typeName expected");
    Name const name = unbox<Name>(args[0].ptr(), attr.fullName());
    if (key && !(unboxKey<Name>(attr, key) == name)) throwForeignKey(attr);
    return {name, unbox<String8>(args[1].ptr(), attr.fullName())};
  }
};

// The entries are the children, not their entry states: a path names them without the attribute `entryState`.
static constexpr EntryOps dirEntryOps = {
    [](Entity const& child) {
      return child.parentAttrId() == Dir::entryStateAttr && child.type() != Dir::EntryState::_fwkType();
    },
    [](Entity const& dir, std::string_view name) { return static_cast<Dir const&>(dir).child(name); },
    [](Entity const& dir, std::string_view prefix) { return static_cast<Dir const&>(dir).anyNameBegins(prefix); }};

KelType const* Dir::_fwkType() {
  static KelType const* const type = [] {
    constexpr unsigned plain = KelAttrIntrospectionFlags::writable | KelAttrIntrospectionFlags::logging;
    EntityTypeBuilder<Dir> b("Kel::Dir", Entity::_fwkType());
    b.name(nameAttr);
    b.collectionAttr(subdirAttr, "subdir", new SubdirAccess, &TypeOf<bool>::type, KelAttrIntrospectionFlags::logging,
                     &TypeOf<Name>::type);
    b.treeAttr(entryStateAttr, "entryState", &Dir::entryState_, new DirAccess,
               plain | KelAttrIntrospectionFlags::instantiating);
    b.constructs<&Entity::name>();
    b.nested(EntryState::_fwkType());
    b.setEntries(dirEntryOps);
    return b.done();
  }();
  return type;
}

KelType const* Dir::EntryState::_fwkType() {
  static KelType const* const type = [] {
    EntityTypeBuilder<EntryState> b("Kel::Dir::EntryState", Entity::_fwkType());
    b.name(entryNameAttr);
    b.param(typeNameAttr, "typeName", &EntryState::typeName_);
    b.pointer(entityPtrAttr, "entityPtr", &EntryState::entity_);
    b.readonly();
    b.nolog();
    b.constructs<&Entity::name, &EntryState::entityTypeName>();
    return b.done();
  }();
  return type;
}

static TypeRegistration const dirRegistration(&Dir::_fwkType);
static TypeRegistration const entryStateRegistration(&Dir::EntryState::_fwkType);

Dir::Ptr Dir::Notifiee::notifier() const { return Dir::Ptr(const_cast<Dir*>(static_cast<Dir const*>(bound().ptr()))); }
Dir::PtrConst Dir::NotifieeConst::notifier() const { return Dir::PtrConst(static_cast<Dir const*>(bound().ptr())); }

void Dir::Notifiee::dispatch(AttributeId id, void const* key) {
  if (id == entryStateAttr) onEntryState(*static_cast<Name const*>(key));
}
void Dir::NotifieeConst::dispatch(AttributeId id, void const* key) {
  if (id == entryStateAttr) onEntryState(*static_cast<Name const*>(key));
}

}  // namespace Kel
