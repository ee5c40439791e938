#include "Paint.h"

#include <unistd.h>

#include <cstdlib>

namespace Shell {

bool Paint::wanted(int descriptor) {
  char const* const noColour = std::getenv("NO_COLOR");
  char const* const terminal = std::getenv("TERM");
  bool const dumb = !terminal || std::string_view(terminal) == "dumb";
  return ::isatty(descriptor) && !(noColour && *noColour) && !dumb;
}

std::string Paint::operator()(Style style, std::string_view text) const {
  if (!on_ || text.empty()) return std::string(text);
  char const* code = "0";
  switch (style) {
    case Style::heading: code = "1"; break;
    case Style::name: code = "36"; break;
    case Style::value: code = "0"; break;
    case Style::added: code = "32"; break;
    case Style::removed: code = "31"; break;
    case Style::changed: code = "33"; break;
    case Style::error: code = "31;1"; break;
    case Style::note: code = "2"; break;
    case Style::prompt: code = "1;34"; break;
  }
  return "\x1b[" + std::string(code) + "m" + std::string(text) + "\x1b[0m";
}

std::size_t columns(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\x1b') {
      while (i < text.size() && text[i] != 'm') ++i;
      continue;
    }
    if ((static_cast<unsigned char>(text[i]) & 0xc0U) != 0x80) ++count;
  }
  return count;
}

}  // namespace Shell
