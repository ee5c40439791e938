#include "compiler/Diagnostic.h"

#include <algorithm>
#include <ostream>
#include <utility>

namespace kelc {

namespace {

void printLine(std::ostream& out, Loc const& loc, char const* severity, std::string const& text) {
  out << loc.file->path << ':' << loc.line << ':' << loc.column << ": " << severity << ": " << text << '\n';
}

}  // namespace

void Diagnostics::error(Loc loc, std::string text, std::vector<Note> notes) {
  found_.push_back({loc, std::move(text), std::move(notes)});
}

std::vector<Diagnostic> Diagnostics::sorted() const {
  std::vector<Diagnostic> all = found_;
  std::stable_sort(all.begin(), all.end(), [](auto const& a, auto const& b) { return a.loc < b.loc; });
  return all;
}

void Diagnostics::print(std::ostream& out) const {
  for (Diagnostic const& d : sorted()) {
    printLine(out, d.loc, "error", d.text);
    for (Note const& note : d.notes) printLine(out, note.loc, "note", note.text);
  }
}

}  // namespace kelc
