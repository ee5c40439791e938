// Stream output of the states of a prefix trie: their output form, "<null>" for a null handle.
#pragma once

#include <iosfwd>

#include "Kel/Export.h"
#include "Kel/Ptr.h"

namespace Zuk {

class PrefixTrieState;
// Prints `state.outputForm()`.
KEL_API std::ostream& operator<<(std::ostream& out, PrefixTrieState const& state);
KEL_API std::ostream& operator<<(std::ostream& out, Kel::Ptr<PrefixTrieState> const& state);
KEL_API std::ostream& operator<<(std::ostream& out, Kel::Ptr<PrefixTrieState const> const& state);

}  // namespace Zuk
