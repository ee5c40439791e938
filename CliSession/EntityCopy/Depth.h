// How deep a copy may descend.
#pragma once

#include "Kel/Types.h"

namespace Cli::Session {

// Entities are copied by recursion; a deeper tree is refused with a RangeException.
inline constexpr Kel::U32 maxEntityDepth = 1000;

// One level down in the walk. Raises RangeException if the limit is reached, or if three quarters of the thread's stack
// are used. A level takes about 4 KB of stack, and several times that without optimisation or with sanitizers.
class Depth {
 public:
  explicit Depth(Kel::U32& depth) : depth_(depth) {
    if (depth >= alwaysThere) check(depth);
    ++depth_;
  }
  ~Depth() { --depth_; }
  Depth(Depth const&) = delete;
  Depth& operator=(Depth const&) = delete;

 private:
  static constexpr Kel::U32 alwaysThere = 8;  // the levels that are not checked
  static void check(Kel::U32 depth);

  Kel::U32& depth_;
};

}  // namespace Cli::Session
