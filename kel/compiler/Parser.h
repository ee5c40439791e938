// Reads the tokens of a model file into a tree.
#pragma once

#include <memory>
#include <vector>

#include "compiler/Ast.h"
#include "compiler/Diagnostic.h"
#include "compiler/Lexer.h"

namespace kelc {

// The parser goes on after an error at the next `;` or `}`, so that one run reports the errors of a whole file. The
// tree is always there; what was malformed is left out of it.
std::unique_ptr<Model> parse(std::vector<Token> const& tokens, Diagnostics& diagnostics);

}  // namespace kelc
