#include "TextTable.h"

#include <algorithm>

namespace Shell {

namespace {

bool isNumber(std::string const& cell) {
  return !cell.empty() && cell.find_first_not_of("0123456789") == std::string::npos;
}

struct Column {
  std::size_t index;
  std::size_t width;
  bool right;
};

}  // namespace

TextTable::Text TextTable::text(Paint const& paint, std::size_t indent, std::size_t width) const {
  Text out;
  std::vector<Column> shownColumns;
  std::size_t used = indent;
  for (std::size_t i = 0; i < heads_.size(); ++i) {
    Column column{i, columns(heads_[i]), i > 0};
    bool any = i == 0;
    for (auto const& row : rows_) {
      any = any || !row[i].empty();
      column.right = column.right && (row[i].empty() || isNumber(row[i]));
      column.width = std::max(column.width, columns(row[i]));
    }
    if (!any) continue;
    if (!out.leftOut.empty() || (i > 0 && used + column.width > width)) {
      out.leftOut.push_back(heads_[i]);
      continue;
    }
    used += column.width + 2;
    shownColumns.push_back(column);
  }
  auto const line = [&](std::vector<std::string> const& cells, bool head) {
    std::string text(indent, ' ');
    for (Column const& column : shownColumns) {
      std::string const& cell = cells[column.index];
      std::string const gap(column.width - columns(cell), ' ');
      std::string const painted = head                ? paint(Style::heading, cell)
                                  : column.index == 0 ? paint(Style::name, cell)
                                                      : cell;
      text += (column.right ? gap + painted : painted + gap) + "  ";
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out.text += text + "\n";
  };
  line(heads_, true);
  for (auto const& row : rows_) line(row, false);
  return out;
}

}  // namespace Shell
