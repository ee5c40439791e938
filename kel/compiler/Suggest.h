// What a wrong name was probably meant to be.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelc {

// The number of insertions, deletions, replacements and swaps of neighbours that make one name the other; `limit` + 1
// when it is greater than `limit`. Letters that differ in case only count as the same.
std::size_t editDistance(std::string_view a, std::string_view b, std::size_t limit);

// Finds the candidate nearest to a wrong name: at most every third character may be wrong. Of several equally near ones
// the first is taken.
class Nearest {
 public:
  explicit Nearest(std::string_view wrong);

  // `compared` is measured against the wrong name, `suggested` is what to write. True when it is the nearest so far.
  bool consider(std::string_view compared, std::string_view suggested);
  bool consider(std::string_view candidate) { return consider(candidate, candidate); }

  // Empty when no candidate is near.
  std::string const& best() const { return best_; }
  // Whether the best differs in case only.
  bool isExact() const { return found_ && limit_ == 0; }

 private:
  std::string_view wrong_;
  std::size_t limit_;  // the greatest distance that is still an improvement
  bool found_ = false;
  std::string best_;
};

// "; did you mean 'best'?", to be appended to a message; empty when `best` is.
std::string didYouMean(std::string const& best);

// What people write who know another language, and what it is in a model; empty when the word is unknown.
// A type: the name of the type, or, for what is no type here, a hint to append to a message.
std::string typeOfHabit(std::string_view name);
std::string hintOfHabit(std::string_view name);
// A keyword that begins a declaration or member.
std::string_view keywordOfHabit(std::string_view word);

}  // namespace kelc
