// cli-session: configuration sessions on a configuration file, from a terminal or a script.
#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "Commands.h"
#include "Kel/Exception.h"
#include "Workspace.h"
#include "examples/config_db/Loader.h"

namespace {

using Shell::Outcome;

struct Options {
  std::string file;
  std::vector<std::string> commands;
  bool echo = false;
};

void load(Shell::Workspace& workspace, std::string const& file) {
  ConfigDb::Report report;
  ConfigDb::loadConfigDb(file, workspace.running(), report);
  for (ConfigDb::SessionRoot const& root : ConfigDb::sessionRoots()) workspace.sessionRootIs(root.path, root.typeName);
  for (std::string const& complaint : report.complaints) std::cerr << complaint << "\n";
  std::cout << file << ": " << report.entryCount() << " entries of " << report.entries.size() << " tables loaded, "
            << report.complaints.size() << " remarks\n";
}

// One line after the other, until there are no more, one says to stop, or (in a script) one fails.
template <class NextLine>
Outcome runAll(Shell::Commands& commands, bool echo, bool stopAtFailure, NextLine const& nextLine) {
  Outcome last = Outcome::ok;
  std::string line;
  while (nextLine(line)) {
    if (echo) std::cout << "> " << line << std::endl;
    Outcome const outcome = commands.run(line);
    std::cout.flush();
    if (outcome == Outcome::quit) break;
    last = outcome;
    if (stopAtFailure && last == Outcome::failed) break;
  }
  return last;
}

bool readlineLine(std::string& line) {
  char* text = readline("cli-session> ");
  if (!text) return false;
  line = text;
  if (*text) add_history(text);
  free(text);
  return true;
}

Outcome runCommands(Shell::Workspace& workspace, Options const& options) {
  Shell::Commands commands(workspace, std::cout, std::cerr);
  if (!options.commands.empty()) {
    auto next = options.commands.begin();
    return runAll(commands, options.echo, true, [&](std::string& line) {
      if (next == options.commands.end()) return false;
      line = *next++;
      return true;
    });
  }
  if (isatty(STDIN_FILENO)) return runAll(commands, false, false, readlineLine);
  return runAll(commands, options.echo, true,
                [](std::string& line) { return static_cast<bool>(std::getline(std::cin, line)); });
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Opens configuration sessions on a configuration and runs commands on them; 'help' lists the commands.");
  app.add_option("CONFIG", options.file, "a configuration in the config_db form (JSON)")->required();
  // One command an option: a command is not to swallow the words that follow it.
  app.add_option("-c,--command", options.commands, "a command to run; may be given several times")
      ->allow_extra_args(false);
  app.add_flag("--echo", options.echo, "print each command before what it answers");
  app.footer(
      "Exit status: that of the last command; 0 when it succeeded, 1 when a comparison found a difference, 2 when "
      "something failed.");
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }
  try {
    Shell::Workspace workspace;
    load(workspace, options.file);
    return static_cast<int>(runCommands(workspace, options));
  } catch (ConfigDb::LoadError const& e) {
    std::cerr << e.what() << "\n";
  } catch (std::exception const& e) {
    std::cerr << options.file << ": " << e.what() << "\n";
  }
  return 2;
}
