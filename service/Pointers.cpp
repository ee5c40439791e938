#include "service/Pointers.h"

#include "service/Walk.h"

namespace Cli::Service {

using Kel::Entity;
using Kel::KelAttr;

Path placeOf(Pointer const& pointer, Entity const& base) {
  if (!pointer.attr->keyIsPtr()) return pointer.place;
  std::string const key = pointer.key ? targetText(*pointer.key, base) : std::string();
  return pointer.place.parent() / memberStep(*pointer.attr, Kel::GenericIf::of(Kel::String8(key)));
}

void eachPointer(Entity const& top, Path const& at, std::function<void(Pointer const&)> const& visit) {
  for (KelAttr const* attr : top.type()->ptrAttrs()) {
    if (!attr->copiable()) continue;
    if (!attr->isCollection()) {
      if (Entity const* const target = attr->access().target(top))
        visit({at / attributeStep(*attr), &top, attr, target, nullptr, nullptr});
      continue;
    }
    eachMember(top, *attr, [&](Kel::AttrIterator const& it, std::size_t) {
      if (!attr->keyIsPtr()) {
        if (it.target()) visit({at / memberStep(*attr, it.key()), &top, attr, it.target(), nullptr, nullptr});
        return true;
      }
      for (Entity const* target : {it.keyTarget(), attr->isPtr() ? it.target() : nullptr})
        if (target) visit({at / attributeStep(*attr), &top, attr, target, it.keyTarget(), it.obj(true)});
      return true;
    });
  }
  if (!asDir(&top) && !top.type()->pointersBelow()) return;
  eachOwned(top, [&](Entity const& child) {
    if (!child.parentAttr() || asDir(&top)) return eachPointer(child, at / entryStep(child.name()), visit);
    KelAttr const& held = *child.parentAttr();
    if (held.isQueue()) {
      std::size_t position = 0;
      eachMember(top, held, [&](Kel::AttrIterator const& it, std::size_t p) {
        position = p;
        return it.target() != &child;
      });
      return eachPointer(child, at / queueStep(held, position), visit);
    }
    eachPointer(child,
                held.isCollection() ? at / memberStep(held, valueOfAttr(child, *keyParam(*child.type())))
                                    : at / attributeStep(held),
                visit);
  });
}

}  // namespace Cli::Service
