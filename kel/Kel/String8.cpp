#include "Kel/String8.h"

#include <algorithm>
#include <ostream>

#include "Kel/Exception.h"

namespace Kel {

// FNV-1a, with a final mix so that the low bits serve as a table index.
U32 hashBytes(char const* data, std::size_t size) noexcept {
  U64 h = 0xcbf29ce484222325ull;
  while (size >= 8) {
    U64 word;
    std::memcpy(&word, data, 8);
    h = (h ^ word) * 0x9fb21c651e98df25ull;
    h ^= h >> 35;
    data += 8;
    size -= 8;
  }
  while (size-- > 0) h = (h ^ static_cast<unsigned char>(*data++)) * 0x100000001b3ull;
  h ^= h >> 32;
  h *= 0xd6e8feb86659fd93ull;
  h ^= h >> 32;
  auto const folded = static_cast<U32>(h);
  return folded ? folded : 1;
}

String8::Rep* String8::make(std::string_view a, std::string_view b) {
  std::size_t const size = a.size() + b.size();
  if (size == 0) return nullptr;
  if (size > maxChars) throwRangeException("string too long");
  auto* rep = new (KelMemPool::allocate(sizeof(Rep) + size)) Rep{{1}, {0}, static_cast<U32>(size)};
  std::memcpy(rep->text(), a.data(), a.size());
  if (!b.empty()) std::memcpy(rep->text() + a.size(), b.data(), b.size());
  return rep;
}

void String8::destroy(Rep* rep) noexcept { KelMemPool::release(rep, sizeof(Rep) + rep->size); }

U32 String8::hashSlow() const noexcept {
  U32 const h = hashBytes(rep_->text(), rep_->size);
  rep_->hash.store(h, std::memory_order_relaxed);
  return h;
}

void String8::init(char const* text, unsigned int from, unsigned int size) {
  *this = String8(std::string_view(text + from, size));
}

String8 String8::substr(S64 from, unsigned int size) const {
  S64 const count = chars();
  from = std::clamp<S64>(from, 0, count);
  S64 const taken = std::min<S64>(size, count - from);
  if (taken == count) return *this;
  return String8(view().substr(static_cast<std::size_t>(from), static_cast<std::size_t>(taken)));
}

S64 String8::pos(char c, S64 from) const noexcept { return pos(std::string_view(&c, 1), from); }

S64 String8::pos(std::string_view text, S64 from) const noexcept {
  std::size_t const at = view().find(text, static_cast<std::size_t>(std::max<S64>(from, 0)));
  return at == std::string_view::npos ? npos : static_cast<S64>(at);
}

String8& String8::operator+=(String8 const& o) {
  if (o.empty()) return *this;
  if (empty()) return *this = o;
  return *this = *this + o;
}

String8 operator+(String8 const& a, std::string_view b) {
  if (b.empty()) return a;
  String8 joined;
  joined.rep_ = String8::make(a.view(), b);
  return joined;
}

String8 operator+(std::string_view a, String8 const& b) {
  if (a.empty()) return b;
  String8 joined;
  joined.rep_ = String8::make(a, b.view());
  return joined;
}

std::ostream& operator<<(std::ostream& out, String8 const& s) { return out << s.view(); }

}  // namespace Kel
