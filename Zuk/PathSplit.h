// How the tries split paths.
#pragma once

#include <string_view>

namespace Zuk {

// A path, split after its first component.
struct PathSplit {
  std::string_view first;  // the first component; a "*" right before the separator is dropped
  std::string_view rest;   // from the next separator on
  bool more;               // whether there is a separator at or after position 1
};

// The views are into `path`.
PathSplit splitPath(std::string_view path);

}  // namespace Zuk
