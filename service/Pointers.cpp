#include "service/Pointers.h"

#include "service/Walk.h"

namespace Cli::Service {

using Kel::Entity;
using Kel::KelAttr;

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
  if (asDir(&top)) {
    eachOwned(top, [&](Entity const& child) { eachPointer(child, at / entryStep(child.name()), visit); });
    return;
  }
  if (!top.type()->pointersBelow()) return;
  for (KelAttr const* attr : top.type()->ownAttrs()) {
    if (!attr->isCollection()) {
      if (Entity const* const child = singleTarget(top, *attr)) eachPointer(*child, at / attributeStep(*attr), visit);
      continue;
    }
    eachMember(top, *attr, [&](Kel::AttrIterator const& it, std::size_t position) {
      PathStep step = attr->isQueue() ? queueStep(*attr, position) : memberStep(*attr, it.key());
      eachPointer(*it.target(), at / std::move(step), visit);
      return true;
    });
  }
}

}  // namespace Cli::Service
