// What stands behind a bar: show … | include up | first 3
#pragma once

#include <string>
#include <vector>

#include "Words.h"

namespace Shell {

class OutputFilter {
 public:
  // Takes the first bar and what follows it out of the words. Raises UsageError.
  explicit OutputFilter(std::vector<Word>& words);

  // Raises CommandError when the output is to go to a file that cannot be written.
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

// Writes a file as a whole: it is there complete, or as it was. Raises CommandError.
void writeFile(std::string const& file, std::string const& text);

}  // namespace Shell
