#include "Kel/AttrCalls.h"

namespace Kel {

GenericIf const* callArg(KelAttr const& attr, GenericIf::Args const& args, std::size_t n) {
  for (auto const& [name, value] : args)
    if (name == attr.args()[n].name) return value.ptr();
  throwUnknownArgException(attr.fullName(), String8("argument '") + attr.args()[n].name + "' is missing");
}

void checkCallArgs(KelAttr const& attr, GenericIf::Args const& args) {
  for (auto const& given : args) {
    String8 const& name = given.first;
    bool known = false;
    for (KelArg const& arg : attr.args()) known = known || arg.name == name;
    if (!known) throwUnknownArgException(attr.fullName(), String8("unknown argument '") + name + "'");
    for (auto const& other : args)
      if (&other != &given && other.first == name)
        throwUnknownArgException(attr.fullName(), String8("argument '") + name + "' is given twice");
  }
}

GenericIf::Ptr OpAccess::call(KelAttr const& attr, Entity const& e, bool constView, GenericIf::Args const& args) const {
  if (constView && !isConst_) throwConstException(attr.fullName());
  checkCallArgs(attr, args);
  return function_(attr, const_cast<Entity&>(e), args);
}

bool sameName(Entity const& a, Entity const& b) { return a.name() == b.name(); }
bool noFurtherParams(Entity const&, Entity const&) { return true; }

}  // namespace Kel
