// Prefix tries against a model that knows nothing of nodes, and relative paths against their definition. Two tries; a
// line is a step:
//
//     +PATH FLAGS    records a prefix         ?PATH         looks it up
//     -PATH          removes one              &             appends the other trie
//     >              goes to the other trie   =ROOT PATH    makes a path relative to a directory
#include <algorithm>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "CliSession/EntityCopyUtils.h"
#include "Fuzz.h"
#include "Kel/Dir.h"
#include "Zuk/PrefixTrie.h"

namespace {

using Components = std::vector<std::string>;

// A separator at position 0 belongs to the first component; a star right before a separator goes, when it is the first.
Components split(std::string_view path) {
  Components all;
  for (;;) {
    std::size_t const end = path.find_first_of("/.", 1);
    if (end == std::string_view::npos) break;
    all.emplace_back(path.substr(0, path.find('*') + 1 == end ? end - 1 : end));
    path.remove_prefix(end);
  }
  all.emplace_back(path);
  return all;
}

std::string joined(Components const& path) {
  std::string text;
  for (std::string const& c : path) text += c;
  return text;
}

// Access by strength, then letters that are not there yet.
std::string merged(std::string const& own, std::string const& added, bool inheritedOnly) {
  std::string const strengths = "wCr";
  auto const isAccess = [&](char f) { return strengths.find(f) != std::string::npos; };
  std::string result(1, 'r');
  for (char f : strengths)
    if ((own + added).find(f) != std::string::npos) {
      result[0] = f;
      break;
    }
  for (char f : own)
    if (!isAccess(f)) result += f;
  for (char f : added)
    if (!isAccess(f) && (!inheritedOnly || f == 'i' || f == 'c') && result.find(f) == std::string::npos) result += f;
  return result;
}

struct Model {
  std::map<Components, std::string> recorded;  // with their flags

  // The longest recorded path that encloses one, where there is one.
  std::optional<std::string> enclosing(Components path, bool proper) const {
    if (proper) path.pop_back();
    for (; !path.empty(); path.pop_back())
      if (recorded.count(path)) return joined(path);
    return std::nullopt;
  }
  // Whether some recorded path begins so, and goes on for so many components.
  bool leads(Components const& path, std::size_t further) const {
    return std::any_of(recorded.begin(), recorded.end(), [&](auto const& entry) {
      return entry.first.size() >= path.size() + further && std::equal(path.begin(), path.end(), entry.first.begin());
    });
  }
  void append(Model const& target) {
    for (auto const& [path, flags] : target.recorded) {
      std::string& own = recorded[path];
      own = merged(own, flags, false);
      for (Components above(path.begin(), path.end() - 1); !above.empty(); above.pop_back()) {
        auto const it = target.recorded.find(above);
        if (it == target.recorded.end()) continue;
        own = merged(own, it->second, true);
        break;
      }
    }
  }
};

struct Subject {
  Model model;
  Zuk::PrefixTrie::Ptr trie = Zuk::prefixTrieFactory("root");

  void add(std::string const& path, std::string const& flags) {
    Components const at = split(path);
    if (at.back().find('*') != std::string::npos) return;  // must not be given
    Kel::Ptr<Zuk::PrefixTrieState> const state = Zuk::prefixTrieStateFactory();
    state->flagsIs(Kel::String8(flags));
    state->pTypenameIs(Kel::String8(joined(at)));
    trie->prefixIs(Kel::String8(path), state);
    std::string& own = model.recorded[at];
    own = merged(own, flags, false);
  }
  void remove(std::string const& path) {
    trie->prefixDel(Kel::String8(path));
    model.recorded.erase(split(path));
  }
  void lookUp(std::string const& path) const {
    Components const at = split(path);
    Kel::String8 const text(path);
    auto const found = model.recorded.find(at);
    bool const isThere = found != model.recorded.end() && !path.empty();
    FUZZ_LAW(trie->isPrefix(text) == isThere, path);
    FUZZ_LAW(trie->prefixFlags(text) == Kel::String8(isThere ? found->second : ""), path);
    FUZZ_LAW(trie->prefixTypename(text) == Kel::String8(isThere ? joined(at) : ""), path);
    FUZZ_LAW((trie->prefixState(text) != nullptr) == isThere, path);
    FUZZ_LAW(trie->isLeaf(text) == (!path.empty() && model.leads(at, 0) && !model.leads(at, 1)), path);
    bool const isContinued = path.empty() ? !model.recorded.empty() : model.leads(at, 1);
    FUZZ_LAW(trie->isContinued(text) == isContinued, path);
    for (bool proper : {false, true}) {
      auto const wanted = path.empty() ? std::nullopt : model.enclosing(at, proper);
      FUZZ_LAW((proper ? trie->hasProperPrefix(text) : trie->hasPrefix(text)) == wanted.has_value(), path);
      FUZZ_LAW((proper ? trie->properEnclosingPrefix(text) : trie->enclosingPrefix(text)) ==
                   Kel::String8(wanted.value_or("")),
               path);
    }
  }
  // Every node leads to a recorded prefix, and its owner and `child` hold the same.
  void checkNodes(Zuk::PrefixTrie const& node, Components const& at) const {
    FUZZ_LAW(node.childs() == node.prefixChilds() && node.empty() == !model.leads(at, 1), joined(at));
    for (auto it = node.prefixChildIteratorConst(); it; ++it) {
      Components below = at;
      below.emplace_back(it.key().view());
      FUZZ_LAW(model.leads(below, 0), joined(below));
      FUZZ_LAW(it->present() == (model.recorded.count(below) == 1), joined(below));
      FUZZ_LAW(node.child(it.key()).ptr() == it.ptr().ptr(), joined(below));
      checkNodes(*it, below);
    }
  }
};

void makeRelative(std::string const& rootName, std::string const& path) {
  Kel::Dir::Ptr const top = Kel::dirFactory("");
  Kel::Dir::Ptr const root = rootName.empty() ? top : Kel::Dir::Ptr(new Kel::Dir(Kel::Name(rootName), top.ptr()));
  if (path.empty()) return;  // must not be given
  std::string const at = root->fullName().str();
  bool const below = path.size() > at.size() + 1 && path.compare(0, at.size(), at) == 0;
  char separator = '?';
  Kel::String8 const relative = Cli::Session::relativePath(root, Kel::String8(path), &separator);
  FUZZ_LAW(relative == Kel::String8(below ? path.substr(at.size() + 1) : ""), at + " " + path);
  FUZZ_LAW(separator == (below ? path[at.size()] : '?'), at + " " + path);
  bool const contained = below && (path[at.size()] == '/' || path[at.size()] == '.');
  FUZZ_LAW(Cli::Session::pathBelow(root.ptr(), Kel::String8(path)) == (contained ? relative : Kel::String8()),
           at + " " + path);
}

void step(std::string_view line, Subject& subject, Subject& other) {
  if (line.empty()) return;
  std::string const rest(line.substr(1)), first = rest.substr(0, rest.find(' '));
  std::string const second = first.size() < rest.size() ? rest.substr(first.size() + 1) : "";
  switch (line.front()) {
    case '+': return subject.add(first, second);
    case '-': return subject.remove(rest);
    case '?': return subject.lookUp(rest);
    case '>': return std::swap(subject, other);
    case '&':
      subject.trie->append(other.trie);
      subject.trie->append(subject.trie);
      return subject.model.append(other.model);
    case '=': return makeRelative(first, second);
    default: return;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size > 2000) return 0;
  Fuzz::Input input(data, size);
  Subject subject, other;
  while (!input.atEnd()) {
    step(input.line(), subject, other);
    subject.checkNodes(*subject.trie, {});
    other.checkNodes(*other.trie, {});
  }
  for (Subject const* each : {&subject, &other})
    for (auto const& [path, flags] : each->model.recorded) each->lookUp(joined(path));
  return 0;
}
