#include "Pager.h"

#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include "Paint.h"
#include "Terminal.h"

namespace Shell {

namespace {

// While it lives, keys are read as they are pressed, without echo.
class KeyMode {
 public:
  KeyMode() {
    ::tcgetattr(STDIN_FILENO, &before_);
    termios keys = before_;
    keys.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
    keys.c_cc[VMIN] = 1;
    keys.c_cc[VTIME] = 0;
    ::tcsetattr(STDIN_FILENO, TCSADRAIN, &keys);
  }
  ~KeyMode() { ::tcsetattr(STDIN_FILENO, TCSADRAIN, &before_); }
  KeyMode(KeyMode const&) = delete;
  KeyMode& operator=(KeyMode const&) = delete;

  // The next key; 'q' at the end of the input, and for Ctrl-C.
  static char key() {
    char c = 'q';
    if (::read(STDIN_FILENO, &c, 1) != 1 || takeInterrupt()) return 'q';
    return c;
  }

 private:
  termios before_{};
};

std::size_t screenRows(std::string_view line, std::size_t width) {
  std::size_t const count = columns(line);
  return count == 0 ? 1 : (count + width - 1) / width;
}

std::size_t allRows(std::string_view text, std::size_t width) {
  std::size_t rows = 0;
  while (!text.empty()) {
    std::size_t const end = std::min(text.find('\n'), text.size());
    rows += screenRows(text.substr(0, end), width);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return rows;
}

void pageHere(std::string const& text, std::size_t height, std::size_t width) {
  KeyMode const mode;
  std::string_view rest(text);
  std::size_t room = height - 1;
  while (!rest.empty()) {
    std::size_t const end = std::min(rest.find('\n'), rest.size());
    std::size_t const rows = screenRows(rest.substr(0, end), width);
    if (rows > room) {
      std::size_t const percent = (text.size() - rest.size()) * 100 / text.size();
      std::cout << "--More-- (" << percent << "%)" << std::flush;
      char const key = KeyMode::key();
      std::cout << "\r\x1b[K" << std::flush;
      if (key == 'q' || key == 'Q' || key == '\x04') return;
      room = key == '\n' || key == '\r' ? std::max<std::size_t>(rows, 1) : height - 1;
    }
    std::cout << rest.substr(0, end) << '\n';
    room -= std::min(rows, room);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  std::cout.flush();
}

bool pageWith(char const* command, std::string const& text) {
  ::setenv("LESS", "FRX", 0);
  auto const before = std::signal(SIGPIPE, SIG_IGN);  // a pager may be left early
  FILE* const pipe = ::popen(command, "w");
  if (pipe) {
    std::fwrite(text.data(), 1, text.size(), pipe);
    int const status = ::pclose(pipe);
    std::signal(SIGPIPE, before);
    takeInterrupt();
    return !(WIFEXITED(status) && WEXITSTATUS(status) == 127);  // 127: there is no such program
  }
  std::signal(SIGPIPE, before);
  return false;
}

}  // namespace

void page(std::string const& text) {
  ScreenSize const screen = screenSize();
  auto const height = static_cast<std::size_t>(std::max(screen.rows, 3));
  auto const width = static_cast<std::size_t>(std::max(screen.columns, 10));
  if (allRows(text, width) < height) {
    std::cout << text << std::flush;
    return;
  }
  std::cout.flush();
  char const* const pager = std::getenv("PAGER");
  if (pager && *pager && pageWith(pager, text)) return;
  pageHere(text, height, width);
}

}  // namespace Shell
