// Stream output of the states of a prefix trie.
#pragma once

#include <iosfwd>

#include "Kel/Export.h"

namespace Zuk {

class PrefixTrieState;
// Prints `state.outputForm()`.
KEL_API std::ostream& operator<<(std::ostream& out, PrefixTrieState const& state);

}  // namespace Zuk
