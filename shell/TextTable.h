// Columns of text.
#pragma once

#include <string>
#include <vector>

#include "Paint.h"

namespace Shell {

class TextTable {
 public:
  explicit TextTable(std::vector<std::string> heads) : heads_(std::move(heads)) {}
  // As many cells as there are heads, fit for a terminal already.
  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  std::size_t rows() const { return rows_.size(); }

  // Leaves out columns that are empty in every row, but not the first; and those at the end for which `width` columns
  // are not enough, whose heads are given back. The rest is aligned, numbers to the right.
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
