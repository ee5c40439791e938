// What an exception said.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "Kel/Exception.h"

namespace Tests {

// The message of an exception of that class; something that no message is when there was none.
template <class E, class F>
std::string messageOf(F const& call) {
  try {
    call();
  } catch (Kel::Exception const& e) {
    Kel::Exception const* const thrown = &e;
    if (!dynamic_cast<E const*>(thrown)) return "of another class: " + e.message().str();
    EXPECT_STREQ(e.message().str().c_str(), e.what());
    return e.message().str();
  }
  return "no exception";
}

}  // namespace Tests
