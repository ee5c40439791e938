// The trie against a model that knows nothing of nodes: a map from recorded paths to flags.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "Zuk/PrefixTrie.h"

namespace {

using Components = std::vector<std::string>;

std::string joined(Components const& path) {
  std::string text;
  for (std::string const& c : path) text += c;
  return text;
}

// Flags as the model merges them: access by strength, then letters that are not there yet.
std::string merged(std::string const& own, std::string const& added, std::string const& taken) {
  std::string const strengths = "wCr";
  std::size_t best = 2;
  for (char f : own + added) best = std::min(best, std::min<std::size_t>(strengths.find(f), 2));
  std::string result(1, strengths[best]);
  for (char f : own)
    if (strengths.find(f) == std::string::npos) result += f;
  for (char f : added)
    if (taken.find(f) != std::string::npos && result.find(f) == std::string::npos) result += f;
  return result;
}

class Model {
 public:
  std::map<Components, std::string> recorded;

  bool hasPrefix(Components path, bool proper) const { return !enclosing(std::move(path), proper).empty(); }
  std::string enclosing(Components path, bool proper) const {
    if (proper && !path.empty()) path.pop_back();
    for (; !path.empty(); path.pop_back())
      if (recorded.count(path)) return joined(path);
    return {};
  }
  // Whether a node stands there: some recorded path begins so.
  bool node(Components const& path) const { return longer(path, 0); }
  bool longer(Components const& path, std::size_t by = 1) const {
    for (auto const& [p, flags] : recorded)
      if (p.size() >= path.size() + by && std::equal(path.begin(), path.end(), p.begin())) return true;
    return false;
  }
  void append(Model const& target) {
    for (auto const& [path, flags] : target.recorded) {
      std::string& own = recorded[path];
      own = merged(own, flags, "icxy");
      for (Components above(path.begin(), path.end() - 1); !above.empty(); above.pop_back()) {
        auto const it = target.recorded.find(above);
        if (it == target.recorded.end()) continue;
        own = merged(own, it->second, "ic");
        break;
      }
    }
  }
};

struct Subject {
  std::mt19937 random;
  Model model;
  Zuk::PrefixTrie::Ptr trie = Zuk::prefixTrieFactory("root");

  explicit Subject(unsigned seed) : random(seed) {}
  std::size_t below(std::size_t n) { return random() % n; }
  Components path() {
    static char const* const components[] = {"/a", "/b", ".a", "/ab", "/a-"};
    Components made;
    for (std::size_t n = 1 + below(4); n > 0; --n) made.push_back(components[below(5)]);
    return made;
  }
  std::string flags() {
    static char const* const letters = "wCricxy";
    std::string made;
    for (std::size_t n = below(4); n > 0; --n) made += letters[below(7)];
    return made;
  }
  void add() {
    Components const at = path();
    std::string const letters = flags();
    Kel::Ptr<Zuk::PrefixTrieState> const state = Zuk::prefixTrieStateFactory();
    state->flagsIs(Kel::String8(letters));
    trie->prefixIs(Kel::String8(joined(at)), state);
    std::string& own = model.recorded[at];
    own = merged(own, letters, "icxy");
  }
  void remove() {
    Components const at = path();
    trie->prefixDel(Kel::String8(joined(at)));
    model.recorded.erase(at);
  }
  void check() {
    for (int i = 0; i < 6; ++i) {
      Components const p = path();
      Kel::String8 const text(joined(p));
      ASSERT_EQ(trie->hasPrefix(text), model.hasPrefix(p, false)) << text;
      ASSERT_EQ(trie->hasProperPrefix(text), model.hasPrefix(p, true)) << text;
      ASSERT_EQ(trie->enclosingPrefix(text), Kel::String8(model.enclosing(p, false))) << text;
      ASSERT_EQ(trie->properEnclosingPrefix(text), Kel::String8(model.enclosing(p, true))) << text;
      ASSERT_EQ(trie->isLeaf(text), model.node(p) && !model.longer(p)) << text;
    }
    ASSERT_EQ(trie->empty(), model.recorded.empty());
    for (auto const& [p, letters] : model.recorded)
      ASSERT_EQ(trie->prefixFlags(Kel::String8(joined(p))), Kel::String8(letters)) << joined(p);
    checkNodes(*trie, {});
  }
  // Every node leads to a recorded prefix, and its owner and `child` hold the same.
  void checkNodes(Zuk::PrefixTrie const& node, Components const& at) {
    ASSERT_EQ(node.childs(), node.prefixChilds()) << joined(at);
    for (auto it = node.prefixChildIteratorConst(); it; ++it) {
      Components below = at;
      below.emplace_back(it.key().view());
      ASSERT_TRUE(model.node(below)) << joined(below) << " leads nowhere";
      ASSERT_EQ(it->present(), model.recorded.count(below) == 1) << joined(below);
      ASSERT_EQ(node.child(it.key()).ptr(), it.ptr().ptr()) << joined(below);
      checkNodes(*it, below);
    }
  }
};

TEST(TrieModel, AgreesAfterEveryChange) {
  for (unsigned seed = 1; seed <= 150 && !HasFatalFailure(); ++seed) {
    SCOPED_TRACE(seed);
    Subject subject(seed);
    for (int i = 0; i < 40 && !HasFatalFailure(); ++i) {
      subject.below(5) < 3 ? subject.add() : subject.remove();
      subject.check();
    }
  }
}

TEST(TrieModel, AgreesAfterAppending) {
  for (unsigned seed = 1; seed <= 150 && !HasFatalFailure(); ++seed) {
    SCOPED_TRACE(seed);
    Subject into(seed), target(seed + 1000);
    for (int i = 0; i < 8; ++i) {
      into.add();
      target.add();
    }
    into.trie->append(target.trie);
    into.model.append(target.model);
    into.check();
    target.check();
  }
}

}  // namespace
