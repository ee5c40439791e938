// Words and the grammar of commands.
#include "Grammar.h"

#include <gtest/gtest.h>

#include "service/PathWords.h"

namespace Shell {
namespace {

std::string const samples[] = {
    "",
    "show",
    "  show   diff ",
    R"(set a "b c" d\ e)",
    R"(set 'single "quoted"' "double 'quoted'")",
    R"(set "tab\tline\nhex\x41" \x)",
    R"(a"b"c '')",
    "Vlan101|Ethernet4 | include x",
};

TEST(Words, AreThoseOfTheService) {
  for (std::string const& line : samples)
    EXPECT_EQ(Cli::Service::splitWords(line), texts(splitLine(line).words)) << line;
}

TEST(Words, AreWrittenSoThatTheyReadBack) {
  for (std::string const word : {"plain", "", "two words", "a\"b\\c", "it's", "tab\there", "esc\x1b[31m", "|", "#x",
                                 "caf\xc3\xa9", "bad\xff", "Vlan1|Ethernet0"}) {
    std::string const written = asWord(word);
    Line const read = splitLine("x " + written + " y");
    ASSERT_EQ(3u, read.words.size()) << written;
    EXPECT_EQ(word, read.words[1].text) << written;
    EXPECT_EQ(std::string::npos, written.find_first_of(std::string("\x1b\t\n\0", 4))) << written;
    // A rendering that is typed again is no filter, either.
    Word const rendered = splitLine(Cli::Service::quotedWord(word)).words.at(0);
    EXPECT_EQ(word, rendered.text);
    EXPECT_TRUE(rendered.quoted || word != "|");
  }
}

// What a terminal would take for commands of its own, or would show in a misleading order, is escaped.
TEST(Words, AreShownWithoutControlCharacters) {
  EXPECT_EQ("\\x1b[2Jx", shown("\x1b[2Jx"));
  EXPECT_EQ("a\\nb\\tc\\rd", shown("a\nb\tc\rd"));
  EXPECT_EQ("\\xc2\\x9b", shown("\xc2\x9b"));           // a control character of two bytes
  EXPECT_EQ("\\xe2\\x80\\xae", shown("\xe2\x80\xae"));  // right to left
  EXPECT_EQ("\\xc0\\xaf", shown("\xc0\xaf"));           // not UTF-8
  EXPECT_EQ("\\xed\\xa0\\x80", shown("\xed\xa0\x80"));  // half a pair
  EXPECT_EQ("gr\xc3\xbc\xc3\x9f", shown("gr\xc3\xbc\xc3\x9f"));
}

Grammar const& sample() {
  static Grammar const grammar({"show [all] [PATH]", "show diff [running | commit NUMBER]", "session open NAME",
                                "session list", "set PATH VALUE...", "resolve PATH (session | running)",
                                "commit [COMMENT...]", "commit confirmed SECONDS [persist ID]", "quit"});
  return grammar;
}

// Paths of this test: "net ports".
bool accepts(std::string const& argument, std::vector<std::string> const& before, std::string const& word) {
  if (argument == "NUMBER" || argument == "SECONDS") return word.find_first_not_of("0123456789") == std::string::npos;
  if (argument != "PATH") return true;
  return before.empty() ? std::string("net").rfind(word, 0) == 0
                        : before.size() == 1 && std::string("ports").rfind(word, 0) == 0;
}

// "rule: name=words".
std::string parsed(std::string const& line) {
  try {
    Grammar::Match const match = sample().match(splitLine(line).words, accepts);
    std::string out = std::to_string(match.rule);
    for (char const* name :
         {"all", "running", "session", "NAME", "PATH", "VALUE", "NUMBER", "COMMENT", "SECONDS", "ID"})
      if (match.arguments.has(name)) out += " " + std::string(name) + "=" + match.arguments.joined(name);
    return out;
  } catch (UsageError const& e) {
    return e.what();
  }
}

TEST(Grammar, TakesWhatTheUsageSays) {
  EXPECT_EQ("0", parsed("show"));
  EXPECT_EQ("0 all=all PATH=net ports", parsed("show all net ports"));
  EXPECT_EQ("1 running=running", parsed("show diff running"));
  EXPECT_EQ("1 NUMBER=12", parsed("show diff commit 12"));
  EXPECT_EQ("5 session=session PATH=net ports", parsed("resolve net ports session"));
  EXPECT_EQ("6 COMMENT=one two", parsed("commit one two"));
  EXPECT_EQ("7 SECONDS=60 ID=x", parsed("commit confirmed 60 persist x"));
}

TEST(Grammar, TakesUniqueAbbreviationsOfKeywords) {
  EXPECT_EQ("8", parsed("q"));
  EXPECT_EQ("2 session=ses NAME=x", parsed("ses o x"));
  EXPECT_EQ("1 running=r", parsed("sh d r"));
  EXPECT_EQ("'se' is ambiguous: session, set", parsed("se"));
  // Where a word begins a path, it is the path's.
  EXPECT_EQ("0 PATH=n p", parsed("show n p"));
}

TEST(Grammar, TakesQuotedWordsForNoKeywords) { EXPECT_EQ("6 COMMENT=confirmed", parsed("commit \"confirmed\"")); }

TEST(Grammar, SaysWhichWordIsWrongAndWhatWouldDo) {
  EXPECT_EQ("'nonsense': one of commit, quit, resolve, session, set, show expected", parsed("nonsense"));
  EXPECT_EQ("'x': NUMBER expected\nusage: show diff [running | commit NUMBER]", parsed("show diff commit x"));
  std::string many = "commit";
  for (std::size_t i = 0; i < Grammar::maxWords; ++i) many += " x";
  EXPECT_EQ("a command has at most 2000 words", parsed(many));
}

TEST(Grammar, KnowsWhatMayComeNext) {
  auto const next = [](std::string const& line) {
    std::string out;
    Grammar::Next const found = sample().next(splitLine(line).words, accepts);
    for (Grammar::Expected const& each : found.expected)
      out += (each.isKeyword() ? each.keyword : each.argument + "(" + std::to_string(each.before.size()) + ")") + " ";
    return out + (found.ends.empty() ? "" : "end");
  };
  EXPECT_EQ("open list ", next("session"));
  EXPECT_EQ("all PATH(0) diff end", next("show"));
  EXPECT_EQ("PATH(1) session running ", next("resolve net"));
  EXPECT_EQ("running commit end", next("show diff"));
}

}  // namespace
}  // namespace Shell
