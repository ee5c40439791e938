// Filters of a command's output: show … | include up | first 3
#pragma once

#include <string>
#include <vector>

#include "Words.h"

namespace Shell {

class OutputFilter {
 public:
  // Reads the filters after the first bar, and removes them and the bar from the words. Raises UsageError.
  explicit OutputFilter(std::vector<Word>& words);

  // Raises CommandError if `save` cannot write its file.
  std::string filtered(std::string output) const;
  bool paged() const { return paged_; }

 private:
  struct Step {
    std::size_t rule;
    std::string text;
    std::size_t count = 0;
  };
  std::vector<Step> steps_;
  bool paged_ = true;
};

// Writes a file as a whole or not at all. Raises CommandError.
void writeFile(std::string const& file, std::string const& text);

}  // namespace Shell
