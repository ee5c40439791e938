// Prefix tries: what they say and trace, as a transcript; what they find is a law of fuzz_trie.
#include <gtest/gtest.h>

#include <sstream>

#include "Golden.h"
#include "MessageOf.h"
#include "Zuk/PrefixTrie.h"
#include "Zuk/PrefixTrieOutput.h"
#include "Zuk/Traces.h"

namespace {

using Zuk::PrefixTrie;
using State = Zuk::PrefixTrieState;

State::Ptr stateOf(std::string const& flags, std::string const& typeName = "") {
  State::Ptr const state = Zuk::prefixTrieStateFactory();
  state->flagsIs(Kel::String8(flags == "-" ? "" : flags));
  state->pTypenameIs(Kel::String8(typeName == "-" ? "" : typeName));
  return state;
}

// A trie that is told what to do in words; "-" is an empty one.
struct Told {
  PrefixTrie::Ptr trie = Zuk::prefixTrieFactory("root");

  void take(std::istream& words, std::ostream& out) {
    std::string verb, a, b, c, d, e;
    words >> verb >> a >> b >> c >> d >> e;
    Kel::String8 const path(a);
    if (verb == "new") trie = Zuk::prefixTrieFactory("root");
    if (verb == "add") trie->prefixIs(path, stateOf(b, c));
    if (verb == "remove") trie->prefixDel(path);
    if (verb == "append") {
      PrefixTrie::Ptr const target = std::exchange(trie, Zuk::prefixTrieFactory("root"));
      trie->append(target);
    }
    if (verb == "look")
      out << trie->hasPrefix(path) << trie->hasProperPrefix(path) << trie->isPrefix(path) << trie->isLeaf(path) << " '"
          << trie->enclosingPrefix(path) << "' '" << trie->properEnclosingPrefix(path) << "' "
          << trie->prefixState(path) << " '" << trie->prefixFlags(path) << "' '" << trie->prefixTypename(path) << "'\n";
    if (verb == "merge") {
      State::Ptr const state = stateOf(a, b);
      out << state->upgradeState(stateOf(c, d), e == "inherited");
      out << state->upgradeState(stateOf(c, d), e == "inherited") << " " << *state << "\n";
    }
  }
};

// Verbs in capitals do the same with what they trace.
TEST(PrefixTrie, SaysWhatTheTranscriptSays) {
  std::string const path = SOURCE_DIR "/test/Zuk/trie.golden";
  Told told;
  std::string const said = Tests::answered(path, [&](std::string const& question) {
    std::ostringstream out;
    std::string words = question;
    bool const aloud = question[0] < 'a';
    if (aloud)
      for (std::size_t i = 0; i < words.find(' '); ++i) words[i] = static_cast<char>(std::tolower(words[i]));
    Kel::U16 const levels = aloud ? Kel::TraceHandle::allLevels : Kel::U16(0);
    Tests::Traces const path_("PathTrie", levels), traces("PrefixTrie", levels);
    std::istringstream in(words);
    told.take(in, out);
    for (std::size_t i = 0; i < traces.lines.size(); ++i) out << traces.functions[i] << ": " << traces.lines[i] << "\n";
    return out.str();
  });
  Tests::expectGolden(path, said);
}

TEST(PrefixTrieState, PrintsItsOutputForm) {
  State::Ptr const state = stateOf("w", "T");
  std::ostringstream out;
  out << state << State::PtrConst(state) << State::Ptr();
  EXPECT_EQ(out.str(), (state->outputForm() + state->outputForm()).str() + "<null>");
}

PrefixTrie::Ptr trieOf(std::initializer_list<char const*> paths) {
  PrefixTrie::Ptr const trie = Zuk::prefixTrieFactory("root");
  for (char const* path : paths) trie->prefixIs(path, stateOf("r"));
  return trie;
}

TEST(PathTrie, RefusesANullChild) {
  PrefixTrie::Ptr const trie = trieOf({});
  EXPECT_EQ(Tests::messageOf<Kel::RangeException>([&] { trie->childIs("/a", nullptr); }),
            "null _child parameter to mutator for Zuk::PathTrie::child not allowed\"");
  EXPECT_TRUE(trie->empty());
}

TEST(PathTrie, AppendOfItselfDoesNothingAndOfNullIsRefused) {
  PrefixTrie::Ptr const trie = trieOf({"/a", "/a/b"});
  trie->append(trie);
  EXPECT_EQ(trie->prefixFlags("/a/b"), "r");
  for (bool internal : {false, true}) {
    EXPECT_EQ(Tests::messageOf<Kel::RangeException>(
                  [&] { internal ? trie->appendInternal(nullptr, nullptr) : trie->append(nullptr); }),
              "null ValidPtr");
  }
  EXPECT_THROW(trie->child("/a")->child("/b")->append(trie), Kel::RangeException) << "would not end";
}

// As deep as a key with many separators makes it. What goes by recursion ends the process.
TEST(PathTrie, TakesPathsOfAnyLength) {
  std::string deep = "/a*";  // the star is dropped
  for (int i = 0; i < 30000; ++i) deep += "/b.c";
  Kel::String8 const path(deep), above(deep.substr(0, deep.size() - 2)), stored("/a" + deep.substr(3));
  PrefixTrie::Ptr const trie = trieOf({deep.c_str()}), copy = trieOf({"/a"});
  copy->append(trie);
  for (PrefixTrie::Ptr const& t : {trie, copy}) {
    EXPECT_TRUE(t->isPrefix(path) && t->isLeaf(path) && t->hasPrefix(path) && t->prefixState(path));
    EXPECT_FALSE(t->isPrefix(above) || t->isLeaf(above));
    EXPECT_TRUE(t->isContinued(above) && !t->isContinued(path));
    EXPECT_EQ(t->hasProperPrefix(path), t == copy);
    EXPECT_TRUE(t->enclosingPrefix(path) == stored);
    EXPECT_EQ(t->properEnclosingPrefix(path), t == copy ? "/a" : "");
  }
  trie->prefixDel(path);
  EXPECT_TRUE(trie->empty());
  copy->prefixDel(path);
  EXPECT_TRUE(copy->isLeaf("/a"));
}

// Every node is told of a prefix that passes through it when its kind has a `prefixIs` of its own.
struct Counting : PrefixTrie {
  using PrefixTrie::PrefixTrie;
  void prefixIs(Kel::String path, Kel::Ptr<Zuk::PathTrieState> const& state) override {
    told.emplace_back(path.view());
    PrefixTrie::prefixIs(path, state);
  }
  Kel::Ptr<PathTrie> newChildIs(Kel::Name name) override {
    kids.emplace_back(new Counting(name));
    childIs(name, kids.back());
    return kids.back();
  }
  static inline std::vector<std::string> told;
  std::vector<PathTrie::Ptr> kids;
};

TEST(PathTrie, AsksAnotherKindAtEveryStep) {
  Kel::Ptr<Counting> const trie(new Counting("root"));
  trie->prefixIs("/a/b.c", stateOf("w"));
  EXPECT_EQ(Counting::told, (std::vector<std::string>{"/a/b.c", "/b.c", ".c"}));
  EXPECT_EQ(trie->prefixFlags("/a/b.c"), "w");
}

TEST(PathTrieDeathTest, RefusesBrokenPreconditions) {
  PrefixTrie::Ptr const trie = trieOf({});
  EXPECT_DEATH(trie->prefixIs("/a*", stateOf("r")),
               "PathTrie:[0-9]+: .*Assertion 'starPos == Kel::String::npos' failed");
  EXPECT_DEATH(trie->prefixIs("/a/b*c", stateOf("r")), "starPos == Kel::String::npos");
  Zuk::PathTrie::Ptr const plain = Zuk::pathTrieFactory("plain");
  Zuk::PathTrieState::Ptr const state = Zuk::pathTrieStateFactory();
  EXPECT_DEATH(plain->newStateIs(), "0 && \"Need to implement newStateIs in a derived class\"");
  EXPECT_DEATH(state->outputForm(), "0 && \"Need to implement outputForm in a derived class\"");
  EXPECT_DEATH(state->upgradeState(state, false), "0 && \"Need to implement upgradeState in a derived class\"");
}

TEST(PathTrie, APlainOneOwnsItsChildren) {
  Zuk::PathTrie::Ptr const plain = Zuk::pathTrieFactory("plain");
  Kel::Ptr<Zuk::PathTrie> const child = plain->newChildIs("/a");
  EXPECT_EQ(plain->child("/a"), child);
  EXPECT_EQ(plain->pathChild("/a"), child);
  EXPECT_FALSE(child->present());
  EXPECT_FALSE(child->mountPoint());
  child->presentIs(true);
  EXPECT_TRUE(plain->hasPrefix("/a/b"));
  plain->newChildIs("/b");
  child->newChildIs("/c");
  plain->prefixDel("/a");
  EXPECT_TRUE(plain->child("/a")) << "it leads further";
  EXPECT_FALSE(plain->child("/a")->state());
  plain->prefixDel("/a/c");
  EXPECT_FALSE(plain->pathChild("/a"));
}

TEST(PrefixTrieStateDeathTest, RefusesOtherKindsAndOtherTypes) {
  State::Ptr const state = stateOf("r", "T");
  EXPECT_DEATH(state->upgradeState(nullptr, false),
               "PrefixTrie:[0-9]+: virtual bool Zuk::PrefixTrieState::upgradeState.*Assertion 'newPrefixState' failed");
  EXPECT_DEATH(state->upgradeState(Zuk::pathTrieStateFactory(), true), "newPrefixState|Need to implement outputForm");
  EXPECT_DEATH(state->upgradeState(stateOf("r", "U"), false),
               "Assertion 'pTypename\\(\\) == newPrefixState->pTypename\\(\\)' failed");
}

TEST(PrefixTrie, EntersItsChildrenInBothCollections) {
  Zuk::PrefixTrie::Ptr const trie = Zuk::prefixTrieFactory("root");
  Kel::Ptr<Zuk::PathTrie> const child = trie->newChildIs("/a");
  EXPECT_EQ(trie->child("/a"), child);
  EXPECT_EQ(Kel::Ptr<Zuk::PathTrie>(trie->prefixChild("/a")), child);
  EXPECT_EQ(trie->pathChilds(), 0u);
  EXPECT_EQ(child->type(), Zuk::PrefixTrie::_fwkType());
  EXPECT_FALSE(trie->state()) << "newStateIs() stores nothing";
  EXPECT_EQ(trie->newStateIs()->type(), State::_fwkType());
  EXPECT_FALSE(trie->state());
  child->stateIs(Zuk::pathTrieStateFactory());
  child->presentIs(true);
  EXPECT_EQ(trie->prefixTypename("/a") + trie->prefixFlags("/a"), "") << "no state of a prefix trie";
}

}  // namespace
