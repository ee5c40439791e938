#include "Kel/AttrStorage.h"

#include "Kel/Accessors.h"

namespace Kel {

void throwWrongType(String8 const& where, KelType const* expected, GenericIf const* got) {
  String8 const given = !got ? String8("null") : got->type() ? got->type()->fullTypeName() : String8("a list");
  if (expected->isEntity())
    throwTypeException(
        where, String8("Entity is the wrong type: ") + expected->fullTypeName() + " expected, " + given + " given");
  throwTypeException(where, expected->fullTypeName() + " expected, " + given + " given");
}

void throwKeyWanted(KelAttr const& attr) { throwBadIndexAttrException(attr.fullName(), "a key is needed"); }
void throwKeyType(KelAttr const& attr, KelType const* expected) {
  throwBadIndexAttrException(attr.fullName(), String8("key of type ") + expected->fullTypeName() + " expected");
}
void throwNoKeyWanted(KelAttr const& attr) {
  throwBadIndexAttrException(attr.fullName(), "not a collection, so it takes no key");
}
void throwNullMember(KelAttr const& attr) {
  throwRangeException(String8("null _") + attr.name() + " parameter to mutator for " + attr.fullName() +
                      " not allowed\"");
}
void throwTaken(KelAttr const& attr, String8 const& key) {
  throwNameInUseException(attr.fullName() + ": '" + key + "' is taken");
}
void throwWrongEntity(KelAttr const& attr, Entity const& given) {
  throwTypeException(attr.fullName(), String8("Entity is the wrong type: ") + given.typeName() + " '" + given.name() +
                                          "' does not belong there");
}
void Own::taken(KelType const* owner, AttributeId id, String8 const& key) { throwTaken(*owner->attr(id), key); }

std::vector<GenericIf::PtrConst> creationArgs(KelAttr const& attr, GenericIf const* key, GenericIf const* value) {
  if (value && value->isList()) return value->list()->objects();
  if (value) return {GenericIf::PtrConst(value)};
  if (key) return {GenericIf::PtrConst(key)};
  if (attr.type()->ctorArgs().empty()) return {};
  throwUnknownArgException(attr.fullName(), "constructor arguments are needed");
}

bool sameParams(Entity const& a, Entity const& b) {
  if (auto* equal = a.type()->paramsEqual()) return equal(a, b);
  for (KelAttr const* attr : a.type()->attributeQ()) {
    if (!attr->ctorParam()) continue;
    AttrAccess const& access = attr->access();
    bool const same = attr->isPtr()
                          ? access.single(a) == access.single(b)
                          : access.get(*attr, &a, nullptr, true)->valueEqual(*access.get(*attr, &b, nullptr, true));
    if (!same) return false;
  }
  return true;
}

}  // namespace Kel
