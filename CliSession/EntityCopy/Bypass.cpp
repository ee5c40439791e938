// Which edits stay out of the log.
#define KEL_SOURCE_NAME "EntityCopy"
#include <typeinfo>

#include "CliSession/EntityCopy/EngineImpl.h"
#include "CliSession/EntityCopyCompare.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

namespace {

// Whether any entry for an edit satisfies `which`. An entry may leave the attribute's name or the type's empty; the
// exact entry comes first.
template <class Which>
bool anyEntry(AttributeEditBypassTable const& table, AttributeEdit const& edit, Which const& which) {
  Kel::String const &name = edit.attributeName(), &type = edit.attributeType();
  auto const has = [&](Kel::String const& n, Kel::String const& t) {
    auto const entry = table.attributeEditBypassEntry(AttributeEdit(n, t, edit.editType()));
    return entry && which(*entry);
  };
  return has(name, type) || (!name.empty() && has("", type)) || (!type.empty() && has(name, "")) ||
         (!name.empty() && !type.empty() && has("", ""));
}

bool covers(AttributeEditBypassEntry const& entry, Kel::String8 const& path) {
  for (auto it = entry.parentPathIterator(); it; ++it)
    if (path.view().starts_with(it.key())) return true;
  return false;
}

// The check consists of several functions. All of them trace under its name.
char const* const operation = "checkBypassAttributeEditLog";
char const* const signature =
    "bool Cli::Session::checkBypassAttributeEditLog(const Kel::Ptr<const Cli::Session::AttributeEditBypassEntry>&, "
    "const Kel::Ptr<Cli::Session::EntityCopy>&, Kel::String, const Kel::Ptr<const Kel::GenericIf>&)";

// Copies the default values into the entity that is about to be deleted, and looks whether that logs an edit. The
// write does no harm, because the entity is deleted next; a comparison does not write. Raises UnknownAttrException if
// the default entity's type lacks an attribute of the entity's type.
bool holdsDefaultsOnly(AttributeEditBypassEntry const& entry, EntityCopy& ec, Kel::Ptr<Kel::Entity> const& dying) {
  AttributeEditLog const& log = *Kel::validPtr(ec.attributeEditLog());
  Kel::U32 const before = log.attributeEditEntrys();
  KEL_TRACE_AS(7, operation) << "attributeEditLog entries before copying: " << before;
  Kel::String8 const path = pathBelow(ec.dest().ptr(), *dying);
  for (Kel::KelAttr const* attr : dying->type()->attributeQ()) {
    if (!attr->copiable()) continue;
    KEL_TRACE_AS(7, operation) << "copy " << attr->name();
    ec.doCopyAttr(dying, entry.defaultEnt(), path, attr);
    if (ec.stop()) break;
  }
  Kel::U32 const after = log.attributeEditEntrys();
  KEL_TRACE_AS(7, operation) << "attributeEditLog entries after copying: " << after;
  return before == after;
}

// True if the edited attribute owns the entity. Otherwise the entity is the target of a pointer, and must not be
// compared with the default entity, because that writes.
bool isOwned(Kel::Ptr<Kel::Entity const> const& entity, AttributeEdit const& edit) {
  Kel::KelAttr const* const holder = entity ? entity->parentAttr() : nullptr;
  return holder && holder->instantiating() && holder->name() == edit.attributeName() &&
         entity->parent()->type()->fullTypeName() == edit.attributeType();
}

// The check of one entry against an edit that is about to be made.
bool bypasses(AttributeEditBypassEntry const& entry, EntityCopy::Ptr const& ec, AttributeEdit const& edit,
              Kel::String const& path, Kel::GenericIf::PtrConst const& value) {
  KEL_TRACE_AS(3, operation) << entry.attributeEdit().attributeName() << " in attributeEditBypassTable";
  if (!covers(entry, path)) return false;
  if (!isOwned(entityConstOf(value), edit) || !entry.defaultEnt()) return true;
  KEL_ASSERT_AS(entry.attributeEdit().editType() == AttributeEditType::del_,
                "aeBypass->attributeEdit().editType() == AttributeEditType::del_", signature);
  KEL_TRACE_AS(3, operation) << "check " << entry.attributeEdit().attributeName() << " with defaultEnt";
  Kel::Ptr<Kel::Entity> const dying = entityOf(value);
  // A read-only entity is not about to be deleted.
  return !dying || holdsDefaultsOnly(entry, *Kel::validPtr(ec), dying);
}

}  // namespace

bool AttributeEditLogBypass::bypassAttributeEditLog(Kel::Ptr<EntityCopy> const&, AttributeEdit const&, Kel::String,
                                                    Kel::Ptr<Kel::GenericIf const> const&) {
  Kel::throwNoImplementationException("bypassAttributeEditLog");
}

bool AttributeEditLogBypass::concerns(AttributeEdit const&) const { return true; }

bool AttributeEditBypassTable::concerns(AttributeEdit const& edit) const {
  if (typeid(*this) != typeid(AttributeEditBypassTable)) return true;  // a derived checker may look at anything
  return anyEntry(*this, edit, [](auto const&) { return true; });
}

bool checkBypassAttributeEditLog(AttributeEditBypassEntry::PtrConst const& aeBypass, EntityCopy::Ptr const& ec,
                                 Kel::String path, Kel::GenericIf::PtrConst const& value) {
  return aeBypass && bypasses(*aeBypass, ec, aeBypass->attributeEdit(), path, value);
}

bool AttributeEditBypassTable::bypassAttributeEditLog(Kel::Ptr<EntityCopy> const& ec, AttributeEdit const& edit,
                                                      Kel::String path, Kel::Ptr<Kel::GenericIf const> const& value) {
  if (!value) return false;
  return anyEntry(*this, edit, [&](auto const& entry) { return bypasses(entry, ec, edit, path, value); });
}

}  // namespace Cli::Session
