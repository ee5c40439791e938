// Directories, entry by entry.
#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/Handlers/Handlers.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

bool EntityCopyDirHandler::handleEntity(Kel::Ptr<EntityCopy> const& ec, Kel::Ptr<Kel::Entity> const& dest,
                                        Kel::Ptr<Kel::Entity const> const& src, Kel::String path) {
  requireNonNull(ec);
  Kel::Ptr<Kel::Dir> const destDir = Kel::ptrCast<Kel::Dir>(dest);
  Kel::Ptr<Kel::Dir const> const srcDir = Kel::ptrCast<Kel::Dir const>(src);
  if (!destDir || !srcDir) return EntityCopyGlobalSessionHandler::handleEntity(ec, dest, src, path);
  if (path.empty()) path = pathBelow(ec->src().ptr(), *src);
  KEL_TRACE(8) << "virtual bool Cli::Session::EntityCopyDirHandler" << handleEntitySignature << path;
  bool differs = ec->doCopyAttrByName(dest, src, path, "subdir");
  Kel::KelAttr const* aidx = Kel::Dir::_fwkType()->findAttr("entryState");
  KEL_ASSERT(aidx);
  Kel::String8 const dirName = destDir->name().empty() ? "<unknown>" : destDir->name();
  // Logs the edit of an entry, held because a reactor on the log may delete it. Answers false if the run has to stop.
  // In a comparison it goes on only if the edit is bypassed, and then it does not make it.
  auto const logged = [&](AttributeEditType type, Kel::GenericIf::PtrConst const& entry) {
    if (ec->attributeEditLog())
      ec->addAttributeEditBypassEntry("entryState", aidx->type()->fullTypeName(), type, destDir->fullName(), entry);
    differs |= !ec->stopAtFirstDiff();
    return !ec->stop();
  };

  for (auto it = destDir->entryStateIterator(); it; ++it) {
    auto const state = it.ptr();
    auto const srcState = srcDir->entry(state->name());
    if (srcState && srcState->entityTypeName() == state->entityTypeName()) continue;
    if (!logged(AttributeEditType::del_, genericIf(state.ptr()))) return true;
    KEL_TRACE(9) << "Deleting entryState " << state->name() << " in " << dirName;
    if (!ec->stopAtFirstDiff()) destDir->entryStateDel(state->name());
  }
  for (auto it = srcDir->entryStateIteratorConst(); it; ++it) {
    auto const state = it.ptr();
    if (destDir->entry(state->name())) continue;
    if (!logged(AttributeEditType::set_, genericIf(state.ptr()))) return true;
    KEL_TRACE(9) << "Creating entryState " << state->name() << " in " << dirName;
    if (!ec->stopAtFirstDiff()) destDir->entryStateIs(state->name(), state->entityTypeName());
  }
  for (auto it = srcDir->entryStateIteratorConst(); it; ++it) {
    auto const state = it.ptr();
    Kel::Ptr<Kel::Entity const> const srcChild = state->entityPtr();
    if (!srcChild) continue;
    auto const destState = destDir->entry(state->name());
    bool const isMissing = !destState || !destState->entityPtr();
    if (isMissing && !logged(AttributeEditType::set_, genericIf(state.ptr()))) return true;
    KEL_TRACE(9) << "Creating entityPtr " << state->name() << " in " << dirName;
    // A comparison does not descend into a child that a copy would have to make.
    bool const sameType = destState && destState->entityTypeName() == state->entityTypeName();
    Kel::Ptr<Kel::Entity> const destChild =
        ec->stopAtFirstDiff() ? (sameType ? destState->entityPtr() : nullptr) : destDir->entityRef(state->name());
    if (destChild) differs |= ec->doCopyEntity(destChild, srcChild, path + "/" + state->name());
    if (ec->stop()) return true;
  }
  KEL_TRACE(9) << "handleEntity: " << dirName << " completed (" << differs << ")";
  return differs;
}

}  // namespace Cli::Session
