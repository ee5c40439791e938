// Objects for a debugger to print when the program stops.
#include "CliSession/EntityCopy.h"
#include "Store.h"

using namespace Store;

namespace Store {
Kel::U32 Shelf::count() { return 1; }
}  // namespace Store

extern "C" void stopHere() { asm volatile(""); }

namespace {

void fill(Shelf& shelf) {
  Item::Ptr const bolt = shelf.newItem("bolt"), nut = shelf.newItem("nut \"M8\"");
  bolt->weightIs(12);
  bolt->nextIs(nut);
  shelf.onIs(false);
  shelf.letterIs('y');
  shelf.smallIs(-3);
  shelf.bigIs(1ull << 40);
  shelf.ratioIs(0.25);
  shelf.labelIs("");
  shelf.colourIs(Colour::green);
  shelf.pointIs(Point(1, "p", 2));
  shelf.firstIs(bolt);
  shelf.attributeIs(Kel::Ptr<Kel::KelAttr const>(Item::_fwkType()->getAttr("weight")));
  for (char const* key : {"one", "two", "three"}) shelf.numbersIs(key, static_cast<Kel::U32>(shelf.numberss() + 1));
  shelf.numbersDel("two");
  for (Kel::U8 const key : std::initializer_list<Kel::U8>{3, 1, 2}) shelf.namesIs(key, "name");
  shelf.pointsIs(Point(1, "key", 2), Point(3, "value", 4));
  shelf.pairsIs(bolt, nut);
  shelf.countsCounterInc("settled");
  shelf.countss();
  for (char const* key : {"settled", "deferred", "settled"}) shelf.countsCounterInc(key);
  for (Kel::S16 const x : std::initializer_list<Kel::S16>{7, 8, 9}) shelf.waitingEnq(Point(x, "", 0));
  shelf.waitingDeq();
  shelf.newSlot(Point(2, "b", 0));
  shelf.newSlot(Point(1, "a", 0));
  shelf.noteEnq();
  shelf.noteEnq()->textIs("second");
  shelf.newSingle("lone");
}

void fill(Cli::Session::AttributeEditLog& log) {
  using namespace Cli::Session;
  auto const set = log.newAttributeEditEntry(AttributeEdit("mtu", "U32", AttributeEditType::set_));
  for (char const* path : {"port/1", "port/2", "port/2"}) set->pathCounterCounterInc(path);
  log.newAttributeEditEntry(AttributeEdit("port", "Port", AttributeEditType::del_))->pathCounterCounterInc("port/3");
}

}  // namespace

int main() {
  Kel::String8 const text = "two\nlines", empty;
  Kel::Dir::Ptr const top = Kel::dirFactory("");
  Kel::Dir::Ptr const dir(new Kel::Dir("dir", top.ptr()));
  auto const shelf = Kel::ptrCast<Shelf>(dir->newEntity("Store::Shelf", "a/b"));
  fill(*shelf);
  Kel::Ptr<Item const> const item = shelf->item("bolt"), none;
  Kel::ValidPtr<Item> const valid = Kel::validPtr(shelf->item("bolt"));
  Kel::Ptr<Kel::Entity> const note = shelf->note(1);
  Cli::Session::AttributeEditLog::Ptr const log = Cli::Session::attributeEditLogFactory();
  fill(*log);
  auto const generic = Kel::GenericIf::of(Kel::U16(7)), string = Kel::GenericIf::of(text),
             value = Kel::GenericIf::of(Point(5, "five", 6)), colour = Kel::GenericIf::of(Colour::red),
             entity = Kel::GenericIf::ofEntity(Kel::Entity::Ptr(shelf));
  Kel::GenericIf::List::Ptr const members(new Kel::GenericIf::List);
  members->objectEnq(generic);
  members->objectEnq(entity);
  auto const list = Kel::GenericIf::List::genericIf(members);
  Kel::KelType const* const type = shelf->type();
  stopHere();
  return none || !type ? 1 : 0;
}
