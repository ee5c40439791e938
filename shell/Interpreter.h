// Runs lines of commands.
#pragma once

#include <iosfwd>
#include <string>

#include "CommandTable.h"
#include "Context.h"

namespace Shell {

class Interpreter {
 public:
  explicit Interpreter(Context& context) : context_(context) {}

  struct Answer {
    Outcome outcome = Outcome::ok;
    std::string output;  // filtered
    std::string error;   // lines for standard error; empty unless it failed
    bool paged = true;   // on a terminal
  };
  // Runs one line. Blank lines and comments ("#") do nothing. Raises nothing: errors are in the answer.
  Answer run(std::string const& line);

 private:
  Outcome dispatch(std::vector<Word> const& words);
  Context& context_;
};

// Whether an argument of a command accepts a word; see Grammar::Accepts.
Grammar::Accepts acceptsIn(Context& context);

}  // namespace Shell
