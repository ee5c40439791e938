#include "Kel/AttrStorage.h"

namespace Kel {

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
void throwForeignKey(KelAttr const& attr) {
  throwBadIndexAttrException(attr.fullName(), "the key is not the member's own");
}
void throwTakenInLog(AttrLogIn const& in, KelAttr const& attr, GenericIf::PtrConst const& key) {
  in.throwRecord(attr.fullName() + ": '" + keyText(key) + "' is there twice");
}
void throwForeignKeyInLog(AttrLogIn const& in, KelAttr const& attr) {
  in.throwRecord(attr.fullName() + ": the key is not the member's own");
}
void throwNullMemberInLog(AttrLogIn const& in, KelAttr const& attr) {
  in.throwRecord(attr.fullName() + ": a null member");
}
void throwTaken(KelAttr const& attr, String8 const& key) {
  throwNameInUseException(attr.fullName() + ": '" + key + "' is taken");
}
void wantKey(KelAttr const& attr, GenericIf const* key, KelType const* type) {
  if (!key) throwKeyWanted(attr);
  if (key->type() != type) throwKeyType(attr, type);
}
void wantOwnable(KelAttr const& attr, Entity const& given) {
  if (!given.type()->isA(attr.type())) throwWrongEntity(attr, given);
}
void throwWrongEntity(KelAttr const& attr, Entity const& given) {
  throwTypeException(attr.fullName(), String8("Entity is the wrong type: ") + given.typeName() + " '" + given.name() +
                                          "' does not belong there");
}
void throwTaken(KelType const* owner, AttributeId id, String8 const& key) { throwTaken(*owner->attr(id), key); }

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
                          ? access.target(a) == access.target(b)
                          : access.get(*attr, &a, nullptr, true)->valueEqual(*access.get(*attr, &b, nullptr, true));
    if (!same) return false;
  }
  return true;
}

void deleteAllMembers(Entity& owner, AttributeId id) {
  KelAttr const& attr = *owner.type()->attr(id);
  attr.access().op(attr, owner, AttributeOp::deleteAll, nullptr, nullptr);
}

// --- Single values ---

template class ValueAccess<bool>;
template class ValueAccess<char>;
template class ValueAccess<S8>;
template class ValueAccess<U8>;
template class ValueAccess<S16>;
template class ValueAccess<U16>;
template class ValueAccess<S32>;
template class ValueAccess<U32>;
template class ValueAccess<S64>;
template class ValueAccess<U64>;
template class ValueAccess<F32>;
template class ValueAccess<F64>;
template class ValueAccess<String8>;

GenericIf::Ptr EnumAccess::get(KelAttr const& attr, void const* object, GenericIf const* key, bool) const {
  wantNoKey(attr, key);
  return GenericIf::ofEnum(attr.type(), of(*static_cast<Entity const*>(object)));
}
void EnumAccess::set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const {
  wantNoKey(attr, key);
  wantType(value, attr.type(), attr.fullName());
  assign(attr, e, value->enumValue());
}
void EnumAccess::del(KelAttr const& attr, Entity& e, GenericIf const* key) const {
  wantNoKey(attr, key);
  assign(attr, e, initial_);
}
void EnumAccess::assign(KelAttr const& attr, Entity& e, S32 value) const {
  if (writeValue(e, at_.in<Cell>(e).value, attr.id(), value)) afterChange(attr, e);
}
bool EnumAccess::equal(Entity const& a, Entity const& b) const { return of(a) == of(b); }
void EnumAccess::copyValue(KelAttr const& attr, Entity& dest, Entity const& src) const { assign(attr, dest, of(src)); }
void EnumAccess::write(KelAttr const&, void const* object, AttrLogOut& out) const {
  out.put(of(*static_cast<Entity const*>(object)));
}
void EnumAccess::read(KelAttr const& attr, void* object, AttrLogIn& in) const {
  at_.in<Cell>(*static_cast<Entity*>(object)).value = readAttrLogEnumerator(in, *attr.type());
}

GenericIf::Ptr AnyStructAccess::get(KelAttr const& attr, void const* object, GenericIf const* key, bool) const {
  wantNoKey(attr, key);
  return attr.type()->valueOps().box(&at_.in<char>(*static_cast<Entity const*>(object)));
}
void AnyStructAccess::set(KelAttr const& attr, Entity& e, GenericIf const* key, GenericIf const* value) const {
  wantNoKey(attr, key);
  wantType(value, attr.type(), attr.fullName());
  assign(attr, e, value->heldValue());
}
void AnyStructAccess::del(KelAttr const& attr, Entity& e, GenericIf const* key) const {
  wantNoKey(attr, key);
  assign(attr, e, initial());
}
void AnyStructAccess::assign(KelAttr const& attr, Entity& e, void const* value) const {
  if (writeTo(e, attr.id(), value)) afterChange(attr, e);
}
void AnyStructAccess::copyValue(KelAttr const& attr, Entity& dest, Entity const& src) const {
  assign(attr, dest, &at_.in<char>(src));
}
void AnyStructAccess::write(KelAttr const& attr, void const* object, AttrLogOut& out) const {
  writeAttrLogValue(out, *attr.type(), &at_.in<char>(*static_cast<Entity const*>(object)));
}
void AnyStructAccess::read(KelAttr const& attr, void* object, AttrLogIn& in) const {
  GenericIf::Ptr const value = attr.type()->valueOps().read(in);
  store(*static_cast<Entity*>(object), value->heldValue());
}

GenericIf::Ptr ConstantAccess::get(KelAttr const& attr, void const*, GenericIf const* key, bool) const {
  wantNoKey(attr, key);
  return value_;
}

GenericIf::Ptr NameAccess::get(KelAttr const& attr, void const* object, GenericIf const* key, bool) const {
  wantNoKey(attr, key);
  return box(static_cast<Entity const*>(object)->name());
}
bool NameAccess::equal(Entity const& a, Entity const& b) const { return a.name() == b.name(); }
void NameAccess::write(KelAttr const&, void const* object, AttrLogOut& out) const {
  streamOut(out, static_cast<Entity const*>(object)->name());
}

GenericIf::Ptr ParamAccess::get(KelAttr const& attr, void const* object, GenericIf const* key, bool constView) const {
  return kept_->get(attr, object, key, constView);
}
bool ParamAccess::equal(Entity const& a, Entity const& b) const { return kept_->equal(a, b); }
Entity* ParamAccess::target(Entity const& e) const { return kept_->target(e); }
void ParamAccess::write(KelAttr const& attr, void const* object, AttrLogOut& out) const {
  kept_->write(attr, object, out);
}
bool ParamAccess::dropPointers(Entity& e) const {
  Entity const* const target = kept_->target(e);
  Entity const* owner = e.parent();
  while (owner && owner != target) owner = owner->parent();
  return owner && kept_->dropPointers(e);
}

GenericIf::Ptr FieldAccess::get(KelAttr const& attr, void const* object, GenericIf const* key, bool) const {
  wantNoKey(attr, key);
  return functions_.box(object);
}
void FieldAccess::write(KelAttr const&, void const* object, AttrLogOut& out) const { functions_.write(object, out); }
void FieldAccess::read(KelAttr const&, void* object, AttrLogIn& in) const { functions_.read(object, in); }

}  // namespace Kel
