#include "service/Targets.h"

#include <algorithm>

namespace Cli::Service {

using Kel::KelAttr;
using Kel::KelType;

bool TargetFinder::mayBe(KelType const& type) const {
  return type.isA(&wanted_) || (type.hasDerived() && wanted_.isA(&type));
}

bool TargetFinder::mayHold(KelType const& type) {
  if (isDirType(&type)) return true;
  auto const [found, added] = holds_.try_emplace(&type, false);
  if (!added) return found->second;  // a cycle: the outer call finds the answer
  bool holds = type.hasDerived();
  for (KelAttr const* attr : type.ownAttrs()) holds = holds || mayBe(*attr->type()) || mayHold(*attr->type());
  return holds_[&type] = holds;
}

void TargetFinder::eachOwner(std::function<bool(Kel::Entity&)> const& visit) {
  std::vector<Kel::Entity*> open{const_cast<Kel::Dir*>(&base_)};
  while (!open.empty()) {
    Kel::Entity& e = *open.back();
    open.pop_back();
    if (!visit(e)) return;
    std::size_t const first = open.size();
    auto const note = [&](Kel::Entity const& child) {
      if (mayHold(*child.type())) open.push_back(const_cast<Kel::Entity*>(&child));
    };
    if (asDir(&e)) {
      eachOwned(e, note);
    } else {
      for (KelAttr const* attr : e.type()->ownAttrs())
        if (mayHold(*attr->type()))
          attr->access().eachChild(
              e, [](Kel::Entity* child, void* context) { (*static_cast<decltype(note)*>(context))(*child); },
              const_cast<void*>(static_cast<void const*>(&note)));
    }
    std::reverse(open.begin() + static_cast<std::ptrdiff_t>(first), open.end());
  }
}

std::vector<Kel::Entity*> TargetFinder::named(std::string_view name) {
  std::vector<Kel::Entity*> found;
  auto const note = [&](Kel::Entity* e) {
    if (e && isTarget(*e)) found.push_back(e);
  };
  eachOwner([&](Kel::Entity& owner) {
    if (Kel::Dir const* dir = asDir(&owner)) {
      note(const_cast<Kel::Entity*>(dir->child(name)));
      return true;
    }
    for (KelAttr const* attr : owner.type()->ownAttrs()) {
      if (!mayBe(*attr->type()) || attr->isQueue()) continue;
      Kel::Entity* const child = attr->access().child(owner, attr->isCollection() ? name : std::string_view());
      if (child && child->name() == name) note(child);
    }
    return true;
  });
  return found;
}

void TargetFinder::each(std::function<bool(Kel::Entity&)> const& visit) {
  bool more = true;
  auto const offer = [&](Kel::Entity const& e) {
    if (more && isTarget(e)) more = visit(const_cast<Kel::Entity&>(e));
  };
  eachOwner([&](Kel::Entity& owner) {
    if (asDir(&owner)) {
      eachOwned(owner, offer);
      return more;
    }
    for (KelAttr const* attr : owner.type()->ownAttrs()) {
      if (!more || !mayBe(*attr->type())) continue;
      attr->access().eachChild(
          owner, [](Kel::Entity* child, void* context) { (*static_cast<decltype(offer)*>(context))(*child); },
          const_cast<void*>(static_cast<void const*>(&offer)));
    }
    return more;
  });
}

}  // namespace Cli::Service
