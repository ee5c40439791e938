// A run: the copy roots one after the other, then the waiting pointers.
#include "CliSession/EntityCopy/Walk.h"
#include "CliSession/EntityCopyUtils.h"

namespace Cli::Session {

namespace {

// The handler. Makes a handler and a log if there are none; no log if the copy is left unlogged. The handle keeps the
// handler alive if it is replaced while it runs.
Kel::ValidPtr<EntityCopyHandler> handlerForRun(EntityCopy& ec) {
  if (!ec.handler()) ec.handlerIs(entityCopyHandlerFactory());
  if (!EntityCopy::Impl::of(ec).unlogged || ec.stopAtFirstDiff() || anyTrace()) ensureLog(ec);
  return Kel::validPtr(ec.handler());
}

// When a run ends, drops what no longer waits from the index and, in a comparison, the records without a target's name,
// which the plain handler leaves. Allocates nothing.
struct RunEnd {
  EntityCopy& ec;
  EntityCopy::Impl& impl;
  ~RunEnd() {
    for (auto it = ec.pendingAttrIterator(); it && ec.stopAtFirstDiff(); ++it) {
      AttributeCopy const& record = *it.key();
      try {
        if (record.destValueFullName().empty() && record.destIndexFullName().empty()) ec.pendingAttrDel(it.key());
      } catch (...) {
        // The run may be ending with an exception already.
      }
    }
    std::erase_if(impl.pending, [&](auto const& known) { return !ec.pendingAttrHas(known.second.record); });
  }
};

}  // namespace

void EntityCopy::handleCopyRoots() {
  if (!src() || !dest()) {
    KEL_TRACE(1) << "Not ready yet: src: " << src() << ", dest: " << dest();
    return;
  }
  Ptr const self(this);
  RunEnd const end{*this, Impl::of(*this)};
  KEL_TRACE(1) << "handleCopyRoots: " << dest()->fullName() << " (dest), " << src()->fullName() << " (src)";
  if (srcCopyRoots() > 0) {
    KEL_TRACE(1) << srcCopyRoots() << " srcCopyRoots";
    for (auto it = srcCopyRootIterator(); it; ++it) {
      if (!src() || !dest()) return;  // a handler has ended the run
      Kel::Ptr<Kel::Entity const> const srcRoot = it.key();
      KEL_TRACE(1) << "srcCopyRoot: " << srcRoot;
      KEL_ASSERT_TEXT(srcRoot && !pathBelow(src().ptr(), *srcRoot).empty(), "destFullName");
      auto const destFullName = [&] { return dest()->fullName() + srcRoot->pathFrom(src().ptr()); };
      KEL_TRACE(1) << "Root in dest: " << destFullName();
      // By position first, because names are costly to make.
      Kel::Ptr<Kel::Entity> destRoot(counterpartByPosition(*this, *srcRoot));
      if (!destRoot) destRoot = entityInTree(*dest(), destFullName());
      KEL_ASSERT(destRoot);
      handlerForRun(*this)->handleEntity(self, destRoot, srcRoot, "");
      if (stop()) return;
    }
  } else if (stopAtFirstDiff()) {
    Kel::Ptr<Kel::Entity> const destTop = dest();
    Kel::Ptr<Kel::Entity const> const srcTop = src();
    handlerForRun(*this)->handleEntity(self, destTop, srcTop, "");
    if (stop()) return;
  }
  doCopyPendingAttrs(false);
  KEL_TRACE(1) << "handleCopyRoots: completed";
}

}  // namespace Cli::Session
