// The source line of a message.
#pragma once

#include <string>
#include <string_view>

#include "compiler/Source.h"

namespace kelc {

// The text in a form that is safe on a terminal: control characters, characters that reorder text, and bytes that are
// not UTF-8 become `\xNN`.
std::string printable(std::string_view text);

// The line of a position, and below it a caret under the position, followed by `~` up to the end of the name:
//
//       own port : Prot[Name];
//                  ^~~~
//
// Tabs are expanded. Of a long line the part around the position is shown. Empty for a line without text.
std::string excerpt(Loc const& loc);

}  // namespace kelc
