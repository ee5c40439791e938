// The grammar of commands: each command's usage line is its grammar, for parsing, completion and help.
//
//     show diff [against (ancestor | running | commit N)]
//
// A lower-case word is a keyword, which may be abbreviated as long as it is unique; a word in capitals is an argument;
// brackets enclose optional parts, parentheses and bars alternatives. "..." after an argument: one word or more. PATH
// is always one word or more. A keyword takes precedence over an argument; a word in quotes is not a keyword.
#pragma once

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "Words.h"

namespace Shell {

// A line that is not a command. The message names the word, and what was expected.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The arguments of a command: the words of each, by name, and the keywords that were given.
class Arguments {
 public:
  bool has(std::string const& name) const { return words_.count(name) != 0; }
  // The first word of an argument; empty if it was not given.
  std::string text(std::string const& name) const;
  std::vector<std::string> const& words(std::string const& name) const;
  // All words of an argument, with a blank between them.
  std::string joined(std::string const& name) const;
  unsigned long long number(std::string const& name) const;

  void add(std::string const& name, std::string const& word) { words_[name].push_back(word); }

 private:
  std::map<std::string, std::vector<std::string>> words_;
};

class Grammar {
 public:
  // Whether an argument accepts a word after the words in `before`; for completion and abbreviations.
  using Accepts =
      std::function<bool(std::string const& argument, std::vector<std::string> const& before, std::string const& word)>;

  // The error for a first word that begins no usage. Empty: it lists the words that do.
  using Unknown = std::function<std::string(std::string const& word)>;

  explicit Grammar(std::vector<std::string> usages, Unknown unknown = nullptr);

  struct Match {
    std::size_t rule = 0;  // the index of the usage
    Arguments arguments;
  };
  // The most words of a line. Longer lines are refused.
  static constexpr std::size_t maxWords = 2000;

  // Raises UsageError.
  Match match(std::vector<Word> const& words, Accepts const& accepts) const;

  // What may come next.
  struct Expected {
    std::string keyword;              // empty: an argument is expected
    std::string argument;             // its name
    std::vector<std::string> before;  // the words that the argument has already
    std::vector<std::size_t> rules;   // the indices of the usages that expect it
    bool isKeyword() const { return !keyword.empty(); }
  };
  struct Next {
    std::vector<Expected> expected;  // in the order of the usages
    std::vector<std::size_t> ends;   // the indices of the usages that may end here
  };
  // Raises UsageError if the words are not the beginning of a command.
  Next next(std::vector<Word> const& words, Accepts const& accepts) const;

 private:
  struct Edge {
    enum class Kind { empty, keyword, argument } kind;
    std::string word;
    std::size_t to;
  };
  struct Thread {
    std::size_t state;
    std::size_t rule;
    Arguments arguments;
    std::vector<std::string> last;  // the words so far of the argument that is being read
    std::string lastArgument;
  };
  class Compiler;

  std::vector<Thread> step(std::vector<Thread> const& threads, Word const& word, std::size_t number,
                           Accepts const& accepts) const;
  std::vector<Thread> start() const;
  std::vector<Thread> read(std::vector<Word> const& words, Accepts const& accepts) const;
  void follow(std::vector<Thread>& threads) const;
  [[noreturn]] void refuse(std::vector<Thread> const& threads, Word const* word) const;

  std::vector<std::string> usages_;
  Unknown unknown_;
  std::vector<std::vector<Edge>> states_;
  std::vector<std::size_t> starts_, accepting_;
};

}  // namespace Shell
