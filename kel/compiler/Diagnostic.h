// The errors of a run.
//
// Every phase adds what it finds and goes on; the run stops between two phases when there is anything here.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "compiler/Source.h"

namespace kelc {

// As messages write names.
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
  void error(Loc loc, std::string text, std::vector<Note> notes = {});

  bool empty() const { return found_.empty(); }
  // In the order of the files and of the positions in them; errors at one position keep the order of their discovery.
  std::vector<Diagnostic> sorted() const;
  // One `file:line:col: error: text` a line, each followed by its notes.
  void print(std::ostream& out) const;

 private:
  std::vector<Diagnostic> found_;
};

}  // namespace kelc
