// Reads the tokens of a model file into a tree.
#pragma once

#include <memory>
#include <vector>

#include "compiler/Ast.h"
#include "compiler/Diagnostic.h"
#include "compiler/Lexer.h"

namespace kelc {

// After a syntax error the parser goes on at the next item, member or declaration. There is always a tree. It lacks the
// malformed parts, and what contained them is marked as incomplete.
std::unique_ptr<Model> parse(std::vector<Token> const& tokens, Diagnostics& diagnostics);

}  // namespace kelc
