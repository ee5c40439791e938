#include <gtest/gtest.h>

#include "Kel/Exception.h"
#include "Zuk/PathSplit.h"
#include "Zuk/PrefixTrie.h"
#include "Zuk/Traces.h"

namespace {

using Zuk::PrefixTrie;

Kel::Ptr<Zuk::PrefixTrieState> stateOf(char const* flags, char const* typeName = "") {
  Kel::Ptr<Zuk::PrefixTrieState> const state = Zuk::prefixTrieStateFactory();
  state->flagsIs(flags);
  state->pTypenameIs(typeName);
  return state;
}

PrefixTrie::Ptr trieOf(std::initializer_list<char const*> paths) {
  PrefixTrie::Ptr const trie = Zuk::prefixTrieFactory("root");
  for (char const* path : paths) trie->prefixIs(path, stateOf("r"));
  return trie;
}

TEST(PathSplit, TakesComponentsWithTheirSeparators) {
  struct Case {
    char const *path, *first, *rest;
    bool more;
  };
  for (Case const& c : {Case{"/a/b.c", "/a", "/b.c", true},
                        {"/a", "/a", "", false},
                        {"a/b", "a", "/b", true},
                        {".a.b", ".a", ".b", true},
                        {"", "", "", false},
                        {"//a", "/", "/a", true},
                        {"/a*/b", "/a", "/b", true},
                        {"/a*b/c", "/a*b", "/c", true},
                        {"/a/b*/c", "/a", "/b*/c", true},
                        {"/a*", "/a*", "", false},
                        {"/*/b", "/", "/b", true},
                        {"/a**/b", "/a**", "/b", true}}) {
    Zuk::PathSplit const split = Zuk::splitPath(c.path);
    EXPECT_EQ(split.first, c.first) << c.path;
    EXPECT_EQ(split.rest, c.rest) << c.path;
    EXPECT_EQ(split.more, c.more) << c.path;
  }
}

TEST(PathTrie, AnswersNothingWhenEmpty) {
  PrefixTrie::Ptr const trie = trieOf({});
  EXPECT_TRUE(trie->empty());
  for (char const* path : {"", "/", "/a", "/a/b", ".a"}) {
    EXPECT_FALSE(trie->hasPrefix(path));
    EXPECT_FALSE(trie->hasProperPrefix(path));
    EXPECT_FALSE(trie->isPrefix(path));
    EXPECT_FALSE(trie->isLeaf(path));
    EXPECT_EQ(trie->enclosingPrefix(path), "");
    EXPECT_EQ(trie->properEnclosingPrefix(path), "");
    EXPECT_FALSE(trie->prefixState(path));
  }
}

TEST(PathTrie, FindsNothingUnderTheEmptyPath) {
  PrefixTrie::Ptr const trie = trieOf({"", "/a"});
  EXPECT_TRUE(trie->child(""));
  EXPECT_FALSE(trie->hasPrefix("") || trie->hasProperPrefix("") || trie->isPrefix("") || trie->isLeaf(""));
  EXPECT_EQ(trie->enclosingPrefix(""), "");
  EXPECT_FALSE(trie->prefixState(""));
}

TEST(PathTrie, EnclosesWhatLiesBelowAPrefix) {
  PrefixTrie::Ptr const trie = trieOf({"/a"});
  for (char const* path : {"/a", "/a/b", "/a.b", "/a/b/c"}) EXPECT_TRUE(trie->hasPrefix(path)) << path;
  for (char const* path : {"/ab", "/b", ".a", "a", "/ab/a"}) EXPECT_FALSE(trie->hasPrefix(path)) << path;
  EXPECT_FALSE(trie->hasProperPrefix("/a"));
  EXPECT_TRUE(trie->hasProperPrefix("/a/b"));
  EXPECT_FALSE(trie->isPrefix("/a/b"));
  EXPECT_FALSE(trie->prefixState("/a/b"));
  EXPECT_EQ(trie->prefixState("/a"), trie->child("/a")->state());
  EXPECT_TRUE(trie->isLeaf("/a"));
}

TEST(PathTrie, PrefersTheLongestEnclosingPrefix) {
  PrefixTrie::Ptr const trie = trieOf({"/a", "/a/b"});
  EXPECT_EQ(trie->enclosingPrefix("/a/b/c"), "/a/b");
  EXPECT_EQ(trie->enclosingPrefix("/a/c"), "/a");
  EXPECT_EQ(trie->properEnclosingPrefix("/a/b"), "/a");
  EXPECT_EQ(trie->properEnclosingPrefix("/a"), "");
  EXPECT_FALSE(trie->isLeaf("/a"));
}

TEST(PathTrie, RefusesANullChild) {
  PrefixTrie::Ptr const trie = trieOf({});
  try {
    trie->childIs("/a", nullptr);
    FAIL() << "accepted";
  } catch (Kel::Exception const& e) {
    EXPECT_NE(
        std::string_view(e.message()).find("null _child parameter to mutator for Zuk::PathTrie::child not allowed\""),
        std::string_view::npos)
        << e.message();
  }
  EXPECT_TRUE(trie->empty());
}

TEST(PathTrie, DropsAWildcardBeforeASeparator) {
  PrefixTrie::Ptr const trie = trieOf({"/a*/b"});
  EXPECT_TRUE(trie->child("/a"));
  EXPECT_TRUE(trie->isPrefix("/a/b"));
  EXPECT_TRUE(trie->isPrefix("/a*/b"));
  EXPECT_EQ(trie->enclosingPrefix("/a*/b/c"), "/a/b");
}

TEST(PathTrie, PrunesWhatLeadsNowhereFromBothCollections) {
  PrefixTrie::Ptr const trie = trieOf({"/a", "/a/b/c", "/a/b/d"});
  trie->prefixDel("/a/b/c");
  EXPECT_TRUE(trie->isPrefix("/a/b/d"));
  trie->prefixDel("/a/b/d");
  auto const a = Kel::ptrCast<PrefixTrie>(trie->child("/a"));
  ASSERT_TRUE(a);
  EXPECT_EQ(a->childs(), 0u);
  EXPECT_EQ(a->prefixChilds(), 0u) << "the node stays with its owner";
  trie->prefixDel("/a");
  EXPECT_TRUE(trie->empty());
  EXPECT_EQ(trie->prefixChilds(), 0u);
}

TEST(PathTrie, KeepsANodeThatLeadsFurtherWithAFreshState) {
  PrefixTrie::Ptr const trie = Zuk::prefixTrieFactory("root");
  trie->prefixIs("/a", stateOf("wx", "T"));
  trie->prefixIs("/a/b", stateOf("r"));
  trie->prefixDel("/a");
  EXPECT_FALSE(trie->isPrefix("/a"));
  EXPECT_TRUE(trie->isPrefix("/a/b"));
  ASSERT_TRUE(trie->child("/a"));
  trie->prefixIs("/a", stateOf("r", "U"));
  EXPECT_EQ(trie->prefixFlags("/a"), "r");
  EXPECT_EQ(trie->prefixTypename("/a"), "U");
}

TEST(PathTrie, RemovingWhatIsNotThereChangesNothing) {
  PrefixTrie::Ptr const trie = trieOf({"/a/b"});
  {
    Tests::Traces const traces("PathTrie");
    trie->prefixDel("/c");
    trie->prefixDel("/c/d");
    trie->prefixDel("/a/c");
    EXPECT_EQ(traces.lines.size(), 2u) << traces.text();
    EXPECT_TRUE(traces.has("PathTrie/3 /c already deleted from ")) << traces.text();
    EXPECT_TRUE(traces.has("PathTrie/3 /c already deleted from .child//a") ||
                traces.has("PathTrie/3 /c already deleted from .prefixChild//a"))
        << traces.text();
  }
  EXPECT_TRUE(trie->isPrefix("/a/b"));
}

TEST(PathTrie, TracesItsOperations) {
  PrefixTrie::Ptr const trie = trieOf({"/a"});
  Tests::Traces const traces("PathTrie");
  trie->prefixIs("/a", stateOf("w", "T"));
  trie->prefixIs("/b", stateOf("w"));
  trie->hasPrefix("/a");
  trie->hasProperPrefix("/a");
  trie->enclosingPrefix("/a");
  trie->properEnclosingPrefix("/a");
  trie->isPrefix("/a");
  trie->isLeaf("/a");
  trie->prefixState("/a");
  std::vector<std::string> const wanted{
      "PathTrie/8 virtual void Zuk::PathTrie::prefixIs(Kel::String, const Kel::Ptr<Zuk::PathTrieState>&) adding /a to "
      ", "
      "state: <PrefixTrieState typename: T flags: w>",
      "PathTrie/8 virtual void Zuk::PathTrie::upgradeState(const Kel::Ptr<Zuk::PathTrieState>&, bool) for "
      ".prefixChild//a, inherited state:<PrefixTrieState typename: T flags: w>",
      "PathTrie/9  Uninitialized state. New: <PrefixTrieState typename:  flags: >",
      "PathTrie/8 bool Zuk::PathTrie::hasPrefix(Kel::String)/a in ",
      "PathTrie/8 bool Zuk::PathTrie::hasPrefixInternal(Kel::String, bool)/a in ",
      "PathTrie/8 bool Zuk::PathTrie::hasProperPrefix(Kel::String)/a in ",
      "PathTrie/8 bool Zuk::PathTrie::hasPrefixInternal(Kel::String, bool)/a (proper) in ",
      "PathTrie/8 Kel::String Zuk::PathTrie::enclosingPrefix(Kel::String)/a in ",
      "PathTrie/8 Kel::String Zuk::PathTrie::properEnclosingPrefix(Kel::String)/a in ",
      "PathTrie/8 bool Zuk::PathTrie::isPrefix(Kel::String)/a in ",
      "PathTrie/8 bool Zuk::PathTrie::isLeaf(Kel::String)/a in ",
      "PathTrie/8 Zuk::PathTrieState::Ptr Zuk::PathTrie::prefixState(Kel::String)/a in "};
  EXPECT_TRUE(traces.inOrder(wanted)) << traces.text();
}

TEST(PathTrie, AppendOfItselfDoesNothingAndOfNullIsRefused) {
  PrefixTrie::Ptr const trie = trieOf({"/a", "/a/b"});
  trie->append(trie);
  EXPECT_EQ(trie->prefixFlags("/a/b"), "r");
  for (bool internal : {false, true}) {
    try {
      internal ? trie->appendInternal(nullptr, nullptr) : trie->append(nullptr);
      FAIL() << "accepted";
    } catch (Kel::RangeException const& e) {
      EXPECT_EQ(e.message(), "null ValidPtr");
    }
  }
  EXPECT_THROW(trie->child("/a")->child("/b")->append(trie), Kel::RangeException) << "would not end";
}

TEST(PathTrie, AppendInheritsFromTheNearestPrefixAboveInTheTarget) {
  PrefixTrie::Ptr const target = Zuk::prefixTrieFactory("target");
  target->prefixIs("/a", stateOf("wix", "T"));
  target->prefixIs("/a/b/c", stateOf("r", "U"));
  PrefixTrie::Ptr const trie = trieOf({"/a/b"});
  trie->append(target);
  EXPECT_EQ(trie->prefixFlags("/a"), "wix");
  EXPECT_EQ(trie->prefixFlags("/a/b"), "r") << "it is no prefix of the target";
  EXPECT_EQ(trie->prefixFlags("/a/b/c"), "wi");
  EXPECT_EQ(trie->prefixTypename("/a/b/c"), "U");
  EXPECT_EQ(target->prefixFlags("/a/b/c"), "r") << "the target is changed";
}

TEST(PathTrie, IsCalledByName) {
  PrefixTrie::Ptr const trie = trieOf({"/a"});
  Kel::GenericIf::Ptr const gif = Kel::GenericIf::ofEntity(Kel::Ptr<Kel::Entity>(trie));
  auto const call = [&](char const* op, Kel::GenericIf::Args const& args) {
    return gif->attributeCall(gif->attributeId(op), args);
  };
  Kel::GenericIf::PtrConst const path = Kel::GenericIf::of(Kel::String8("/a/b"));
  EXPECT_EQ(
      call("enclosingPrefixInternal", {{"proper", Kel::GenericIf::of(true)}, {"path", path}})->attrVal<Kel::String8>(),
      "/a");
  EXPECT_TRUE(call("hasPrefix", {{"path", path}})->attrVal<bool>());
  call("prefixIs", {{"path", path}, {"state", Kel::GenericIf::ofEntity(Kel::Ptr<Kel::Entity>(stateOf("w")))}});
  EXPECT_EQ(call("prefixFlags", {{"path", path}})->attrVal<Kel::String8>(), "w");
  EXPECT_THROW(call("hasPrefix", {{"proper", path}}), Kel::UnknownArgException);
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

}  // namespace
