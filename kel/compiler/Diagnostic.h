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
  // What is found behind the first `most` errors is only counted: a file that is no model at all has one everywhere.
  static constexpr std::size_t most = 1000;
  void error(Loc loc, std::string text, std::vector<Note> notes = {});

  // All that another has found, sorted.
  void add(Diagnostics const& other);

  bool empty() const { return found_.empty(); }
  // In the order of the files and of the positions in them; errors at one position keep the order of their discovery.
  std::vector<Diagnostic> sorted() const;
  // One `file:line:col: error: text` a line, each followed by its notes; at the end how many there were more.
  void print(std::ostream& out) const;

 private:
  std::vector<Diagnostic> found_;
  std::size_t more_ = 0;
};

}  // namespace kelc
