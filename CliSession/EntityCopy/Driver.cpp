// The walk: copy roots, entities, attributes.
#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/EngineImpl.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

namespace {

// The handler; it and the log are made where nobody gave them. Held: a handler may set another one while it runs.
Kel::ValidPtr<EntityCopyHandler> handlerForRun(EntityCopy& ec) {
  if (!ec.handler()) ec.handlerIs(entityCopyHandlerFactory());
  ensureLog(ec);
  return Kel::validPtr(ec.handler());
}

// The plain handler defers every pointer of a comparison without saying where it leads; such records end with the run.
void dropAnonymousPending(EntityCopy& ec) {
  if (!ec.stopAtFirstDiff()) return;
  for (auto it = ec.pendingAttrIterator(); it; ++it) {
    Kel::Ptr<AttributeCopy> const record = it.key();
    if (record->destValueFullName().empty() && record->destIndexFullName().empty()) forgetPending(ec, record);
  }
}

struct RunEnd {
  EntityCopy& ec;
  ~RunEnd() { dropAnonymousPending(ec); }
};

// Where a copy root's counterpart lies; empty for what is not below the source.
Kel::String8 counterpartName(EntityCopy const& ec, Kel::Ptr<Kel::Entity const> const& srcRoot) {
  char separator = 0;
  Kel::String8 const relative = srcRoot ? pathBelow(*ec.src(), *srcRoot, &separator) : Kel::String8();
  if (relative.empty()) return {};
  return ec.dest()->fullName() + std::string_view(&separator, 1) + relative;
}

}  // namespace

Kel::KelAttr const& destAttribute(Kel::Entity const& dest, Kel::KelAttr const& attr) {
  if (dest.type()->attr(attr.id()) == &attr) return attr;
  Kel::KelAttr const* found = dest.type()->findAttr(attr.name());
  if (!found)
    throw Kel::UnknownAttrException(dest.fullName() + ": " + dest.type()->fullTypeName() + " has no attribute '" +
                                    attr.name() + "'");
  return *found;
}

void ensureLog(EntityCopy& ec) {
  if (!ec.attributeEditLog()) ec.attributeEditLogIs(attributeEditLogFactory());
}

bool EntityCopy::stop() const {
  return stopAtFirstDiff() && attributeEditLog() && attributeEditLog()->attributeEditEntrys() > 0;
}

void EntityCopy::handleCopyRoots() {
  if (!src() || !dest()) {
    KEL_TRACE(1) << "Not ready yet: src: " << src() << ", dest: " << dest();
    return;
  }
  Ptr const self(this);
  RunEnd const runEnd{*this};
  Impl& impl = Impl::of(*this);
  impl.walk.newRun();
  if (pendingAttrs() == 0) impl.pending.clear();  // who took the records away took the pointers away
  KEL_TRACE(1) << "handleCopyRoots: " << dest()->fullName() << " (dest), " << src()->fullName() << " (src)";
  if (srcCopyRoots() > 0) {
    KEL_TRACE(1) << srcCopyRoots() << " srcCopyRoots";
    for (auto it = srcCopyRootIterator(); it; ++it) {
      if (!src() || !dest()) return;  // a handler has ended the run
      Kel::Ptr<Kel::Entity const> const srcRoot = it.key();
      KEL_TRACE(1) << "srcCopyRoot: " << srcRoot;
      Kel::String8 const destFullName = counterpartName(*this, srcRoot);
      KEL_ASSERT_TEXT(!destFullName.empty(), "destFullName");
      KEL_TRACE(1) << "Root in dest: " << destFullName;
      Kel::Ptr<Kel::Entity> const destRoot = entityInTree(*dest(), destFullName);
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

bool EntityCopy::doCopyEntity(Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::Entity const> const& src,
                              Kel::String path) {
  KEL_TRACE(1) << "doCopyEntity: " << path;
  Depth const depth(Impl::of(*this).depth);
  return Kel::validPtr(handler())->handleEntity(Ptr(this), dest, src, path);
}

namespace {

// The path of a child: the parent's, the attribute, and for a member of a collection its name.
Kel::String8 chPath(Kel::String8 const& path, Kel::KelAttr const& attr, Kel::String8 const& childName) {
  Kel::String8 changed = path + "." + attr.name();
  if (!childName.empty()) changed = changed + "/" + childName;
  KEL_TRACE(1) << "Path changed from " << path << " to " << changed;
  return changed;
}

}  // namespace

bool EntityCopy::handleEntity(Kel::Ptr<Kel::GenericIf> const& dest, Kel::Ptr<Kel::GenericIf const> const& src,
                              Kel::Ptr<Kel::KelAttr const> const& attr, Kel::String path) {
  wantArgs(attr);
  Kel::Ptr<Kel::Entity> const destEntity = entityOf(dest);
  Kel::Ptr<Kel::Entity const> const srcEntity = entityConstOf(src);
  Kel::String8 const childName = srcEntity && attr->isCollection() ? srcEntity->name() : Kel::String8();
  Kel::String8 const childPath = chPath(path, *attr, childName);
  Depth const depth(Impl::of(*this).depth);
  return Kel::validPtr(handler())->handleEntity(Ptr(this), destEntity, srcEntity, childPath);
}

bool EntityCopy::doCopyEntityAttrs(Kel::Ptr<Kel::Entity> const& destEntity,
                                   Kel::Ptr<Kel::Entity const> const& srcEntity, Kel::String path,
                                   Kel::Ptr<AttributeFilter const> const& filter) {
  KEL_ASSERT(destEntity);
  KEL_ASSERT(srcEntity);
  if (path.empty() && src()) path = pathBelow(*src(), *srcEntity);
  Kel::KelType const* srcT = srcEntity->type();
  Kel::KelType const* destT = destEntity->type();
  KEL_ASSERT(srcT);
  KEL_ASSERT(destT);
  KEL_TRACE(1) << "doCopyEntityAttrs: " << path;
  if (!filter && srcT == destT && TypedWalk::possible(*this))
    return Impl::of(*this).walk.copyAttrs(*this, *destEntity, *srcEntity, path);
  bool differs = false;
  Kel::U32 filtered = 0;
  for (Kel::KelAttr const* attr : srcT->attributeQ()) {
    if (filter && filter->attributeName(attr->name())) {
      KEL_TRACE(2) << path << ": attribute " << attr->name() << " filtered (not copied).";
      ++filtered;
      continue;
    }
    differs |= doCopyAttr(destEntity, srcEntity, path, Kel::KelAttr::PtrConst(attr));
    if (stop()) break;
  }
  // Names with the value false neither filter nor count.
  Kel::U32 attributeNames = 0;
  if (filter)
    for (auto it = filter->attributeNameIterator(); it; ++it) attributeNames += it.value() ? 1 : 0;
  KEL_ASSERT_TEXT(!filter || attributeNames == filtered || stopAtFirstDiff(),
                  "!filter || filter->attributeNames() == filtered || stopAtFirstDiff()");
  return differs;
}

bool EntityCopy::doCopyAttrByName(Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::Entity const> const& src,
                                  Kel::String path, Kel::Name attrName) {
  KEL_TRACE(2) << "doCopyAttrByName: " << attrName;
  Kel::KelAttr const* attrIdx = Kel::validPtr(src)->type()->findAttr(attrName);
  KEL_ASSERT(attrIdx);
  return doCopyAttr(dest, src, path, Kel::KelAttr::PtrConst(attrIdx));
}

namespace {

bool attrCopiable(Kel::KelAttr const& attr) {
  if (!attr.logging()) {
    KEL_TRACE(9) << "Skipping non-logging attribute " << attr.name();
    return false;
  }
  if (attr.ctorParam()) {
    KEL_TRACE(9) << "Skipping constructor parameter " << attr.name();
    return false;
  }
  if (!attr.writable()) {
    KEL_TRACE(9) << "Skipping non-writable attribute " << attr.name();
    return false;
  }
  return true;
}

}  // namespace

bool EntityCopy::doCopyAttr(Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::Entity const> const& src, Kel::String path,
                            Kel::Ptr<Kel::KelAttr const> const& attr) {
  wantArgs(dest, src, attr);
  if (!attrCopiable(*attr)) return false;
  KEL_TRACE(2) << "doCopyAttr: " << attr->name();
  if (attr->isQueue()) return doCopyQueue(dest, src, path, attr);
  if (attr->isCollection()) return doCopyCollection(dest, src, path, attr);
  if (attr->type()->isEntity()) {
    if (attr->instantiating()) return doCopySingleton(dest, src, path, attr);
    if (attr->isPtr()) return doCopyPtr(dest, src, path, attr, nullptr);
    KEL_TRACE(3) << "Skipping non-copiable non-instantiating entity " << attr->name();
    KEL_ASSERT(false);
  }
  if (attr->isValue()) return doCopyValue(dest, src, attr);
  KEL_TRACE(3) << "Unsupported attribute " << attr->name();
  KEL_ASSERT(false);
  return false;
}

}  // namespace Cli::Session
