// Colours of the terminal; none where the output is no terminal, or NO_COLOR is set.
#pragma once

#include <string>
#include <string_view>

namespace Shell {

enum class Style { heading, name, value, added, removed, changed, error, note, prompt };

class Paint {
 public:
  explicit Paint(bool on = false) : on_(on) {}
  bool on() const { return on_; }
  // Whether output to that file descriptor is to be coloured.
  static bool wanted(int descriptor);

  std::string operator()(Style style, std::string_view text) const;

 private:
  bool on_;
};

// How many columns of a terminal the text takes; colours take none.
std::size_t columns(std::string_view text);

}  // namespace Shell
