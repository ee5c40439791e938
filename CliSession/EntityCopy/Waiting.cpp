// Pointers that wait for their targets.
#include <iostream>

#include "CliSession/EntityCopy/Walk.h"
#include "CliSession/EntityCopyUtils.h"

namespace Cli::Session {

namespace {

using Impl = EntityCopy::Impl;

Impl::PendingKey keyOf(Kel::Entity const* dest, Kel::KelAttr const* attr, Walk::Box const& index) {
  return {dest, attr, entityConstOf(index).ptr(), index && !index->isEntity() ? index->text() : Kel::String8()};
}

// Whether the record's destination has left the tree that it was in when the pointer was deferred.
bool leftItsTree(EntityCopy& ec, AttributeCopy const& record) {
  if (!record.dest()) return true;
  auto const& all = Impl::of(ec).pending;
  auto const known = all.find(keyOf(record.dest().ptr(), record.attribute().ptr(), record.srcIndex()));
  if (known == all.end() || known->second.record.ptr() != &record) return false;  // added from outside
  return record.dest().ptr() != known->second.tree && !isBelow(*record.dest(), *known->second.tree);
}

}  // namespace

void Walk::replacePending(Frame& f, Step const& s, Member* m, Kel::Ptr<AttributeCopy> const& record) {
  std::optional<ForeignCode> guard;
  if (ec_.hasReactors()) guard.emplace(*this, f);
  Impl::PendingKey const key = keyOf(&f.dest, &s.attr, m ? m->srcIndex() : nullptr);
  if (auto const old = impl_.pending.extract(key)) ec_.pendingAttrDel(old.mapped().record);
  if (!record) return;
  impl_.pending.insert_or_assign(key, Impl::Pending{record, f.dest.root()});
  ec_.pendingAttrIs(record, true);
}

std::vector<Kel::Ptr<AttributeCopy>> Walk::waitingMembers(Frame const& f, Step const& s) const {
  std::vector<Kel::Ptr<AttributeCopy>> records;
  if (ec_.pendingAttrs() == 0 || f.newAt == impl_.generation) return records;
  auto const isOfMember = [&](Impl::PendingKey const& key) {
    return std::get<0>(key) == &f.dest && std::get<1>(key) == &s.attr;
  };
  auto it = impl_.pending.lower_bound(keyOf(&f.dest, &s.attr, nullptr));
  for (; it != impl_.pending.end() && isOfMember(it->first); ++it) records.push_back(it->second.record);
  return records;
}

void Walk::defer(Frame& f, Step const& s, Kel::Ptr<Kel::Entity const> const& owner, Kel::Entity const& srcTarget,
                 Member* m, bool isKey, Kel::String8 const& destTarget) {
  Kel::Ptr<AttributeCopy> const record = attributeCopyFactory(&s.attr, &f.dest, f.path());
  record->srcIs(owner);
  record->srcMemberIs(m ? m->srcMember() : Box(genericIf(&srcTarget)));
  if (m) record->srcIndexIs(m->srcIndex());
  if (m && !isKey) record->indexValueIs(m->index());
  if (isKey) {
    record->srcIndexFullNameIs(srcTarget.fullName());
    record->destIndexFullNameIs(destTarget);
  } else {
    record->srcValueFullNameIs(srcTarget.fullName());
    record->destValueFullNameIs(destTarget);
  }
  replacePending(f, s, m, record);
  unsettle(f.dest);
}

void EntityCopy::doCopyPendingAttrs(bool force) {
  KEL_TRACE(2) << "doCopyPendingAttrs:  force: " << force;
  Ptr const self(this);
  for (auto it = pendingAttrIterator(); it; ++it) {
    Kel::Ptr<AttributeCopy> const record = it.key();
    if (leftItsTree(*this, *record)) {
      pendingAttrDel(record);
      continue;
    }
    bool const isKey = !record->destIndexFullName().empty();
    char const* const what = isKey ? "target key " : "target ";
    Kel::String8 const& name = isKey ? record->destIndexFullName() : record->destValueFullName();
    KEL_TRACE(3) << "Looking for deferred " << what << name;
    Kel::Ptr<Kel::Entity const> const srcTarget = entityConstOf(isKey ? record->srcIndex() : record->srcMember());
    if (Kel::Ptr<Kel::Entity> const target = targetInTree(*this, *record->dest(), name, srcTarget.ptr())) {
      KEL_TRACE(3) << "Setting deferred " << what << name;
      if (isKey) {
        doCopyCollectionMember(record->dest(), record->src(), record->path(), record->srcIndex(), genericIf(target),
                               record->srcMember(), record->attribute());
      } else {
        KEL_TRACE(3) << " attributeIs: " << record->attribute()->name() << ", " << record->dest()
                     << " idx, srcIdx: " << record->indexValue() << " " << record->srcIndex() << " target: " << target
                     << " gif( target ): " << Walk::Box(genericIf(target));
        attributeIs(record->dest(), record->attribute(), record->indexValue(), genericIf(target), nullptr);
      }
      if (stop()) return;
      KEL_TRACE(3) << "Deferred " << what << name << " set";
      pendingAttrDel(record);
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
