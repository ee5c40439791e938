// What an exception said.
#pragma once

#include <exception>
#include <string>

namespace Tests {

// The message of an exception of that class; something that no message is when there was none.
template <class E, class F>
std::string messageOf(F const& call) {
  try {
    call();
  } catch (std::exception const& e) {
    return dynamic_cast<E const*>(&e) ? e.what() : std::string("of another class: ") + e.what();
  }
  return "no exception";
}

}  // namespace Tests
