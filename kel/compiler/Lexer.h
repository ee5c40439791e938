// Cuts a model file into tokens.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "compiler/Diagnostic.h"
#include "compiler/Source.h"

namespace kelc {

struct Token {
  enum class Kind { identifier, integer, floating, string, punctuation, unknown, end };

  Kind kind = Kind::end;
  Loc loc;
  std::string_view text;      // as it stands in the file
  std::uint64_t integer = 0;  // integer
  double floating = 0;        // floating
  std::string string;         // string: with its escapes resolved

  bool is(std::string_view word) const {
    return (kind == Kind::identifier || kind == Kind::punctuation) && text == word;
  }
};

// The longest identifier. Names are joined and repeated in what is generated, so they have to end somewhere.
inline constexpr std::size_t maxIdentifier = 255;

// The tokens of a file, ended by one of kind `end`. Whatever is malformed is reported, and is a token of kind
// `unknown`.
std::vector<Token> lex(SourceFile const& file, Diagnostics& diagnostics);

}  // namespace kelc
