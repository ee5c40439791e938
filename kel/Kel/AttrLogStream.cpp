#include "Kel/AttrLogStream.h"

#include "Kel/AttrAccess.h"

namespace Kel {

namespace {

String8 at(std::size_t offset) { return String8("attribute log, offset " + std::to_string(offset) + ": "); }

}  // namespace

void throwAttrLogRecord(std::size_t offset, String8 const& what) { throw AttrLogRecordException(at(offset) + what); }
void throwAttrLogEntity(std::size_t offset, String8 const& what) { throw AttrLogEntityException(at(offset) + what); }

bool attrLogMayBeUnowned(KelType const& type) { return type.ownAttrs().empty() && type.ptrAttrs().empty(); }

// --- Writing ---

void AttrLogOut::patch(std::size_t offset, U32 v) {
  for (std::size_t i = 4; i-- > 0; v >>= 8) bytes_[offset + i] = static_cast<char>(v & 0xff);
}

void AttrLogOut::reference(Entity const* target) {
  if (!target) return put(AttrLogReference::null);
  if (!ids_.count(target) && !target->parent() && target != treeRoot_ && attrLogMayBeUnowned(*target->type())) {
    number(*target);
    unowned_.push_back(target);
  }
  if (auto const it = ids_.find(target); it != ids_.end()) {
    put(AttrLogReference::id);
    return put(it->second);
  }
  String8 const path = target->fullName();
  // Keys may contain separators, so the path may lead to another entity.
  bool const leads = path.empty() ? target == treeRoot_ : treeRoot_->entity(path).ptr() == target;
  if (!leads)
    throw EntityIdUnavailableException(target->typeName() + " '" + path +
                                       "' cannot be referred to: it is neither in the attribute log nor in its tree");
  put(AttrLogReference::path);
  put(path);
}

void AttrLogOut::noEntity(KelType const* type) {
  throw EntityIdUnavailableException(type->fullTypeName() + " cannot be referred to: it is not an entity");
}

// --- Reading ---

char const* AttrLogIn::takeBytes(std::size_t bytes) {
  item_ = at_;
  if (bytes > end_ - at_)
    throwAttrLogRecord(at_, std::to_string(bytes) + " bytes expected, " + std::to_string(end_ - at_) + " left");
  at_ += bytes;
  return log_.data() + item_;
}

bool AttrLogIn::getBool() {
  U8 const v = get<U8>();
  if (v > 1) throwRecord("a boolean is 0 or 1, not " + std::to_string(v));
  return v != 0;
}

U64 AttrLogIn::getBits(std::size_t bytes) {
  auto const* at = reinterpret_cast<unsigned char const*>(takeBytes(bytes));
  U64 bits = 0;
  for (std::size_t i = 0; i < bytes; ++i) bits = bits << 8 | at[i];
  return bits;
}

std::string_view AttrLogIn::getText() {
  std::size_t const start = at_;
  U32 const size = get<U32>();
  if (size > String8::maxChars) throwRecord("a string of " + std::to_string(size) + " bytes");
  std::string_view const text(takeBytes(size), size);
  item_ = start;
  return text;
}

Entity* AttrLogIn::reference(KelType const* wanted) {
  std::size_t const start = at_;
  U8 const kind = get<U8>();
  if (kind == static_cast<U8>(AttrLogReference::null)) return nullptr;
  Entity* found = nullptr;
  String8 named;
  if (kind == static_cast<U8>(AttrLogReference::id)) {
    U32 const id = get<U32>();
    named = "entity #" + std::to_string(id);
    found = entities_ ? entities_->byId(id) : nullptr;
  } else if (kind == static_cast<U8>(AttrLogReference::path)) {
    String8 const path(getText());
    named = "'" + path.str() + "'";
    found = entities_ ? entities_->byPath(path) : nullptr;
  } else {
    throwRecord("unknown kind of reference " + std::to_string(kind));
  }
  item_ = start;
  if (!found) throwEntity(named + " is not there");
  if (!found->type()->isA(wanted))
    throwEntity(named + ": Entity is the wrong type: " + wanted->fullTypeName() + " expected, " + found->typeName() +
                " given");
  return found;
}

std::optional<U32> AttrLogIn::referredId() const {
  AttrLogIn ahead = *this;
  if (ahead.atEnd() || ahead.get<U8>() != static_cast<U8>(AttrLogReference::id)) return std::nullopt;
  return ahead.get<U32>();
}

void AttrLogIn::wantNull(KelType const* wanted) {
  if (get<U8>() != static_cast<U8>(AttrLogReference::null))
    throwRecord(String8("null expected: a ") + wanted->fullTypeName() + " cannot be read");
}

void AttrLogIn::throwRecord(String8 const& what) const { throwAttrLogRecord(item_, what); }
void AttrLogIn::throwEntity(String8 const& what) const { throwAttrLogEntity(item_, what); }

void AttrLogOut::putBits(U64 bits, std::size_t bytes) {
  char out[sizeof bits];
  for (std::size_t i = bytes; i-- > 0; bits >>= 8) out[i] = static_cast<char>(bits & 0xff);
  bytes_.append(out, bytes);
}
void AttrLogOut::putText(std::string_view text) {
  put(static_cast<U32>(text.size()));
  putBytes(text);
}

// --- Values ---

void writeAttrLogValue(AttrLogOut& out, KelType const& type, void const* value) {
  for (KelAttr const* field : type.attributeQ()) field->access().write(*field, value, out);
}

void readAttrLogValue(AttrLogIn& in, KelType const& type, void* value) {
  for (KelAttr const* field : type.attributeQ()) field->access().read(*field, value, in);
}

S32 readAttrLogEnumerator(AttrLogIn& in, KelType const& type) {
  S32 const value = in.get<S32>();
  for (KelType::Enumerator const& e : type.enumerators())
    if (e.value == value) return value;
  in.throwRecord(type.fullTypeName() + " has no enumerator " + std::to_string(value));
}

}  // namespace Kel
