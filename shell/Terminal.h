// The terminal: line editing with completion, help on '?', history, and Ctrl-C, which abandons the line.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Shell {

// A completion of the last word of a line.
struct Candidate {
  std::string word;  // as it is typed
  std::string help;
  bool final = true;  // the word is complete, so a blank follows it
};

class Terminal {
 public:
  struct Callbacks {
    // The completions of the last word of `line`; sets `wordBegin` to where that word begins.
    std::function<std::vector<Candidate>(std::string const& line, std::size_t& wordBegin)> complete;
    // The text that '?' shows.
    std::function<std::string(std::string const& line)> help;
    // Called a few times a second while the terminal waits; a text is shown above the line.
    std::function<std::string()> idle;
  };

  // Reads the history from the file and keeps it there; an empty name: no history file.
  Terminal(Callbacks callbacks, std::string historyFile);
  ~Terminal();
  Terminal(Terminal const&) = delete;
  Terminal& operator=(Terminal const&) = delete;

  enum class Input { line, abandoned, end };
  // Reads a line. `prompt` may contain colours.
  Input read(std::string const& prompt, std::string& line);
  // Asks a question; true for "y" and "yes".
  bool confirm(std::string const& question);

  // "$XDG_STATE_HOME/cli-session/history", or below ~/.local/state; empty if there is no home directory.
  static std::string defaultHistoryFile();
  static constexpr int historyLines = 1000;

 private:
  void remember(std::string const& line);
  std::string historyFile_;
};

// Height and width of the terminal on standard output; 24 and 80 if they are not known.
struct ScreenSize {
  int rows = 24, columns = 80;
};
ScreenSize screenSize();

// Whether Ctrl-C was pressed since the last call. The first call installs the signal handler, so that Ctrl-C no longer
// ends the process.
bool takeInterrupt();

}  // namespace Shell
