// The commands of the shell.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "Workspace.h"

namespace Shell {

// What a command ends with; the process ends with that of the last one.
enum class Outcome { ok = 0, differs = 1, failed = 2, quit = 3 };

class Commands {
 public:
  Commands(Workspace& workspace, std::ostream& out, std::ostream& err) : workspace_(workspace), out_(out), err_(err) {}

  // Runs one line. Blank lines and lines that begin with '#' do nothing. Errors are said on `err`.
  Outcome run(std::string const& line);

  // The names of the commands, for completion.
  static std::vector<std::string> names();

 private:
  struct Command;
  static std::vector<Command> const& table();
  using Words = std::vector<std::string>;

  Outcome help(Words const& words);
  Outcome session(Words const& words);
  Outcome roots(Words const& words);
  Outcome show(Words const& words);
  Outcome set(Words const& words);
  Outcome del(Words const& words);
  Outcome compare(Words const& words);
  Outcome replace(Words const& words);
  Outcome log(Words const& words);
  Outcome bypass(Words const& words);
  Outcome debug(Words const& words);
  void showDebugging();
  Outcome quit(Words const& words);

  Workspace& workspace_;
  std::ostream& out_;
  std::ostream& err_;
};

}  // namespace Shell
