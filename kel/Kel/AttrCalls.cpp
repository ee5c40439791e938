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

}  // namespace Kel
