#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/Counterparts.h"

#include <array>
#include <vector>

#include "CliSession/EntityCopyCompare.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/AttrAccess.h"
#include "Kel/Dir.h"

namespace Cli::Session {

namespace {

// The entity that `owner` holds as its counterpart's owner holds `e`; null when there is none.
Kel::Entity* heldLike(Kel::Entity& owner, Kel::Entity const& e) {
  Kel::KelAttr const* const held = e.parentAttr();
  if (!held || owner.type() != e.parent()->type()) return nullptr;
  if (owner.type() == Kel::Dir::_fwkType()) {
    if (e.type() == Kel::Dir::EntryState::_fwkType()) return nullptr;
    return const_cast<Kel::Entity*>(static_cast<Kel::Dir const&>(owner).child(e.name()));
  }
  return held->isCollection() ? held->access().memberLike(owner, e, 0) : held->access().single(owner);
}

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

Nearest nearestStandIn(Kel::Entity const& src, Kel::Entity const& srcTop, Kel::Entity& destTop) {
  // From the bottom up, then down on the other side.
  std::vector<Kel::Entity const*> chain;
  chain.reserve(8);
  for (Kel::Entity const* e = &src; e != &srcTop; e = e->parent()) {
    if (!e) return {&destTop, &src};
    chain.push_back(e);
  }
  Kel::Entity* at = &destTop;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    Kel::Entity* const next = heldLike(*at, **it);
    if (!next) return {at, *it};
    at = next;
  }
  return {at, nullptr};
}

Kel::Entity* standIn(Kel::Entity const& src, Kel::Entity const& srcTop, Kel::Entity& destTop) {
  Nearest const found = nearestStandIn(src, srcTop, destTop);
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
    Kel::Entity* const exact = standIn(*srcTarget, *ec.src(), *ec.dest());
    if (fits(exact)) return Kel::Ptr<Kel::Entity>(exact);
  }
  if (fits(srcTarget)) return Kel::Ptr<Kel::Entity>(const_cast<Kel::Entity*>(srcTarget));
  return entityInTree(member, fullName);
}

void Counterparts::forget() {
  roots_.clear();
  asked_.clear();
  owner_ = nullptr;
  destOwner_ = nullptr;
}

void Counterparts::forgetIfLeft() {
  Kel::U64 const departures = Kel::Entity::departures();
  if (departures_ == departures) return;
  forget();
  departures_ = departures;
}

void Counterparts::remember(Kel::Entity& srcTarget, Kel::Entity& target) {
  forgetIfLeft();
  asked_.emplace(&srcTarget, &target);
}

Kel::String8 Counterparts::missingName(EntityCopy const& ec, Kel::Entity const& srcTarget, Answer const& answer) {
  if (!answer.destOwner) return {};
  for (Kel::Entity const* e = &srcTarget; e && e != ec.src().ptr(); e = e->parent())
    if (e->name().view().find_first_of("/.") != std::string_view::npos) return {};
  return answer.destOwner->fullName() + srcTarget.pathFrom(answer.owner);
}

Counterparts::Answer Counterparts::find(EntityCopy& ec, Kel::Entity& srcTarget) {
  forgetIfLeft();
  if (auto const known = asked_.find(&srcTarget); known != asked_.end()) return {known->second, true};
  // From the target up to what is known; a target that lies deeper is left to the handler.
  std::array<Kel::Entity const*, 32> chain;
  std::size_t length = 0;
  Kel::Entity* at = nullptr;
  for (Kel::Entity const* e = &srcTarget; e && !at; e = e->parent()) {
    if (e == owner_) {
      at = destOwner_;
    } else if (auto const root = roots_.find(e); root != roots_.end()) {
      at = root->second;
    } else {
      if (length == chain.size()) return {nullptr, false};
      chain[length++] = e;
    }
  }
  if (!at) {
    auto const root = ec.handler()->counterpartRoot(EntityCopy::Ptr(&ec), Kel::Ptr<Kel::Entity const>(&srcTarget));
    if (!root || !ec.src() || !ec.dest()) return {nullptr, true};
    at = standIn(*root, *ec.src(), *ec.dest());
    if (!at || !keepsIdentity(ec, *at, *root)) return {nullptr, false};
    roots_.emplace(root.ptr(), at);
    while (chain[--length] != root.ptr()) {
    }
  }
  bool const isRoot = length == 0;
  while (length > 0) {
    Kel::Entity const& e = *chain[--length];
    Kel::Entity* const next = heldLike(*at, e);
    // Where the owners are of one type, the target has nothing in its place.
    if (!next && at->type() == e.parent()->type()) return {nullptr, true, e.parent(), at};
    if (!next || !madeAlike(*next, e)) return {nullptr, true};
    at = next;
  }
  if (!isRoot) {
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
