// A run: the copy roots one after the other, then the waiting pointers.
#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/Walk.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

namespace {

// The handler. Makes a handler and a log if there are none; no log if the copy is left unlogged. The handle keeps the
// handler alive if it is replaced while it runs.
Kel::ValidPtr<EntityCopyHandler> handlerForRun(EntityCopy& ec) {
  if (!ec.handler()) ec.handlerIs(entityCopyHandlerFactory());
  if (!EntityCopy::Impl::of(ec).unlogged || ec.stopAtFirstDiff() || anyTrace()) ensureLog(ec);
  return Kel::validPtr(ec.handler());
}

// One run. It has its own list of walked roots, because foreign code may start another run meanwhile.
class Run {
 public:
  explicit Run(EntityCopy& ec) : ec_(ec), impl_(EntityCopy::Impl::of(ec)), foreignCalls_(impl_.foreignCalls) {
    impl_.walked.swap(outer_);
    impl_.unsettled = false;
  }
  ~Run() {
    impl_.walked.swap(outer_);
    impl_.unsettled = true;  // an outer run does not know what this one has changed
    tidyPending(ec_);
  }
  Run(Run const&) = delete;
  Run& operator=(Run const&) = delete;

  // Hands a root to the handler.
  void walk(Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::Entity const> const& src) {
    std::size_t const before = impl_.walked.size();
    handlerForRun(ec_)->handleEntity(EntityCopy::Ptr(&ec_), dest, src, "");
    // A handler that did more than start one walk is foreign code.
    if (impl_.walked.size() != before + 1) ++impl_.foreignCalls;
  }

  // The run has ended: the roots that it walked are equal now.
  void completed() {
    if (impl_.unsettled || ec_.pendingAttrs() > 0) return;
    for (WalkedRoot const& root : impl_.walked) {
      // Foreign code may have changed what was walked already.
      if (impl_.foreignCalls == foreignCalls_)
        rememberEqual(root, takeCheckpoint(ec_, root));
      else if (root.start)
        rememberEqual(root, *root.start);
    }
  }

 private:
  EntityCopy& ec_;
  EntityCopy::Impl& impl_;
  Kel::U64 const foreignCalls_;
  std::vector<WalkedRoot> outer_;
};

}  // namespace

void EntityCopy::handleCopyRoots() {
  if (!src() || !dest()) {
    KEL_TRACE(1) << "Not ready yet: src: " << src() << ", dest: " << dest();
    return;
  }
  Ptr const self(this);
  Run run(*this);
  KEL_TRACE(1) << "handleCopyRoots: " << dest()->fullName() << " (dest), " << src()->fullName() << " (src)";
  if (srcCopyRoots() > 0) {
    KEL_TRACE(1) << srcCopyRoots() << " srcCopyRoots";
    for (auto it = srcCopyRootIterator(); it; ++it) {
      if (!src() || !dest()) return;  // a handler has ended the run
      Kel::Ptr<Kel::Entity const> const srcRoot = it.key();
      KEL_TRACE(1) << "srcCopyRoot: " << srcRoot;
      KEL_ASSERT_TEXT(srcRoot && !pathBelow(src().ptr(), *srcRoot).empty(), "destFullName");
      Kel::String8 const destFullName = dest()->fullName() + srcRoot->pathFrom(src().ptr());
      KEL_TRACE(1) << "Root in dest: " << destFullName;
      Kel::Ptr<Kel::Entity> const destRoot = targetInTree(*this, *dest(), destFullName, srcRoot.ptr());
      KEL_ASSERT(destRoot);
      run.walk(destRoot, srcRoot);
      if (stop()) return;
    }
  } else if (stopAtFirstDiff()) {
    Kel::Ptr<Kel::Entity> const destTop = dest();
    Kel::Ptr<Kel::Entity const> const srcTop = src();
    run.walk(destTop, srcTop);
    if (stop()) return;
  }
  doCopyPendingAttrs(false);
  run.completed();
  KEL_TRACE(1) << "handleCopyRoots: completed";
}

void drainPostCopies(EntityCopy& ec, EntityCopyGlobalSessionHandler& handler) {
  if (handler.postAttributeCopys() == 0) return;
  while (handler.postAttributeCopys() > 0) {
    // Taken first, because the record drops its pointers when it leaves the queue.
    Kel::Ptr<PostCopyAttribute> const front = handler.postAttributeCopyIterator().value();
    Kel::Ptr<Kel::Entity> const dest = front->dest();
    Kel::Ptr<Kel::Entity const> const src = front->src();
    handler.postAttributeCopyDeq();
    ec.doCopyAttrByName(dest, src, front->path(), front->attrName());
  }
  if (ec.pendingAttrs() > 0) ec.doCopyPendingAttrs(false);
}

}  // namespace Cli::Session
