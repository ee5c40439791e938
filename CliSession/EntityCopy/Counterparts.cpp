#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/Counterparts.h"

#include "CliSession/EntityCopyUtils.h"
#include "Kel/AttrStorage.h"
#include "Kel/TreePair.h"

namespace Cli::Session {

namespace {

// The full name that a missing entity will have. Empty if a key on the way contains separators, or if its owners are of
// different types: then there may be an entity of that name.
Kel::String8 missingName(EntityCopy const& ec, Kel::Entity const& src, Kel::Nearest const& nearest) {
  Kel::Entity const& owner = *nearest.missing->parent();
  if (nearest.entity->type() != owner.type()) return {};
  for (Kel::Entity const* e = &src; e && e != ec.src().ptr(); e = e->parent())
    if (e->name().view().find_first_of("/.") != std::string_view::npos) return {};
  return nearest.entity->fullName() + src.pathFrom(&owner);
}

}  // namespace

Kel::Entity* counterpartByPosition(EntityCopy const& ec, Kel::Entity const& src) {
  if (!ec.src() || !ec.dest()) return nullptr;
  Kel::Nearest const found = Kel::nearestCounterpart(src, *ec.src(), *ec.dest());
  return found.missing ? nullptr : found.entity;
}

bool keepsIdentity(EntityCopy const& ec, Kel::Entity const& dest, Kel::Entity const& src, Kel::Entity const* known) {
  Kel::Entity const *d = &dest, *s = &src;
  for (; d && s && s != known && d != ec.dest().ptr() && s != ec.src().ptr(); d = d->parent(), s = s->parent())
    // The run makes an entity anew that differs here (a NaN differs from itself), but never a copy root, which may even
    // be of another type.
    if (d->type() != s->type() || !Kel::sameParams(*d, *s)) return ec.srcCopyRootHas(s);
  return true;
}

Kel::Ptr<Kel::Entity> targetInTree(EntityCopy const& ec, Kel::Entity const& member, Kel::String8 const& fullName,
                                   Kel::Entity const* srcTarget) {
  auto const fits = [&](Kel::Entity const* e) { return e && e->root() == member.root() && e->hasFullName(fullName); };
  Kel::Entity* const exact = srcTarget ? counterpartByPosition(ec, *srcTarget) : nullptr;
  if (fits(exact)) return exact;
  if (fits(srcTarget)) return const_cast<Kel::Entity*>(srcTarget);
  return entityInTree(member, fullName);
}

Counterparts::Answer Counterparts::find(EntityCopy& ec, Kel::Entity const& srcTarget) {
  if (isBesideLast(srcTarget)) {
    Kel::Entity* const held = Kel::heldLike(*destOwner_, srcTarget);
    if (held && paramsEqual_(*held, srcTarget)) return {held, true, {}};
  }
  if (departures_ != Kel::Entity::departures()) forget();
  departures_ = Kel::Entity::departures();
  if (auto const asked = asked_.find(&srcTarget); asked != asked_.end()) return {asked->second, true, {}};
  // The nearest owner of which the counterpart is known.
  Kel::Entity const* top = &srcTarget;
  auto owner = owners_.find(top);
  while (owner == owners_.end() && (top = top->parent())) owner = owners_.find(top);
  if (!top) {
    auto const root = ec.handler()->decidesAs()->counterpartRoot(&ec, &srcTarget);
    if (!root) return {nullptr, true, {}};
    Kel::Entity* const at = counterpartByPosition(ec, *root);
    if (!at || !keepsIdentity(ec, *at, *root)) return {};
    top = root.ptr();
    owner = owners_.try_emplace(top, at).first;
  }
  Kel::Nearest const found = Kel::nearestCounterpart(srcTarget, *top, *owner->second);
  if (found.missing) return {nullptr, true, missingName(ec, srcTarget, found)};
  if (!keepsIdentity(ec, *found.entity, srcTarget, top)) return {nullptr, true, {}};
  if (&srcTarget != top) {
    owner_ = srcTarget.parent();
    destOwner_ = found.entity->parent();
    through_ = srcTarget.parentAttrId();
    owners_.try_emplace(owner_, destOwner_);
    Kel::KelType const& type = *srcTarget.type();
    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): it was found through that attribute
    bool const plain = srcTarget.parentAttr()->type() == &type && !type.hasDerived();
    paramsEqual_ = plain ? type.paramsEqual() : nullptr;
  }
  return {found.entity, true, {}};
}

}  // namespace Cli::Session
