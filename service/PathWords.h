// Paths typed as words, as the tree reads: `network ports port Ethernet0 mtu`.
//
// At a directory a word is an entry, at an entity an attribute, after a collection a key (for a queue: a position). An
// exact word takes precedence over a unique abbreviation. The first word may be a path in the dotted form, or the
// beginning of one. Each error names the word, and what was expected.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "service/Export.h"
#include "service/InputError.h"
#include "service/Path.h"

namespace Cli::Service {

class PendingReferences;

using Words = std::vector<std::string>;

// Splits a line at blanks. Quotes ('…' and "…") hold a word together. In double quotes and outside of quotes, a
// backslash takes the next character as it is; in double quotes, \n, \t and \xHH stand for the characters that they
// name. Raises InputError for a quote that is not closed.
CLI_SERVICE_API Words splitWords(std::string_view line);
// A word, quoted if necessary; splitWords reads it back.
CLI_SERVICE_API std::string quotedWord(std::string_view word);
CLI_SERVICE_API std::string joinedWords(std::span<std::string const> words);

struct WordRules {
  // The path may lead to something that is to be made: keys, singletons and members below them need not exist. New keys
  // are brought into the model's spelling, and keys may not be abbreviated.
  bool create = false;
  // Keys may be abbreviated.
  bool abbreviateKeys = true;
  // Keys are taken as a rendering writes them, without the checks and spelling for a user's input.
  bool asWritten = false;
  // A member that waits for the target of its key is found, too. Not owned; may be null.
  PendingReferences const* pending = nullptr;
};

struct WordPath {
  Path path;
  std::size_t used = 0;                // words of the path; the rest are not part of it
  std::size_t missing = 0;             // how many steps at the end do not exist
  Kel::KelType const* type = nullptr;  // of the entity, value or members that are there, or may be made there
};

// Reads a path from the front of `words`. It ends at the first value, pointer, or member of a collection of these.
// `at`: where the words begin. Raises InputError.
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
  std::string hint;             // what may come, if it cannot be listed: "a number from 0 to 65535"
  bool mayEnd = true;           // false: the command would be refused if it ended before this word
  std::string refusal;          // why nothing can follow: the words before are not a path
};

constexpr std::size_t maxCandidates = 200;

enum class CompletionFor { path, set, remove, insert };
// The completions of the last word, which may be empty, after the others. Lists at most `limit`. Cost: visits every key
// of the collection, or every possible target.
CLI_SERVICE_API Candidates complete(Kel::Dir::Ptr const& base, Path const& at, std::span<std::string const> words,
                                    CompletionFor what = CompletionFor::path, std::size_t limit = maxCandidates);

// The candidates nearest to a mistyped word, at most three: "mtu, mode". Empty if none is near.
CLI_SERVICE_API std::string nearest(std::string_view word, std::vector<std::string> const& candidates);
// True if `a` comes before `b`; numbers in them are compared as numbers.
CLI_SERVICE_API bool naturalLess(std::string_view a, std::string_view b);

// The target that a word names: by a path that does not lead out of `base`, or by the name of exactly one entity that
// the pointer may point at. Null if the model implies the entity (EntityHooks::isImplied). Raises InputError, which
// lists what was expected.
CLI_SERVICE_API Kel::Entity::Ptr targetFromText(Kel::Dir::Ptr const& base, Kel::KelAttr const& attr,
                                                Kel::KelType const& wanted, std::string_view text);

}  // namespace Cli::Service
