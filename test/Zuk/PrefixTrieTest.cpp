#include <gtest/gtest.h>

#include <sstream>

#include "Zuk/PrefixTrie.h"
#include "Zuk/PrefixTrieOutput.h"
#include "Zuk/Traces.h"

namespace {

using State = Zuk::PrefixTrieState;

State::Ptr stateOf(char const* flags, char const* typeName = "") {
  State::Ptr const state = Zuk::prefixTrieStateFactory();
  state->flagsIs(flags);
  state->pTypenameIs(typeName);
  return state;
}

TEST(PrefixTrieState, StartsEmpty) {
  State::Ptr const state = Zuk::prefixTrieStateFactory();
  EXPECT_EQ(state->flags(), "");
  EXPECT_EQ(state->pTypename(), "");
  EXPECT_EQ(state->status(), 0);
  EXPECT_EQ(state->outputForm(), "<PrefixTrieState typename:  flags: >");
  state->statusIs(255);
  EXPECT_EQ(state->status(), 255);
}

TEST(PrefixTrieState, MergesFlags) {
  struct Case {
    char const *own, *added;
    bool inheritedOnly;
    char const* merged;
    bool changed;
  };
  for (Case const& c : {
           Case{"", "r", false, "r", true},
           {"r", "r", false, "r", false},
           {"", "", false, "r", true},
           {"ri", "wx", false, "wix", true},
           {"w", "Cc", false, "wc", true},
           {"r", "rxi", true, "ri", true},
           {"r", "w", true, "w", true},
           {"C", "r", false, "C", false},
           {"rii", "ri", false, "rii", false},  // an own letter that stands twice stays so
           {"ir", "", false, "ri", true},       // the access letter comes first
           {"r", "xx", false, "rx", true},
           {"rx", "x", true, "rx", false},
           {"", "icx", true, "ric", true},
       }) {
    State::Ptr const state = stateOf(c.own);
    EXPECT_EQ(state->upgradeState(stateOf(c.added), c.inheritedOnly), c.changed) << c.own << "+" << c.added;
    EXPECT_EQ(state->flags(), c.merged) << c.own << "+" << c.added;
    EXPECT_FALSE(state->upgradeState(stateOf(c.added), c.inheritedOnly)) << "merging again changes something";
  }
}

TEST(PrefixTrieState, MergesTypeNames) {
  State::Ptr const state = stateOf("r", "T");
  state->upgradeState(stateOf("r"), false);
  EXPECT_EQ(state->pTypename(), "T");
  state->upgradeState(stateOf("r", "U"), true);
  EXPECT_EQ(state->pTypename(), "T") << "a type name is not inherited";
  State::Ptr const nameless = stateOf("r");
  nameless->upgradeState(stateOf("r", "U"), true);
  EXPECT_EQ(nameless->pTypename(), "");
  nameless->upgradeState(stateOf("r", "U"), false);
  EXPECT_EQ(nameless->pTypename(), "U");
}

TEST(PrefixTrieStateDeathTest, RefusesOtherKindsAndOtherTypes) {
  State::Ptr const state = stateOf("r", "T");
  EXPECT_DEATH(state->upgradeState(nullptr, false),
               "PrefixTrie:[0-9]+: virtual bool Zuk::PrefixTrieState::upgradeState.*Assertion 'newPrefixState' failed");
  EXPECT_DEATH(state->upgradeState(Zuk::pathTrieStateFactory(), true), "newPrefixState|Need to implement outputForm");
  EXPECT_DEATH(state->upgradeState(stateOf("r", "U"), false),
               "Assertion 'pTypename\\(\\) == newPrefixState->pTypename\\(\\)' failed");
}

TEST(PrefixTrie, AnswersForTheExactPathOnly) {
  Zuk::PrefixTrie::Ptr const trie = Zuk::prefixTrieFactory("root");
  trie->prefixIs("sys/port", stateOf("w", "Plant::Sys"));
  EXPECT_EQ(trie->prefixTypename("sys/port"), "Plant::Sys");
  EXPECT_EQ(trie->prefixFlags("sys/port"), "w");
  for (char const* path : {"sys", "sys/port/x", "sys/port.x", "", "other"}) {
    EXPECT_EQ(trie->prefixTypename(path), "") << path;
    EXPECT_EQ(trie->prefixFlags(path), "") << path;
  }
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
}

TEST(PrefixTrie, TracesItsOperations) {
  Zuk::PrefixTrie::Ptr const trie = Zuk::prefixTrieFactory("root");
  Tests::Traces const traces("PrefixTrie");
  trie->prefixIs("/a", stateOf("w", "T"));
  trie->prefixTypename("/a");
  trie->prefixFlags("/a");
  std::string const form = "<PrefixTrieState typename: T flags: w>";
  EXPECT_EQ(traces.lines, (std::vector<std::string>{
                              "PrefixTrie/8  child: .prefixChild//a",
                              "PrefixTrie/8  state: <PrefixTrieState typename:  flags: >",
                              "PrefixTrie/8 virtual bool Zuk::PrefixTrieState::upgradeState(const "
                              "Kel::Ptr<Zuk::PathTrieState>&, bool) newState: " +
                                  form + " inheritedOnly: 0",
                              "PrefixTrie/9  flags changed from  to w",
                              "PrefixTrie/8 Kel::String Zuk::PrefixTrie::prefixTypename(Kel::String)/a in ",
                              "PrefixTrie/9   state: " + form,
                              "PrefixTrie/9   prefixstate: " + form,
                              "PrefixTrie/9  typename: T",
                              "PrefixTrie/8 Kel::String Zuk::PrefixTrie::prefixFlags(Kel::String)/a in ",
                              "PrefixTrie/9   state: " + form,
                              "PrefixTrie/9   prefixstate: " + form,
                              "PrefixTrie/9   Flags: w",
                          }))
      << traces.text();
  trie->child("/a")->stateIs(Zuk::pathTrieStateFactory());
  EXPECT_EQ(trie->prefixTypename("/a"), "") << "no state of a prefix trie";
  EXPECT_EQ(traces.lines.back(), "PrefixTrie/9   prefixstate: <null>");
  EXPECT_EQ(traces.functions.back(), "PrefixTrie:prefixTypename");
  std::ostringstream out;
  out << *stateOf("rx", "U");
  EXPECT_EQ(out.str(), "<PrefixTrieState typename: U flags: rx>");
}

}  // namespace
