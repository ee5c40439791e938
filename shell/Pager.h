// Shows long output a screen at a time.
#pragma once

#include <string>

namespace Shell {

// Prints the text on standard output: at once if it fits on the screen, else through $PAGER. Without $PAGER, it shows a
// screen at a time (blank: the next screen, return: a line, q: quit). REQUIRES: standard output is a terminal.
void page(std::string const& text);

}  // namespace Shell
