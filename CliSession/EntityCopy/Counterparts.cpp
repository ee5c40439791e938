#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/Counterparts.h"

#include <array>

#include "CliSession/EntityCopy/HeldLike.h"
#include "CliSession/EntityCopyCompare.h"
#include "CliSession/EntityCopyUtils.h"

namespace Cli::Session {

namespace {

// The most owners that are remembered. Forgetting them takes time in proportion, and happens whenever an entity leaves
// its tree.
constexpr std::size_t maxOwners = 1000;

// The run makes an entity anew that differs here. A NaN differs from itself, unlike in the service's madeAlike.
bool madeAlike(Kel::Entity const& a, Kel::Entity const& b) {
  if (a.type() != b.type()) return false;
  if (auto const paramsEqual = a.type()->paramsEqual()) return paramsEqual(a, b);
  auto const aGif = Kel::GenericIf::ofEntity(Kel::Ptr<Kel::Entity const>(&a)),
             bGif = Kel::GenericIf::ofEntity(Kel::Ptr<Kel::Entity const>(&b));
  for (Kel::KelArg const& arg : a.type()->ctorArgs()) {
    Kel::AttributeId const id = aGif->attributeId(arg.name);
    if (!valueTypeEqual(aGif->attribute(id), bGif->attribute(id))) return false;
  }
  return true;
}

}  // namespace

Nearest nearestCounterpart(Kel::Entity const& src, Kel::Entity const& srcTop, Kel::Entity& destTop) {
  if (&src == &srcTop) return {&destTop, nullptr};
  if (!src.parent()) return {&destTop, &src};
  Nearest const owner = nearestCounterpart(*src.parent(), srcTop, destTop);
  if (owner.missing) return owner;
  Kel::Entity* const held = heldLike(*owner.entity, src);
  return held ? Nearest{held, nullptr} : Nearest{owner.entity, &src};
}

Kel::Entity* counterpartByPosition(Kel::Entity const& src, Kel::Entity const& srcTop, Kel::Entity& destTop) {
  Nearest const found = nearestCounterpart(src, srcTop, destTop);
  return found.missing ? nullptr : found.entity;
}

bool keepsIdentity(EntityCopy const& ec, Kel::Entity const& dest, Kel::Entity const& src) {
  Kel::Entity const *d = &dest, *s = &src;
  for (; d && s && d != ec.dest().ptr() && s != ec.src().ptr(); d = d->parent(), s = s->parent())
    // A copy root is never made anew, and may be of another type.
    if (!madeAlike(*d, *s)) return ec.srcCopyRootHas(Kel::Ptr<Kel::Entity const>(s));
  return true;
}

Kel::Ptr<Kel::Entity> targetInTree(EntityCopy const& ec, Kel::Entity const& member, Kel::String8 const& fullName,
                                   Kel::Entity const* srcTarget) {
  auto const fits = [&](Kel::Entity const* e) { return e && e->root() == member.root() && e->fullName() == fullName; };
  if (srcTarget && ec.src() && ec.dest()) {
    Kel::Entity* const exact = counterpartByPosition(*srcTarget, *ec.src(), *ec.dest());
    if (fits(exact)) return Kel::Ptr<Kel::Entity>(exact);
  }
  if (fits(srcTarget)) return Kel::Ptr<Kel::Entity>(const_cast<Kel::Entity*>(srcTarget));
  return entityInTree(member, fullName);
}

void Counterparts::forget() {
  if (!owners_.empty()) owners_.clear();
  if (!asked_.empty()) asked_.clear();
  owner_ = nullptr;
  destOwner_ = nullptr;
}

void Counterparts::forgetIfLeft() {
  Kel::U64 const departures = Kel::Entity::departures();
  if (departures_ == departures) return;
  forget();
  departures_ = departures;
}

void Counterparts::remember(Kel::Entity const& srcTarget, Kel::Entity& target) {
  forgetIfLeft();
  asked_.emplace(&srcTarget, &target);
}

Kel::String8 Counterparts::missingName(EntityCopy const& ec, Kel::Entity const& srcTarget, Answer const& answer) {
  if (!answer.destOwner) return {};
  for (Kel::Entity const* e = &srcTarget; e && e != ec.src().ptr(); e = e->parent())
    if (e->name().view().find_first_of("/.") != std::string_view::npos) return {};
  return answer.destOwner->fullName() + srcTarget.pathFrom(answer.owner);
}

Counterparts::Answer Counterparts::find(EntityCopy& ec, Kel::Entity const& srcTarget) {
  forgetIfLeft();
  if (!asked_.empty())
    if (auto const known = asked_.find(&srcTarget); known != asked_.end()) return {known->second, true};
  // Up from the target to a known owner. If none is within reach of the array, the handler has to be asked.
  std::array<Kel::Entity const*, 32> chain;
  std::size_t length = 0;
  Kel::Entity* at = nullptr;
  for (Kel::Entity const* e = &srcTarget; e && !at; e = e->parent()) {
    if (e == owner_) {
      at = destOwner_;
    } else if (auto const owner = owners_.find(e); owner != owners_.end()) {
      at = owner->second;
    } else {
      if (length == chain.size()) return {nullptr, false};
      chain[length++] = e;
    }
  }
  if (!at) {
    auto const root = ec.handler()->counterpartRoot(EntityCopy::Ptr(&ec), Kel::Ptr<Kel::Entity const>(&srcTarget));
    if (!root || !ec.src() || !ec.dest()) return {nullptr, true};
    at = counterpartByPosition(*root, *ec.src(), *ec.dest());
    if (!at || !keepsIdentity(ec, *at, *root)) return {nullptr, false};
    owners_.emplace(root.ptr(), at);
    while (chain[--length] != root.ptr()) {
    }
  }
  bool const isRoot = length == 0, ownerKnown = length == 1;
  while (length > 0) {
    Kel::Entity const& e = *chain[--length];
    Kel::Entity* const next = heldLike(*at, e);
    // If the owners are of one type, the target does not exist.
    if (!next && at->type() == e.parent()->type()) return {nullptr, true, e.parent(), at};
    if (!next || !madeAlike(*next, e)) return {nullptr, true};
    at = next;
  }
  if (!isRoot) {
    if (!ownerKnown && owners_.size() < maxOwners) owners_.emplace(srcTarget.parent(), at->parent());
    owner_ = srcTarget.parent();
    destOwner_ = at->parent();
    through_ = srcTarget.parentAttrId();
    Kel::KelType const& type = *srcTarget.type();
    bool const plain = !type.ctorArgs().empty() && srcTarget.parentAttr()->type() == &type && !type.hasDerived();
    paramsEqual_ = plain ? type.paramsEqual() : nullptr;
  }
  return {at, true};
}

}  // namespace Cli::Session
