// Atomic values. Every generated header needs them, and the standard header for them would be a fifth of all that a
// generated header includes.
#pragma once

namespace Kel {

enum class Order : int {
  relaxed = __ATOMIC_RELAXED,
  acquire = __ATOMIC_ACQUIRE,
  release = __ATOMIC_RELEASE,
  acqRel = __ATOMIC_ACQ_REL
};

// What std::atomic is, for integers, pointers and bool; the functions do what those of the same names do.
template <class T>
class Atomic {
 public:
  constexpr Atomic() noexcept = default;
  constexpr explicit(false) Atomic(T value) noexcept : value_(value) {}
  Atomic(Atomic const&) = delete;
  Atomic& operator=(Atomic const&) = delete;

  T load(Order order) const noexcept { return __atomic_load_n(&value_, static_cast<int>(order)); }
  void store(T value, Order order) noexcept { __atomic_store_n(&value_, value, static_cast<int>(order)); }
  T fetch_add(T by, Order order) noexcept { return __atomic_fetch_add(&value_, by, static_cast<int>(order)); }
  T fetch_sub(T by, Order order) noexcept { return __atomic_fetch_sub(&value_, by, static_cast<int>(order)); }
  // Where it fails, `expected` becomes the value. The failing load is as strong as the exchange, but never a release.
  bool compare_exchange_weak(T& expected, T value, Order order) noexcept {
    int const failure = order == Order::relaxed || order == Order::release ? __ATOMIC_RELAXED : __ATOMIC_ACQUIRE;
    return __atomic_compare_exchange_n(&value_, &expected, value, true, static_cast<int>(order), failure);
  }

 private:
  T value_{};
};

}  // namespace Kel
