#include "service/Undo.h"

#include <cstdint>
#include <string>
#include <unordered_set>

#include "service/Error.h"
#include "service/Walk.h"

namespace Cli::Service {

using Kel::Entity;
using Kel::GenericIf;
using Kel::KelAttr;

// --- The present content ---

Undo::Member Undo::memberAt(Entity const& owner, KelAttr const& attr, GenericIf::PtrConst const& key) {
  Member member;
  member.key = key;
  if (!attr.isCollection() && (attr.instantiating() || attr.isPtr())) {
    Entity* const target = singleTarget(owner, attr);
    member.there = target || attr.isPtr();
    if (attr.instantiating())
      member.owned = Entity::Ptr(target);
    else
      member.value = GenericIf::ofEntity(Entity::Ptr(target));
    return member;
  }
  member.there = !attr.isCollection() || hasMember(owner, attr, key.ptr());
  if (!member.there) return member;
  GenericIf::Ptr const value = attr.access().get(attr, &owner, key.ptr(), false);
  if (attr.instantiating())
    member.owned = value->entity();
  else
    member.value = value;
  return member;
}

std::vector<Undo::Member> Undo::membersOf(Entity const& owner, KelAttr const& attr) {
  std::vector<Member> members;
  eachMember(owner, attr, [&](Kel::AttrIterator const& it, std::size_t) {
    Member member{true, it.key(), nullptr, nullptr, 0};
    if (attr.instantiating())
      member.owned = Entity::Ptr(it.target());
    else
      member.value = it.obj(false);
    members.push_back(std::move(member));
    return true;
  });
  if (!attr.isQueue() || !attr.instantiating()) return members;
  struct Numbering {
    std::vector<Member>& members;
    std::size_t next = 0;
  } numbering{members};
  attr.access().eachOwned(
      owner,
      [](Entity*, Kel::U64 sequence, void* context) {
        auto& to = *static_cast<Numbering*>(context);
        to.members[to.next++].sequence = sequence;
      },
      &numbering);
  return members;
}

bool Undo::same(Member const& a, Member const& b) {
  if (a.there != b.there || !(a.owned == b.owned)) return false;
  if (!a.value || !b.value) return !a.value && !b.value;
  if (a.value->isEntity()) return a.value->entityConst() == b.value->entityConst();
  return a.value->strep() == b.value->strep();
}

// --- Notes ---

void Undo::note(Entity& owner, KelAttr const& attr, GenericIf::PtrConst const& key) {
  Member was = memberAt(owner, attr, key);
  if (was.owned) notePointersBelow(*was.owned);
  records_.push_back({Entity::Ptr(&owner), &attr, {std::move(was)}, false, {}, {}});
}

void Undo::noteAll(Entity& owner, KelAttr const& attr) {
  if (!attr.isCollection()) return note(owner, attr);
  if (whole_.count({&owner, &attr})) return;
  std::vector<Member> members = membersOf(owner, attr);
  for (Member const& member : members)
    if (member.owned) notePointersBelow(*member.owned);
  records_.push_back({Entity::Ptr(&owner), &attr, std::move(members), true, {}, {}});
  whole_.emplace(&owner, &attr);
}

void Undo::noteContent(Entity& entity) {
  for (KelAttr const* attr : entity.type()->attributeQ())
    if (attr->copiable() && !attr->instantiating()) noteAll(entity, *attr);
}

void Undo::noteEntry(Kel::Dir& dir, Kel::Name const& name) {
  Member was;
  Kel::String8 type;
  if (auto const state = dir.entry(name)) {
    was.there = true;
    was.owned = state->entityPtr();
    type = state->entityTypeName();
    if (was.owned) notePointersBelow(*was.owned);
  }
  records_.push_back({Entity::Ptr(&dir), nullptr, {std::move(was)}, false, name, type});
}

void Undo::notePending(PendingReferences& pending) {
  if (pending_) return;
  pendingBefore_ = pending;
  pending_ = &pending;
}

// Notes the pointers of an entity and of what is below it, because these drop them when the entity leaves its tree.
void Undo::notePointersBelow(Entity& leaving) {
  if (!leaving.type()->pointersBelow()) return;
  for (KelAttr const* attr : leaving.type()->ptrAttrs())
    if (!attr->isFunction() && !attr->ctorParam())
      records_.push_back(
          {Entity::Ptr(&leaving),
           attr,
           attr->isCollection() ? membersOf(leaving, *attr) : std::vector{memberAt(leaving, *attr, nullptr)},
           attr->isCollection(),
           {},
           {}});
  eachOwned(leaving, [&](Entity const& child) { notePointersBelow(const_cast<Entity&>(child)); });
}

// --- Taking back ---

bool Undo::takeBack() noexcept {
  constexpr int rounds = 4;  // what fails once may not fail again
  if (pending_) *std::exchange(pending_, nullptr) = std::move(pendingBefore_);
  for (int round = 0; round < rounds; ++round) {
    bool ok = true;
    for (auto record = records_.rbegin(); record != records_.rend(); ++record) {
      try {
        back(*record);
      } catch (...) {
        ok = false;
      }
    }
    if (ok) return true;
  }
  return false;
}

void Undo::back(Record const& record) {
  if (!record.attr) return backEntry(record);
  if (!record.whole && record.attr->isCollection())
    return backMember(*record.owner, *record.attr, record.members.front());
  if (!record.whole) return backAttribute(*record.owner, *record.attr, record.members.front());
  record.attr->isQueue() ? backQueue(record) : backCollection(record);
}

void Undo::backEntry(Record const& record) {
  auto& dir = static_cast<Kel::Dir&>(*record.owner);
  Member const& was = record.members.front();
  auto const now = dir.entry(record.entry);
  if (now && was.there && now->entityPtr() == was.owned && now->entityTypeName() == record.entryType) return;
  if (now) dir.entryDel(record.entry);
  if (was.owned)
    dir.entryIs(was.owned);
  else if (was.there)
    dir.entryStateIs(record.entry, record.entryType);
}

void Undo::attach(Entity& owner, KelAttr const& attr, Member const& was) {
  if (was.owned->parent()) throw Error("'" + was.owned->fullName().str() + "' is elsewhere now");
  attr.access().restore(attr, owner, was.owned, was.sequence);
  if (attr.isCollection())
    attr.access().op(attr, owner, Kel::AttributeOp::notify, was.key.ptr(), nullptr);
  else
    owner.notify(attr.id());
}

void Undo::backAttribute(Entity& owner, KelAttr const& attr, Member const& was) {
  if (same(memberAt(owner, attr, nullptr), was)) return;
  if (attr.isPtr()) return attr.access().setTarget(attr, owner, was.value ? was.value->entity().ptr() : nullptr);
  if (!attr.instantiating()) return attr.access().set(attr, owner, nullptr, was.value.ptr());
  if (singleTarget(owner, attr)) attr.access().del(attr, owner, nullptr);
  if (was.owned) attach(owner, attr, was);
}

void Undo::backMember(Entity& owner, KelAttr const& attr, Member const& was) {
  Member const now = memberAt(owner, attr, was.key);
  if (same(now, was)) return;
  if (now.there && (attr.instantiating() || !was.there)) attr.access().del(attr, owner, was.key.ptr());
  if (!was.there) return;
  if (was.owned)
    attach(owner, attr, was);
  else
    attr.access().set(attr, owner, was.key.ptr(), was.value.ptr());
}

void Undo::backCollection(Record const& record) {
  auto const keyOf = [&](Member const& member) {
    if (!record.attr->keyIsPtr()) return member.key->strep().str();
    return std::to_string(reinterpret_cast<std::uintptr_t>(member.key ? member.key->entityConst().ptr() : nullptr));
  };
  std::unordered_set<std::string> keys;
  for (Member const& was : record.members) keys.insert(keyOf(was));
  for (Member const& now : membersOf(*record.owner, *record.attr))
    if (!keys.count(keyOf(now))) record.attr->access().del(*record.attr, *record.owner, now.key.ptr());
  for (Member const& was : record.members) backMember(*record.owner, *record.attr, was);
}

void Undo::backQueue(Record const& record) {
  Entity& owner = *record.owner;
  KelAttr const& attr = *record.attr;
  std::vector<Member> const now = membersOf(owner, attr);
  std::size_t kept = 0;
  while (kept < now.size() && kept < record.members.size() && same(now[kept], record.members[kept])) ++kept;
  for (std::size_t i = now.size(); i-- > kept;) attr.access().del(attr, owner, now[i].key.ptr());
  for (std::size_t i = kept; i < record.members.size(); ++i) {
    if (attr.instantiating())
      attach(owner, attr, record.members[i]);
    else
      attr.access().enq(attr, owner, record.members[i].value.ptr());
  }
}

}  // namespace Cli::Service
