// Source files and positions in them.
#pragma once

#include <cstddef>
#include <string>
#include <tuple>

namespace kelc {

// A model file that was read. Positions and tokens refer to it, so it keeps its address for the whole run.
struct SourceFile {
  std::string path;  // as diagnostics print it
  std::string text;
  std::size_t order = 0;  // the order in which files were opened
};

// A position: line and column count from 1, the column in bytes.
struct Loc {
  SourceFile const* file = nullptr;
  unsigned line = 0;
  unsigned column = 0;
};

inline bool operator<(Loc const& a, Loc const& b) {
  return std::make_tuple(a.file->order, a.line, a.column) < std::make_tuple(b.file->order, b.line, b.column);
}

}  // namespace kelc
