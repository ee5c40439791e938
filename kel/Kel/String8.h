// Strings.
//
// A `String8` is an immutable string of bytes. Its bytes are counted and shared: copying one copies a pointer and
// increments a count (atomic, so strings may be copied on any thread). The hash is kept beside the bytes once it was
// asked for; equality looks at the pointers first. The empty string owns nothing. The size of a pointer; 12 bytes
// beside the characters on the heap.
#pragma once

#include <atomic>
#include <cstring>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Kel/MemPool.h"
#include "Kel/Types.h"

namespace Kel {

// The framework's hash of a range of bytes, never 0. Every process has its own, so that nobody can prepare keys that
// collide; with KEL_HASH_SEED=N in the environment it is the same each time. Nothing that shows depends on it.
KEL_API U32 hashBytes(char const* data, std::size_t size) noexcept;

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
    if (rep_) rep_->refs.fetch_add(1, std::memory_order_relaxed);
  }
  String8(String8&& o) noexcept : rep_(o.rep_) { o.rep_ = nullptr; }
  ~String8() { drop(); }
  String8& operator=(String8 const& o) noexcept {
    if (rep_ != o.rep_) {
      if (o.rep_) o.rep_->refs.fetch_add(1, std::memory_order_relaxed);
      drop();
      rep_ = o.rep_;
    }
    return *this;
  }
  String8& operator=(String8&& o) noexcept {
    std::swap(rep_, o.rep_);
    return *this;
  }

  // Becomes `size` characters of `text` from position `from` on.
  void init(char const* text, unsigned int from, unsigned int size);

  // The characters, not necessarily followed by a null, and their count.
  char const* charPtr() const noexcept { return rep_ ? rep_->text() : ""; }
  U32 chars() const noexcept { return rep_ ? rep_->size : 0; }
  bool empty() const noexcept { return rep_ == nullptr; }
  char operator[](U32 i) const noexcept { return rep_->text()[i]; }
  std::string_view view() const noexcept { return {charPtr(), chars()}; }
  operator std::string_view() const noexcept { return view(); }
  std::string str() const { return std::string(view()); }

  // From position `from` on, at most `size` characters; both are clamped to the string.
  String8 substr(S64 from, unsigned int size = maxChars) const;
  // The position of the first occurrence at or after `from`, or npos.
  S64 pos(char c, S64 from = 0) const noexcept;
  S64 pos(std::string_view text, S64 from = 0) const noexcept;

  U32 hash() const noexcept {
    if (!rep_) return emptyHash;
    U32 h = rep_->hash.load(std::memory_order_relaxed);
    return h ? h : hashSlow();
  }

  String8& operator+=(String8 const& o);
  // True when both share their bytes (or both are empty); says nothing about equality otherwise.
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
  static constexpr U32 emptyHash = 0x9e3779b9;

  struct Rep {
    std::atomic<U32> refs;
    std::atomic<U32> hash;  // 0: not yet known
    U32 size;
    char* text() noexcept { return reinterpret_cast<char*>(this + 1); }
    char const* text() const noexcept { return reinterpret_cast<char const*>(this + 1); }
  };

  template <class Word>
  static bool sameWord(char const* a, char const* b) noexcept {
    Word x, y;
    std::memcpy(&x, a, sizeof x);
    std::memcpy(&y, b, sizeof y);
    return x == y;
  }
  // Short texts, which most are, are compared in words that may overlap: a call would cost more.
  static bool sameBytes(char const* a, char const* b, std::size_t size) noexcept {
    if (size > 32) return std::memcmp(a, b, size) == 0;
    if (size >= 8) {
      std::size_t const last = size - 8;
      for (std::size_t at = 0; at < last; at += 8)
        if (!sameWord<U64>(a + at, b + at)) return false;
      return sameWord<U64>(a + last, b + last);
    }
    if (size >= 4) return sameWord<U32>(a, b) && sameWord<U32>(a + size - 4, b + size - 4);
    return a[0] == b[0] && a[size / 2] == b[size / 2] && a[size - 1] == b[size - 1];
  }
  // Apart, so that comparing strings that share their bytes is a comparison of pointers in place.
  [[gnu::noinline]] static bool sameText(Rep const& a, Rep const& b) noexcept {
    return a.size == b.size && sameBytes(a.text(), b.text(), a.size);
  }
  // The two texts one after the other; null when both are empty.
  static Rep* make(std::string_view a, std::string_view b);
  static void destroy(Rep* rep) noexcept;
  void drop() noexcept {
    if (rep_ && rep_->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy(rep_);
  }
  U32 hashSlow() const noexcept;
  friend String8 operator+(String8 const& a, std::string_view b);
  friend String8 operator+(std::string_view a, String8 const& b);

  Rep* rep_ = nullptr;
};

using String = String8;
using Name = String8;

KEL_API String8 operator+(String8 const& a, std::string_view b);
KEL_API String8 operator+(std::string_view a, String8 const& b);
inline String8 operator+(String8 const& a, String8 const& b) { return a + b.view(); }
inline String8 operator+(String8 const& a, char const* b) { return a + std::string_view(b); }
inline String8 operator+(char const* a, String8 const& b) { return std::string_view(a) + b; }
inline String8 operator+(String8 const& a, std::string const& b) { return a + std::string_view(b); }
inline String8 operator+(std::string const& a, String8 const& b) { return std::string_view(a) + b; }

// Plain text.
KEL_API std::ostream& operator<<(std::ostream& out, String8 const& s);

}  // namespace Kel

template <>
struct std::hash<Kel::String8> {
  std::size_t operator()(Kel::String8 const& s) const noexcept { return s.hash(); }
};
