// Splits a model file into tokens.
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
  std::string_view text;      // as written in the file
  std::uint64_t integer = 0;  // integer
  double floating = 0;        // floating
  std::string string;         // string: with its escapes resolved

  bool is(std::string_view word) const {
    return (kind == Kind::identifier || kind == Kind::punctuation) && text == word;
  }
};

// The longest identifier. There must be a limit, because generated code joins and repeats names.
inline constexpr std::size_t maxIdentifier = 255;

// The tokens of a file; the last one is of kind `end`. A malformed token is reported, and is of kind `unknown`.
std::vector<Token> lex(SourceFile const& file, Diagnostics& diagnostics);

}  // namespace kelc
