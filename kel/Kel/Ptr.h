// Counted handles.
//
// Copying a `Ptr` increments the count of its object, dropping it decrements the count. The object is destroyed with
// its last handle. Counts are atomic: handles may be copied and dropped on any thread. The objects themselves are not
// locked: a tree of entities belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "Kel/Assert.h"
#include "Kel/Atomic.h"
#include "Kel/MemPool.h"
#include "Kel/Types.h"

namespace Kel {

// The base of all counted objects. A new object has a count of 0; the first handle takes it over.
class KEL_API PtrInterface {
 public:
  PtrInterface() = default;
  PtrInterface(PtrInterface const&) : refs_(0) {}
  PtrInterface& operator=(PtrInterface const&) { return *this; }
  virtual ~PtrInterface() = default;

  void refInc() const noexcept { refs_.fetch_add(1, Order::relaxed); }
  void refDec() const noexcept {
    if (refs_.fetch_sub(1, Order::acqRel) == 1) lastRefGone();
  }
  // The count. If it is 1, the thread with that handle sees all that former holders did to the object.
  U32 refs() const noexcept { return refs_.load(Order::acquire); }

  // Marks an object that its last handle does not destroy, such as one on the stack or a global one.
  void isNondestructingIs(bool on) noexcept { nondestructing_ = on; }
  bool isNondestructing() const noexcept { return nondestructing_; }

 protected:
  // Destroys the object. A class whose objects own long chains of others overrides it, to destroy them without deep
  // recursion.
  virtual void destroySelf() noexcept { delete this; }

  // A byte that derived classes may use; it takes no space of its own.
  U8 bits_ = 0;

 private:
  void lastRefGone() const noexcept {
    if (!nondestructing_) const_cast<PtrInterface*>(this)->destroySelf();
  }

  bool nondestructing_ = false;
  mutable Atomic<U32> refs_{0};
};

// Counted objects whose memory comes from the framework's pool.
class KEL_API VFPtrInterface : public PtrInterface {
 public:
  static void* operator new(std::size_t size) { return KelMemPool::allocate(size); }
  static void* operator new(std::size_t, void* place) noexcept { return place; }
  static void operator delete(void* block, std::size_t size) noexcept { KelMemPool::release(block, size); }
};

// A handle to a T, or null. `Ptr<T const>` gives read-only access. Has the size of a pointer.
template <class T>
class Ptr {
 public:
  using element_type = T;

  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}
  Ptr(T* object) noexcept : p_(object) {
    if (p_) p_->refInc();
  }
  Ptr(Ptr const& o) noexcept : Ptr(o.p_) {}
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(Ptr<U> const& o) noexcept : Ptr(o.ptr()) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}
  ~Ptr() {
    if (p_) p_->refDec();
  }
  Ptr& operator=(Ptr const& o) noexcept {
    Ptr(o).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& o) noexcept {
    Ptr(std::move(o)).swap(*this);
    return *this;
  }

  // The object, or null.
  T* ptr() const noexcept { return p_; }
  // REQUIRES: not null; asserted, with the type of the handle.
  T* operator->() const noexcept {
    if (!p_) [[unlikely]]
      isNull();
    return p_;
  }
  T& operator*() const noexcept { return *operator->(); }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }

  // Becomes null, and leaves its count to the caller, who has to call `refDec` once.
  T* release() noexcept { return std::exchange(p_, nullptr); }

  template <class U>
  bool operator==(Ptr<U> const& o) const noexcept {
    return p_ == o.ptr();
  }
  bool operator==(std::nullptr_t) const noexcept { return p_ == nullptr; }

 private:
  [[noreturn, gnu::cold, gnu::noinline]] static void isNull() noexcept {
    KEL_ASSERT_TEXT(false, "null handle");
    __builtin_unreachable();
  }

  T* p_ = nullptr;
};

// The same object as another type; null if it is not of that type. Cost: a dynamic_cast.
template <class To, class From>
Ptr<To> ptrCast(Ptr<From> const& from) {
  return Ptr<To>(dynamic_cast<To*>(from.ptr()));
}

// Raises RangeException "null ValidPtr".
[[noreturn, gnu::cold]] KEL_API void throwNullValidPtr();

// A handle that is never null. Making one from null raises RangeException "null ValidPtr".
template <class T>
class ValidPtr {
 public:
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  ValidPtr(Ptr<U> const& p) : p_(p) {
    if (!p_) throwNullValidPtr();
  }
  operator Ptr<T> const&() const noexcept { return p_; }
  Ptr<T> const& handle() const noexcept { return p_; }
  T* ptr() const noexcept { return p_.ptr(); }
  T* operator->() const noexcept { return p_.ptr(); }
  T& operator*() const noexcept { return *p_; }

 private:
  Ptr<T> p_;
};

// The same handle; raises RangeException for null.
template <class T>
ValidPtr<T> validPtr(Ptr<T> const& p) {
  return ValidPtr<T>(p);
}

}  // namespace Kel

template <class T>
struct std::hash<Kel::Ptr<T>> {
  std::size_t operator()(Kel::Ptr<T> const& p) const noexcept { return std::hash<T*>()(p.ptr()); }
};
