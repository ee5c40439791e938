#include "Kel/Box.h"

namespace Kel {

String8 Place::text() const { return arg_ ? where_ + "(" + arg_->name + ")" : where_; }

void throwWrongType(Place const& where, KelType const* expected, GenericIf const* got) {
  String8 const given = !got ? String8("null") : got->type() ? got->type()->fullTypeName() : String8("a list");
  String8 const text = where.text();
  if (expected->isEntity())
    throwTypeException(
        text, String8("Entity is the wrong type: ") + expected->fullTypeName() + " expected, " + given + " given");
  throwTypeException(text, expected->fullTypeName() + " expected, " + given + " given");
}

void wantType(GenericIf const* value, KelType const* type, Place const& where) {
  if (!value || value->type() != type) throwWrongType(where, type, value);
}

Entity* unboxEntity(GenericIf const* value, KelType const* type, bool readOnly, Place const& where) {
  if (!value) return nullptr;
  if (!value->isEntity() || !value->type()->isA(type)) throwWrongType(where, type, value);
  if (!readOnly && value->isConst()) throwConstException(where.text());
  return const_cast<Entity*>(value->entityConst().ptr());
}

}  // namespace Kel
