// The bodies of the test model's operations.
#include "kel_test/Gadgets.h"

#include <sstream>

namespace Gadgets {

void Values::counted() { writesIs(writes() + 1); }
void Values::secretSet(Kel::U32 value) { secretIs(value); }
void Maps::counted() { writesIs(writes() + 1); }
void Owner::counted() { writesIs(writes() + 1); }
void Queues::counted() { writesIs(writes() + 1); }

Kel::String Shape::scale(Kel::F64 by, Kel::String text) { return text + "*" + Kel::plainText(by); }
Kel::F64 Shape::area() const { return 0; }
Kel::U32 Shape::unseen() { return 1; }

Kel::F64 Square::area() const { return static_cast<Kel::F64>(side()) * side(); }
Kel::U32 Square::unseen() { return 2; }
Kel::String Square::all(bool b, char c, Kel::S64 n, Kel::F32 f, Kel::String text, Color color, Point const& point,
                        Label const& label, Kel::Ptr<Part> const& part, Kel::Ptr<Part const> const& constPart,
                        Kel::Ptr<Kel::Dir> const& dir) const {
  std::ostringstream out;
  out << b << '|' << c << '|' << n << '|' << f << '|' << text << '|' << color << '|' << point.x() << '|' << label << '|'
      << (part ? part->name() : "null") << '|' << (constPart ? constPart->name() : "null") << '|'
      << (dir ? dir->name() : "null");
  return out.str();
}
Kel::Ptr<Kel::GenericIf> Square::echo(Kel::Ptr<Kel::GenericIf> const& value) const { return value; }
Kel::Ptr<Square const> Square::self() const { return this; }
Point Square::mid(Point const& a, Point const& b) const { return Point(a.x() / 2 + b.x() / 2, a.y() / 2 + b.y() / 2); }
void Square::fail(Kel::String message) {
  callsIs(calls() + 1);
  Kel::throwRangeException(message);
}

}  // namespace Gadgets
