// The walk itself, values and pointers that are set, singletons, children.
#include "CliSession/EntityCopy/Walk.h"

#include <bit>

namespace Cli::Session {

bool anyTrace() {
  static Kel::TraceHandle const* const handles[] = {
      &Kel::TraceHandle::get("EntityCopy"), &Kel::TraceHandle::get("EntityCopyUtils"),
      &Kel::TraceHandle::get("CliSession"), &Kel::TraceHandle::get("PathTrie"), &Kel::TraceHandle::get("PrefixTrie")};
  for (Kel::TraceHandle const* handle : handles)
    if (handle->any()) return true;
  return false;
}

Walk::Walk(EntityCopy& ec, Kel::Entity const& dest) : ec_(ec), impl_(EntityCopy::Impl::of(ec)), top_(dest) {
  revalidate();
}

void Walk::revalidate() {
  ++impl_.generation;
  impl_.counterparts.forget();
  types_ = {};
  if (ec_.stopAtFirstDiff()) ensureLog(ec_);
  traced_ = anyTrace();
  EntityCopyHandler const* const handler = ec_.handler().ptr();
  EntityCopyGlobalSessionHandler const* const known = handler ? handler->decidesAs().ptr() : nullptr;
  guide_ = traced_ ? nullptr : known;
  checker_ = ec_.attributeEditBypassChecker().ptr();
  log_ = ec_.attributeEditLog().ptr();
  compare_ = ec_.stopAtFirstDiff();
  byPosition_ = known && ec_.dest() && ec_.dest()->root() == top_.root();
}

// --- Entities ---

bool Walk::attributes(Frame& f) {
  Plan const& plan = f.plan;
  bool any = false;
  // A walk that already has to stop still takes the first attribute; then it looks whether to stop.
  if (traced_ || stopped()) {
    for (Step const* step : plan.all) {
      any |= differs(f, *step);
      if (stopped()) break;
    }
    return any;
  }
  if (!plan.plainDifferences) return attributesFrom(f, 0);
  Kel::U64 const differing = plan.plainDifferences(f.dest, f.src);
  Kel::U64 const visited = differing | plan.furtherBits;
  Kel::U64 const generation = impl_.generation;
  for (Kel::U64 left = visited & ~Kel::lastPlainBit; left; left &= left - 1) {
    auto const id = static_cast<std::size_t>(std::countr_zero(left));
    Step const& step = plan.steps[id];
    if (!(differing >> id & 1))
      any |= differs(f, step);
    else
      any |= step.kind == Step::Kind::value ? doCopyValue(f, step) : doCopyAttr(f, step);
    if (stopped()) return any;
    // Foreign code may have changed plain content that was equal.
    if (generation != impl_.generation) return attributesFrom(f, id + 1) || any;
  }
  constexpr auto firstSharing = static_cast<std::size_t>(std::countr_zero(Kel::lastPlainBit));
  return (visited & Kel::lastPlainBit && attributesFrom(f, firstSharing)) || any;
}

// Looks at each copied attribute from an id on by itself.
bool Walk::attributesFrom(Frame& f, std::size_t id) {
  bool any = false;
  for (auto const& steps = f.plan.steps; id < steps.size(); ++id) {
    if (steps[id].kind == Step::Kind::skipped) continue;
    any |= differs(f, steps[id]);
    if (stopped()) break;
  }
  return any;
}

bool Walk::operator()(Kel::Entity& dest, Kel::Entity& src) {
  return byPosition_ && impl_.counterparts.same(ec_, dest, src);
}

bool Walk::doCopyAttr(Frame& f, Step const& s) {
  static constexpr char const* signature =
      "bool Cli::Session::EntityCopy::doCopyAttr(const Kel::Ptr<Kel::Entity>&, const Kel::Ptr<const Kel::Entity>&, "
      "Kel::String, const Kel::Ptr<const Kel::KelAttr>&)";
  if (s.kind == Step::Kind::skipped) {
    WALK_TRACE_AS(9, "attrCopiable") << (!s.attr.logging()    ? "Skipping non-logging attribute "
                                         : s.attr.ctorParam() ? "Skipping constructor parameter "
                                                              : "Skipping non-writable attribute ")
                                     << s.attr.name();
    return false;
  }
  WALK_TRACE(2) << "doCopyAttr: " << s.attr.name();
  switch (s.kind) {
    case Step::Kind::value: return doCopyValue(f, s);
    case Step::Kind::pointer: return doCopyPtr(f, s, nullptr);
    case Step::Kind::singleton: return doCopySingleton(f, s);
    case Step::Kind::collection: return doCopyCollection(f, s);
    case Step::Kind::queue: return doCopyQueue(f, s);
    default: break;
  }
  WALK_TRACE(3) << (s.attr.type()->isEntity() ? "Skipping non-copiable non-instantiating entity "
                                              : "Unsupported attribute ")
                << s.attr.name();
  KEL_ASSERT_AS(false, "false", signature);
  return false;
}

// --- Children ---

bool Walk::askWalkedThrough(Frame& f, Step const& s) {
  bool const askedBefore = f.askedAt == impl_.generation;  // then it is not so for all attributes
  bool const allOfIt =
      !askedBefore && ((f.up && walkedThrough(*f.up, *f.through)) || guide_->walksThrough(f.path(), true));
  bool const answer = allOfIt || guide_->walksThrough(f.path() + "." + s.attr.name(), false);
  f.walkedThroughIs(answer, allOfIt ? nullptr : &s, impl_.generation);
  return answer;
}

bool Walk::child(Frame& f, Step const& s, Kel::Entity& dest, Kel::Entity const& src, Kel::U64 madeAt) {
  if (guide_ && !asksForType(*src.type()) &&
      (walkedThrough(f, s) || guide_->walksThrough(childPath(f.path(), s.attr, &src), false)))
    return descend(f, s, dest, src, madeAt);
  Frame below(f, s, dest, src);
  WALK_TRACE_AS(1, "chPath") << "Path changed from " << f.path() << " to " << below.path();
  unsettle(dest, Kel::Change::content);
  Depth const depth(impl_.depth);
  ForeignCode const foreign(*this, below);
  return Kel::validPtr(ec_.handler())->handleEntity(&ec_, &below.dest, &below.src, below.path());
}

// Copies a child about which the handler need not be asked. The members of a queue may pair up differently since both
// sides were equal, so they are walked in full.
bool Walk::descend(Frame& f, Step const& s, Kel::Entity& dest, Kel::Entity const& src, Kel::U64 madeAt) {
  Frame below(f, s, dest, src);
  if (madeAt > 0)
    below.newAt = madeAt;
  else if (!s.attr.isQueue() && changed(f) && !(below.changed = changes_.find(src)))
    return false;
  Depth const depth(impl_.depth);
  below.walkedThroughIs(true, nullptr, impl_.generation);
  return attributes(below);
}

// --- Values ---

bool Walk::doCopyValue(Frame& f, Step const& s) {
  WALK_TRACE(2) << "doCopyValue: " << s.attr.name();
  bool const changed = edit(
      f, s, AttributeEditType::set_, s.typed,
      [&] { return attributeIs(f, s, nullptr, genericIf(&f.src)->attribute(s.attr.id())); },
      [&] { s.access.copyValue(s.attr, f.dest, f.src); });
  if (changed && !s.reflexive && !compare_ && !(s.typed && s.access.equal(f.dest, f.src))) unsettle(f.dest);
  if ((traced_ || !s.typed) && !stopped()) checkValue(s.attr, *s.attr.type());
  return changed;
}

bool Walk::assign(Frame& f, Step const& s, Member* m, Kel::Entity* target) {
  bool const isPtr = s.attr.isPtr();
  auto const hook = [&] {
    return attributeIs(f, s, m ? m->index() : nullptr, m && !isPtr ? m->srcMember() : Box(genericIf(target)));
  };
  // The hook refuses a key or a target of another type.
  bool const fits = (!m || (m->at && (!m->key || m->key->type()->isA(s.attr.keyType())))) &&
                    (!target || target->type()->isA(s.attr.type()));
  if (traced_ || !s.typed || !fits) {
    bool const changed = hook();
    if (changed && !s.reflexive) unsettle(f.dest);
    return changed;
  }
  using Found = Kel::AttrAccess::Found;
  Kel::Entity* current = nullptr;
  auto const find = [&] { return m ? s.access.findMember(f.dest, *m->at, m->key, &current) : Found::equal; };
  if (!m) current = s.access.target(f.dest);
  Found const found = find();
  if (isPtr ? found != Found::absent && current == target : found == Found::equal) return false;
  bool const changed = edit(f, s, AttributeEditType::set_, true, hook, [&] {
    if (m)
      s.access.copyMember(s.attr, f.dest, *m->at, m->key, target);
    else
      s.access.setTarget(s.attr, f.dest, target);
  });
  if (changed && m && !s.reflexive && !compare_ && (!m->at->nonNull() || find() != Found::equal)) unsettle(f.dest);
  return changed;
}

// --- Singletons ---

bool Walk::paramsDiffer(Step const& s, Kel::Entity const* dest, Kel::Entity const& src, ParamList& params) {
  if (s.typed && !traced_) return !dest || !s.alike(*dest, src);
  params = ParamList(new Kel::GenericIf::List);
  return constructorParams(dest, &src, s.attr, params);
}

bool Walk::make(Frame& f, Step const& s, Member* m, Kel::Entity const& src, ParamList params, bool isFree) {
  Kel::Ptr<Kel::Entity const> const alive(&src);  // foreign code may delete it
  auto const hook = [&] {
    if (!params) constructorParams(alive, s.attr, params = ParamList(new Kel::GenericIf::List));
    Box const arguments = Kel::GenericIf::List::genericIf(params);
    return s.attr.isQueue() ? attributeAdd(f, s, arguments) : attributeIs(f, s, m ? m->index() : nullptr, arguments);
  };
  Kel::U64 const generation = impl_.generation;
  Kel::Entity* made = nullptr;
  bool const differs = edit(f, s, AttributeEditType::set_, s.typed && isFree && src.type() == s.attr.type(), hook,
                            [&] { made = s.access.createLike(s.attr, f.dest, src); });
  if (compare_) return differs;
  if (!made || generation != impl_.generation) made = held(f, s, m, src);  // foreign code may have deleted it
  if (m) WALK_TRACE_AS(3, "doCopyCollectionMember") << (made ? "Traversing child" : "No child, we're done");
  if (!made) return differs;
  if (s.typed && !s.alike(*made, src)) unsettle(f.dest, Kel::Change::whole);  // a NaN among the parameters
  return child(f, s, *made, src, generation) || differs;
}

// The entity of the destination under the key of `src`; in a queue, the last one.
Kel::Entity* Walk::held(Frame& f, Step const& s, Member* m, Kel::Entity const& src) {
  Kel::KelAttr const& destOwn = destAttr(f, s);
  if (s.attr.isQueue()) {
    Kel::IteratorRoom room;
    Kel::AttrIterator const& last =
        destOwn.access().iterateAt(f.dest, destOwn.access().count(destOwn, f.dest) - 1, room);
    return last.nonNull() ? last.target() : nullptr;
  }
  if (s.typed && s.attr.isCollection() && (!m || m->at))
    return s.access.findCounterpart(f.dest, src, m ? m->at->position() : 0);
  return entityOf(genericIf(&f.dest)->attribute(destOwn.id(), m ? m->index() : nullptr)).ptr();
}

bool Walk::doCopySingleton(Frame& f, Step const& s) {
  WALK_TRACE(2) << "doCopySingleton: " << s.attr.name();
  Kel::KelAttr const& destOwn = destAttr(f, s);
  bool const isSingle = destOwn.type()->isEntity() && !destOwn.isCollection();
  auto const destHeld = [&] { return isSingle ? destOwn.access().target(f.dest) : nullptr; };
  Kel::Ptr<Kel::Entity const> const srcChild(s.access.target(f.src));  // held, because a reactor may delete it
  Kel::Entity* const destChild = destHeld();
  if (!srcChild) {
    if (!destChild) return false;
    WALK_TRACE(3) << "Deleting dest child";
    return attributeDel(f, s, nullptr);
  }
  WALK_TRACE(3) << "Child is set";
  ParamList params;
  if (!paramsDiffer(s, destChild, *srcChild, params)) return child(f, s, *destChild, *srcChild);
  bool const deleted = destChild && attributeDel(f, s, nullptr);
  if (destChild && stopped()) return deleted;
  WALK_TRACE(3) << "Re-creating entity";
  return make(f, s, nullptr, *srcChild, params, !destHeld()) || deleted;
}

}  // namespace Cli::Session
