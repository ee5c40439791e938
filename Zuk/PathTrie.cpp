#include "Zuk/PathTrie.h"

#include "Kel/Assert.h"
#include "Kel/Trace.h"
#include "Zuk/PathSplit.h"

KEL_TRACE_MODULE("PathTrie")

namespace Zuk {

namespace {

Kel::String8 formOf(PathTrieState const* state) { return state ? state->outputForm() : Kel::String8(); }

}  // namespace

PathSplit splitPath(std::string_view path) {
  std::size_t const separator = path.find_first_of("/.", 1);
  if (separator == std::string_view::npos) return {path, {}, false};
  std::string_view first = path.substr(0, separator);
  std::string_view const rest = path.substr(separator);
  std::size_t const star = path.find('*');
  if (star != std::string_view::npos && star + 1 == separator) first.remove_suffix(1);
  return {first, rest, true};
}

bool PathTrieState::upgradeState(Kel::Ptr<PathTrieState> const&, bool) {
  KEL_ASSERT_TEXT(false, "0 && \"Need to implement upgradeState in a derived class\"");
  return false;
}

Kel::String PathTrieState::outputForm() const {
  KEL_ASSERT_TEXT(false, "0 && \"Need to implement outputForm in a derived class\"");
  return {};
}

Kel::Ptr<PathTrieState> PathTrie::newStateIs() {
  KEL_ASSERT_TEXT(false, "0 && \"Need to implement newStateIs in a derived class\"");
  return nullptr;
}

Kel::Ptr<PathTrie> PathTrie::newChildIs(Kel::Name name) {
  Kel::Ptr<PathTrie> made = pathChildIs(name);
  childIs(name, made);
  return made;
}

void PathTrie::childRemove(Kel::Name name) {
  childDel(name);
  pathChildDel(name);
}

bool PathTrie::empty() const { return childs() == 0; }

// --- Look-ups ---
// Of the empty path they find nothing, whatever is recorded under it.

Kel::Ptr<PathTrieState> PathTrie::prefixState(Kel::String path) const {
  KEL_TRACE(8) << "Zuk::PathTrieState::Ptr Zuk::PathTrie::prefixState(Kel::String)" << path << " in " << fullName();
  if (path.empty()) return nullptr;
  PathSplit const split = splitPath(path);
  Kel::Ptr<PathTrie> const next = child(split.first);
  if (!next) return nullptr;
  if (!split.more) return next->present() ? next->state() : nullptr;
  return next->prefixState(split.rest);
}

bool PathTrie::hasPrefixInternal(Kel::String path, bool proper) const {
  KEL_TRACE(8) << "bool Zuk::PathTrie::hasPrefixInternal(Kel::String, bool)" << path << (proper ? " (proper)" : "")
               << " in " << fullName();
  PathSplit const split = splitPath(path);
  if (path.empty() || (!split.more && proper)) return false;
  Kel::Ptr<PathTrie> const next = child(split.first);
  if (!next) return false;
  if (!split.more || next->present()) return next->present();
  return next->hasPrefixInternal(split.rest, proper);
}

Kel::String PathTrie::enclosingPrefixInternal(Kel::String path, bool proper) const {
  PathSplit const split = splitPath(path);
  if (!split.more && proper) return {};
  Kel::Ptr<PathTrie> const next = child(split.first);
  if (!next) return {};
  if (split.more) {
    Kel::String const below = next->enclosingPrefixInternal(split.rest, proper);
    if (!below.empty()) return Kel::String(split.first) + below;
  }
  return next->present() ? Kel::String(split.first) : Kel::String();
}

bool PathTrie::hasPrefix(Kel::String path) const {
  KEL_TRACE(8) << "bool Zuk::PathTrie::hasPrefix(Kel::String)" << path << " in " << fullName();
  return hasPrefixInternal(path, false);
}

bool PathTrie::hasProperPrefix(Kel::String path) const {
  KEL_TRACE(8) << "bool Zuk::PathTrie::hasProperPrefix(Kel::String)" << path << " in " << fullName();
  return hasPrefixInternal(path, true);
}

Kel::String PathTrie::enclosingPrefix(Kel::String path) const {
  KEL_TRACE(8) << "Kel::String Zuk::PathTrie::enclosingPrefix(Kel::String)" << path << " in " << fullName();
  return enclosingPrefixInternal(path, false);
}

Kel::String PathTrie::properEnclosingPrefix(Kel::String path) const {
  KEL_TRACE(8) << "Kel::String Zuk::PathTrie::properEnclosingPrefix(Kel::String)" << path << " in " << fullName();
  return enclosingPrefixInternal(path, true);
}

bool PathTrie::isPrefix(Kel::String path) const {
  KEL_TRACE(8) << "bool Zuk::PathTrie::isPrefix(Kel::String)" << path << " in " << fullName();
  if (path.empty()) return false;
  PathSplit const split = splitPath(path);
  Kel::Ptr<PathTrie> const next = child(split.first);
  if (!next) return false;
  return split.more ? next->isPrefix(split.rest) : next->present();
}

bool PathTrie::isLeaf(Kel::String path) const {
  KEL_TRACE(8) << "bool Zuk::PathTrie::isLeaf(Kel::String)" << path << " in " << fullName();
  if (path.empty()) return false;
  PathSplit const split = splitPath(path);
  Kel::Ptr<PathTrie> const next = child(split.first);
  if (!next) return false;
  return split.more ? next->isLeaf(split.rest) : next->empty();
}

// --- Changes ---

namespace {

// The child for a component, made where it is missing, with a state.
Kel::Ptr<PathTrie> childWithState(PathTrie& trie, Kel::Name const& component, char const* operation) {
  Kel::Ptr<PathTrie> next = trie.child(component);
  if (!next) next = trie.newChildIs(component);
  if (next->state()) return next;
  next->stateIs(trie.newStateIs());
  KEL_TRACE_AS(9, operation) << " Uninitialized state. New: " << formOf(next->state().ptr());
  return next;
}

}  // namespace

void PathTrie::prefixIs(Kel::String path, Kel::Ptr<PathTrieState> const& state) {
  KEL_TRACE(8) << "virtual void Zuk::PathTrie::prefixIs(Kel::String, const Kel::Ptr<Zuk::PathTrieState>&) adding "
               << path << " to " << fullName() << ", state: " << formOf(state.ptr());
  PathSplit const split = splitPath(path);
  if (!split.more) {
    Kel::S64 const starPos = path.pos('*');
    KEL_ASSERT(starPos == Kel::String::npos);
  }
  Kel::Ptr<PathTrie> const next = childWithState(*this, split.first, __func__);
  if (split.more) return next->prefixIs(split.rest, state);
  next->presentIs(true);
  next->upgradeState(state, false);
}

void PathTrie::prefixDel(Kel::String path) {
  PathSplit const split = splitPath(path);
  Kel::Ptr<PathTrie> const next = child(split.first);
  if (split.more) {
    if (!next) return;
    next->prefixDel(split.rest);
    if (next->empty() && !next->present()) childRemove(split.first);
    return;
  }
  if (!next) {
    KEL_TRACE(3) << path << " already deleted from " << fullName();
  } else if (next->empty()) {
    childRemove(split.first);
  } else {
    // The node still leads to longer prefixes. It starts over with a fresh state, where the kind of trie has one.
    next->presentIs(false);
    next->stateIs(type() == PathTrie::_fwkType() ? Kel::Ptr<PathTrieState>() : newStateIs());
  }
}

void PathTrie::upgradeState(Kel::Ptr<PathTrieState> const& state, bool inheritedOnly) {
  KEL_TRACE(8) << "virtual void Zuk::PathTrie::upgradeState(const Kel::Ptr<Zuk::PathTrieState>&, bool) for "
               << fullName() << ", inherited state:" << formOf(state.ptr());
  Kel::validPtr(PathTrie::state())->upgradeState(state, inheritedOnly);
}

void PathTrie::append(Kel::Ptr<PathTrie const> const& target) {
  if (Kel::validPtr(target).ptr() == this) return;
  // What is added below the target would be found there, and added again, without end.
  for (Kel::Entity const* above = parent(); above; above = above->parent())
    if (above == target.ptr()) Kel::throwRangeException(fullName() + " cannot take in a trie that it is part of");
  appendInternal(target, nullptr);
}

// Depth first over the target: a recorded node is merged into the node of the same path, made where it is missing, and
// then takes over what is inheritable of the nearest recorded node above it in the target.
void PathTrie::appendInternal(Kel::Ptr<PathTrie const> const& target, Kel::Ptr<PathTrieState> const& inheritedState) {
  KEL_TRACE(8) << "void Zuk::PathTrie::appendInternal(const Kel::Ptr<const Zuk::PathTrie>&, "
                  "const Kel::Ptr<Zuk::PathTrieState>&) inherited State:"
               << formOf(inheritedState.ptr()) << ", while merging " << target;
  for (auto it = Kel::validPtr(target)->childIterator(); it; ++it) {
    Kel::Ptr<PathTrie const> const from = it.value();
    Kel::Ptr<PathTrie> const into = childWithState(*this, it.key(), __func__);
    if (from->present()) {
      into->presentIs(true);
      into->upgradeState(from->state(), false);
      if (inheritedState) into->upgradeState(inheritedState, true);
    }
    into->appendInternal(from, from->present() ? from->state() : inheritedState);
  }
}

}  // namespace Zuk
