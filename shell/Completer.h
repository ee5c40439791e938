// Completes command lines, from the command table and the configuration.
#pragma once

#include <string>
#include <vector>

#include "Context.h"
#include "Terminal.h"

namespace Shell {

class Completer {
 public:
  explicit Completer(Context& context) : context_(context) {}

  // The completions of the last word of the line; `wordBegin` is set to where that word begins. Empty for a line that
  // is not the beginning of a command.
  std::vector<Candidate> complete(std::string const& line, std::size_t& wordBegin);
  // The same as a text for the user, with a hint if the completions cannot be listed, or the reason if there are none.
  std::string help(std::string const& line);

 private:
  struct Options;
  Options options(std::string const& line);
  void addPath(Options& options, std::vector<std::string> const& words, std::vector<std::size_t> const& rules);
  void addArgument(Options& options, std::string const& argument, std::string const& partial) const;
  Context& context_;
};

}  // namespace Shell
