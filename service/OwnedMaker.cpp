#include "service/OwnedMaker.h"

#include <string>

#include "service/Walk.h"

namespace Cli::Service {

using Kel::GenericIf;
using Kel::KelAttr;
using Kel::KelType;

namespace {

// An iterator on the last item; null if there is none.
Kel::AttrIterator& lastItem(Kel::Entity const& owner, KelAttr const& attr, Kel::IteratorRoom& room) {
  return attr.access().iterateAt(owner, attr.access().count(attr, owner) - 1, room);
}

}  // namespace

Kel::Entity* OwnedMaker::make(Kel::Entity& owner, KelAttr const& attr, GenericIf::PtrConst const& key,
                              KelType const& type, std::vector<GenericIf::PtrConst> args) {
  if (&type != attr.type()) return makeDerived(owner, attr, key, type, std::move(args));
  GenericIf::Ptr const gif = gifOf(owner);
  GenericIf::List::Ptr const list(new GenericIf::List);
  for (auto const& arg : args) list->objectEnq(arg);
  if (!attr.isQueue()) {
    gif->attributeIs(attr.id(), key, GenericIf::List::genericIf(list));
    return attr.isCollection() ? gif->attribute(attr.id(), key)->entity().ptr() : singleTarget(owner, attr);
  }
  gif->attributeSQEnq(attr.id(), GenericIf::List::genericIf(list));
  Kel::IteratorRoom room;
  Kel::AttrIterator const& last = lastItem(owner, attr, room);
  if (numbered_ && last.key()->strep().str() == std::to_string(numbered_->number + 1))
    numbered_ = {last.target(), numbered_->number + 1};
  return last.target();
}

// The number that makeDerived gives to the next item of a queue.
Kel::U64 OwnedMaker::nextNumber(Kel::Entity const& owner, KelAttr const& attr) const {
  Kel::IteratorRoom room;
  Kel::AttrIterator const& last = lastItem(owner, attr, room);
  if (numbered_ && last.nonNull() && last.target() == numbered_->item) return numbered_->number + 1;
  Kel::U64 next = 0;
  attr.access().eachOwned(
      owner, [](Kel::Entity*, Kel::U64 number, void* context) { *static_cast<Kel::U64*>(context) = number + 1; },
      &next);
  return next;
}

Kel::Entity* OwnedMaker::makeDerived(Kel::Entity& owner, KelAttr const& attr, GenericIf::PtrConst const& key,
                                     KelType const& type, std::vector<GenericIf::PtrConst> args) {
  GenericIf::Ptr const gif = gifOf(owner);
  Kel::U64 const number = attr.isQueue() ? nextNumber(owner, attr) : 0;
  GenericIf::PtrConst index = key;
  if (attr.isQueue()) {
    index = attr.keyType()->genericFromText(std::to_string(number));
    if (!type.ctorArgs().empty()) args.insert(args.begin(), index);
  } else {
    gif->attributeDel(attr.id(), key);
  }
  Kel::Entity::Ptr const made = type.newEntity(args);
  attr.access().restore(attr, owner, made, number);
  if (attr.isQueue()) numbered_ = {made.ptr(), number};
  if (attr.isCollection())
    gif->attributeOp(Kel::AttributeOp::notify, attr.id(), index);
  else
    owner.notify(attr.id());
  return made.ptr();
}

}  // namespace Cli::Service
