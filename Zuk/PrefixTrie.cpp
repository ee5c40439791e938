#include "Zuk/PrefixTrie.h"

#include <ostream>

#include "Kel/Assert.h"
#include "Kel/Trace.h"
#include "Zuk/PrefixTrieOutput.h"

KEL_TRACE_MODULE("PrefixTrie")

namespace Zuk {

namespace {

bool isAccess(char flag) { return flag == 'w' || flag == 'C' || flag == 'r'; }
bool isInheritable(char flag) { return flag == 'i' || flag == 'c'; }

bool either(Kel::String const& a, Kel::String const& b, char flag) {
  return a.pos(flag) != Kel::String::npos || b.pos(flag) != Kel::String::npos;
}

Kel::String mergedFlags(Kel::String const& own, Kel::String const& added, bool inheritedOnly) {
  std::string merged(1, either(own, added, 'w') ? 'w' : either(own, added, 'C') ? 'C' : 'r');
  for (char flag : own.view())
    if (!isAccess(flag)) merged += flag;
  for (char flag : added.view()) {
    if (isAccess(flag) || (inheritedOnly && !isInheritable(flag))) continue;
    if (merged.find(flag) == std::string::npos) merged += flag;
  }
  return Kel::String(merged);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, PrefixTrieState const& state) { return out << state.outputForm(); }
std::ostream& operator<<(std::ostream& out, Kel::Ptr<PrefixTrieState> const& state) {
  return out << Kel::Ptr<PrefixTrieState const>(state);
}
std::ostream& operator<<(std::ostream& out, Kel::Ptr<PrefixTrieState const> const& state) {
  return state ? out << *state : out << "<null>";
}

bool PrefixTrieState::upgradeState(Kel::Ptr<PathTrieState> const& newState, bool inheritedOnly) {
  KEL_TRACE(8)
      << "virtual bool Zuk::PrefixTrieState::upgradeState(const Kel::Ptr<Zuk::PathTrieState>&, bool) newState: "
      << (newState ? newState->outputForm() : Kel::String()) << " inheritedOnly: " << inheritedOnly;
  Kel::Ptr<PrefixTrieState> const newPrefixState = Kel::ptrCast<PrefixTrieState>(newState);
  KEL_ASSERT(newPrefixState);
  if (!inheritedOnly) {
    if (pTypename().empty())
      pTypenameIs(newPrefixState->pTypename());
    else if (!newPrefixState->pTypename().empty())
      KEL_ASSERT(pTypename() == newPrefixState->pTypename());
  }
  Kel::String const merged = mergedFlags(flags(), newPrefixState->flags(), inheritedOnly);
  bool const changed = !(merged == flags());
  if (changed) KEL_TRACE(9) << " flags changed from " << flags() << " to " << merged;
  flagsIs(merged);
  return changed;
}

Kel::String PrefixTrieState::outputForm() const {
  return Kel::String("<PrefixTrieState typename: ") + pTypename() + " flags: " + flags() + ">";
}

Kel::Ptr<PathTrieState> PrefixTrie::newStateIs() {
  Kel::Ptr<PrefixTrieState> const state = prefixTrieStateFactory();
  KEL_TRACE(8) << " state: " << *state;
  return state;
}

Kel::Ptr<PathTrie> PrefixTrie::newChildIs(Kel::Name name) {
  Kel::Ptr<PrefixTrie> const made = prefixChildIs(name);
  childIs(name, made);
  KEL_TRACE(8) << " child: " << made;
  return made;
}

void PrefixTrie::childRemove(Kel::Name name) {
  childDel(name);
  prefixChildDel(name);
}

namespace {

// The state recorded for exactly this path, or null. Traces under the name of the calling operation.
Kel::Ptr<PrefixTrieState> recordedState(PrefixTrie const& trie, Kel::String const& path, char const* operation) {
  Kel::Ptr<PathTrieState> const state = trie.prefixState(path);
  if (!state) return nullptr;
  Kel::Ptr<PrefixTrieState> prefixState = Kel::ptrCast<PrefixTrieState>(state);
  // A state of another class may have no output form.
  KEL_TRACE_AS(9, operation) << "  state: " << (prefixState ? prefixState->outputForm() : state->typeName());
  KEL_TRACE_AS(9, operation) << "  prefixstate: " << (prefixState ? prefixState->outputForm() : Kel::String("<null>"));
  return prefixState;
}

}  // namespace

Kel::String PrefixTrie::prefixTypename(Kel::String path) const {
  KEL_TRACE(8) << "Kel::String Zuk::PrefixTrie::prefixTypename(Kel::String)" << path << " in " << fullName();
  Kel::Ptr<PrefixTrieState> const state = recordedState(*this, path, __func__);
  if (!state) return {};
  KEL_TRACE(9) << " typename: " << state->pTypename();
  return state->pTypename();
}

Kel::String PrefixTrie::prefixFlags(Kel::String path) const {
  KEL_TRACE(8) << "Kel::String Zuk::PrefixTrie::prefixFlags(Kel::String)" << path << " in " << fullName();
  Kel::Ptr<PrefixTrieState> const state = recordedState(*this, path, __func__);
  if (!state) return {};
  KEL_TRACE(9) << "  Flags: " << state->flags();
  return state->flags();
}

}  // namespace Zuk
