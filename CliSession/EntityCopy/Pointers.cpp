// Pointers, and where they lead.
#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/Walk.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

bool Walk::pointer(Frame& f, Step const& s, Member* m) {
  static constexpr char const* operation = "doCopyPtr";
  WALK_TRACE(2, operation) << "doCopyPtr: " << s.attr.name();
  Kel::Ptr<Kel::Entity const> srcTarget;
  if (!m)
    srcTarget = Kel::Ptr<Kel::Entity const>(s.access.target(f.src));
  else if (m->at)
    srcTarget = Kel::Ptr<Kel::Entity const>(m->at->target());
  else
    srcTarget = entityConstOf(m->srcMember());
  Kel::Entity* target = nullptr;
  if (srcTarget) {
    target = resolve(f, s, f.srcPtr(), *srcTarget, m, false);
    if (!target) return false;
  } else {
    WALK_TRACE(3, operation) << "Target is not set";
    supersede(f, s, m);
  }
  return setPointer(f, s, m, target);
}

bool Walk::setPointer(Frame& f, Step const& s, Member* m, Kel::Entity* target) {
  // The hook refuses a target of another type.
  bool const fits = (!m || (m->at && (!m->key || m->key->type()->isA(s.attr.keyType())))) &&
                    (!target || target->type()->isA(s.attr.type()));
  if (traced_ || !s.typed || !fits) return set(f, s, m ? m->index() : nullptr, genericIf(target));
  Kel::Entity* current = nullptr;
  bool isThere = true;
  if (m)
    isThere = s.access.findMember(f.dest, *m->at, m->key, &current) != Kel::AttrAccess::Found::absent;
  else
    current = s.access.target(f.dest);
  if (isThere && current == target) return false;
  return edit(
      f, s, AttributeEditType::set_, [&] { return Box(genericIf(target)); },
      [&](Box const& box) {
        if (box)
          genericIf(&f.dest)->attributeIs(s.destAttr->id(), m ? m->index() : nullptr, box);
        else if (m)
          s.access.copyMember(s.attr, f.dest, *m->at, m->key, target);
        else
          s.access.setTarget(s.attr, f.dest, target);
      });
}

PtrTarget Walk::ask(Frame& f, Kel::Entity const& srcTarget, bool foreign) {
  Kel::ValidPtr<EntityCopyHandler> const handler = Kel::validPtr(ec_.handler());
  std::optional<ForeignCode> guard;
  if (foreign) guard.emplace(*this, f);
  return handler->resolveEntityPtr(EntityCopy::Ptr(&ec_), Kel::Ptr<Kel::Entity const>(&srcTarget));
}

Kel::Entity* Walk::translated(Frame& f, Kel::Entity& srcTarget) {
  Counterparts::Answer known{nullptr, false};
  if (keeps_) known = impl_.counterparts.find(ec_, srcTarget);
  if (known.target) return known.target;
  PtrTarget const answer = ask(f, srcTarget, !known.rootKnown);
  if (!answer.copiable()) return nullptr;
  return targetInTree(ec_, f.dest, answer.target(), &srcTarget).ptr();
}

Kel::Entity* Walk::resolve(Frame& f, Step const& s, Kel::Ptr<Kel::Entity const> const& owner,
                           Kel::Entity const& srcTarget, Member* m, bool isKey) {
  static constexpr char const* operation = "resolvePtr";
  WALK_TRACE(2, operation) << "resolvePtr: " << s.attr.name();
  auto& target = const_cast<Kel::Entity&>(srcTarget);
  Counterparts::Answer known{nullptr, false};
  if (keeps_) known = impl_.counterparts.find(ec_, target);
  if (known.target) {
    supersede(f, s, m);
    return known.target;
  }
  Kel::Ptr<Kel::Entity const> const alive(&srcTarget);
  Kel::String8 const missing = Counterparts::missingName(ec_, srcTarget, known);
  if (m && m->at && missing.empty() && !known.rootKnown) {
    // The handler may delete the member from the source.
    m->srcIndex();
    m->srcMember();
    m->at = nullptr;
  }
  PtrTarget const answer = missing.empty() ? ask(f, srcTarget, !known.rootKnown) : PtrTarget(missing, false);
  supersede(f, s, m);
  if (answer.copiable()) {
    WALK_TRACE(3, operation) << "Target is copiable";
    Kel::Ptr<Kel::Entity> const found = targetInTree(ec_, f.dest, answer.target(), &srcTarget);
    if (!found) WALK_TRACE(3, operation) << "Target not found: " << answer.target();
    if (found && keeps_) impl_.counterparts.remember(target, *found);
    return found.ptr();
  }
  WALK_TRACE(3, operation) << "Target is not copiable, deferring";
  std::optional<ForeignCode> guard;
  if (ec_.hasReactors()) guard.emplace(*this, f);
  defer(ec_, f, s.attr, owner, srcTarget, m, isKey, answer.target());
  return nullptr;
}

// Drops the old record of a pointer that is met again. If it has to wait again, `defer` makes a new one.
void Walk::supersede(Frame& f, Step const& s, Member* m) {
  if (!mayWait(f)) return;
  std::optional<ForeignCode> guard;
  if (ec_.hasReactors()) guard.emplace(*this, f);
  supersedePending(ec_, f.dest, s.attr, m ? m->srcIndex() : nullptr);
}

}  // namespace Cli::Session
