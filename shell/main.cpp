// cli-session: configuration sessions on a configuration file, from a terminal or a script.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <iostream>
#include <optional>

#include "Device.h"
#include "Diff.h"
#include "Front.h"
#include "ModelLibrary.h"
#include "Progress.h"
#include "Words.h"

// The built-in model. All other code knows models by their interface only.
extern "C" Shell::Model const* cli_session_model();

namespace {

struct Options {
  std::string file;
  std::string stateDir;
  std::string library;
  std::vector<std::string> roots;
  Shell::FrontOptions front;
  Shell::DiffOptions diff;
};

// The model that the options name. A model of types only is kept in `made`.
Shell::Model const& modelFor(Options const& options, std::unique_ptr<Shell::Model>& made) {
  if (options.library.empty()) {
    if (options.roots.empty()) return *cli_session_model();
    throw Shell::ModelError("--root goes with --model");
  }
  Shell::Model const* const exported = Shell::openModelLibrary(options.library);
  if (exported && options.roots.empty()) return *exported;
  made = Shell::modelOfTypes(options.library, options.roots);
  return *made;
}

// SOURCE_DATE_EPOCH replaces the time, for reproducible transcripts.
std::function<double()> clockFor() {
  char const* const fixed = std::getenv("SOURCE_DATE_EPOCH");
  if (!fixed || !*fixed) return nullptr;
  double const seconds = std::strtod(fixed, nullptr);
  return [seconds] { return seconds; };
}

void addModelOptions(CLI::App& app, Options& options) {
  app.add_option("--model", options.library, "a model library to use in place of the built-in config_db model")
      ->type_name("LIBRARY");
  app.add_option("--root", options.roots, "a session root of the model, TYPE or PATH=TYPE; may be given several times")
      ->type_name("TYPE")
      ->allow_extra_args(false);
}

int runDiff(int argc, char** argv) {
  Options options;
  CLI::App app("Compares two configurations.", "cli-session diff");
  app.add_option("A", options.diff.from, "a configuration")->required();
  app.add_option("B", options.diff.to, "another")->required();
  app.add_flag("--commands", options.diff.commands, "as commands that turn the first into the second");
  app.add_flag("--json", options.diff.json, "as JSON");
  addModelOptions(app, options);
  app.footer("Exit status: 0 when they are equal, 1 when they differ, 2 when something failed.");
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }
  std::unique_ptr<Shell::Model> made;
  return Shell::runDiff(modelFor(options, made), options.diff);
}

int runSessions(int argc, char** argv) {
  Options options;
  CLI::App app(
      "Opens configuration sessions on a configuration and runs commands on them; 'help' lists the commands.\n"
      "'cli-session diff A B' compares two configurations.");
  app.add_option("CONFIG", options.file,
                 "a configuration in the model's form (config_db), or a JSON tree; '-': standard "
                 "input")
      ->required();
  app.add_option("--state", options.stateDir, "keep commits in this directory")->type_name("DIR");
  // Each option takes one command, and not the words that follow it.
  app.add_option("-c,--command", options.front.commands, "a command to run; may be given several times")
      ->type_name("COMMAND")
      ->allow_extra_args(false);
  app.add_option("--script", options.front.script, "run the commands of a file; '-': of standard input")
      ->type_name("FILE");
  app.add_flag("--echo", options.front.echo, "print each command before what it answers");
  app.add_flag("--quiet", options.front.quiet, "say nothing about the file that was loaded");
  addModelOptions(app, options);
  app.footer(
      "Exit status: that of the last command; 0 when it succeeded, 1 when it found differences or conflicts, 2 when "
      "something failed.");
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }
  options.front.configFromInput = options.file == "-";
  std::unique_ptr<Shell::Model> made;
  bool const terminal = ::isatty(STDOUT_FILENO) != 0 && ::isatty(STDERR_FILENO) != 0;
  std::optional<Shell::Progress> progress(std::in_place, "loading " + Shell::shown(options.file), terminal);
  Shell::Device device(modelFor(options, made), {options.file, options.stateDir, clockFor()});
  progress.reset();
  return Shell::runFront(device, options.file, options.front);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    bool const diff = argc > 1 && std::string(argv[1]) == "diff" && ::access("diff", F_OK) != 0;
    return diff || (argc > 3 && std::string(argv[1]) == "diff") ? runDiff(argc - 1, argv + 1) : runSessions(argc, argv);
  } catch (std::exception const& e) {
    std::cerr << Shell::shown(e.what()) << "\n";
    return 2;
  }
}
