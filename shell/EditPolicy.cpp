#include "EditPolicy.h"

#include <algorithm>
#include <vector>

namespace Shell {

namespace Session = Cli::Session;

namespace {

// The default entity of a type. It is in a directory of the type's name, because types may have equal keys.
Kel::Entity::Ptr defaultEntity(Session::AttributeEditBypassTable& table, Kel::KelType const& type) {
  Kel::Dir::Ptr const all = table.defaultEntityDirIs("default");
  if (!all->entry(type.fullTypeName())) {
    Kel::Dir::Ptr const own(new Kel::Dir(type.fullTypeName(), all.ptr()));
    own->entryIs(type.newDefault());
  }
  return Kel::ptrCast<Kel::Dir>(all->entityRef(type.fullTypeName()))->entryStateIterator()->entityPtr();
}

// Registers a default entity for every attribute that owns entities in a tree of that type.
void bypassDefaults(Session::AttributeEditBypassTable& table, Kel::KelType const& rootType,
                    std::vector<Kel::String> const& prefixes) {
  std::vector<Kel::KelType const*> types{&rootType};
  for (std::size_t i = 0; i < types.size(); ++i) {
    for (Kel::KelAttr const* attr : types[i]->ownAttrs()) {
      if (attr->type()->isAbstract() || attr->type() == Kel::Dir::EntryState::_fwkType()) continue;
      auto const entry = table.attributeEditBypassEntryIs(
          Session::AttributeEdit(attr->name(), types[i]->fullTypeName(), Session::AttributeEditType::del_));
      for (Kel::String const& prefix : prefixes) entry->parentPathIs(prefix, true);
      entry->defaultEntIs(defaultEntity(table, *attr->type()));
      if (std::find(types.begin(), types.end(), attr->type()) == types.end()) types.push_back(attr->type());
    }
  }
}

}  // namespace

void bypassDefaultsIs(Cli::Service::Service& service, bool on) {
  Session::Status& manager = service.manager();
  if (!on) return manager.attributeEditBypassTableIs(nullptr);
  // The table is held by the manager's pointer, and is in the manager's directory.
  Kel::Dir::Ptr const dir(static_cast<Kel::Dir*>(manager.parent()));
  Kel::Name const name("bypass");
  if (!dir->entry(name)) {
    auto const made = dir->newEntity("Cli::Session::AttributeEditBypassTable", name);
    Kel::Dir::Ptr const running = service.running().dir;
    auto& table = static_cast<Session::AttributeEditBypassTable&>(*made);
    for (Cli::Service::SessionRoot const& root : service.roots())
      if (Kel::KelType const* const type = Kel::KelType::find(root.typeName))
        bypassDefaults(table, *type, {manager.sessionDir()->fullName() + "/", running->fullName() + "/"});
  }
  manager.attributeEditBypassTableIs(Kel::ptrCast<Session::AttributeEditBypassTable>(dir->entityRef(name)));
}

void debugActionsIs(Session::AttributeEditLog& log, Session::CliConfig const& config) {
  log.attributeEditDebugConfigDelAll();
  for (auto at = config.debugEntityCopyIteratorConst(); at; ++at)
    for (auto edit = at->debugConfigIteratorConst(); edit; ++edit)
      log.attributeEditDebugConfigIs(at.key())->debugConfigIs(edit.key())->actionIs(edit->action());
  log.attributeEditDebugTypeConfigDelAll();
  for (auto edit = config.debugPerTypeEntityCopyIteratorConst(); edit; ++edit)
    for (auto path = edit->actionIteratorConst(); path; ++path)
      log.attributeEditDebugTypeConfigIs(edit.key())->actionIs(path.key(), path.value());
}

}  // namespace Shell
