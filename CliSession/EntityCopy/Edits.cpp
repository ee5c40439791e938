// Edits: debug actions, the bypass, and the log.
#include <iostream>

#include "CliSession/EntityCopy/Walk.h"
#include "CliSession/EntityCopyUtils.h"

namespace Cli::Session {

namespace {

// All steps of logging trace and assert under this name.
constexpr char const* operation = "addAttributeEditBypassEntry";
constexpr char const* signature =
    "void Cli::Session::EntityCopy::addAttributeEditBypassEntry(Kel::String8, Kel::String8, "
    "Cli::Session::AttributeEditType, Kel::String8, const Kel::Ptr<const Kel::GenericIf>&)";

// Whether an action is configured for edits of one kind, wherever they are made.
bool isDebugged(AttributeEditLog const& log, AttributeEdit const& edit) {
  for (auto it = log.attributeEditDebugConfigIteratorConst(); it; ++it)
    if (it->debugConfig(edit)) return true;
  return log.attributeEditDebugTypeConfig(edit) != nullptr;
}

// Takes the action for this edit at this path, or else the one for this edit at any path.
void takeDebugAction(AttributeEditLog const& log, AttributeEdit const& edit, Kel::String8 const& path) {
  AttributeDebugAction action = AttributeDebugAction::actionNone;
  auto const dir = log.attributeEditDebugConfig(path);
  if (auto const config = dir ? dir->debugConfig(edit) : nullptr) {
    action = config->action();
    KEL_TRACE_AS(9, operation) << "Found matching action (" << action << "), for " << edit.attributeName() << " on "
                               << path;
  }
  auto const typeConfig = log.attributeEditDebugTypeConfig(edit);
  if (action == AttributeDebugAction::actionNone && typeConfig) {
    KEL_TRACE_AS(5, operation) << "Found matching action (" << edit << "), for type " << edit.attributeType()
                               << ", attr " << edit.attributeName() << " for " << path;
    action = typeConfig->action(path);
    if (action == AttributeDebugAction::actionNone) action = typeConfig->action("");
  }
  if (action == AttributeDebugAction::actionNone) return;
  KEL_TRACE_AS(5, operation) << "Taking action " << action;
  if (action == AttributeDebugAction::actionTrace)
    std::cerr << edit.attributeType() << "::" << edit.attributeName() << " " << edit.editType()
              << " triggered entityCopy attr debugging" << std::endl;
  if (action == AttributeDebugAction::actionAssert) KEL_ASSERT_AS(false, "false", signature);
}

// Takes the debug action of an edit, asks the bypass checker, and counts the edit. Answers whether it counts as a
// difference: a bypassed edit does not. `path` is the edited entity's full name; `edited` is null if it is not known.
bool recordEdit(EntityCopy& ec, AttributeEdit const& edit, Kel::String8 const& path, Kel::Entity const* edited,
                Kel::GenericIf::PtrConst const& value) {
  KEL_TRACE_AS(5, operation) << "addAttributeEditBypassEntry: " << edit.attributeName() << ", " << edit.attributeType()
                             << ", " << edit.editType() << ", " << path;
  Kel::String8 relative = pathBelow(ec.dest().ptr(), path);
  if (edited && onlySeemsBelow(ec, *edited)) relative = {};
  Kel::Ptr<AttributeEditLog> const log = ec.attributeEditLog();
  if (log) takeDebugAction(*log, edit, relative);
  auto const checker = ec.attributeEditBypassChecker();
  if (checker && checker->bypassAttributeEditLog(&ec, edit, path, value)) {
    KEL_TRACE_AS(5, operation) << "Skipped";
    return false;
  }
  if (log) {
    log->attributeEditEntryIs(edit)->pathCounterCounterInc(relative);
    KEL_TRACE_AS(5, operation) << "Logged";
  }
  return true;
}

}  // namespace

void ensureLog(EntityCopy& ec) {
  if (!ec.attributeEditLog()) ec.attributeEditLogIs(attributeEditLogFactory());
}

void EntityCopy::addAttributeEditBypassEntry(Kel::String attributeName, Kel::String typeName,
                                             AttributeEditType editType, Kel::String path,
                                             Kel::GenericIf::PtrConst const& value) {
  recordEdit(*this, AttributeEdit(attributeName, typeName, editType), path, nullptr, value);
}

bool Walk::record(Frame& f, Step const& s, AttributeEditType type, Box const& value) {
  ForeignCode const foreign(*this, f);
  AttributeEdit const edit(s.attr.name(), f.dest.type()->fullTypeName(), type);
  return recordEdit(ec_, edit, f.dest.fullName(), &f.dest, value);
}

AttributeEditEntry* Walk::findEntry(Frame const& f, Step const& s, AttributeEditType type, std::size_t at) {
  AttributeEdit const edit(s.attr.name(), f.dest.type()->fullTypeName(), type);
  bool const seen = traced_ || log_->hasReactors() || (checker_ && checker_->concerns(edit)) || isDebugged(*log_, edit);
  AttributeEditEntry* const entry = seen ? nullptr : log_->attributeEditEntryIs(edit).ptr();
  if (at >= impl_.entries.size()) impl_.entries.resize(2 * std::size_t(stepCount()));
  impl_.entries[at] = {entry && entry->hasReactors() ? nullptr : entry, impl_.generation};
  return impl_.entries[at].entry;
}

// --- The hooks ---

// Setting what is set already is no edit. A member whose key is absent, and an entity to be made, always are.
bool Walk::attributeIs(Frame& f, Step const& s, Box const& index, Box const& value, Box current) {
  WALK_TRACE(2) << "attributeIs: setting " << s.attr.name();
  Kel::KelAttr const& attr = destAttr(f, s);
  Kel::GenericIf::Ptr const dest = genericIf(&f.dest);
  if (!attr.instantiating()) {
    bool const isThere = !attr.isCollection() || dest->attributeIteratorKeyConst(attr.id(), index);
    if (isThere && !current) current = dest->attribute(attr.id(), index);
    bool const equal = isThere && valueTypeEqual(current, value);
    if (attr.isPtr())
      WALK_TRACE(4) << "Compare Ptrs for " << attr.name()
                    << "? attr voidPtr: " << static_cast<void const*>(entityConstOf(value).ptr())
                    << ", dest voidPtr: " << static_cast<void const*>(entityConstOf(current).ptr()) << " => " << equal;
    if (equal) return false;
  }
  return editBoxed(
      f, s, AttributeEditType::set_, [&] { return value; }, [&] { dest->attributeIs(attr.id(), index, value); });
}

bool Walk::attributeDel(Frame& f, Step const& s, Box const& index) {
  WALK_TRACE(2) << "attributeDel: deleting " << s.attr.name();
  Kel::AttributeId const id = destAttr(f, s).id();
  Kel::GenericIf::Ptr const dest = genericIf(&f.dest);
  return editBoxed(
      f, s, AttributeEditType::del_, [&] { return Box(dest->attribute(id, index)); },
      [&] { dest->attributeDel(id, index); });
}

bool Walk::attributeAdd(Frame& f, Step const& s, Box const& value) {
  WALK_TRACE(2) << "attributeAdd: adding " << s.attr.name();
  Kel::AttributeId const id = destAttr(f, s).id();
  return editBoxed(
      f, s, AttributeEditType::set_, [&] { return value; }, [&] { genericIf(&f.dest)->attributeSQEnq(id, value); });
}

bool Walk::attributeRemove(Frame& f, Step const& s) {
  WALK_TRACE(2) << "attributeRemove: removing " << s.attr.name();
  Kel::AttributeId const id = destAttr(f, s).id();
  Kel::GenericIf::Ptr const dest = genericIf(&f.dest);
  auto const head = dest->attributeIterator(id);
  return editBoxed(
      f, s, AttributeEditType::del_, [&] { return head ? Box(head.obj()) : nullptr; },
      [&] { dest->attributeSQDeq(id); });
}

}  // namespace Cli::Session
