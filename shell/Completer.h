// What may stand at the end of a line, from the command table and the configuration.
#pragma once

#include <string>
#include <vector>

#include "Context.h"
#include "Terminal.h"

namespace Shell {

class Completer {
 public:
  explicit Completer(Context& context) : context_(context) {}

  // The words that the last word of the line may become; `wordBegin` is where that word begins. Nothing for a line
  // that is no beginning of a command.
  std::vector<Candidate> complete(std::string const& line, std::size_t& wordBegin);
  // The same for people, with what may come where it cannot be listed, or why nothing can.
  std::string help(std::string const& line);

 private:
  struct Options;
  Options options(std::string const& line);
  void addPath(Options& options, std::vector<std::string> const& words, std::vector<std::size_t> const& rules);
  void addArgument(Options& options, std::string const& argument, std::string const& partial) const;
  Context& context_;
};

}  // namespace Shell
