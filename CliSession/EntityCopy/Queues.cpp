// Queues.
#include "CliSession/EntityCopy/Walk.h"

namespace Cli::Session {

bool Walk::doCopyQueue(Frame& f, Step const& s) {
  WALK_TRACE(2) << "doCopyQueue: " << s.attr.name();
  bool const entities = s.attr.type()->isEntity();
  if ((traced_ || !s.typed) && !entities) checkValue(s.attr, *s.attr.type());
  Kel::KelAttr const& destOwn = destAttr(f, s);
  Kel::IteratorRoom srcRoom, destRoom;
  Kel::AttrIterator& src = s.access.iterate(s.attr, f.src, srcRoom);
  bool differs = false;
  for (Kel::AttrIterator& dest = destOwn.access().iterate(destOwn, f.dest, destRoom); dest.nonNull(); dest.inc()) {
    bool const same =
        src.nonNull() && (s.typed && !traced_ && entities ? s.alike(*dest.target(), *src.target())
                                                          : attrEqual(s.attr, dest.obj(true), src.obj(true)));
    if (!same) {
      differs |= deleteMember(f, s, dest);
    } else {
      if (entities) differs |= child(f, s, *dest.target(), *src.target());
      src.inc();
    }
    if (stopped()) return differs;
  }
  for (; src.nonNull(); src.inc()) {
    differs |= entities ? make(f, s, nullptr, *src.target(), nullptr, false) : appendValue(f, s, src);
    if (stopped()) return differs;
  }
  return differs;
}

// Appends one member; answers whether that is a difference.
bool Walk::appendValue(Frame& f, Step const& s, Kel::AttrIterator const& src) {
  auto const value = [&] { return Box(src.obj(true)); };
  if (!s.reflexive && !valueTypeEqual(value(), value())) unsettle(f.dest);
  return edit(
      f, s, AttributeEditType::set_, s.typed, [&] { return attributeAdd(f, s, value()); },
      [&] { s.access.appendValue(*s.destAttr, f.dest, src); });
}

}  // namespace Cli::Session
