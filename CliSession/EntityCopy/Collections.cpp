// Keyed collections.
#include <algorithm>

#include "CliSession/EntityCopy/Walk.h"

namespace Cli::Session {

// --- Collections ---

bool Walk::doCopyCollection(Frame& f, Step const& s) {
  destAttr(f, s);
  WALK_TRACE(2) << "doCopyCollection: " << s.attr.name();
  WALK_TRACE(3) << "Key is of type " << s.attr.keyType()->name() << " (internal=" << s.attr.keyType()->isEntity()
                << ", pointer=" << s.attr.keyIsPtr() << ")";
  if ((traced_ || !s.typed) && !s.attr.keyIsPtr()) checkValue(s.attr, *s.attr.keyType());
  // Pointers that already wait in this collection. If one still has to wait, the copy below makes a new record for it.
  std::vector<Kel::Ptr<AttributeCopy>> const waiting = waitingMembers(f, s);

  // If both sides have the same hashes of keys at the same positions, the keys are almost certainly the same, and there
  // is nothing to delete. If a key proves to differ, the copy pass runs the deletion pass.
  bool const sameHashes = s.dense && !traced_ && !changed(f) && s.reflexive && s.usualPlan->keyOnly &&
                          s.access.sameKeyHashes(f.dest, f.src);
  bool const isEmpty = s.typed && !traced_ && s.access.count(s.attr, f.dest) == 0;
  bool differs = !sameHashes && !isEmpty && (s.dense && changed(f) ? deleteUnpaired(f, s) : deleteExtra(f, s));
  if (!stopped()) differs |= s.dense && !traced_ ? copyPairs(f, s, !sameHashes) : copyMembers(f, s);
  if (stopped() || waiting.empty()) return differs;
  std::optional<ForeignCode> guard;
  if (ec_.hasReactors()) guard.emplace(*this, f);
  for (Kel::Ptr<AttributeCopy> const& record : waiting) ec_.pendingAttrDel(record);
  return differs;
}

// --- The deletion pass ---

// Deletes the members that may not stay. Leaves out those of a hash map before the position `from`.
bool Walk::deleteExtra(Frame& f, Step const& s, Kel::U32 from) {
  bool differs = false;
  Kel::U32 deleted = 0, examined = 0;
  KeyMap keys;
  Kel::IteratorRoom room;
  for (Kel::AttrIterator& at = s.destAttr->access().iterate(*s.destAttr, f.dest, room); at.nonNull(); at.inc()) {
    ++examined;
    if (at.position() < from || stays(f, s, at, keys)) continue;
    ++deleted;
    differs |= deleteMember(f, s, at);
    if (stopped()) return differs;
  }
  WALK_TRACE_AS(3, "doCopyCollection") << "Deleted " << deleted << " members out of " << examined;
  return differs;
}

// The same, if it is known which members may have no counterpart.
bool Walk::deleteUnpaired(Frame& f, Step const& s) {
  bool differs = false;
  KeyMap keys;
  for (Kel::U32 from = 0;;) {
    if (!changed(f)) return deleteExtra(f, s, from) || differs;
    auto const next = f.changed->unpaired.lower_bound({s.attr.id(), from});
    if (next == f.changed->unpaired.end() || next->attr != s.attr.id()) return differs;
    Kel::IteratorRoom room;
    Kel::AttrIterator const& at = s.access.iterateAt(f.dest, next->position, room);
    from = next->position + 1;
    f.changed->unpaired.erase(next);
    if (!at.nonNull() || stays(f, s, at, keys)) continue;
    differs |= deleteMember(f, s, at);
    if (stopped()) return differs;
  }
}

bool Walk::deleteMember(Frame& f, Step const& s, Kel::AttrIterator const& at) {
  return edit(
      f, s, AttributeEditType::del_, s.typed && !s.attr.instantiating() && !s.attr.isQueue(),
      [&] { return attributeDel(f, s, at.key()); }, [&] { s.access.deleteMember(s.attr, f.dest, at); });
}

// Whether a member of the destination may stay: the source has a member under the same key, and it is an equal value,
// an entity with equal constructor parameters, or a pointer that is null on both sides or on neither. A pointer with
// another target stays, and is set later.
bool Walk::stays(Frame& f, Step const& s, Kel::AttrIterator const& at, KeyMap& keys) {
  Kel::Entity* const destKey = at.keyTarget();
  Kel::Entity* const srcKey = destKey ? sourceKey(f, s, *destKey, keys) : nullptr;
  if (!at.nonNull()) return true;  // the handler has deleted it
  bool const keyLeads = srcKey || !destKey;
  if (s.typed && !traced_) {
    if (!keyLeads) return false;
    if (s.attr.instantiating()) {
      Kel::Entity const& member = *at.target();
      Kel::Entity const* const other = s.access.findCounterpart(f.src, member, at.position());
      return other && s.alike(member, *other);
    }
    Kel::Entity* target = nullptr;
    auto const found = s.access.findMember(f.src, at, srcKey, &target);
    if (s.attr.isPtr()) return found != Kel::AttrAccess::Found::absent && !target == !at.target();
    return found == Kel::AttrAccess::Found::equal;
  }
  std::optional<Kel::GenericIf::AttributeIterator> found;
  Kel::GenericIf::PtrConst const srcGif = genericIf(&f.src);
  Box const key = !s.attr.keyIsPtr() ? Box(at.key()) : srcKey ? Box(genericIf(srcKey)) : nullptr;
  if (keyLeads) found = srcGif->attributeIteratorKeyConst(s.attr.id(), key);
  bool const isThere = found && *found;
  if (s.attr.isPtr()) return isThere && !at.obj(true) == !found->obj();
  return attrEqual(s.attr, at.obj(true), isThere ? Box(found->obj()) : nullptr) && isThere;
}

// --- The copy pass ---

// Whether equalThroughout compares everything in entities of a plan. If not, equal entities would be compared twice.
bool Walk::comparesWhole(Plan const& plan) {
  return std::all_of(plan.further.begin(), plan.further.end(), [&](Step const* step) {
    return step->typed && (step->dense ? areLeaves(*step) : !step->attr.instantiating());
  });
}

bool Walk::equalThroughout(Plan const& plan, Kel::Entity& dest, Kel::Entity const& src) {
  if (plan.plainDifferences && plan.plainDifferences(dest, src) != 0) return false;
  for (Step const* step : plan.further)
    if (!isEqual(*step, dest, src, step->dense)) return false;
  return true;
}

// Copies owned members in the batches that the storage hands out. Runs the deletion pass, unless it has run, before the
// first member without a counterpart is made.
bool Walk::copyPairs(Frame& f, Step const& s, bool deletionPassed) {
  bool const isEmpty = s.access.count(s.attr, f.dest) == 0;
  if (isEmpty && !compare_) s.access.reserveMembers(f.dest, s.access.count(s.attr, f.src));
  Kel::IteratorRoom room;
  s.access.iterate(s.attr, f.src, room);  // keeps the positions as they are
  Plan const& usual = *s.usualPlan;
  bool const exact = !usual.src.hasDerived();
  static constexpr Kel::U32 maxPairs = 16;
  std::array<Kel::AttrAccess::Pair, maxPairs> pairs;
  Kel::U32 position = 0, most = maxPairs;
  bool any = false;
  while (Kel::U32 const count = changed(f) ? gatherChanged(f, s, position, pairs.data(), most)
                                           : s.access.gatherPairs(f.dest, f.src, position, pairs.data(), most)) {
    most = std::min(2 * most, maxPairs);
    Kel::U64 const generation = impl_.generation;
    bool const passes = guide_ && s.reflexive && usual.keyOnly && !asksForType(usual.src) && walkedThrough(f, s);
    bool const looksFirst = passes && !isEmpty && !changed(f) && comparesWhole(usual);
    for (Kel::U32 i = 0; i < count; ++i) {
      auto const& [dest, src, at] = pairs[i];
      bool const direct = passes && dest && (exact || (src->type() == &usual.src && dest->type() == &usual.dest));
      if (direct && looksFirst && equalThroughout(usual, *dest, *src)) continue;
      bool const keysDiffer = !direct && !deletionPassed && !(dest && s.alike(*dest, *src));
      if (keysDiffer) {
        any |= deleteExtra(f, s);
        deletionPassed = true;
      } else {
        any |= direct ? descend(f, s, *dest, *src) : ownedMember(f, s, nullptr, dest, *src);
      }
      if (stopped()) return any;
      if (!keysDiffer && generation == impl_.generation) continue;
      // What was gathered may be gone. If foreign code runs for each member, little is gathered in vain.
      position = keysDiffer ? at : at + 1;
      most = 1;
      break;
    }
  }
  return any;
}

// Copies members of any kind, one by one.
bool Walk::copyMembers(Frame& f, Step const& s) {
  static constexpr char const* operation = "doCopyCollection";
  bool differs = false;
  Kel::U32 copied = 0;
  Kel::IteratorRoom room;
  for (Kel::AttrIterator& at = s.access.iterate(s.attr, f.src, room); at.nonNull(); at.inc()) {
    Member m{&at, at.keyTarget(), {}, {}, {}};
    if (s.attr.keyIsPtr()) {
      if (!m.key) WALK_TRACE_AS(3, operation) << "Key is NULL";
      if (m.key) m.key = resolvePtr(f, s, &f.src, *m.key, &m, true);
      if (!m.key) continue;
    }
    differs |= doCopyCollectionMember(f, s, m);
    ++copied;
    if (stopped()) return differs;
  }
  // If two keys of the source lead to one key, the next copy sets its member twice again.
  Kel::KelAttr const& destOwn = destAttr(f, s);
  if (s.attr.keyIsPtr() && s.access.count(s.attr, f.src) != destOwn.access().count(destOwn, f.dest)) unsettle(f.dest);
  WALK_TRACE_AS(3, operation) << "copied " << copied << " members";
  return differs;
}

bool Walk::doCopyCollectionMember(Frame& f, Step const& s, Member& m) {
  WALK_TRACE(2) << "doCopyCollectionMember: " << m.srcMember();
  bool const isValue = s.attr.isValue(), isPtr = s.attr.isPtr();
  WALK_TRACE(3) << (isValue ? "Member is a value" : "Member is not a value");
  if (!isValue && !isPtr) {
    Kel::Ptr<Kel::Entity const> const src = m.entity();
    requireNonNull(src);
    return ownedMember(f, s, &m, held(f, s, &m, *src), *src);
  }
  if (traced_ && !isValue) {
    bool const isThere = static_cast<bool>(genericIf(&f.dest)->attribute(destAttr(f, s).id(), m.index()));
    WALK_TRACE(3) << (isThere ? "Member exists in dest" : "Member does not exist in dest");
    WALK_TRACE(3) << m.srcMember() << " is a pointer, copying target";
  }
  bool const changed = isValue ? assign(f, s, &m, nullptr) : doCopyPtr(f, s, &m);
  if (!stopped()) WALK_TRACE(3) << "Collection is not instantiating";
  return changed;
}

bool Walk::ownedMember(Frame& f, Step const& s, Member* m, Kel::Entity* dest, Kel::Entity const& src) {
  static constexpr char const* operation = "doCopyCollectionMember";
  WALK_TRACE_AS(3, operation) << (dest ? "Member exists in dest" : "Member does not exist in dest");
  if (dest) WALK_TRACE_AS(3, operation) << "Collection is instantiating";
  ParamList params;
  bool const differ = paramsDiffer(s, dest, src, params);
  if (dest)
    WALK_TRACE_AS(3, operation) << (differ ? "Constructor parameters changed"
                                           : "Constructor parameters did not change");
  WALK_TRACE_AS(3, operation) << "Collection is instantiating, processing member";
  WALK_TRACE_AS(3, operation) << (differ ? "Re-creating item" : "Getting pre-existing item");
  if (differ) return make(f, s, m, src, params, !dest);
  WALK_TRACE_AS(3, operation) << "Traversing child";
  return child(f, s, *dest, src);
}

}  // namespace Cli::Session
