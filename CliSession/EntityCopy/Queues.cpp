// Queues.
#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/Walk.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

bool Walk::sameInQueue(Step const& s, Kel::AttrIterator const& dest, Kel::AttrIterator const& src) {
  if (s.typed && !traced_ && s.attr.instantiating()) {
    Kel::Entity const &a = *dest.target(), &b = *src.target();
    return a.type() == b.type() && a.type()->furtherParamsEqual()(a, b);
  }
  return attrEqual(s.attr, dest.obj(true), src.obj(true));
}

bool Walk::queue(Frame& f, Step const& s) {
  WALK_TRACE(2, "doCopyQueue") << "doCopyQueue: " << s.attr.name();
  bool const entities = s.attr.type()->isEntity();
  if ((traced_ || !s.supported) && !entities) checkValue(s.attr, *s.attr.type());
  Kel::KelAttr const& destOwn = destAttr(f, s);
  Kel::IteratorRoom srcRoom, destRoom;
  Kel::AttrIterator& src = s.access.iterate(s.attr, f.src, srcRoom);
  bool differs = false;
  for (Kel::AttrIterator& dest = destOwn.access().iterate(destOwn, f.dest, destRoom); dest.nonNull(); dest.inc()) {
    if (!src.nonNull() || !sameInQueue(s, dest, src)) {
      differs |= deleteMember(f, s, dest);
    } else {
      if (entities) differs |= child(f, s, *dest.target(), *src.target());
      src.inc();
    }
    if (stopped()) return differs;
  }
  for (; src.nonNull(); src.inc()) {
    differs |= entities ? appendEntity(f, s, src) : appendValue(f, s, src);
    if (stopped()) return differs;
  }
  return differs;
}

// Appends one member; answers whether that is a difference.
bool Walk::appendValue(Frame& f, Step const& s, Kel::AttrIterator const& src) {
  WALK_TRACE(2, "attributeAdd") << "attributeAdd: adding " << s.attr.name();
  auto const value = [&] { return Box(src.obj(true)); };
  bool const differs = edit(f, s, AttributeEditType::set_, value, [&](Box const& box) {
    if (s.typed && !box)
      s.access.appendValue(*s.destAttr, f.dest, src);
    else
      genericIf(&f.dest)->attributeSQEnq(s.destAttr->id(), box ? box : value());
  });
  if (!s.reflexive && !valueTypeEqual(value(), value())) impl_.unsettled = true;
  return differs;
}

bool Walk::appendEntity(Frame& f, Step const& s, Kel::AttrIterator const& src) {
  Kel::Ptr<Kel::Entity const> const member(src.target());
  ParamList const params(new Kel::GenericIf::List);
  constructorParams(member, s.attr, params);
  Box const value = Kel::GenericIf::List::genericIf(params);
  WALK_TRACE(2, "attributeAdd") << "attributeAdd: adding " << s.attr.name();
  Kel::AttributeId const destId = s.destAttr->id();
  Kel::U64 const generation = impl_.generation;
  bool const differs = edit(
      f, s, AttributeEditType::set_, [&]() -> Box const& { return value; },
      [&](Box const&) { genericIf(&f.dest)->attributeSQEnq(destId, value); });
  if (compare_) return differs;
  // The member that has just been made is the queue's last.
  Kel::Ptr<Kel::Entity> newest;
  if (Kel::U32 const members = s.destAttr->access().count(*s.destAttr, f.dest)) {
    Kel::IteratorRoom room;
    newest = Kel::Ptr<Kel::Entity>(s.destAttr->access().iterateAt(f.dest, members - 1, room).target());
  }
  // A NaN among the parameters.
  if (newest && s.typed && !newest->type()->furtherParamsEqual()(*newest, *member)) impl_.unsettled = true;
  return (newest && child(f, s, *newest, *member, impl_.generation == generation)) || differs;
}

}  // namespace Cli::Session
