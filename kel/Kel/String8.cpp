#include "Kel/String8.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <ostream>
#include <random>

#include "Kel/Exception.h"

namespace Kel {

namespace {

// Drawn once for the process. Somebody who knew it could make keys that all have the same hash, and so make a map as
// slow as a list.
struct HashSecret {
  U64 start, factor;
};

HashSecret drawSecret() {
  U64 seed = 0;
  if (char const* given = std::getenv("KEL_HASH_SEED")) {
    seed = std::strtoull(given, nullptr, 10);
  } else {
    try {
      std::random_device device;
      seed = U64(device()) << 32 | device();
    } catch (std::exception const&) {  // less random, but good enough
      seed = static_cast<U64>(std::chrono::steady_clock::now().time_since_epoch().count());
    }
  }
  // Steele, Lea and Flood, Fast Splittable Pseudorandom Number Generators (2014).
  auto const next = [&seed] {
    U64 z = seed += 0x9e3779b97f4a7c15ull;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  };
  U64 const start = next();
  return {start, next()};
}

template <class Word>
U64 load(char const* data) {
  Word word;
  std::memcpy(&word, data, sizeof word);
  return word;
}

__extension__ using U128 = unsigned __int128;

// Combines both halves of the product (as in wyhash, by Wang Yi): every bit of either number affects every bit of the
// result.
U64 folded(U64 a, U64 b) {
  U128 const product = static_cast<U128>(a) * b;
  return static_cast<U64>(product) ^ static_cast<U64>(product >> 64);
}

}  // namespace

U32 hashBytes(char const* data, std::size_t size) noexcept {
  static HashSecret const secret = drawSecret();
  U64 h = secret.start ^ size;
  for (; size > 16; data += 16, size -= 16) h = folded(load<U64>(data) ^ secret.factor, load<U64>(data + 8) ^ h);
  // The rest, in two words that overlap.
  U64 first = 0, last = 0;
  if (size >= 8) {
    first = load<U64>(data);
    last = load<U64>(data + size - 8);
  } else if (size >= 4) {
    first = load<U32>(data);
    last = load<U32>(data + size - 4);
  } else if (size > 0) {
    first = load<U8>(data) << 16 | load<U8>(data + size / 2) << 8 | load<U8>(data + size - 1);
  }
  h = folded(first ^ secret.factor, last ^ h);
  h = folded(h ^ secret.start, secret.factor);
  auto const folded32 = static_cast<U32>(h ^ (h >> 32));
  return folded32 ? folded32 : 1;
}

// Whole words; see sameText.
std::size_t String8::storageSize(std::size_t size) noexcept {
  return (sizeof(Rep) + size + sizeof(U64) - 1) / sizeof(U64) * sizeof(U64);
}

String8::Rep* String8::allocate(std::size_t size, void* (*from)(std::size_t)) {
  if (size > maxChars) throwRangeException("string too long");
  static_assert(offsetof(Rep, size) == sizeAt && sizeof(Rep) == sizeAt + sizeof(U32));
  std::size_t const storage = storageSize(size);
  auto* room = static_cast<char*>(from(storage));
  std::memset(room + storage - sizeof(U64), 0, sizeof(U64));
  return new (room) Rep{{1}, {0}, static_cast<U32>(size)};
}

String8::Rep* String8::make(std::string_view a, std::string_view b) {
  if (a.empty() && b.empty()) return nullptr;
  Rep* const rep = allocate(a.size() + b.size(), KelMemPool::allocate);
  std::memcpy(rep->text(), a.data(), a.size());
  if (!b.empty()) std::memcpy(rep->text() + a.size(), b.data(), b.size());
  return rep;
}

String8 String8::concatForLog(std::initializer_list<std::string_view> parts) {
  std::size_t size = 0;
  for (std::string_view part : parts) size += part.size();
  String8 joined;
  if (size == 0) return joined;
  joined.rep_ = allocate(size, KelMemPool::allocateForLog);
  char* end = joined.rep_->text();
  for (std::string_view part : parts) end = std::copy(part.begin(), part.end(), end);
  return joined;
}

void String8::destroy(Rep* rep) noexcept { KelMemPool::release(rep, storageSize(rep->size)); }

U32 String8::hashSlow() const noexcept {
  U32 const h = hashBytes(rep_->text(), rep_->size);
  rep_->hash.store(h, Order::relaxed);
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
