// Stream output of a prefix trie's states: their output form.
#pragma once

#include <iosfwd>

#include "Kel/Export.h"

namespace Zuk {

class PrefixTrieState;
KEL_API std::ostream& operator<<(std::ostream& out, PrefixTrieState const& state);

}  // namespace Zuk
