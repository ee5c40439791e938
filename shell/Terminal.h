// The terminal: line editing with completion, help on '?', history, and Ctrl-C, which abandons the line.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Shell {

// What may stand at the end of a line.
struct Candidate {
  std::string word;  // as it is typed
  std::string help;
  bool final = true;  // a blank follows it
};

class Terminal {
 public:
  struct Callbacks {
    // What the word that ends at the end of `line` may become; it begins at `wordBegin`.
    std::function<std::vector<Candidate>(std::string const& line, std::size_t& wordBegin)> complete;
    // What may come next, for people.
    std::function<std::string(std::string const& line)> help;
    // Called a few times a second while the terminal waits; a text is shown above the line.
    std::function<std::string()> idle;
  };

  // Takes the history from the file and keeps it there; an empty name: none.
  Terminal(Callbacks callbacks, std::string historyFile);
  ~Terminal();
  Terminal(Terminal const&) = delete;
  Terminal& operator=(Terminal const&) = delete;

  enum class Input { line, abandoned, end };
  // Reads a line. `prompt` may hold colours.
  Input read(std::string const& prompt, std::string& line);
  // Asks a question that is answered by yes or no; anything but "y" and "yes" is no.
  bool confirm(std::string const& question);

  // "$XDG_STATE_HOME/cli-session/history", or below ~/.local/state; empty when there is no home.
  static std::string defaultHistoryFile();
  static constexpr int historyLines = 1000;

 private:
  void remember(std::string const& line);
  std::string historyFile_;
};

// Height and width of the terminal on standard output; 24 and 80 where they are not known.
struct ScreenSize {
  int rows = 24, columns = 80;
};
ScreenSize screenSize();

// Whether Ctrl-C was pressed since the last call. Installs, when first called, what keeps it from ending the process.
bool takeInterrupt();

}  // namespace Shell
