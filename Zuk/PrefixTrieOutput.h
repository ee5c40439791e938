// Stream output of a prefix trie's states: their output form.
#pragma once

#include <iosfwd>

namespace Zuk {

class PrefixTrieState;
std::ostream& operator<<(std::ostream& out, PrefixTrieState const& state);

}  // namespace Zuk
