// Data for debuggers. The printers in kel/gdb/ only read memory, so they work on a core file, and on libraries without
// debug information. Private.
#pragma once

#include "Kel/Types.h"

namespace Kel {

struct KEL_API DebugLayout {
  struct Member {
    char name[28];  // "Entity.name"
    U32 offset;
  };
  // The offsets of data members that the printers read. The last one has no name.
  static Member const members[];
  // The registered types, a std::unordered_map<std::string_view, KelType const*>; null as long as there are none.
  static void const* types;
};

}  // namespace Kel
