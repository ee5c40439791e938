// Paths typed as words, as the tree reads: `network ports port Ethernet0 mtu`.
//
// At a directory a word is an entry, at an entity an attribute, behind a collection a key (of a queue: a position). An
// exact word counts first, then a unique abbreviation. The first word may be a path in the dotted form, or the
// beginning of one. Each error names the word, and what would have done.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "service/Export.h"
#include "service/InputError.h"
#include "service/Path.h"

namespace Cli::Service {

using Words = std::vector<std::string>;

// Splits a line at blanks. Quotes ('…' and "…") hold a word together; in double quotes, and outside of quotes, a
// backslash takes the next character as it is, but \n, \t and \xHH in double quotes. Raises InputError for a quote that
// is not closed.
CLI_SERVICE_API Words splitWords(std::string_view line);
// One word, quoted where it has to be; splitWords reads it back.
CLI_SERVICE_API std::string quotedWord(std::string_view word);
CLI_SERVICE_API std::string joinedWords(std::span<std::string const> words);

struct WordRules {
  // A key that is not there, and singletons and members below it, are taken: the path leads to what is to be made. Keys
  // are then not abbreviated, and spelt as the model spells them.
  bool create = false;
  // Keys may be abbreviated.
  bool abbreviateKeys = true;
  // Keys are as a rendering writes them: neither spelt nor checked as a person's are.
  bool asWritten = false;
};

struct WordPath {
  Path path;
  std::size_t used = 0;     // words; the rest are not part of the path
  std::size_t missing = 0;  // steps at the end that lead to what is not there
  Kel::KelType const* type =
      nullptr;  // what is there, or may be made there: of an entity, a value, a collection's members
};

// Reads a path from the front of `words`, as far as it leads: behind a value, a pointer, or a member of a collection of
// these nothing follows. `at`: where the words begin. Raises InputError.
CLI_SERVICE_API WordPath readPath(Kel::Dir::Ptr const& base, Path const& at, std::span<std::string const> words,
                                  WordRules const& rules = {});

struct Candidate {
  std::string word;
  std::string explanation;  // "attribute, a number from 0 to 65535", "Port"; may be empty
  bool goesOn = false;      // a part of a key: more of the same word follows
};
struct Candidates {
  std::vector<Candidate> list;  // in the order of the model, keys in natural order (Ethernet2 before Ethernet10)
  bool more = false;            // there are more than the list has
  std::string hint;             // what may come where it cannot be listed: "a number from 0 to 65535"
  bool mayEnd = true;           // false: the command would be refused if it ended in front of this word
  std::string refusal;          // why nothing can follow: the words in front are not a path
};

constexpr std::size_t maxCandidates = 200;

enum class CompletionFor { path, set, remove, insert };
// What may stand in place of the last word, of which the beginning is given (it may be empty), behind the others. Cost:
// a look at every key of the collection at hand, or at every possible target; at most `limit` are kept.
CLI_SERVICE_API Candidates complete(Kel::Dir::Ptr const& base, Path const& at, std::span<std::string const> words,
                                    CompletionFor what = CompletionFor::path, std::size_t limit = maxCandidates);

// The candidates nearest to a mistyped word, at most three: "mtu, mode". Empty when nothing is near.
CLI_SERVICE_API std::string nearest(std::string_view word, std::vector<std::string> const& candidates);
// True if `a` comes before `b` with numbers in them compared as numbers.
CLI_SERVICE_API bool naturalLess(std::string_view a, std::string_view b);

// The target that a person means by a word: a path that does not lead out of `base`, or the name of exactly one entity
// that the pointer may point at. Raises InputError naming what would have done. Null for what the model implies.
CLI_SERVICE_API Kel::Entity::Ptr targetFromText(Kel::Dir::Ptr const& base, Kel::KelAttr const& attr,
                                                Kel::KelType const& wanted, std::string_view text);

}  // namespace Cli::Service
