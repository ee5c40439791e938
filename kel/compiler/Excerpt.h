// The source line of a message.
#pragma once

#include <string>
#include <string_view>

#include "compiler/Source.h"

namespace kelc {

// The text as a terminal can show it: control characters, whatever reorders text, and what is not UTF-8 become `\xNN`.
std::string printable(std::string_view text);

// The line of a position and, below it, a caret under the position that is drawn out to the end of the name there:
//
//       own port : Prot[Name];
//                  ^~~~
//
// Tabs are expanded. Of a long line the part around the position is shown. Empty for a line without text.
std::string excerpt(Loc const& loc);

}  // namespace kelc
