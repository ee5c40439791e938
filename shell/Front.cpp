#include "Front.h"

#include <unistd.h>

#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>

#include "CommandTable.h"
#include "Completer.h"
#include "Interpreter.h"
#include "Pager.h"
#include "Progress.h"
#include "Script.h"
#include "Terminal.h"
#include "Words.h"

namespace Shell {

namespace {

class Front {
 public:
  Front(Device& device, FrontOptions const& options) : options_(options), context_(device), interpreter_(context_) {
    bool const terminal = ::isatty(STDOUT_FILENO) != 0;
    context_.paint = Paint(Paint::wanted(STDOUT_FILENO));
    context_.terminal = terminal;
    if (terminal) context_.width = static_cast<std::size_t>(screenSize().columns);
  }

  void greet(std::string const& file) {
    if (options_.quiet) return;
    LoadReport const& report = context_.device.report();
    std::cout << shown(file == "-" ? "standard input" : file) << ": " << report.summary << " loaded";
    if (!report.remarks.empty()) std::cout << ", " << counted(report.remarks.size(), "remark", "remarks");
    std::cout << std::endl;
    std::cerr << remarksText(report, false);
    if (auto const last = context_.service().lastCommit()) std::cout << "running is as after commit " << last << "\n";
    std::cout.flush();
    if (!std::cout) throw std::runtime_error("the output cannot be written");
  }

  // Runs commands until there are no more, one ends the program, or one fails. False: the program ends.
  bool run(Script& script) {
    for (std::string line; script.next(line);) {
      if (options_.echo) std::cout << (line.empty() || line.front() == '#' ? "" : "> ") << line << std::endl;
      Interpreter::Answer const answer = runOne(line);
      std::cout << answer.output << std::flush;
      if (!std::cout) throw std::runtime_error("the output cannot be written");
      if (!answer.error.empty()) std::cerr << script.place() << answer.error << std::flush;
      if (answer.outcome == Outcome::quit) return false;
      status_ = static_cast<int>(answer.outcome);
      if (answer.outcome == Outcome::failed) return false;
    }
    return true;
  }

  void converse() {
    Completer completer(context_);
    Terminal::Callbacks callbacks;
    callbacks.complete = [&](std::string const& line, std::size_t& begin) { return completer.complete(line, begin); };
    callbacks.help = [&](std::string const& line) { return completer.help(line); };
    callbacks.idle = [&] { return news(); };
    Terminal terminal(std::move(callbacks), Terminal::defaultHistoryFile());
    context_.confirm = [&](std::string const& question) {
      progress_.reset();  // waiting for the user does not count as the command's time
      return terminal.confirm(question);
    };
    std::cout << "'help' lists the commands, '?' says what may come next, Tab completes.\n";
    if (!context_.hasSession()) std::cout << "'session open NAME' opens a private copy to edit.\n";
    for (;;) {
      std::cout << news();
      std::string line;
      Terminal::Input const input = terminal.read(prompt(), line);
      if (input == Terminal::Input::abandoned) continue;
      if (input == Terminal::Input::end) {
        std::cout << "\n";
        if (mayLeave()) break;
        continue;
      }
      if (!execute(line)) break;
    }
    context_.confirm = nullptr;
    asked_ = true;
  }

  int status() const { return status_; }

  // At the end of a script. A user at the terminal was asked.
  void tellLost() {
    if (asked_) return;
    if (std::size_t const edits = openEdits())
      std::cerr << counted(edits, "edit is", "edits are") << " lost: there was no commit\n";
  }

 private:
  Interpreter::Answer runOne(std::string const& line) {
    context_.service().poll();
    progress_.emplace(shown(line), context_.terminal && ::isatty(STDERR_FILENO));
    Interpreter::Answer answer = interpreter_.run(line);
    progress_.reset();
    return answer;
  }

  // Runs a typed command. False: the program ends.
  bool execute(std::string const& line) {
    context_.width = static_cast<std::size_t>(screenSize().columns);
    Interpreter::Answer const answer = runOne(line);
    if (answer.outcome == Outcome::quit) return !mayLeave();
    if (answer.paged)
      page(answer.output);
    else
      std::cout << answer.output << std::flush;
    if (!answer.error.empty())
      std::cerr << Paint(Paint::wanted(STDERR_FILENO))(Style::error, answer.error) << std::flush;
    return true;
  }

  std::string news() {
    std::string out;
    try {
      context_.service().poll();
      for (auto const& listed : context_.service().list())
        if (auto* const session = context_.service().session(listed.name))
          for (std::string const& notice : session->takeNotices())
            out += "session " + shown(listed.name) + ": " + shown(notice) + "\n";
    } catch (std::exception const& e) {
      out += shown(e.what()) + "\n";
    }
    return out;
  }

  std::string prompt() {
    if (!context_.hasSession()) return context_.paint(Style::prompt, "cli-session") + "> ";
    std::string text = shown(context_.session().name());
    if (!context_.session().differences().empty()) text += "*";
    if (!context_.at().empty()) text += " " + shown(context_.at().text());
    return context_.paint(Style::prompt, text) + "> ";
  }

  // The edits of all sessions.
  std::size_t openEdits() {
    std::size_t edits = 0;
    for (auto const& listed : context_.service().list())
      if (auto const* const session = context_.service().session(listed.name)) edits += session->differences().size();
    return edits;
  }

  // Asks if edits would be lost.
  bool mayLeave() {
    std::size_t const edits = openEdits();
    if (edits == 0 || !context_.confirm) return true;
    return context_.confirm(counted(edits, "edit is", "edits are") + " not committed. Leave?");
  }

  FrontOptions const& options_;
  Context context_;
  Interpreter interpreter_;
  std::optional<Progress> progress_;
  int status_ = 0;
  bool asked_ = false;
};

void runAll(Front& front, FrontOptions const& options) {
  bool const given = !options.commands.empty() || !options.script.empty();
  if (!options.commands.empty() && !front.run(*Script::ofCommands(options.commands))) return;
  if (!options.script.empty()) {
    bool const input = options.script == "-";
    if (input && options.configFromInput)
      throw std::runtime_error("standard input is either the configuration or the script");
    front.run(input ? *Script::ofStream(std::cin, "standard input") : *Script::ofFile(options.script));
  }
  if (given || options.configFromInput) return;
  if (::isatty(STDIN_FILENO)) return front.converse();
  front.run(*Script::ofStream(std::cin, "standard input"));
}

}  // namespace

int runFront(Device& device, std::string const& file, FrontOptions const& options) {
  Front front(device, options);
  front.greet(file);
  runAll(front, options);
  front.tellLost();
  return front.status();
}

}  // namespace Shell
