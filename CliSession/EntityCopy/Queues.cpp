// Queues.
#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/Cursor.h"
#include "CliSession/EntityCopy/Walk.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

bool Walk::sameInQueue(Step const& s, Cursor const& dest, Cursor const& src) {
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
  Cursor src(s.attr, f.src, false), dest(destAttr(f, s), f.dest, false);
  bool differs = false;
  while (src && dest) {
    if (sameInQueue(s, dest, src)) {
      if (entities) differs |= child(f, s, *dest.target(), *src.target());
      if (stopped()) return differs;
      ++src;
    } else {
      differs |= deleteMember(f, s, dest);
      if (stopped()) return true;
    }
    ++dest;
  }
  for (; dest; ++dest) {
    differs |= deleteMember(f, s, dest);
    if (stopped()) return true;
  }
  for (; src; ++src) {
    differs |= entities ? appendEntity(f, s, src) : appendValue(f, s, src);
    if (stopped()) return true;
  }
  return differs;
}

// Appends one member; answers whether that is a difference.
bool Walk::appendValue(Frame& f, Step const& s, Cursor const& src) {
  WALK_TRACE(2, "attributeAdd") << "attributeAdd: adding " << s.attr.name();
  auto const value = [&] { return Box(src.obj(true)); };
  bool const differs = edit(f, s, AttributeEditType::set_, value, [&](Box const& box) {
    if (s.typed && !box)
      s.access.appendValue(*s.destAttr, f.dest, *src.iterator());
    else
      genericIf(&f.dest)->attributeSQEnq(s.destAttr->id(), box ? box : value());
  });
  if (!s.reflexive && !valueTypeEqual(value(), value())) impl_.unsettled = true;
  return differs;
}

bool Walk::appendEntity(Frame& f, Step const& s, Cursor const& src) {
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
