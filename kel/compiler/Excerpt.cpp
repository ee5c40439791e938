#include "compiler/Excerpt.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "compiler/Characters.h"

namespace kelc {

namespace {

constexpr std::size_t tabWidth = 8;
// The most columns that are shown of a line; at most `columnsBefore` of them are before the position.
constexpr std::size_t shownColumns = 100;
constexpr std::size_t columnsBefore = 70;
// Bytes farther from the position are not examined, so that the cost does not depend on the length of the line.
constexpr std::size_t reach = 4 * shownColumns;
constexpr std::string_view margin = "    ";
constexpr std::string_view ellipsis = "...";

// A character as it is shown.
struct Cell {
  std::string text;
  std::size_t width = 0;  // in columns
  std::size_t bytes = 1;  // in the file
};

struct Range {
  char32_t first, last;
};

template <std::size_t count>
bool isIn(Range const (&ranges)[count], char32_t c) {
  return std::any_of(std::begin(ranges), std::end(ranges), [&](Range r) { return r.first <= c && c <= r.last; });
}

// Control characters, and characters that change the direction of the text after them.
bool isUnsafe(char32_t c) {
  static constexpr Range ranges[] = {{0, 0x1f}, {0x7f, 0x9f}, {0x200e, 0x200f}, {0x2028, 0x202e}, {0x2066, 0x2069}};
  return isIn(ranges, c);
}

// The wide characters of terminals, without the rarer blocks.
std::size_t widthOf(char32_t c) {
  static constexpr Range combining[] = {{0x300, 0x36f}, {0x200b, 0x200d}, {0x20d0, 0x20ff}, {0xfe00, 0xfe0f}};
  static constexpr Range wide[] = {{0x1100, 0x115f}, {0x2e80, 0xa4cf}, {0xac00, 0xd7a3},   {0xf900, 0xfaff},
                                   {0xfe30, 0xfe6f}, {0xff00, 0xff60}, {0x1f300, 0x1faff}, {0x20000, 0x3fffd}};
  if (isIn(combining, c)) return 0;
  return isIn(wide, c) ? 2 : 1;
}

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

// Decodes the UTF-8 character at the start of the text. Answers its length; 0 if there is none.
std::size_t decode(std::string_view text, char32_t& c) {
  auto const first = static_cast<unsigned char>(text[0]);
  std::size_t const length = first < 0x80 ? 1 : first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
  if (length == 0 || first > 0xf4 || text.size() < length) return 0;
  c = length == 1 ? first : first & (0x7fU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if (!isContinuation(text[i])) return 0;
    c = (c << 6) | (static_cast<unsigned char>(text[i]) & 0x3fU);
  }
  static constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  return c < smallest[length] || c > 0x10ffff || (c >= 0xd800 && c <= 0xdfff) ? 0 : length;
}

std::string escaped(std::string_view bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (char const c : bytes) {
    auto const byte = static_cast<unsigned char>(c);
    text += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
  }
  return text;
}

Cell cellAt(std::string_view text) {
  char32_t c = 0;
  std::size_t const length = decode(text, c);
  Cell cell;
  cell.bytes = std::max<std::size_t>(length, 1);
  bool const shown = length > 0 && !isUnsafe(c);
  std::string_view const bytes = text.substr(0, cell.bytes);
  cell.text = shown ? std::string(bytes) : escaped(bytes);
  cell.width = shown ? widthOf(c) : cell.text.size();
  return cell;
}

std::vector<Cell> cellsOf(std::string_view text) {
  std::vector<Cell> cells;
  std::size_t column = 0;
  while (!text.empty()) {
    Cell cell = cellAt(text);
    if (text[0] == '\t') {
      cell.width = tabWidth - column % tabWidth;
      cell.text.assign(cell.width, ' ');
    }
    column += cell.width;
    text.remove_prefix(cell.bytes);
    cells.push_back(std::move(cell));
  }
  return cells;
}

std::string_view lineOf(Loc const& loc) {
  std::string_view text = loc.file->text;
  for (unsigned line = 1; line < loc.line; ++line) text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
  text = text.substr(0, text.find('\n'));
  if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
  return text;
}

// How many bytes are underlined: those of a string, a number, a qualified name, or one character.
std::size_t lengthOfWord(std::string_view text) {
  std::size_t const quote = text.find('"', 1);
  if (text.substr(0, 1) == "\"") return quote == std::string_view::npos ? 1 : quote + 1;
  std::size_t length = text.substr(0, 1) == "-" ? 1 : 0;
  bool const number = length < text.size() && text[length] >= '0' && text[length] <= '9';
  while (length < text.size()) {
    bool const separator = length > 0 && length + 2 < text.size() && text.substr(length, 2) == "::";
    bool const qualified = separator && isWord(text[length + 2]);
    if (!isWord(text[length]) && !qualified && !(number && text[length] == '.')) break;
    length += qualified ? 2 : 1;
  }
  return std::max<std::size_t>(length, 1);
}

using CellIterator = std::vector<Cell>::const_iterator;

std::size_t totalWidth(CellIterator from, CellIterator to) {
  std::size_t width = 0;
  for (; from != to; ++from) width += from->width;
  return width;
}

// The cell that contains the byte; the end if the byte is after all cells.
CellIterator cellOfByte(std::vector<Cell> const& cells, std::size_t byte) {
  auto cell = cells.begin();
  for (std::size_t end = 0; cell != cells.end(); ++cell) {
    end += cell->bytes;
    if (byte < end) break;
  }
  return cell;
}

std::string join(CellIterator from, CellIterator to) {
  std::string text;
  for (; from != to; ++from) text += from->text;
  return text;
}

// The part of a line that is shown, around the byte `at`.
class Excerpt {
 public:
  Excerpt(std::string_view line, std::size_t at) {
    std::size_t start = at > reach ? at - reach : 0;
    while (start > 0 && start < at && isContinuation(line[start])) ++start;
    cells_ = cellsOf(line.substr(start, at + reach - start));
    caret_ = cellOfByte(cells_, at - start);
    wordEnd_ = cellOfByte(cells_, at - start + lengthOfWord(line.substr(at)));
    first_ = cells_.begin();
    last_ = cells_.end();
    bool const farBefore = start > 0, farBehind = line.size() > at + reach;
    if (farBefore || farBehind || totalWidth(first_, last_) > shownColumns) cut();
    cutBefore_ = farBefore || first_ != cells_.begin();
    cutBehind_ = farBehind || last_ != cells_.end();
  }

  std::string text() const {
    std::string const left(margin.substr(0, cutBefore_ ? margin.size() - ellipsis.size() : margin.size()));
    std::string const indent(margin.size() + totalWidth(first_, caret_), ' ');
    std::size_t const width = totalWidth(caret_, std::max(caret_, std::min(wordEnd_, last_)));
    return left + std::string(cutBefore_ ? ellipsis : "") + join(first_, last_) +
           std::string(cutBehind_ ? ellipsis : "") + '\n' + indent + '^' + std::string(width > 1 ? width - 1 : 0, '~') +
           '\n';
  }

 private:
  void cut() {
    std::size_t before = totalWidth(first_, caret_);
    while (before > columnsBefore) before -= (first_++)->width;
    std::size_t shown = before;
    last_ = caret_;
    while (last_ != cells_.end() && shown + last_->width <= shownColumns) shown += (last_++)->width;
  }

  std::vector<Cell> cells_;
  CellIterator caret_, wordEnd_, first_, last_;
  bool cutBefore_ = false, cutBehind_ = false;
};

}  // namespace

std::string printable(std::string_view text) {
  std::vector<Cell> const cells = cellsOf(text);
  return join(cells.begin(), cells.end());
}

std::string excerpt(Loc const& loc) {
  std::string_view const line = lineOf(loc);
  if (line.find_first_not_of(" \t") == std::string_view::npos) return {};
  return Excerpt(line, std::min<std::size_t>(loc.column - 1, line.size())).text();
}

}  // namespace kelc
