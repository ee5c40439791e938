// Pointers that wait for their targets.
#define KEL_SOURCE_NAME "EntityCopy"
#include <iostream>
#include <map>

#include "CliSession/EntityCopy/Walk.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

namespace {

using Index = Kel::GenericIf::PtrConst;
using Impl = EntityCopy::Impl;

bool sameIndex(Index const& a, Index const& b) {
  if (!a || !b) return !a && !b;
  if (a->isEntity() || b->isEntity()) return a->entityConst() == b->entityConst();
  return a->type() == b->type() && a->text() == b->text();
}

Impl::PendingKey keyOf(Kel::Entity const* dest, Kel::KelAttr const* attr, Index const& index) {
  std::size_t hash = 0;
  if (index) hash = index->isEntity() ? std::hash<void const*>()(index->entityConst().ptr()) : index->text().hash();
  return {dest, attr, hash};
}
Impl::PendingKey keyOf(AttributeCopy const& record) {
  return keyOf(record.dest().ptr(), record.attribute().ptr(), record.srcIndex());
}

// Removes the first record under `key` that satisfies `which`. It is destroyed last, because a reactor may run.
template <class Which>
void dropPending(EntityCopy& ec, Impl::PendingKey const& key, Which const& which) {
  Impl& impl = Impl::of(ec);
  auto [it, end] = impl.pending.equal_range(key);
  while (it != end && !which(*it->second.record)) ++it;
  if (it == end) return;
  Kel::Ptr<AttributeCopy> const record = std::move(it->second.record);
  impl.pending.erase(it);
  ec.pendingAttrDel(record);
}

}  // namespace

void supersedePending(EntityCopy& ec, Kel::Entity const& dest, Kel::KelAttr const& attr, Index const& srcIndex) {
  dropPending(ec, keyOf(&dest, &attr, srcIndex),
              [&](AttributeCopy const& r) { return sameIndex(r.srcIndex(), srcIndex); });
}

std::map<Kel::U64, Kel::Ptr<AttributeCopy>> pendingOf(EntityCopy& ec, Kel::Entity const& dest,
                                                      Kel::KelAttr const& attr) {
  auto const& all = Impl::of(ec).pending;
  std::map<Kel::U64, Kel::Ptr<AttributeCopy>> records;
  for (auto it = all.lower_bound({&dest, &attr}); it != all.end(); ++it) {
    if (it->first.dest != &dest || it->first.attr != &attr) break;
    records.emplace(it->second.number, it->second.record);
  }
  return records;
}

void forgetPending(EntityCopy& ec, Kel::Ptr<AttributeCopy> const& record) {
  if (record->dest()) dropPending(ec, keyOf(*record), [&](AttributeCopy const& r) { return &r == record.ptr(); });
  ec.pendingAttrDel(record);  // it may have been added from outside
}

void forgetNamelessPending(EntityCopy& ec) noexcept {
  auto const isNameless = [](AttributeCopy const& r) {
    return r.destValueFullName().empty() && r.destIndexFullName().empty();
  };
  if (ec.impl())
    std::erase_if(Impl::of(ec).pending, [&](auto const& waiting) { return isNameless(*waiting.second.record); });
  for (auto it = ec.pendingAttrIterator(); it; ++it) {
    Kel::Ptr<AttributeCopy> const record = it.key();
    try {
      if (isNameless(*record)) ec.pendingAttrDel(record);
    } catch (...) {
      // A run may be ending with an exception already.
    }
  }
}

void defer(EntityCopy& ec, Frame& f, Kel::KelAttr const& attr, Kel::Ptr<Kel::Entity const> const& owner,
           Kel::Entity const& srcTarget, Walk::Member* m, bool isKey, Kel::String8 const& destTarget) {
  Kel::Ptr<AttributeCopy> const record = attributeCopyFactory(Kel::KelAttr::PtrConst(&attr), f.destPtr(), f.path());
  record->srcIs(owner);
  Index const target = genericIf(&srcTarget);
  if (m) {
    record->srcIndexIs(m->srcIndex());
    record->srcMemberIs(m->srcMember());
    if (!isKey) record->indexValueIs(m->index());
  } else {
    record->srcMemberIs(target);
  }
  if (isKey) {
    record->srcIndexFullNameIs(srcTarget.fullName());
    record->destIndexFullNameIs(destTarget);
  } else {
    record->srcValueFullNameIs(srcTarget.fullName());
    record->destValueFullNameIs(destTarget);
  }
  // If anything fails, the record must be in both places or in neither.
  Impl& impl = Impl::of(ec);
  auto const entered =
      impl.pending.emplace(keyOf(*record), Impl::Pending{record, f.dest.root(), ++impl.deferred})->second.number;
  try {
    ec.pendingAttrIs(record, true);
  } catch (...) {
    if (!ec.pendingAttr(record))
      std::erase_if(impl.pending, [&](auto const& waiting) { return waiting.second.number == entered; });
    throw;
  }
}

namespace {

// All steps trace under this name.
char const* const operation = "doCopyPendingAttrs";

// Whether the record's destination has left the tree that it was in when the pointer was deferred.
bool leftItsTree(EntityCopy& ec, AttributeCopy const& record) {
  if (!record.dest()) return true;
  auto [it, end] = EntityCopy::Impl::of(ec).pending.equal_range(keyOf(record));
  while (it != end && it->second.record.ptr() != &record) ++it;
  if (it == end) return false;  // added from outside
  for (Kel::Entity const* e = record.dest().ptr(); e; e = e->parent())
    if (e == it->second.tree) return false;
  return true;
}

// Sets one deferred pointer, a key or a value, whose target exists now.
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
      // A target that is still to be made anew is not equal.
      if (!srcTarget || !keepsIdentity(*this, *target, *srcTarget)) Impl::of(*this).unsettled = true;
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
