#include "Zuk/PathTrie.h"

#include <typeinfo>
#include <vector>

#include "Kel/Assert.h"
#include "Kel/Trace.h"
#include "Zuk/PathSplit.h"
#include "Zuk/PrefixTrie.h"

KEL_TRACE_MODULE("PathTrie")

namespace Zuk {

namespace {

Kel::String8 formOf(PathTrieState const* state) { return state ? state->outputForm() : Kel::String8(); }

}  // namespace

PathSplit splitPath(std::string_view path) {
  std::size_t separator = 1;
  while (separator < path.size() && path[separator] != '/' && path[separator] != '.') ++separator;
  if (separator >= path.size()) return {path, {}, false};
  std::string_view first = path.substr(0, separator);
  if (first.find('*') == separator - 1) first.remove_suffix(1);
  return {first, path.substr(separator), true};
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
// They loop and do not recurse, because a path may have any number of components. They never find the empty path, even
// if a state is recorded for it.

namespace {

// The child for a component, or null. Takes no copy of the component.
template <class Children>
PathTrie* childFor(Children const& children, std::string_view component) {
  Kel::Ptr<PathTrie> const* found = children.find(component);
  return found ? found->ptr() : nullptr;
}

// The node at a path, or null. Traces each step under the name of the calling operation. `childrenOf` gives the
// children of a node, which are private to its class.
template <class ChildrenOf>
PathTrie const* nodeAt(PathTrie const& from, std::string_view path, ChildrenOf const& childrenOf, char const* operation,
                       char const* signature) {
  for (PathTrie const* node = &from;;) {
    KEL_TRACE_AS(8, operation) << signature << path << " in " << node->fullName();
    if (path.empty()) return nullptr;
    PathSplit const split = splitPath(path);
    node = childFor(childrenOf(*node), split.first);
    if (!node || !split.more) return node;
    path = split.rest;
  }
}

}  // namespace

Kel::Ptr<PathTrieState> PathTrie::prefixState(Kel::String path) const {
  PathTrie const* node = nodeAt(
      *this, path, [](PathTrie const& n) -> auto& { return n.child_; }, __func__,
      "Zuk::PathTrieState::Ptr Zuk::PathTrie::prefixState(Kel::String)");
  return node && node->present() ? node->state() : nullptr;
}

bool PathTrie::hasPrefixInternal(Kel::String path, bool proper) const {
  std::string_view rest = path;
  for (PathTrie const* node = this;;) {
    KEL_TRACE(8) << "bool Zuk::PathTrie::hasPrefixInternal(Kel::String, bool)" << rest << (proper ? " (proper)" : "")
                 << " in " << node->fullName();
    PathSplit const split = splitPath(rest);
    if (rest.empty() || (!split.more && proper)) return false;
    node = childFor(node->child_, split.first);
    if (!node) return false;
    if (!split.more || node->present()) return node->present();
    rest = split.rest;
  }
}

// The components down to the last recorded node on the way.
Kel::String PathTrie::enclosingPrefixInternal(Kel::String path, bool proper) const {
  std::string walked;
  std::size_t enclosing = 0;
  std::string_view rest = path;
  for (PathTrie const* node = this;;) {
    PathSplit const split = splitPath(rest);
    node = !split.more && proper ? nullptr : childFor(node->child_, split.first);
    if (!node) break;
    walked += split.first;
    if (node->present()) enclosing = walked.size();
    if (!split.more) break;
    rest = split.rest;
  }
  return std::string_view(walked).substr(0, enclosing);
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
  PathTrie const* node = nodeAt(
      *this, path, [](PathTrie const& n) -> auto& { return n.child_; }, __func__,
      "bool Zuk::PathTrie::isPrefix(Kel::String)");
  return node && node->present();
}

bool PathTrie::isLeaf(Kel::String path) const {
  PathTrie const* node = nodeAt(
      *this, path, [](PathTrie const& n) -> auto& { return n.child_; }, __func__,
      "bool Zuk::PathTrie::isLeaf(Kel::String)");
  return node && node->empty();
}

bool PathTrie::isContinued(Kel::String path) const {
  if (path.empty()) return !empty();
  PathTrie const* node = nodeAt(
      *this, path, [](PathTrie const& n) -> auto& { return n.child_; }, __func__,
      "bool Zuk::PathTrie::isContinued(Kel::String)");
  return node && !node->empty();
}

// --- Changes ---
// They hold the node that they are at, because reactors may take it out of the trie.

namespace {

// The child for a component, with a state; makes what is missing.
Kel::Ptr<PathTrie> childWithState(PathTrie& trie, Kel::Ptr<PathTrie> next, std::string_view component,
                                  char const* operation) {
  if (!next) next = trie.newChildIs(component);
  if (next->state()) return next;
  next->stateIs(trie.newStateIs());
  KEL_TRACE_AS(9, operation) << " Uninitialized state. New: " << formOf(next->state().ptr());
  return next;
}

// Whether the node's class is one of the library's own, which use the `prefixIs` below. A derived class may override
// `prefixIs`, which is then called at each step.
bool isOwnKind(PathTrie const& node) { return typeid(node) == typeid(PathTrie) || typeid(node) == typeid(PrefixTrie); }

}  // namespace

void PathTrie::prefixIs(Kel::String path, Kel::Ptr<PathTrieState> const& state) {
  Kel::Ptr<PathTrie> held;
  std::string_view rest = path;
  for (PathTrie* node = this;; node = held.ptr()) {
    KEL_TRACE(8) << "virtual void Zuk::PathTrie::prefixIs(Kel::String, const Kel::Ptr<Zuk::PathTrieState>&) adding "
                 << rest << " to " << node->fullName() << ", state: " << formOf(state.ptr());
    PathSplit const split = splitPath(rest);
    if (!split.more) {
      Kel::S64 const starPos = Kel::String(rest).pos('*');
      KEL_ASSERT(starPos == Kel::String::npos);
    }
    held = childWithState(*node, childFor(node->child_, split.first), split.first, __func__);
    if (!split.more) break;
    rest = split.rest;
    if (!isOwnKind(*held)) return held->prefixIs(rest, state);
  }
  held->presentIs(true);
  held->upgradeState(state, false);
}

namespace {

// Takes the last component of a path out of the node above it.
void removeLast(PathTrie& above, Kel::Ptr<PathTrie> const& node, std::string_view component, char const* operation) {
  if (!node) {
    KEL_TRACE_AS(3, operation) << component << " already deleted from " << above.fullName();
  } else if (node->empty()) {
    above.childRemove(component);
  } else {
    // The node still leads to longer prefixes. It gets a fresh state, if the class has one.
    node->presentIs(false);
    node->stateIs(above.type() == PathTrie::_fwkType() ? Kel::Ptr<PathTrieState>() : above.newStateIs());
  }
}

}  // namespace

void PathTrie::prefixDel(Kel::String path) {
  struct Step {
    Kel::Ptr<PathTrie> node;
    std::string_view component;
  };
  std::vector<Step> steps;
  std::string_view rest = path;
  for (PathTrie* node = this;;) {
    PathSplit const split = splitPath(rest);
    Kel::Ptr<PathTrie> const next = childFor(node->child_, split.first);
    if (!split.more) {
      removeLast(*node, next, rest, __func__);
      break;
    }
    if (!next) break;
    steps.push_back({next, split.first});
    node = next.ptr();
    rest = split.rest;
  }
  while (!steps.empty()) {
    Step const last = steps.back();
    steps.pop_back();
    PathTrie& above = steps.empty() ? *this : *steps.back().node;
    if (last.node->empty() && !last.node->present()) above.childRemove(last.component);
  }
}

void PathTrie::upgradeState(Kel::Ptr<PathTrieState> const& state, bool inheritedOnly) {
  KEL_TRACE(8) << "virtual void Zuk::PathTrie::upgradeState(const Kel::Ptr<Zuk::PathTrieState>&, bool) for "
               << fullName() << ", inherited state:" << formOf(state.ptr());
  Kel::validPtr(PathTrie::state())->upgradeState(state, inheritedOnly);
}

void PathTrie::append(Kel::Ptr<PathTrie const> const& target) {
  if (Kel::validPtr(target).ptr() == this) return;
  // Otherwise the prefixes that are added here would be found in the target and added again, without end.
  for (Kel::Entity const* above = parent(); above; above = above->parent())
    if (above == target.ptr()) Kel::throwRangeException(fullName() + " cannot append a trie that contains it");
  appendInternal(target, nullptr);
}

namespace {

// A node of the target that is being merged into a node of this trie, and the child that is next.
struct Merge {
  PathTrie* into;
  Kel::Ptr<PathTrie> held;  // holds `into`, unless that is the trie itself
  Kel::Ptr<PathTrie const> from;
  Kel::Ptr<PathTrieState> inherited;
  PathTrie::ChildIteratorConst next;
};

}  // namespace

// Walks the target depth first. Merges each recorded node into the node of the same path, which it makes if needed.
// Then the node takes over the inheritable part of the nearest recorded node above it in the target.
void PathTrie::appendInternal(Kel::Ptr<PathTrie const> const& target, Kel::Ptr<PathTrieState> const& inheritedState) {
  std::vector<Merge> merges;
  Kel::Ptr<PathTrie> held;
  Kel::Ptr<PathTrie const> from = target;
  Kel::Ptr<PathTrieState> inherited = inheritedState;
  for (PathTrie* into = this;; into = held.ptr()) {
    KEL_TRACE(8) << "void Zuk::PathTrie::appendInternal(const Kel::Ptr<const Zuk::PathTrie>&, "
                    "const Kel::Ptr<Zuk::PathTrieState>&) inherited State:"
                 << formOf(inherited.ptr()) << ", while merging " << from;
    merges.push_back({into, held, from, inherited, Kel::validPtr(from)->childIterator()});
    while (!merges.back().next) {
      merges.pop_back();
      if (merges.empty()) return;
      ++merges.back().next;
    }
    Merge const& merge = merges.back();
    from = merge.next.value();
    Kel::Name const component = merge.next.key();
    held = childWithState(*merge.into, merge.into->child(component), component, __func__);
    inherited = merge.inherited;
    if (!from->present()) continue;
    held->presentIs(true);
    held->upgradeState(from->state(), false);
    if (inherited) held->upgradeState(inherited, true);
    inherited = from->state();
  }
}

}  // namespace Zuk
