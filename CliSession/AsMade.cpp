#include "CliSession/AsMade.h"

#include "Kel/AttrAccess.h"
#include "Kel/AttrStorage.h"

namespace Cli::Session {

namespace {

// Values without a comparison are compared by their printed form.
bool sameContent(Kel::KelAttr const& attr, Kel::Entity const& a, Kel::Entity const& b) {
  Kel::AttrAccess const& access = attr.access();
  if (attr.isCollection() && access.count(attr, a) == 0) return access.count(attr, b) == 0;
  if (access.equal(a, b)) return true;
  bool const comparable = !attr.isValue() || attr.type()->valueOps().equal;
  return !comparable && !attr.isCollection() && a.attributeString(attr.id()) == b.attributeString(attr.id());
}

bool ownsNothing(Kel::KelAttr const& attr, Kel::Entity const& e) {
  return attr.isCollection() ? attr.access().count(attr, e) == 0 : !attr.access().target(e);
}

}  // namespace

bool isAsMade(Kel::Entity const& e, Kel::Dir& dir) {
  Kel::KelType const& type = *e.type();
  if (!type.isMadeByName()) return false;
  Kel::Entity::Ptr const fresh = type.newEntityFor(e.name(), &dir);
  if (!Kel::sameParams(e, *fresh)) return false;
  for (Kel::KelAttr const* attr : type.attributeQ()) {
    if (attr->ctorParam() || attr->isConstant() || attr->isFunction() || attr->access().derived()) continue;
    bool const same =
        attr->instantiating() ? ownsNothing(*attr, e) && ownsNothing(*attr, *fresh) : sameContent(*attr, e, *fresh);
    if (!same) return false;
  }
  return true;
}

}  // namespace Cli::Session
