// The hooks through which every change of the destination goes, and the log behind them.
#define KEL_SOURCE_NAME "EntityCopy"
#include <iostream>

#include "CliSession/EntityCopy/EngineImpl.h"
#include "CliSession/EntityCopyCompare.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

namespace {

// The steps of logging trace, and assert, in its name.
char const* const operation = "addAttributeEditBypassEntry";

// The action configured for this edit at this path, or for it at any path of its type.
AttributeDebugAction debugAction(AttributeEditLog const& log, AttributeEdit const& edit, Kel::String8 const& path) {
  AttributeDebugAction action = AttributeDebugAction::actionNone;
  if (auto const dir = log.attributeEditDebugConfig(path)) {
    if (auto const config = dir->debugConfig(edit)) {
      action = config->action();
      KEL_TRACE_AS(9, operation) << "Found matching action (" << action << "), for " << edit.attributeName() << " on "
                                 << path;
    }
  }
  if (action != AttributeDebugAction::actionNone) return action;
  if (auto const config = log.attributeEditDebugTypeConfig(edit)) {
    KEL_TRACE_AS(5, operation) << "Found matching action (" << edit << "), for type " << edit.attributeType()
                               << ", attr " << edit.attributeName() << " for " << path;
    action = config->action(path);
    if (action == AttributeDebugAction::actionNone) action = config->action("");
  }
  return action;
}

void takeAction(AttributeDebugAction action, AttributeEdit const& edit) {
  if (action == AttributeDebugAction::actionNone) return;
  KEL_TRACE_AS(5, operation) << "Taking action " << action;
  if (action == AttributeDebugAction::actionTrace)
    std::cerr << edit.attributeType() << "::" << edit.attributeName() << " " << edit.editType()
              << " triggered entityCopy attr debugging" << std::endl;
  if (action == AttributeDebugAction::actionAssert)
    Kel::assertionFailed(KEL_SOURCE_NAME, __LINE__,
                         "void Cli::Session::EntityCopy::addAttributeEditBypassEntry(Kel::String8, Kel::String8, "
                         "Cli::Session::AttributeEditType, Kel::String8, const Kel::Ptr<const Kel::GenericIf>&)",
                         "false");
}

}  // namespace

bool logEdit(EntityCopy& ec, AttributeEdit const& edit, Kel::String8 const& path,
             Kel::GenericIf::PtrConst const& value) {
  KEL_TRACE_AS(5, operation) << "addAttributeEditBypassEntry: " << edit.attributeName() << ", " << edit.attributeType()
                             << ", " << edit.editType() << ", " << path;
  Kel::Ptr<AttributeEditLog> const log = ec.attributeEditLog();
  Kel::String8 const relative = ec.dest() ? pathBelow(Kel::Ptr<Kel::Entity const>(ec.dest()), path) : Kel::String8();
  if (log) takeAction(debugAction(*log, edit, relative), edit);
  if (auto const& checker = ec.attributeEditBypassChecker()) {
    if (checker->bypassAttributeEditLog(EntityCopy::Ptr(&ec), edit, path, value)) {
      KEL_TRACE_AS(5, operation) << "Skipped";
      return false;
    }
  }
  if (log) {
    log->attributeEditEntryIs(edit)->pathCounterCounterInc(relative);
    KEL_TRACE_AS(5, operation) << "Logged";
  }
  return true;
}

namespace {

// The first steps that all hooks share: log the edit, and find out whether it is to be applied. `changed` is the answer
// of the hook: whether the destination changes or, in compare mode, would.
bool toBeApplied(EntityCopy& ec, Kel::Entity const& dest, Kel::KelAttr const& attr, AttributeEditType editType,
                 Kel::GenericIf::PtrConst const& value, bool& changed) {
  if (ec.stopAtFirstDiff()) ensureLog(ec);
  bool const logged =
      !ec.attributeEditLog() ||
      logEdit(ec, AttributeEdit(attr.name(), dest.type()->fullTypeName(), editType), dest.fullName(), value);
  changed = logged || !ec.stopAtFirstDiff();
  return !ec.stop() && !ec.stopAtFirstDiff();
}

// Whether setting would change nothing. A member whose key is absent always differs; what is created always does.
bool alreadySo(Kel::GenericIf const& destGif, Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& index,
               Kel::GenericIf::PtrConst const& value, Kel::GenericIf::PtrConst current) {
  if (attr.instantiating()) return false;
  if (attr.isCollection()) {
    auto const it = memberAtKey(destGif, attr, index);
    if (!it) return false;
    if (!current) current = it.obj();
  } else if (!current) {
    current = destGif.attribute(attr.id());
  }
  if (!attr.isPtr()) return valueTypeEqual(current, value);
  Kel::Ptr<Kel::Entity const> const from = entityConstOf(value), to = entityConstOf(current);
  KEL_TRACE_AS(4, "attributeIs") << "Compare Ptrs for " << attr.name()
                                 << "? attr voidPtr: " << static_cast<void const*>(from.ptr())
                                 << ", dest voidPtr: " << static_cast<void const*>(to.ptr()) << " => " << (from == to);
  return from == to;
}

}  // namespace

Kel::Ptr<AttributeIsReturn> EntityCopy::attributeIs(Kel::Ptr<Kel::Entity> const& dest,
                                                    Kel::Ptr<Kel::KelAttr const> const& attr,
                                                    Kel::Ptr<Kel::GenericIf const> const& index,
                                                    Kel::Ptr<Kel::GenericIf const> const& value,
                                                    Kel::Ptr<Kel::GenericIf const> const& result) {
  wantArgs(dest, attr);
  Kel::GenericIf::Ptr const gif = genericIf(dest);
  KEL_TRACE(2) << "attributeIs: setting " << attr->name();
  Kel::KelAttr const& destOwn = destAttribute(*dest, *attr);
  if (alreadySo(*gif, destOwn, index, value, result)) return attributeIsReturnFactory(false, value);
  bool changed = false;
  if (toBeApplied(*this, *dest, *attr, AttributeEditType::set_, value, changed))
    gif->attributeIs(destOwn.id(), index, value);
  return attributeIsReturnFactory(changed, value);
}

bool EntityCopy::attributeDel(Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::KelAttr const> const& attr,
                              Kel::Ptr<Kel::GenericIf const> const& index) {
  wantArgs(dest, attr);
  Kel::GenericIf::Ptr const gif = genericIf(dest);
  KEL_TRACE(2) << "attributeDel: deleting " << attr->name();
  Kel::KelAttr const& destOwn = destAttribute(*dest, *attr);
  bool changed = false;
  if (toBeApplied(*this, *dest, *attr, AttributeEditType::del_, gif->attribute(destOwn.id(), index), changed))
    gif->attributeDel(destOwn.id(), index);
  return changed;
}

bool EntityCopy::attributeAdd(Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::KelAttr const> const& attr,
                              Kel::Ptr<Kel::GenericIf const> const& value) {
  wantArgs(dest, attr);
  KEL_TRACE(2) << "attributeAdd: adding " << attr->name();
  bool changed = false;
  if (toBeApplied(*this, *dest, *attr, AttributeEditType::set_, value, changed))
    genericIf(dest)->attributeSQEnq(destAttribute(*dest, *attr).id(), value);
  return changed;
}

bool EntityCopy::attributeRemove(Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::KelAttr const> const& attr) {
  wantArgs(dest, attr);
  KEL_TRACE(2) << "attributeRemove: removing " << attr->name();
  Kel::GenericIf::Ptr const gif = genericIf(dest);
  Kel::AttributeId const id = destAttribute(*dest, *attr).id();
  auto const head = gif->attributeIterator(id);
  bool changed = false;
  if (toBeApplied(*this, *dest, *attr, AttributeEditType::del_, head ? head.obj() : nullptr, changed))
    gif->attributeSQDeq(id);
  return changed;
}

void EntityCopy::addAttributeEditBypassEntry(Kel::String attributeName, Kel::String typeName,
                                             AttributeEditType editType, Kel::String path,
                                             Kel::Ptr<Kel::GenericIf const> const& value) {
  logEdit(*this, AttributeEdit(attributeName, typeName, editType), path, value);
}

}  // namespace Cli::Session
