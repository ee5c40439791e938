// Directories, entry by entry.
#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/EngineImpl.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

namespace {

// All steps trace under this name.
char const* const operation = "handleEntity";

// The reconciliation of one directory. Its steps answer false if the run has to stop.
class DirCopy {
 public:
  DirCopy(EntityCopy& ec, Kel::Dir& dest, Kel::Dir const& src) : ec_(ec), dest_(dest), src_(src) {}

  bool differs = false;

  bool deleteExtra() {
    for (auto it = dest_.entryStateIterator(); it; ++it) {
      // Held, because a reactor on the log may delete it.
      auto const state = it.ptr();
      auto const srcState = src_.entry(state->name());
      if (srcState && srcState->entityTypeName() == state->entityTypeName()) continue;
      if (!record(AttributeEditType::del_, genericIf(state.ptr()))) return false;
      KEL_TRACE_AS(9, operation) << "Deleting entryState " << state->name() << " in " << dirName();
      if (!ec_.stopAtFirstDiff()) dest_.entryStateDel(state->name());
    }
    return true;
  }

  bool createMissing() {
    for (auto it = src_.entryStateIteratorConst(); it; ++it) {
      auto const state = it.ptr();
      if (dest_.entry(state->name())) continue;
      if (!record(AttributeEditType::set_, genericIf(state.ptr()))) return false;
      KEL_TRACE_AS(9, operation) << "Creating entryState " << state->name() << " in " << dirName();
      if (!ec_.stopAtFirstDiff()) dest_.entryStateIs(state->name(), state->entityTypeName());
    }
    return true;
  }

  bool copyChildren(Kel::String8 const& path) {
    for (auto it = src_.entryStateIteratorConst(); it; ++it) {
      auto const state = it.ptr();
      Kel::Ptr<Kel::Entity const> const srcChild = state->entityPtr();
      if (!srcChild) continue;
      auto const destState = dest_.entry(state->name());
      if (!destState || !destState->entityPtr())
        if (!record(AttributeEditType::set_, genericIf(state.ptr()))) return false;
      KEL_TRACE_AS(9, operation) << "Creating entityPtr " << state->name() << " in " << dirName();
      // A comparison does not descend into a child that a copy would have to make.
      bool const sameType = destState && destState->entityTypeName() == state->entityTypeName();
      Kel::Ptr<Kel::Entity> const destChild =
          ec_.stopAtFirstDiff() ? (sameType ? destState->entityPtr() : nullptr) : dest_.entityRef(state->name());
      if (destChild) differs |= ec_.doCopyEntity(destChild, srcChild, path + "/" + state->name());
      if (ec_.stop()) return false;
    }
    return true;
  }

  Kel::String8 dirName() const { return dest_.name().empty() ? Kel::String8("<unknown>") : dest_.name(); }

 private:
  // Logs the edit of an entry.
  bool record(AttributeEditType editType, Kel::GenericIf::PtrConst const& entry) {
    AttributeEdit const edit("entryState", "Kel::Dir::EntryState", editType);
    bool const counts = !ec_.attributeEditLog() || recordEdit(ec_, edit, dest_.fullName(), entry);
    differs |= counts || !ec_.stopAtFirstDiff();
    return !ec_.stop();
  }

  EntityCopy& ec_;
  Kel::Dir& dest_;
  Kel::Dir const& src_;
};

}  // namespace

bool EntityCopyDirHandler::handleEntity(Kel::Ptr<EntityCopy> const& ec, Kel::Ptr<Kel::Entity> const& dest,
                                        Kel::Ptr<Kel::Entity const> const& src, Kel::String path) {
  requireNonNull(ec);
  Kel::Ptr<Kel::Dir> const destDir = Kel::ptrCast<Kel::Dir>(dest);
  Kel::Ptr<Kel::Dir const> const srcDir = Kel::ptrCast<Kel::Dir const>(src);
  if (!destDir || !srcDir) return EntityCopyGlobalSessionHandler::handleEntity(ec, dest, src, path);
  if (path.empty()) path = pathBelow(ec->src().ptr(), *src);
  KEL_TRACE(8) << "virtual bool Cli::Session::EntityCopyDirHandler" << handleEntitySignature << path;
  if (ec->stopAtFirstDiff()) ensureLog(*ec);
  DirCopy copy(*ec, *destDir, *srcDir);
  copy.differs = ec->doCopyAttrByName(dest, src, path, "subdir");
  Kel::KelAttr const* aidx = Kel::Dir::_fwkType()->findAttr("entryState");
  KEL_ASSERT(aidx);
  if (!copy.deleteExtra() || !copy.createMissing() || !copy.copyChildren(path)) return true;
  KEL_TRACE(9) << "handleEntity: " << copy.dirName() << " completed (" << copy.differs << ")";
  return copy.differs;
}

}  // namespace Cli::Session
