#include "Kel/KelType.h"

#include <algorithm>
#include <cctype>
#include <mutex>
#include <ostream>
#include <unordered_map>

#include "Kel/AttrLog.h"
#include "Kel/DebugLayout.h"
#include "Kel/Entity.h"
#include "Kel/GenericIf.h"
#include "Kel/Strep.h"

namespace Kel {

struct KelType::NameIndex {
  std::unordered_map<std::string_view, KelAttr const*> byName;
};

namespace {

struct TypeRegistry {
  std::mutex lock;
  std::unordered_map<std::string_view, KelType const*> byName;
  std::vector<TypeFunction> announced;
  std::recursive_mutex making;  // held while records are made: another thread that looks one up waits
  std::size_t made = 0;         // number of announced types with records; under `making`
};

TypeRegistry& typeRegistry() {
  static TypeRegistry* const registry = [] {
    auto* made = new TypeRegistry;
    DebugLayout::types = &made->byName;
    return made;
  }();
  return *registry;
}

}  // namespace

Atomic<bool> TypeRegistration::pending_{false};

TypeRegistration::TypeRegistration(TypeFunction fwkType) {
  TypeRegistry& r = typeRegistry();
  std::lock_guard<std::mutex> guard(r.lock);
  r.announced.push_back(fwkType);
  pending_.store(true, Order::release);
}

void TypeRegistration::makeRecords() {
  TypeRegistry& r = typeRegistry();
  std::lock_guard<std::recursive_mutex> making(r.making);
  for (;;) {
    TypeFunction next = nullptr;
    {
      std::lock_guard<std::mutex> guard(r.lock);
      if (r.made == r.announced.size()) {
        pending_.store(false, Order::release);
        return;
      }
      next = r.announced[r.made++];
    }
    try {
      KelType const* const type = next();
      type->pointersBelow();
      type->resolveLinks();
    } catch (...) {
      --r.made;
      throw;
    }
  }
}

KelType const* KelType::find(String8 const& fullTypeName) {
  if (TypeRegistration::pending()) TypeRegistration::makeRecords();
  makeFrameworkTypes();
  TypeRegistry& r = typeRegistry();
  std::lock_guard<std::mutex> guard(r.lock);
  auto const it = r.byName.find(fullTypeName.view());
  return it == r.byName.end() ? nullptr : it->second;
}

KelAttrIntrospectionFlags::KelAttrIntrospectionFlags(unsigned int value) : value_(static_cast<U8>(value)) {
  if (value > 0x3f) throwRangeException("KelAttrIntrospectionFlags::value > 0x3f not allowed");
}

bool KelAttr::isValue() const { return !isFunction() && !isPtr() && type()->isValue(); }
bool KelAttr::isEntity() const { return !isFunction() && !isPtr() && type()->isEntity(); }
KelConstraint KelAttr::constraint() const { return KelConstraint(type()->ctorArgs()); }

std::ostream& operator<<(std::ostream& out, KelAttr const& attr) { return out << attr.name(); }
std::ostream& operator<<(std::ostream& out, KelType const& type) { return out << type.fullTypeName(); }

bool KelType::isA(KelType const* other) const {
  for (KelType const* t = this; t; t = t->base_)
    if (t == other) return true;
  return false;
}

KelAttr const* KelType::findAttr(std::string_view name) const {
  auto const it = index_->byName.find(name);
  return it == index_->byName.end() ? nullptr : it->second;
}

KelAttr const* KelType::getAttr(std::string_view name) const {
  KelAttr const* attr = findAttr(name);
  if (!attr) throwUnknownAttrException(fullName_, String8(name));
  return attr;
}

void KelType::complete() {
  for (bool params : {true, false})
    for (KelAttr const* attr : attrs_)
      if (attr->ctorParam() == params) queue_.push_back(attr);
  auto* index = new NameIndex;
  for (KelAttr const* attr : queue_) {
    index->byName.emplace(attr->name().view(), attr);
    if (attr->instantiating()) ownAttrs_.push_back(attr);
    if (attr->isPtr() || attr->keyIsPtr()) ptrAttrs_.push_back(attr);
  }
  index_ = index;
  attrLogSa_ = new KelNboAttrLogSa(*this);
  TypeRegistry& r = typeRegistry();
  std::lock_guard<std::mutex> guard(r.lock);
  r.byName.emplace(fullName_.view(), this);
}

// For debuggers, which can only read what has been looked up.
void KelType::resolveLinks() const {
  for (KelAttr const* attr : attrs_) {
    attr->type();
    attr->keyType();
  }
}

// Called while entities are destroyed, too. If there is no memory to find out, answers that there are pointers.
bool KelType::pointersBelow() const noexcept try {
  S8 known = pointersBelow_.load(Order::relaxed);
  if (known >= 0) return known != 0;
  // Types may own each other in circles. At the end, only the answer for the type that was asked about is certain, so
  // only that is stored.
  known = 0;
  std::vector<KelType const*> reached{this};
  for (std::size_t i = 0; i < reached.size() && known == 0; ++i) {
    KelType const& type = *reached[i];
    if (type.entries_ || !type.ptrAttrs_.empty()) known = 1;  // entries may be entities of any type
    for (KelAttr const* attr : type.ownAttrs_)
      if (std::find(reached.begin(), reached.end(), attr->type()) == reached.end()) reached.push_back(attr->type());
  }
  pointersBelow_.store(known, Order::relaxed);
  return known != 0;
} catch (std::bad_alloc const&) {
  return true;
}

Ptr<Entity> KelType::newEntity(std::vector<GenericIf::PtrConst> const& args) const {
  if (!construct_) throwTypeException(fullName_, "Entity is the wrong type: it cannot be created");
  if (args.size() != ctorArgs_.size())
    throwUnknownArgException(fullName_, std::to_string(ctorArgs_.size()) + " constructor arguments expected, " +
                                            std::to_string(args.size()) + " given");
  return construct_(args, *this);
}

namespace {

GenericIf::PtrConst defaultArg(KelArg const& arg) {
  if (arg.pointer) return nullptr;
  KelType const* type = arg.type();
  if (type->isEnum()) return GenericIf::ofEnum(type, type->enumerators().front().value);
  return type->valueOps().initial();
}

}  // namespace

bool KelType::isMadeByName() const {
  return construct_ && !ctorArgs_.empty() && !ctorArgs_.front().pointer &&
         ctorArgs_.front().type() == TypeOf<Name>::type();
}

std::vector<GenericIf::PtrConst> KelType::argsForName(Name const& name) const {
  if (!isMadeByName()) throwTypeException(fullName_, "Entity is the wrong type: it cannot be created from a name");
  std::vector<GenericIf::PtrConst> args{GenericIf::of(name)};
  for (std::size_t i = 1; i < ctorArgs_.size(); ++i) args.push_back(defaultArg(ctorArgs_[i]));
  return args;
}

Ptr<Entity> KelType::newDefault() const {
  std::vector<GenericIf::PtrConst> args;
  for (KelArg const& arg : ctorArgs_) args.push_back(defaultArg(arg));
  return newEntity(args);
}

namespace {

void checkIsA(KelType const& type, Entity const* object) {
  if (object && !object->type()->isA(&type))
    throwTypeException(type.fullTypeName(), String8("Entity is the wrong type: ") + object->typeName() + " given");
}

}  // namespace

Ptr<GenericIf> KelType::genericIf(Ptr<Entity> const& object) const {
  checkIsA(*this, object.ptr());
  return GenericIf::ofEntity(object);
}
Ptr<GenericIf const> KelType::genericIf(Ptr<Entity const> const& object) const {
  checkIsA(*this, object.ptr());
  return GenericIf::ofEntity(object);
}
Ptr<GenericIf> KelType::genericIf(void const* value, bool isValue) const {
  if (!isValue || !ops_.box) throwTypeException(fullName_, "not a value type");
  return ops_.box(value);
}

namespace {

// Reads numbers and booleans without quotes.
Ptr<GenericIf> builtinFromText(KelType const& type, std::string_view text) {
  using B = KelType::Builtin;
  if (type.builtin() == B::string) return GenericIf::of(String8(text));
  if (type.builtin() == B::charT && text.size() == 1) return GenericIf::of(text.front());
  if (type.builtin() == B::boolT) {
    if (text == "true" || text == "True") return GenericIf::of(true);
    if (text == "false" || text == "False") return GenericIf::of(false);
    throwRangeException(String8("'") + text + "': true or false expected");
  }
  char const* at = text.data();
  char const* const end = at + text.size();
  try {
    Ptr<GenericIf> parsed = type.valueOps().parse(at, end);
    if (at == end && !text.empty() && !std::isspace(static_cast<unsigned char>(text.front()))) return parsed;
  } catch (RangeException const& e) {
    if (e.message().pos("out of the range") != String8::npos) throw;
  }
  throwRangeException(String8("'") + text + "': " + type.name() + " expected");
}

}  // namespace

Ptr<GenericIf> KelType::genericFromText(std::string_view text) const {
  if (isBuiltin()) return builtinFromText(*this, text);
  if (isEnum()) {
    for (Enumerator const& e : enumerators_)
      if (e.name == text) return GenericIf::ofEnum(this, e.value);
    String8 names;
    for (Enumerator const& e : enumerators_) names = names + (names.empty() ? "" : ", ") + e.name;
    throwRangeException(String8("'") + text + "': one of " + names + " expected");
  }
  if (kind_ != Kind::value) throwTypeException(fullName_, "not a value type");
  if (valAttr_) {  // a `rep value` reads as its representation
    String8 const strep = valAttr_->type()->genericFromText(text)->strep();
    char const* at = strep.charPtr();
    return ops_.parse(at, at + strep.chars());
  }
  char const* at = text.data();
  char const* const end = at + text.size();
  Ptr<GenericIf> parsed = ops_.parse(at, end);
  if (at != end) throwJunk(at - text.data(), name_.str().c_str());
  return parsed;
}

}  // namespace Kel
