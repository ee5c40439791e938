#include "compiler/Diagnostic.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "compiler/Excerpt.h"

namespace kelc {

namespace {

void printMessage(std::ostream& out, Loc const& loc, char const* severity, std::string const& text) {
  out << loc.file->path << ':' << loc.line << ':' << loc.column << ": " << severity << ": " << printable(text) << '\n'
      << excerpt(loc);
}

}  // namespace

void Diagnostics::error(Loc loc, std::string text, std::vector<Note> notes) {
  if (found_.size() == most)
    ++more_;
  else
    found_.push_back({loc, std::move(text), std::move(notes)});
}

void Diagnostics::add(Diagnostics const& other) {
  for (Diagnostic& d : other.sorted()) error(d.loc, std::move(d.text), std::move(d.notes));
  more_ += other.more_;
}

std::vector<Diagnostic> Diagnostics::sorted() const {
  std::vector<Diagnostic> all = found_;
  std::stable_sort(all.begin(), all.end(), [](auto const& a, auto const& b) { return a.loc < b.loc; });
  return all;
}

void Diagnostics::print(std::ostream& out) const {
  for (Diagnostic const& d : sorted()) {
    printMessage(out, d.loc, "error", d.text);
    for (Note const& note : d.notes) printMessage(out, note.loc, "note", note.text);
  }
  if (more_ > 0) out << "kelc: " << more_ << (more_ == 1 ? " more error\n" : " more errors\n");
}

}  // namespace kelc
