// Shows long output a screen at a time.
#pragma once

#include <string>

namespace Shell {

// Prints the text on standard output, a terminal: at once when the screen holds it; else through $PAGER, or, when there
// is none, a screen at a time (blank: the next screen, return: a line, q: enough).
void page(std::string const& text);

}  // namespace Shell
