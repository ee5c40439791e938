// Strings.
//
// A `String8` is an immutable string of bytes. Strings share their bytes: copying one copies a pointer and increments
// an atomic count, so that strings may be copied on any thread. The hash is computed once. Equality compares the
// pointers first. A string has the size of a pointer; a string that is not empty takes 12 bytes and its characters on
// the heap.
#pragma once

#include <cstring>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Kel/Atomic.h"
#include "Kel/MemPool.h"
#include "Kel/Types.h"

namespace Kel {

// The framework's hash of a range of bytes; never 0. Every process has a hash function of its own, so that colliding
// keys cannot be prepared. With KEL_HASH_SEED=N in the environment, it is the same each time. No visible result depends
// on it.
KEL_API U32 hashBytes(char const* data, std::size_t size) noexcept;

// A string of bytes, shared and immutable.
class KEL_API String8 {
 public:
  static constexpr S64 npos = -1;
  // A longer string is refused with a RangeException.
  static constexpr U32 maxChars = 0x7fffffff;

  String8() noexcept = default;
  String8(char const* text) : String8(text ? std::string_view(text) : std::string_view()) {}
  String8(std::string_view text) : rep_(make(text, {})) {}
  String8(std::string const& text) : String8(std::string_view(text)) {}
  String8(String8 const& o) noexcept : rep_(o.rep_) {
    if (rep_) rep_->refs.fetch_add(1, Order::relaxed);
  }
  String8(String8&& o) noexcept : rep_(o.rep_) { o.rep_ = nullptr; }
  ~String8() { drop(); }
  String8& operator=(String8 const& o) noexcept {
    if (rep_ != o.rep_) {
      if (o.rep_) o.rep_->refs.fetch_add(1, Order::relaxed);
      drop();
      rep_ = o.rep_;
    }
    return *this;
  }
  String8& operator=(String8&& o) noexcept {
    std::swap(rep_, o.rep_);
    return *this;
  }

  // The parts, one after the other, in memory for logs (see MemPool.h). Raises RangeException if that is too long.
  static String8 concatForLog(std::initializer_list<std::string_view> parts);

  // Becomes `size` characters of `text`, beginning with position `from`. REQUIRES: `text` has as many.
  void init(char const* text, unsigned int from, unsigned int size);

  // The characters. They are not followed by a null.
  char const* charPtr() const noexcept { return rep_ ? rep_->text() : ""; }
  // The number of characters.
  U32 chars() const noexcept { return rep_ ? rep_->size : 0; }
  bool empty() const noexcept { return rep_ == nullptr; }
  // REQUIRES: `i` is below chars().
  char operator[](U32 i) const noexcept { return rep_->text()[i]; }
  std::string_view view() const noexcept { return {charPtr(), chars()}; }
  operator std::string_view() const noexcept { return view(); }
  std::string str() const { return std::string(view()); }

  // At most `size` characters from position `from` on. Both are clamped to the string.
  String8 substr(S64 from, unsigned int size = maxChars) const;
  // The position of the first occurrence at or after `from`, or npos.
  S64 pos(char c, S64 from = 0) const noexcept;
  S64 pos(std::string_view text, S64 from = 0) const noexcept;

  // The hash of the characters; see hashBytes.
  U32 hash() const noexcept {
    if (!rep_) return emptyHash;
    U32 h = rep_->hash.load(Order::relaxed);
    return h ? h : hashSlow();
  }

  // Appends. Cost: a copy of both.
  String8& operator+=(String8 const& o);
  // True if both share their bytes, or are empty. Two strings that do not share their bytes may be equal.
  bool sharesBytes(String8 const& o) const noexcept { return rep_ == o.rep_; }
  void swap(String8& o) noexcept { std::swap(rep_, o.rep_); }

  friend bool operator==(String8 const& a, String8 const& b) noexcept {
    return a.rep_ == b.rep_ || (a.rep_ && b.rep_ && sameText(*a.rep_, *b.rep_));
  }
  friend bool operator==(String8 const& a, std::string_view b) noexcept { return a.view() == b; }
  friend bool operator==(String8 const& a, char const* b) noexcept { return a.view() == b; }
  // By bytes, as unsigned characters.
  friend bool operator<(String8 const& a, String8 const& b) noexcept { return a.view() < b.view(); }
  friend bool operator>(String8 const& a, String8 const& b) noexcept { return b < a; }
  friend bool operator<=(String8 const& a, String8 const& b) noexcept { return !(b < a); }
  friend bool operator>=(String8 const& a, String8 const& b) noexcept { return !(a < b); }

 private:
  friend struct DebugLayout;
  static constexpr U32 emptyHash = 0x9e3779b9;

  struct Rep {
    Atomic<U32> refs;
    Atomic<U32> hash;  // 0: not yet known
    U32 size;
    char* text() noexcept { return reinterpret_cast<char*>(this + 1); }
    char const* text() const noexcept { return reinterpret_cast<char const*>(this + 1); }
  };

  static constexpr std::size_t sizeAt = 2 * sizeof(U32);  // where the size is in a Rep; the text follows it
  static bool sameWord(char const* a, char const* b) noexcept {
    U64 x, y;
    std::memcpy(&x, a, sizeof x);
    std::memcpy(&y, b, sizeof y);
    return x == y;
  }
  // Not inlined, so that operator== stays a comparison of pointers for strings that share their bytes. Short texts,
  // which most are, are compared word by word, which costs less than a call. The first word holds the size, and the
  // last one is padded with zeros.
  [[gnu::noinline]] static bool sameText(Rep const& a, Rep const& b) noexcept {
    auto const* x = reinterpret_cast<char const*>(&a) + sizeAt;
    auto const* y = reinterpret_cast<char const*>(&b) + sizeAt;
    if (!sameWord(x, y)) return false;
    std::size_t const end = sizeof a.size + a.size;
    if (end > 40) return std::memcmp(x, y, end) == 0;
    for (std::size_t at = sizeof(U64); at < end; at += sizeof(U64))
      if (!sameWord(x + at, y + at)) return false;
    return true;
  }
  // Room for a text that is not empty, from one of the allocator's functions.
  static Rep* allocate(std::size_t size, void* (*from)(std::size_t));
  // The two texts, one after the other; null if both are empty.
  static Rep* make(std::string_view a, std::string_view b);
  static void destroy(Rep* rep) noexcept;
  static std::size_t storageSize(std::size_t size) noexcept;
  void drop() noexcept {
    if (rep_ && rep_->refs.fetch_sub(1, Order::acqRel) == 1) destroy(rep_);
  }
  U32 hashSlow() const noexcept;
  friend String8 operator+(String8 const& a, std::string_view b);
  friend String8 operator+(std::string_view a, String8 const& b);

  Rep* rep_ = nullptr;
};

using String = String8;
using Name = String8;

// The two texts, one after the other. Raises RangeException if that is too long.
KEL_API String8 operator+(String8 const& a, std::string_view b);
KEL_API String8 operator+(std::string_view a, String8 const& b);
inline String8 operator+(String8 const& a, String8 const& b) { return a + b.view(); }
inline String8 operator+(String8 const& a, char const* b) { return a + std::string_view(b); }
inline String8 operator+(char const* a, String8 const& b) { return std::string_view(a) + b; }
inline String8 operator+(String8 const& a, std::string const& b) { return a + std::string_view(b); }
inline String8 operator+(std::string const& a, String8 const& b) { return std::string_view(a) + b; }

// Prints the characters.
KEL_API std::ostream& operator<<(std::ostream& out, String8 const& s);

}  // namespace Kel

template <>
struct std::hash<Kel::String8> {
  std::size_t operator()(Kel::String8 const& s) const noexcept { return s.hash(); }
};
