#include "Kel/GenericIf.h"

#include <ostream>
#include <sstream>

#include "Kel/AttrCalls.h"
#include "Kel/AttrStorage.h"
#include "Kel/Entity.h"
#include "Kel/Model.h"

namespace Kel {

namespace {

// Raises what goes wrong while something is written to it, where other streams keep it to themselves.
struct TextStream : std::ostringstream {
  TextStream() { exceptions(badbit); }
};

}  // namespace

// --- Making ---

GenericIf::~GenericIf() {
  if (list_) list_->refDec();
}

GenericIf::Ptr GenericIf::ofEntity(Kel::Ptr<Entity> const& entity) {
  if (!entity) return nullptr;
  Ptr made(new GenericIf(entity->type(), false));
  made->entity_ = entity.ptr();
  made->object_ = entity;
  return made;
}

GenericIf::PtrConst GenericIf::ofEntity(Kel::Ptr<Entity const> const& entity) {
  if (!entity) return nullptr;
  Ptr made(new GenericIf(entity->type(), true));
  made->entity_ = entity.ptr();
  made->object_ = entity;
  return made;
}

GenericIf::Ptr GenericIf::ofObject(KelType const* type, Kel::Ptr<PtrInterface const> const& object) {
  if (!object) return nullptr;
  Ptr made(new GenericIf(type, true));
  made->object_ = object;
  return made;
}

GenericIf::Ptr GenericIf::ofEnum(KelType const* type, Kel::S32 value) {
  Ptr made(new GenericIf(type, false));
  made->scalar_.s32 = value;
  return made;
}

GenericIf::Ptr GenericIf::ofHolder(KelType const* type, Kel::Ptr<ValueHolder> const& holder) {
  Ptr made(new GenericIf(type, false));
  made->object_ = holder;
  return made;
}

GenericIf::Ptr GenericIf::List::genericIf(Ptr const& list) {
  GenericIf::Ptr made(new GenericIf(nullptr, true));
  made->list_ = list.ptr();
  list->refInc();
  return made;
}

// --- What it holds ---

Kel::Ptr<Entity> GenericIf::entity() const { return Kel::Ptr<Entity>(const_ ? nullptr : const_cast<Entity*>(entity_)); }
Kel::Ptr<Entity const> GenericIf::entityConst() const { return Kel::Ptr<Entity const>(entity_); }

// The object that attribute access works on.
void const* GenericIf::base() const {
  if (entity_) return entity_;
  if (!type_) return nullptr;
  switch (type_->kind()) {
    case KelType::Kind::value: return static_cast<ValueHolder const*>(object_.ptr())->value();
    case KelType::Kind::builtin:
      return type_->builtin() == KelType::Builtin::string ? static_cast<void const*>(&string_) : &scalar_;
    default: return &scalar_;
  }
}

bool GenericIf::valueEqual(GenericIf const& other) const {
  if (!type_ || type_ != other.type_ || !type_->isValue())
    throwTypeException(type_ ? type_->fullTypeName() : String8("list"), "two values of one type expected");
  if (!type_->valueOps().equal) throwNoImplementationException("operator==");
  return type_->valueOps().equal(base(), other.base());
}

String8 GenericIf::text() const {
  if (entity_) return entity_->fullName();
  if (!type_ || !type_->isValue()) {
    if (!list_) return type_ ? type_->fullTypeName() : String8();
    String8 text = "(";
    for (auto const& object : list_->objects())
      text = text + (text.chars() > 1 ? ", " : "") + (object ? object->text() : "<null>");
    return text + ")";
  }
  TextStream out;
  type_->valueOps().print(base(), out);
  return String8(out.str());
}

String8 GenericIf::strep() const {
  if (!type_ || !type_->isValue()) return valueToStrep(text());
  return type_->valueOps().strep(base());
}

std::ostream& operator<<(std::ostream& out, GenericIf::PtrConst const& object) {
  return object ? out << object->text() : out << "<null>";
}

// --- Attributes ---

AttributeId GenericIf::attributeId(String8 const& name) const {
  if (!type_) throwUnknownAttrException("list", name);
  return type_->getAttr(name)->id();
}

KelAttr const* GenericIf::attr(AttributeId id) const { return type_ ? type_->attr(id) : nullptr; }

KelAttr const& GenericIf::checked(AttributeId id) const {
  KelAttr const* found = attr(id);
  if (!found)
    throwUnknownAttrException(type_ ? type_->fullTypeName() : String8("list"), std::string("#") + std::to_string(id));
  return *found;
}

Entity& GenericIf::writableEntity(KelAttr const& attr) const {
  if (!entity_) throwOpNotSupportedException(attr.fullName(), "write to a value");
  if (const_) throwConstException(attr.fullName());
  return const_cast<Entity&>(*entity_);
}

GenericIf::Ptr GenericIf::attribute(AttributeId id, PtrConst const& key) {
  KelAttr const& a = checked(id);
  return a.access().get(a, base(), key.ptr(), const_);
}
GenericIf::PtrConst GenericIf::attribute(AttributeId id, PtrConst const& key) const {
  KelAttr const& a = checked(id);
  return a.access().get(a, base(), key.ptr(), true);
}

// What the public may write; a read-only attribute is written by its type alone.
void GenericIf::attributeIs(AttributeId id, PtrConst const& key, PtrConst const& value) const {
  KelAttr const& a = checked(id);
  Entity& e = writableEntity(a);
  if (!a.writable()) throwOpNotSupportedException(a.fullName(), "attributeIs");
  a.access().set(a, e, key.ptr(), value.ptr());
}
void GenericIf::attributeDel(AttributeId id, PtrConst const& key) const {
  KelAttr const& a = checked(id);
  Entity& e = writableEntity(a);
  if (!a.writable()) throwOpNotSupportedException(a.fullName(), "attributeDel");
  a.access().del(a, e, key.ptr());
}
void GenericIf::attributeSQEnq(AttributeId id, PtrConst const& value) const {
  KelAttr const& a = checked(id);
  Entity& e = writableEntity(a);
  if (a.isQueue() && !a.writable()) throwOpNotSupportedException(a.fullName(), "attributeSQEnq");
  a.access().enq(a, e, value.ptr());
}
void GenericIf::attributeSQDeq(AttributeId id) const {
  KelAttr const& a = checked(id);
  Entity& e = writableEntity(a);
  if (a.isQueue() && !a.writable()) throwOpNotSupportedException(a.fullName(), "attributeSQDeq");
  a.access().deq(a, e);
}
void GenericIf::attributeOp(AttributeOp op, AttributeId id, PtrConst const& key, PtrConst const& value) const {
  KelAttr const& a = checked(id);
  Entity& e = writableEntity(a);
  if (!a.writable()) throwOpNotSupportedException(a.fullName(), "attributeOp");
  a.access().op(a, e, op, key.ptr(), value.ptr());
}
GenericIf::Ptr GenericIf::attributeCall(AttributeId id, Args const& args) const {
  KelAttr const& a = checked(id);
  if (!entity_ || !a.isFunction()) throwOpNotSupportedException(a.fullName(), "attributeCall");
  Kel::Ptr<Entity const> const alive(entity_);
  return a.access().call(a, *entity_, const_, args);
}

KelAttr const& GenericIf::checkedCollection(AttributeId id) const {
  KelAttr const& a = checked(id);
  if (!entity_ || !a.isCollection()) throwOpNotSupportedException(a.fullName(), "attributeIterator");
  return a;
}

GenericIf::AttributeIterator GenericIf::attributeIterator(AttributeId id) {
  KelAttr const& a = checkedCollection(id);
  return AttributeIterator(PtrConst(this), &a, a.access().iterator(a, *entity_, nullptr), const_);
}
GenericIf::AttributeIterator GenericIf::attributeIterator(AttributeId id) const { return attributeIteratorConst(id); }
GenericIf::AttributeIterator GenericIf::attributeIteratorConst(AttributeId id) const {
  KelAttr const& a = checkedCollection(id);
  return AttributeIterator(PtrConst(this), &a, a.access().iterator(a, *entity_, nullptr), true);
}

namespace {

GenericIf::PtrConst wantKey(KelAttr const& attr, GenericIf::PtrConst const& key) {
  if (!key) throwKeyWanted(attr);
  return key;
}

}  // namespace

GenericIf::AttributeIterator GenericIf::attributeIteratorKey(AttributeId id, PtrConst const& key) const {
  KelAttr const& a = checkedCollection(id);
  return AttributeIterator(PtrConst(this), &a, a.access().iterator(a, *entity_, wantKey(a, key).ptr()), const_);
}
GenericIf::AttributeIterator GenericIf::attributeIteratorKeyConst(AttributeId id, PtrConst const& key) const {
  KelAttr const& a = checkedCollection(id);
  return AttributeIterator(PtrConst(this), &a, a.access().iterator(a, *entity_, wantKey(a, key).ptr()), true);
}

U32 GenericIf::attributeCount(AttributeId id) const {
  KelAttr const& a = checkedCollection(id);
  return a.access().count(a, *entity_);
}

String8 GenericIf::attributeString(AttributeId id) const {
  KelAttr const& a = checked(id);
  TextStream out;
  if (a.isFunction()) {
    out << a.name() << "()";
  } else if (!a.isCollection()) {
    out << attribute(id);
  } else {
    out << "{";
    char const* separator = "";
    for (AttributeIterator it = attributeIteratorConst(id); it; ++it, separator = ", ") {
      out << separator << it.key();
      if (!a.instantiating()) out << ": " << it.obj();
    }
    out << "}";
  }
  return String8(out.str());
}

// --- Iterators ---

GenericIf::AttributeIterator::AttributeIterator(GenericIf::PtrConst owner, KelAttr const* attr,
                                                std::unique_ptr<AttrIterator> it, bool isConst)
    : owner_(std::move(owner)), attr_(attr), it_(std::move(it)), const_(isConst) {}
GenericIf::AttributeIterator::AttributeIterator(AttributeIterator const& o)
    : owner_(o.owner_), attr_(o.attr_), it_(o.it_->clone()), const_(o.const_) {}
GenericIf::AttributeIterator::AttributeIterator(AttributeIterator&& o) noexcept = default;
GenericIf::AttributeIterator& GenericIf::AttributeIterator::operator=(AttributeIterator o) noexcept {
  // The old iterator goes before what it iterates over.
  it_ = std::move(o.it_);
  std::swap(owner_, o.owner_);
  attr_ = o.attr_;
  const_ = o.const_;
  return *this;
}
GenericIf::AttributeIterator::~AttributeIterator() { it_.reset(); }

bool GenericIf::AttributeIterator::attributeIterator_nonNull() const { return it_->nonNull(); }
GenericIf::PtrConst GenericIf::AttributeIterator::attributeIterator_iterKey() const { return it_->key(); }
GenericIf::Ptr GenericIf::AttributeIterator::attributeIterator_iterObj() const { return it_->obj(const_); }
void GenericIf::AttributeIterator::attributeIterator_iterInc() { it_->inc(); }
void GenericIf::AttributeIterator::attributeIterator_iterDel() {
  if (const_) throwConstException(attr_->fullName());
  if (it_->nonNull()) owner_->attributeDel(attr_->id(), it_->key());
}

// --- For the storage templates ---

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
void throwNoKeyWanted(KelAttr const& attr) { throwBadIndexAttrException(attr.fullName(), "no collection, so no key"); }
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
