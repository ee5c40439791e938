#include "Terminal.h"

// readline's headers need stdio first.
#include <cstdio>
// clang-format off
#include <readline/readline.h>
#include <readline/history.h>
// clang-format on
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "Words.h"

namespace Shell {

namespace {

volatile std::sig_atomic_t interrupts = 0;
extern "C" void countInterrupt(int) { interrupts = interrupts + 1; }

void catchInterrupts() {
  struct sigaction action {};
  action.sa_handler = countInterrupt;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
}

// readline's callbacks have no context argument, so this is global. There is only one terminal.
Terminal::Callbacks callbacks;
std::vector<Candidate> candidates;
bool lineIsThere = false, inputEnded = false;
std::string lineRead;

extern "C" void takeLine(char* text) {
  lineIsThere = true;
  inputEnded = text == nullptr;
  lineRead = text ? text : "";
  std::free(text);
  rl_callback_handler_remove();
}

extern "C" char* nextCandidate(char const*, int state) {
  static std::size_t at;
  if (state == 0) at = 0;
  return at < candidates.size() ? ::strdup(candidates[at++].word.c_str()) : nullptr;
}

extern "C" char** completions(char const* text, int start, int end) {
  rl_attempted_completion_over = 1;  // never file names of readline's own
  std::string const line(rl_line_buffer, static_cast<std::size_t>(end));
  std::size_t begin = 0;
  candidates = callbacks.complete(line, begin);
  // In a word with a blank in it, readline replaces the line from `start` on.
  if (auto const from = static_cast<std::size_t>(start); from < begin)
    for (Candidate& each : candidates) each.word = line.substr(from, begin - from) + each.word;
  rl_completion_suppress_append = candidates.size() == 1 && !candidates.front().final;
  return rl_completion_matches(text, nextCandidate);
}

// Where the last word of the line begins, by this program's rules instead of readline's.
extern "C" char* wordBreaks() {
  static char none[] = "";
  static char blanks[] = " \t";
  std::string const line(rl_line_buffer, static_cast<std::size_t>(rl_point));
  Line const split = splitLine(line);
  bool const within = !split.endsInBlank && line.find_first_of(blanks, split.words.back().begin) != std::string::npos;
  return within ? none : blanks;
}

extern "C" int explain(int count, int key) {
  std::string const line(rl_line_buffer, static_cast<std::size_t>(rl_point));
  if (splitLine(line).openQuote) return rl_insert(count, key);
  std::fprintf(rl_outstream, "?\n%s", callbacks.help(line).c_str());
  rl_on_new_line();
  rl_redisplay();
  return 0;
}

// Prints a text above the line that is being edited.
void printAbove(std::string const& text) {
  rl_clear_visible_line();
  std::fputs(text.c_str(), rl_outstream);
  rl_on_new_line();
  rl_redisplay();
}

// Marks the colour codes in a prompt, so that readline does not count them as columns.
std::string markedPrompt(std::string const& prompt) {
  std::string out;
  bool inside = false;
  for (char const c : prompt) {
    if (c == '\x1b') {
      out += RL_PROMPT_START_IGNORE;
      inside = true;
    }
    out += c;
    if (inside && c == 'm') {
      out += RL_PROMPT_END_IGNORE;
      inside = false;
    }
  }
  return out;
}

void abandonLine() {
  rl_callback_sigcleanup();
  rl_free_line_state();
  rl_replace_line("", 1);
  rl_callback_handler_remove();
  std::fputs("^C\n", rl_outstream);
}

}  // namespace

bool takeInterrupt() {
  static bool const caught = (catchInterrupts(), true);
  (void)caught;
  bool const any = interrupts != 0;
  interrupts = 0;
  return any;
}

Terminal::Terminal(Callbacks given, std::string historyFile) : historyFile_(std::move(historyFile)) {
  callbacks = std::move(given);
  rl_readline_name = "cli-session";
  rl_catch_signals = 0;
  rl_attempted_completion_function = completions;
  rl_completion_word_break_hook = wordBreaks;
  rl_sort_completion_matches = 0;
  rl_ignore_completion_duplicates = 0;
  rl_filename_completion_desired = 0;
  rl_initialize();
  rl_bind_key('?', explain);
  rl_variable_bind("enable-bracketed-paste", "off");
  rl_variable_bind("show-all-if-ambiguous", "on");
  takeInterrupt();
  using_history();
  stifle_history(historyLines);
  if (!historyFile_.empty()) read_history(historyFile_.c_str());
}

Terminal::~Terminal() { callbacks = {}; }

void Terminal::remember(std::string const& line) {
  if (line.find_first_not_of(" \t") == std::string::npos || line.front() == ' ') return;
  HIST_ENTRY const* const last = history_length ? history_get(history_base + history_length - 1) : nullptr;
  if (last && line == last->line) return;
  add_history(line.c_str());
  if (historyFile_.empty()) return;
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(historyFile_).parent_path(), ignored);
  mode_t const mask = ::umask(0077);
  if (append_history(1, historyFile_.c_str()) != 0) write_history(historyFile_.c_str());
  ::umask(mask);
  history_truncate_file(historyFile_.c_str(), historyLines);
}

Terminal::Input Terminal::read(std::string const& prompt, std::string& line) {
  std::cout.flush();
  lineIsThere = false;
  takeInterrupt();
  rl_callback_handler_install(markedPrompt(prompt).c_str(), takeLine);
  while (!lineIsThere) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    int const ready = ::poll(&input, 1, 200);
    if (takeInterrupt()) {
      abandonLine();
      return Input::abandoned;
    }
    if (ready > 0) rl_callback_read_char();
    if (ready == 0 && callbacks.idle)
      if (std::string const news = callbacks.idle(); !news.empty()) printAbove(news);
  }
  if (inputEnded) return Input::end;
  line = lineRead;
  remember(line);
  return Input::line;
}

bool Terminal::confirm(std::string const& question) {
  std::cout.flush();
  lineIsThere = false;
  takeInterrupt();
  rl_callback_handler_install((question + " [y/n] ").c_str(), takeLine);
  while (!lineIsThere) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    int const ready = ::poll(&input, 1, 200);
    if (takeInterrupt()) {
      abandonLine();
      return false;
    }
    if (ready > 0) rl_callback_read_char();
  }
  return !inputEnded && (lineRead == "y" || lineRead == "yes");
}

std::string Terminal::defaultHistoryFile() {
  char const* const state = std::getenv("XDG_STATE_HOME");
  if (state && *state == '/') return std::string(state) + "/cli-session/history";
  char const* const home = std::getenv("HOME");
  return home && *home ? std::string(home) + "/.local/state/cli-session/history" : std::string();
}

ScreenSize screenSize() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) return {};
  return {size.ws_row, size.ws_col};
}

}  // namespace Shell
