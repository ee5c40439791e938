// The order of keys.
#pragma once

#include <string_view>
#include <type_traits>

namespace Kel {

// Orders keys: builtins and strings by value, value types field by field (by their generated `compare`, even if they
// have operators of their own).
struct KeyLess {
  using is_transparent = void;
  template <class A, class B>
  bool operator()(A const& a, B const& b) const {
    if constexpr (requires { a.compare(b); })
      return a.compare(b) < 0;
    else if constexpr (std::is_convertible_v<A const&, std::string_view>)
      return std::string_view(a) < std::string_view(b);
    else if constexpr (std::is_floating_point_v<A>)
      return a < b || (a == a && b != b);  // a NaN comes after all numbers
    else
      return a < b;
  }
};

}  // namespace Kel
