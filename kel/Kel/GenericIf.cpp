#include "Kel/GenericIf.h"

#include <memory>
#include <ostream>
#include <sstream>

#include "Kel/AttrStorage.h"
#include "Kel/Entity.h"
#include "Kel/Strep.h"

namespace Kel {

namespace {

// A stream that raises exceptions, instead of swallowing them and setting a flag.
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

// --- The object ---

Kel::Ptr<Entity> GenericIf::entity() const { return Kel::Ptr<Entity>(const_ ? nullptr : const_cast<Entity*>(entity_)); }
Kel::Ptr<Entity const> GenericIf::entityConst() const { return Kel::Ptr<Entity const>(entity_); }

// The object on which attribute access works.
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

// Writes writable attributes only. The others are written by their own type.
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
  return AttributeIterator(PtrConst(this), &a, nullptr, const_);
}
GenericIf::AttributeIterator GenericIf::attributeIterator(AttributeId id) const { return attributeIteratorConst(id); }
GenericIf::AttributeIterator GenericIf::attributeIteratorConst(AttributeId id) const {
  KelAttr const& a = checkedCollection(id);
  return AttributeIterator(PtrConst(this), &a, nullptr, true);
}

namespace {

GenericIf::AttributeIterator atKey(GenericIf::PtrConst const& owner, KelAttr const& attr,
                                   GenericIf::PtrConst const& key, bool isConst) {
  if (!key && !attr.keyIsPtr()) throwKeyWanted(attr);
  GenericIf::AttributeIterator it(owner, &attr, key.ptr(), isConst);
  while (!key && it && it.key()) ++it;
  return it;
}

}  // namespace

GenericIf::AttributeIterator GenericIf::attributeIteratorKey(AttributeId id, PtrConst const& key) const {
  return atKey(PtrConst(this), checkedCollection(id), key, const_);
}
GenericIf::AttributeIterator GenericIf::attributeIteratorKeyConst(AttributeId id, PtrConst const& key) const {
  return atKey(PtrConst(this), checkedCollection(id), key, true);
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

void GenericIf::throwNotOfType(KelType const* expected) const {
  throwTypeException(type_ ? type_->fullTypeName() : String8("list"), expected->fullTypeName() + " expected");
}

// --- Iterators ---

GenericIf::AttributeIterator::AttributeIterator(GenericIf::PtrConst owner, KelAttr const* attr, GenericIf const* key,
                                                bool isConst)
    : owner_(std::move(owner)), attr_(attr), room_(nullptr), const_(isConst) {
  auto room = std::make_unique<IteratorRoom>();
  attr_->access().iterate(*attr_, *owner_->entity_, key, *room);
  room_ = room.release();
}
GenericIf::AttributeIterator::AttributeIterator(AttributeIterator const& o)
    : owner_(o.owner_), attr_(o.attr_), room_(nullptr), const_(o.const_) {
  auto room = std::make_unique<IteratorRoom>();
  o.room_->iterator().cloneInto(*room);
  room_ = room.release();
}
GenericIf::AttributeIterator::AttributeIterator(AttributeIterator&& o) noexcept
    : owner_(std::move(o.owner_)), attr_(o.attr_), room_(std::exchange(o.room_, nullptr)), const_(o.const_) {}
GenericIf::AttributeIterator& GenericIf::AttributeIterator::operator=(AttributeIterator o) noexcept {
  // The old iterator is destroyed before the collection that it iterates over.
  std::swap(room_, o.room_);
  delete std::exchange(o.room_, nullptr);
  std::swap(owner_, o.owner_);
  attr_ = o.attr_;
  const_ = o.const_;
  return *this;
}
GenericIf::AttributeIterator::~AttributeIterator() { delete room_; }

bool GenericIf::AttributeIterator::attributeIterator_nonNull() const { return room_->iterator().nonNull(); }
GenericIf::PtrConst GenericIf::AttributeIterator::attributeIterator_iterKey() const { return room_->iterator().key(); }
GenericIf::Ptr GenericIf::AttributeIterator::attributeIterator_iterObj() const { return room_->iterator().obj(const_); }
void GenericIf::AttributeIterator::attributeIterator_iterInc() { room_->iterator().inc(); }
void GenericIf::AttributeIterator::attributeIterator_iterDel() {
  if (const_) throwConstException(attr_->fullName());
  if (room_->iterator().nonNull()) owner_->attributeDel(attr_->id(), room_->iterator().key());
}

}  // namespace Kel
