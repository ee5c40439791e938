// Colours of the terminal.
#pragma once

#include <string>
#include <string_view>

namespace Shell {

enum class Style { heading, name, value, added, removed, changed, error, note, prompt };

class Paint {
 public:
  explicit Paint(bool on = false) : on_(on) {}
  bool on() const { return on_; }
  // Whether output to a file descriptor is coloured: it is a terminal, and NO_COLOR is not set.
  static bool wanted(int descriptor);

  std::string operator()(Style style, std::string_view text) const;

 private:
  bool on_;
};

// How many columns of a terminal a text takes. Colour codes take none.
std::size_t columns(std::string_view text);

}  // namespace Shell
