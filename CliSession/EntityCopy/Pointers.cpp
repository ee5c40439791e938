// Pointers, and those that wait for their targets.
#define KEL_SOURCE_NAME "EntityCopy"
#include <iostream>
#include <vector>

#include "CliSession/EntityCopy/EngineImpl.h"
#include "CliSession/EntityCopyCompare.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/Dir.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

namespace {

using Index = Kel::GenericIf::PtrConst;

bool sameIndex(Index const& a, Index const& b) {
  if (!a || !b) return !a && !b;
  if (a->isEntity() || b->isEntity()) return a->entityConst() == b->entityConst();
  return a->type() == b->type() && a->text() == b->text();
}

}  // namespace

namespace {

// Takes the records for one attribute of one entity that `which` names out of the books. They are dropped when all is
// done, since somebody may react to that.
template <class Which>
void dropPending(EntityCopy& ec, Kel::Entity const* dest, Kel::KelAttr const* attr, Which const& which) {
  auto& pending = EntityCopy::Impl::of(ec).pending;
  std::vector<Kel::Ptr<AttributeCopy>> dropped;
  for (auto [it, end] = pending.equal_range({dest, attr}); it != end;) {
    if (which(*it->second.record)) {
      dropped.push_back(std::move(it->second.record));
      it = pending.erase(it);
    } else {
      ++it;
    }
  }
  for (Kel::Ptr<AttributeCopy> const& record : dropped) ec.pendingAttrDel(record);
}

}  // namespace

void supersedePending(EntityCopy& ec, Kel::Entity const& dest, Kel::KelAttr const& attr, Index const& srcIndex) {
  dropPending(ec, &dest, &attr, [&](AttributeCopy const& r) { return sameIndex(r.srcIndex(), srcIndex); });
}

void supersedePending(EntityCopy& ec, Kel::Entity const& dest, Kel::KelAttr const& attr) {
  dropPending(ec, &dest, &attr, [](AttributeCopy const&) { return true; });
}

void forgetPending(EntityCopy& ec, Kel::Ptr<AttributeCopy> const& record) {
  dropPending(ec, record->dest().ptr(), record->attribute().ptr(),
              [&](AttributeCopy const& r) { return &r == record.ptr(); });
  ec.pendingAttrDel(record);  // should somebody else have put it there
}

Kel::Entity* standIn(Kel::Entity const& src, Kel::Entity const& srcTop, Kel::Entity& destTop) {
  // From the bottom up, then down on the other side.
  std::vector<Kel::Entity const*> chain;
  chain.reserve(8);
  for (Kel::Entity const* e = &src; e != &srcTop; e = e->parent()) {
    if (!e) return nullptr;
    chain.push_back(e);
  }
  Kel::Entity* at = &destTop;
  for (auto it = chain.rbegin(); at && it != chain.rend(); ++it) {
    Kel::Entity const& e = **it;
    Kel::KelAttr const* const held = e.parentAttr();
    if (!held || at->type() != e.parent()->type()) return nullptr;
    if (at->type() == Kel::Dir::_fwkType())
      at = e.type() == Kel::Dir::EntryState::_fwkType()
               ? nullptr
               : const_cast<Kel::Entity*>(static_cast<Kel::Dir const*>(at)->child(e.name()));
    else
      at = held->isCollection() ? held->access().memberLike(*at, e, 0) : held->access().single(*at);
  }
  return at;
}

Kel::Ptr<Kel::Entity> targetInTree(EntityCopy const& ec, Kel::Entity const& member, Kel::String8 const& fullName,
                                   Kel::Entity const* srcTarget) {
  Kel::Ptr<Kel::Entity> found = entityInTree(member, fullName);
  if (!srcTarget || !ec.src() || !ec.dest()) return found;
  Kel::Ptr<Kel::Entity> const exact = standIn(*srcTarget, *ec.src(), *ec.dest());
  bool const better = exact && exact != found && exact->fullName() == fullName && exact->root() == member.root();
  return better ? exact : found;
}

bool EntityCopy::doCopyPtr(Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::Entity const> const& src, Kel::String path,
                           Kel::Ptr<Kel::KelAttr const> const& attr, Kel::Ptr<Kel::GenericIf const> const& index) {
  return copyPtrMember(*this, dest, src, path, attr, index, index);
}

bool copyPtrMember(EntityCopy& ec, Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::Entity const> const& src,
                   Kel::String8 const& path, Kel::Ptr<Kel::KelAttr const> const& attr, Index const& srcIndex,
                   Index const& index) {
  wantArgs(dest, src, attr);
  KEL_TRACE_AS(2, "doCopyPtr") << "doCopyPtr: " << attr->name();
  Kel::GenericIf::PtrConst const srcMember = genericIf(src)->attribute(attr->id(), srcIndex);
  Kel::Ptr<Kel::Entity const> const srcTarget = entityConstOf(srcMember);
  Kel::GenericIf::PtrConst value;
  if (srcTarget) {
    Kel::Ptr<Kel::Entity> const target = ec.resolvePtr(src, srcTarget, srcIndex, srcMember, dest, index, path, attr);
    if (!target) return false;
    value = genericIf(target);
  } else {
    KEL_TRACE_AS(3, "doCopyPtr") << "Target is not set";
    if (ec.pendingAttrs() > 0) supersedePending(ec, *dest, *attr, srcIndex);
  }
  return ec.attributeIs(dest, attr, index, value, nullptr)->changed();
}

Kel::Ptr<Kel::Entity> EntityCopy::resolvePtr(Kel::Ptr<Kel::Entity const> const& src,
                                             Kel::Ptr<Kel::Entity const> const& srcTarget,
                                             Kel::Ptr<Kel::GenericIf const> const& srcIndex,
                                             Kel::Ptr<Kel::GenericIf const> const& srcMember,
                                             Kel::Ptr<Kel::Entity> const& dest,
                                             Kel::Ptr<Kel::GenericIf const> const& indexValue, Kel::String path,
                                             Kel::Ptr<Kel::KelAttr const> const& attr) {
  wantArgs(srcTarget, dest, attr);
  KEL_TRACE(2) << "resolvePtr: " << attr->name();
  if (pendingAttrs() > 0) supersedePending(*this, *dest, *attr, srcIndex);
  PtrTarget const t = Kel::validPtr(handler())->resolveEntityPtr(Ptr(this), srcTarget);
  if (t.copiable()) {
    KEL_TRACE(3) << "Target is copiable";
    Kel::Ptr<Kel::Entity> target = targetInTree(*this, *dest, t.target(), srcTarget.ptr());
    if (!target) KEL_TRACE(3) << "Target not found: " << t.target();
    return target;
  }
  KEL_TRACE(3) << "Target is not copiable, deferring";
  Kel::Ptr<AttributeCopy> const record = attributeCopyFactory(attr, dest, path);
  record->srcIs(src);
  record->srcIndexIs(srcIndex);
  record->srcMemberIs(srcMember);
  record->indexValueIs(indexValue);
  // What was asked for is the key itself, or what the attribute points at.
  bool const isKey = attr->keyIsPtr() && entityConstOf(srcIndex) == srcTarget && !indexValue;
  if (isKey) {
    record->srcIndexFullNameIs(srcTarget->fullName());
    record->destIndexFullNameIs(t.target());
  } else {
    record->srcValueFullNameIs(srcTarget->fullName());
    record->destValueFullNameIs(t.target());
  }
  pendingAttrIs(record, true);
  Impl::of(*this).pending.emplace(Impl::PendingKey{dest.ptr(), attr.ptr()}, Impl::Pending{record, dest->root()});
  return nullptr;
}

namespace {

bool madeAlike(Kel::Entity const& a, Kel::Entity const& b) {
  if (a.type() != b.type()) return false;
  if (auto const paramsEqual = a.type()->paramsEqual()) return paramsEqual(a, b);
  auto const aGif = genericIf(Kel::Ptr<Kel::Entity const>(&a)), bGif = genericIf(Kel::Ptr<Kel::Entity const>(&b));
  for (Kel::KelArg const& arg : a.type()->ctorArgs()) {
    Kel::AttributeId const id = aGif->attributeId(arg.name);
    if (!valueTypeEqual(aGif->attribute(id), bGif->attribute(id))) return false;
  }
  return true;
}

}  // namespace

bool outlivesRun(EntityCopy const& ec, Kel::Entity const& dest, Kel::Entity const& src) {
  Kel::Entity const *d = &dest, *s = &src;
  for (; d && s && d != ec.dest().ptr() && s != ec.src().ptr(); d = d->parent(), s = s->parent())
    if (!madeAlike(*d, *s)) return false;
  return true;
}

namespace {

// The pass over what was deferred traces in its own name throughout.
char const* const operation = "doCopyPendingAttrs";

// Whether what was to be set is no longer in the tree that it was in when it was deferred.
bool leftItsTree(EntityCopy& ec, AttributeCopy const& record) {
  if (!record.dest()) return true;
  auto [it, end] = EntityCopy::Impl::of(ec).pending.equal_range({record.dest().ptr(), record.attribute().ptr()});
  while (it != end && it->second.record.ptr() != &record) ++it;
  if (it == end) return false;  // deferred by somebody else
  for (Kel::Entity const* e = record.dest().ptr(); e; e = e->parent())
    if (e == it->second.tree) return false;
  return true;
}

// Sets one deferred pointer key, or value, whose target is there now.
void setDeferred(EntityCopy& ec, Kel::Ptr<AttributeCopy> const& record, Kel::Ptr<Kel::Entity> const& target) {
  if (!record->destIndexFullName().empty()) {
    KEL_TRACE_AS(3, operation) << "Setting deferred target key " << record->destIndexFullName();
    ec.doCopyCollectionMember(record->dest(), record->src(), record->path(), record->srcIndex(), genericIf(target),
                              record->srcMember(), record->attribute());
    if (ec.stop()) return;
    KEL_TRACE_AS(3, operation) << "Deferred target key " << record->destIndexFullName() << " set";
  } else {
    KEL_TRACE_AS(3, operation) << "Setting deferred target " << record->destValueFullName();
    KEL_TRACE_AS(3, operation) << " attributeIs: " << record->attribute()->name() << ", " << record->dest()
                               << " idx, srcIdx: " << record->indexValue() << " " << record->srcIndex()
                               << " target: " << target
                               << " gif( target ): " << Kel::GenericIf::PtrConst(genericIf(target));
    ec.attributeIs(record->dest(), record->attribute(), record->indexValue(), genericIf(target), nullptr);
    if (ec.stop()) return;
    KEL_TRACE_AS(3, operation) << "Deferred target " << record->destValueFullName() << " set";
  }
  forgetPending(ec, record);
}

}  // namespace

void EntityCopy::doCopyPendingAttrs(bool force) {
  KEL_TRACE(2) << "doCopyPendingAttrs:  force: " << force;
  Ptr const self(this);
  for (auto it = pendingAttrIterator(); it; ++it) {
    Kel::Ptr<AttributeCopy> const record = it.key();
    bool const isKey = !record->destIndexFullName().empty();
    Kel::String8 const& name = isKey ? record->destIndexFullName() : record->destValueFullName();
    if (leftItsTree(*this, *record)) {
      forgetPending(*this, record);
      continue;
    }
    KEL_TRACE(3) << (isKey ? "Looking for deferred target key " : "Looking for deferred target ") << name;
    Kel::Ptr<Kel::Entity const> const srcTarget = entityConstOf(isKey ? record->srcIndex() : record->srcMember());
    if (Kel::Ptr<Kel::Entity> const target = targetInTree(*this, *record->dest(), name, srcTarget.ptr())) {
      setDeferred(*this, record, target);
    } else {
      KEL_TRACE(3) << "Target still doesn't exist. Skipping " << name;
      if (force) {
        std::cerr << "Unable to set " << record->attribute()->name() << " in " << record->dest() << ": "
                  << (isKey ? record->srcIndexFullName() : record->srcValueFullName()) << " exists and " << name
                  << " doesn't" << std::endl;
        KEL_ASSERT(false);
      }
    }
    if (stop()) return;
  }
  KEL_TRACE(2) << "doCopyPendingAttrs: completed";
}

}  // namespace Cli::Session
