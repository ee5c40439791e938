// Finds the name that was probably meant by a wrong one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelc {

// The number of insertions, deletions, replacements and swaps of neighbours that turn one name into the other; `limit`
// + 1 if it is greater than `limit`. Ignores case.
std::size_t editDistance(std::string_view a, std::string_view b, std::size_t limit);

// Finds the candidate nearest to a wrong name, in which at most every third character is wrong. Of several equally near
// ones, takes the first.
class Nearest {
 public:
  explicit Nearest(std::string_view wrong);

  // Adds a candidate: `compared` is compared with the wrong name, `suggested` is shown. True if it is the nearest so
  // far.
  bool consider(std::string_view compared, std::string_view suggested);
  bool consider(std::string_view candidate) { return consider(candidate, candidate); }

  // The nearest; empty if no candidate is near.
  std::string const& best() const { return best_; }
  // Whether the nearest differs in case only.
  bool isExact() const { return found_ && limit_ == 0; }

 private:
  std::string_view wrong_;
  std::size_t limit_;  // the greatest distance that is still an improvement
  bool found_ = false;
  std::string best_;
};

// "; did you mean 'best'?", for the end of a message; empty if `best` is empty.
std::string didYouMean(std::string const& best);

// Translates words of other languages to those of a model; empty for an unknown word.
// A type: its name or, if models have no such type, a hint for the end of a message.
std::string typeOfHabit(std::string_view name);
std::string hintOfHabit(std::string_view name);
// A keyword that begins a declaration or member.
std::string_view keywordOfHabit(std::string_view word);

}  // namespace kelc
