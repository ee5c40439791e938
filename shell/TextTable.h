// Columns of text.
#pragma once

#include <string>
#include <vector>

#include "Paint.h"

namespace Shell {

class TextTable {
 public:
  explicit TextTable(std::vector<std::string> heads) : heads_(std::move(heads)) {}
  // REQUIRES: as many cells as there are heads, without control characters (see `shown`).
  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  std::size_t rows() const { return rows_.size(); }

  // The table, with numbers aligned to the right. Leaves out columns that are empty in every row, except the first, and
  // the last columns that do not fit into `width`; `leftOut` has the heads of the latter.
  struct Text {
    std::string text;
    std::vector<std::string> leftOut;
  };
  Text text(Paint const& paint, std::size_t indent, std::size_t width) const;

 private:
  std::vector<std::string> heads_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace Shell
