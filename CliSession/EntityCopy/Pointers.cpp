// Pointers, and where they lead.
#include "CliSession/EntityCopy/Walk.h"
#include "CliSession/EntityCopyUtils.h"

namespace Cli::Session {

bool Walk::doCopyPtr(Frame& f, Step const& s, Member* m) {
  WALK_TRACE(2) << "doCopyPtr: " << s.attr.name();
  destAttr(f, s);
  auto const srcTarget = m ? m->entity() : Kel::Ptr<Kel::Entity const>(s.access.target(f.src));
  if (!srcTarget) {
    WALK_TRACE(3) << "Target is not set";
    supersede(f, s, m);
    return assign(f, s, m, nullptr);
  }
  Kel::Entity* const target = resolvePtr(f, s, &f.src, *srcTarget, m, false);
  return target && assign(f, s, m, target);
}

// The handler's answer for a target that is not known by its position.
PtrTarget Walk::ask(Frame& f, Kel::Entity const& srcTarget, Counterparts::Answer const& known, Member* m) {
  if (!known.missing.empty()) return PtrTarget(known.missing, false);
  Kel::ValidPtr<EntityCopyHandler> const handler = Kel::validPtr(ec_.handler());
  std::optional<ForeignCode> guard;
  if (!known.rootKnown) {
    if (m) m->leaveSource();
    guard.emplace(*this, f);
  }
  return handler->resolveEntityPtr(&ec_, &srcTarget);
}

// The source's key that leads to `destKey`, or null.
Kel::Entity* Walk::sourceKey(Frame& f, Step const& s, Kel::Entity& destKey, KeyMap& keys) {
  Kel::Ptr<Kel::Entity> const alive(&destKey);  // the handler may delete it
  if (!keys) {
    keys.emplace();
    Kel::IteratorRoom room;
    for (Kel::AttrIterator& src = s.access.iterate(s.attr, f.src, room); src.nonNull(); src.inc()) {
      Kel::Ptr<Kel::Entity> const key(src.keyTarget());
      if (!key) continue;
      Counterparts::Answer const known = counterpart(*key);
      Kel::Ptr<Kel::Entity> led(known.target);
      if (!led) {
        // The key leads there by the handler's answer, now or when it no longer waits. In a comparison, a handler may
        // give no name; then it is the entity at the key's position. An entity that the run will make anew is left out.
        PtrTarget const answer = ask(f, *key, known, nullptr);
        led = answer.target().empty() ? counterpartByPosition(ec_, *key)
                                      : targetInTree(ec_, f.dest, answer.target(), key.ptr());
        if (led && !answer.copiable() && !keepsIdentity(ec_, *led, *key)) led = nullptr;
      }
      if (led) keys->set(led, key);
    }
  }
  Kel::Ptr<Kel::Entity> const* const found = keys->find(alive);
  return found ? found->ptr() : nullptr;
}

Kel::Entity* Walk::resolvePtr(Frame& f, Step const& s, Kel::Ptr<Kel::Entity const> const& owner,
                              Kel::Entity const& srcTarget, Member* m, bool isKey) {
  WALK_TRACE(2) << "resolvePtr: " << s.attr.name();
  // A traced run shows what the handler does.
  Counterparts::Answer const known = traced_ ? Counterparts::Answer() : counterpart(srcTarget);
  if (known.target) {
    supersede(f, s, m);
    return known.target;
  }
  Kel::Ptr<Kel::Entity const> const alive(&srcTarget);
  PtrTarget const answer = ask(f, srcTarget, known, m);
  if (answer.copiable()) {
    supersede(f, s, m);
    WALK_TRACE(3) << "Target is copiable";
    Kel::Ptr<Kel::Entity> const found = targetInTree(ec_, f.dest, answer.target(), &srcTarget);
    if (!found) WALK_TRACE(3) << "Target not found: " << answer.target();
    // Only a pointer that stays the same, and leads out of the destination, leads there as long as its target is there.
    bool const lasts = found.ptr() == &srcTarget && !(ec_.dest() && isBelow(*found, *ec_.dest()));
    if (!lasts)
      unsettle(f.dest);
    else if (byPosition_)
      impl_.counterparts.remember(srcTarget, *found);
    return found.ptr();
  }
  WALK_TRACE(3) << "Target is not copiable, deferring";
  defer(f, s, owner, srcTarget, m, isKey, answer.target());
  return nullptr;
}

}  // namespace Cli::Session
