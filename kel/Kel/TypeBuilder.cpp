#include "Kel/TypeBuilder.h"

namespace Kel {

namespace {

// The last component of a qualified name.
String8 shortName(String8 const& fullName) {
  std::string_view const text = fullName;
  std::size_t const colon = text.rfind(':');
  return colon == std::string_view::npos ? fullName : String8(text.substr(colon + 1));
}

}  // namespace

TypeBuilderBase::TypeBuilderBase(char const* fullName, KelType::Kind kind, KelType const* base) : type_(new KelType) {
  type_->fullName_ = fullName;
  type_->name_ = shortName(type_->fullName_);
  type_->kind_ = kind;
  type_->base_ = base;
  if (!base) return;
  type_->nextDerived_ = base->firstDerived();
  while (!base->firstDerived_.compare_exchange_weak(type_->nextDerived_, type_, Order::acqRel)) {
  }
  type_->attrs_ = base->attrs_;
  type_->ctorArgs_ = base->ctorArgs_;
  type_->plainDifferences_ = base->plainDifferences_;
}

KelAttr& TypeBuilderBase::add(AttributeId id, char const* name, AttrAccess const* access, TypeFunction type,
                              unsigned int flags) {
  KEL_ASSERT(id == nextId());
  last_ = new KelAttr(access);
  last_->name_ = name;
  last_->fullName_ = type_->fullName_ + "::" + name;
  last_->owner_ = type_;
  last_->type_.functionIs(type);
  last_->id_ = id;
  last_->flags_ = KelAttrIntrospectionFlags(flags);
  type_->attrs_.push_back(last_);
  return *last_;
}

KelAttr& TypeBuilderBase::collection(KelAttr& attr, KelAttr::Collection kind, TypeFunction key, bool keyIsPtr) {
  attr.collection_ = kind;
  attr.keyType_.functionIs(key);
  attr.keyIsPtr_ = keyIsPtr;
  return attr;
}

void TypeBuilderBase::afterChange(void (*call)(Entity&)) { last_->afterChange_ = call; }
void TypeBuilderBase::readonly() {
  last_->flags_ = KelAttrIntrospectionFlags(last_->flags_.value() & ~unsigned(KelAttrIntrospectionFlags::writable));
}
void TypeBuilderBase::nolog() {
  last_->flags_ = KelAttrIntrospectionFlags(last_->flags_.value() & ~unsigned(KelAttrIntrospectionFlags::logging));
}

void TypeBuilderBase::constructWith(Ptr<Entity> (*construct)(std::vector<GenericIf::PtrConst> const&, KelType const&),
                                    bool (*paramsEqual)(Entity const&, Entity const&),
                                    bool (*furtherParamsEqual)(Entity const&, Entity const&),
                                    Entity* (*createLike)(Entity const&)) {
  type_->construct_ = construct;
  type_->paramsEqual_ = paramsEqual;
  type_->furtherParamsEqual_ = furtherParamsEqual;
  type_->createLike_ = createLike;
}

void TypeBuilderBase::plainContentWith(PlainDifferences differences, std::initializer_list<AttributeId> attributes) {
  type_->plainDifferences_ = differences;
  // All of these records belong to this type; none is shared with another type yet.
  for (AttributeId id : attributes) {
    KEL_ASSERT(type_->attrs_[id]->owner_ == type_);
    const_cast<KelAttr*>(type_->attrs_[id])->plain_ = true;
  }
}

void TypeBuilderBase::representation(KelAttr& attr, bool autoconvert) {
  type_->valAttr_ = &attr;
  type_->autoconvert_ = autoconvert;
}

void TypeBuilderBase::enumerators(EnumName const* names, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) type_->enumerators_.push_back({names[i].name, names[i].value});
}

KelType const* TypeBuilderBase::done() {
  type_->complete();
  return type_;
}

}  // namespace Kel
