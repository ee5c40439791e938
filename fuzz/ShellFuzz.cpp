// The shell: lines of commands on a small configuration that has one of everything.
//
// A command that fails says why and has changed nothing; whatever was done to a session, filling it again makes it
// equal to what is running.
#include <algorithm>
#include <sstream>
#include <utility>

#include "Commands.h"
#include "Dump.h"
#include "Fuzz.h"
#include "Plant.h"
#include "Reflect.h"

namespace {

using Shell::Outcome;

struct Terminal {
  Shell::Workspace workspace;
  std::ostringstream out, err;
  Shell::Commands commands{workspace, out, err};

  Terminal() {
    Kel::Dir::Ptr const running = workspace.running();
    running->newEntity(Plant::Hall::_fwkType()->fullTypeName(), "hall");
    Kel::ptrCast<Kel::Dir>(running->newEntity("Kel::Dir", "sys"))->newEntity("Plant::Hall", "annex");
    static std::vector<std::pair<char const*, std::vector<std::string>>> const content = {
        {"hall.u8", {"3"}},
        {"hall.text", {"it's"}},
        {"hall.texts/a.b/c", {"x"}},
        {"hall.bolt/b1", {}},
        {"hall.bolt/b1.torque", {"1.5"}},
        {"hall.gear/g1", {"7", "Value('Plant::Size', ** {'width': 1})", "pure"}},
        {"hall.axle", {"main"}},
        {"hall.annex/a.b", {}},
        {"hall.annex/a.b.bolt/c/d", {}},
        {"hall.slot/-3", {}},
        {"hall.history", {"first"}},
        {"hall.job", {"paint"}},
        {"hall.favourite", {"hall.bolt/b1"}},
        {"sys/annex.neighbour", {"hall"}},
        {"sys/annex.chosen/k", {"hall.annex/a.b.bolt/c/d"}},
    };
    for (auto const& [path, texts] : content) Shell::setFromText(running, Shell::locate(running, path), texts);
    workspace.sessionRootIs("hall", "Plant::Hall");
    workspace.sessionRootIs("sys/annex", "Plant::Hall");
  }

  std::string session() const { return workspace.hasSession() ? Tests::dump(workspace.sessionDir()) : ""; }
  Outcome run(std::string const& line) {
    std::string const name = workspace.sessionName();
    err.str("");
    Outcome const outcome = commands.run(line);
    FUZZ_LAW(err.str().empty() == (outcome != Outcome::failed), line + ": " + err.str());
    std::string const before = std::exchange(held, session());
    if (outcome == Outcome::failed) FUZZ_LAW(held == before && workspace.sessionName() == name, line);
    return outcome;
  }

 private:
  std::string held;  // by the session after the last command
};

// Whether a command asks for the end of the process at some edit.
bool asksForTheEnd(std::string line) {
  line.erase(std::remove_if(line.begin(), line.end(), [](char c) { return c == '"' || c == '\\'; }), line.end());
  return line.find("assert") != std::string::npos;
}

// What was set is shown; of words that need no quotes.
void showSet(Terminal& terminal, std::string const& line) {
  if (line.find_first_of("\\\"\t\r\v\f") != std::string::npos) return;
  std::istringstream words(line);
  std::string command, path;
  words >> command >> path;
  if (command == "set") FUZZ_LAW(terminal.commands.run("show " + path) == Outcome::ok, line + terminal.err.str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size > 1000) return 0;
  Fuzz::Input input(data, size);
  Terminal terminal;
  while (!input.atEnd()) {
    std::string const line(input.line());
    if (asksForTheEnd(line)) continue;
    Outcome const outcome = terminal.run(line);
    if (outcome == Outcome::quit) break;
    if (outcome == Outcome::ok) showSet(terminal, line);
  }
  if (!terminal.workspace.hasSession()) return 0;
  FUZZ_LAW(terminal.run("replace") == Outcome::ok, terminal.err.str());
  FUZZ_LAW(terminal.run("compare") == Outcome::ok, terminal.out.str());
  return 0;
}
