// The errors of a run.
//
// Every phase adds the errors that it finds and goes on.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "compiler/Source.h"

namespace kelc {

// A name as messages write it.
inline std::string inQuotes(std::string const& name) { return "'" + name + "'"; }

struct Note {
  Loc loc;
  std::string text;
};

struct Diagnostic {
  Loc loc;
  std::string text;
  std::vector<Note> notes;  // what the error refers to, such as an earlier definition
};

class Diagnostics {
 public:
  // Errors after the first `most` are only counted: a file that is not a model at all has errors everywhere.
  static constexpr std::size_t most = 1000;
  void error(Loc loc, std::string text, std::vector<Note> notes = {});

  // Adds all errors of another, sorted.
  void add(Diagnostics const& other);

  bool empty() const { return found_.empty(); }
  // Ordered by file and position; errors at the same position keep the order in which they were found.
  std::vector<Diagnostic> sorted() const;
  // For each error `file:line:col: error: text`, the source line with a caret, and its notes in the same form; at the
  // end the number of errors that are not shown.
  void print(std::ostream& out) const;

 private:
  std::vector<Diagnostic> found_;
  std::size_t more_ = 0;
};

}  // namespace kelc
