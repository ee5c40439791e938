// What may come next.
#include "Completer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "Files.h"
#include "Heap.h"
#include "Interpreter.h"
#include "Kel/KelType.h"
#include "examples/config_db/Model.h"

namespace Shell {
namespace {

// A device on a configuration, with a session.
struct Opened {
  Device device;
  Context context{device};
  Completer completer{context};

  explicit Opened(std::string const& text) : device(ConfigDb::model(), {"x.json", "", [] { return 1.7e9; }, text}) {
    Interpreter(context).run("session open s");
  }
  // Commands, with "; " between them.
  void run(std::string commands) {
    for (std::size_t end; !commands.empty(); commands.erase(0, end == std::string::npos ? end : end + 2)) {
      end = commands.find("; ");
      EXPECT_EQ("", Interpreter(context).run(commands.substr(0, end)).error);
    }
  }
  std::string words(std::string const& line) {
    std::string out;
    std::size_t begin = 0;
    for (Candidate const& each : completer.complete(line, begin)) out += each.word + (each.final ? " " : "~ ");
    return out;
  }
};

TEST(Completer, KnowsQueuesAndPartsOfKeys) {
  Opened sample(R"({"PORT": {"Ethernet0": {"lanes": "1,2"}, "Ethernet4": {}}, "VLAN": {"Vlan1": {}, "Vlan2": {}},
    "VLAN_MEMBER": {"Vlan1|Ethernet4": {}}})");
  EXPECT_EQ("0 1 end ", sample.words("insert network ports port Ethernet0 lane "));
  EXPECT_EQ("end ", sample.words("insert network ports port Ethernet4 lane "));
  EXPECT_EQ("", sample.words("insert network ports port Ethernet4 lane end "));
  EXPECT_EQ("Vlan1|Ethernet4 ", sample.words("set network vlans member "));
  EXPECT_EQ("s ", sample.words("session resume "));
  EXPECT_EQ("", sample.words("session resume x"));
  EXPECT_EQ("Vlan2|~ ", sample.words("set network vlans member Vlan2"));
  EXPECT_EQ("Vlan2|Ethernet0 Vlan2|Ethernet4 ", sample.words("set network vlans member Vlan2|"));
  EXPECT_EQ("Vlan1|Ethernet4 Vlan1|Ethernet0 ", sample.words("create network vlans member Vlan1|E"));
}

// Whatever part of a command is typed: each candidate continues the last word, none comes twice, and the word that the
// command has there is among them. '=' marks a word that cannot be listed.
TEST(Completer, OffersTheNextWordOfEveryCommand) {
  Tests::TemporaryDir const folder;
  auto const before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  folder.write("plain.json", "{}");
  folder.write("other.json", "{}");
  Opened sample(R"({"PORT": {"Ethernet0": {"lanes": "1,2"}, "Ethernet4": {}}, "VLAN": {"Vlan1": {}},
    "VLAN_MEMBER": {"Vlan1|Ethernet0": {}}})");
  sample.run("set network ports port Ethernet0 mtu 1500; commit; set network ports port Ethernet0 mtu 1600; commit");
  for (std::string const command :
       {"set network vlans member Vlan1|Ethernet0 taggingMode priority_tagged", "session resume s",
        "set network vlans vlan Vlan1 member Ethernet4",
        "show network ports port Ethernet0 lane 1 =| include =x =| count", "show diff against session s as json",
        "diff 1 running", "diff 0 2", "rollback 2", "help show", "load merge plain.json network ports",
        "delete network ports port Ethernet4 pfcAsym", "insert network ports port Ethernet0 lane end",
        "commit confirmed =5 persist =x comment =y", "resolve network vlans vlan running",
        "explain topology neighbor"}) {
    std::istringstream words(command);
    std::string typed;
    for (std::string word; words >> word; typed += word + " ") {
      if (word.front() == '=') {
        word.erase(0, 1);
        continue;
      }
      for (std::size_t length = 0; length <= word.size(); ++length) {
        std::string const part = word.substr(0, length);
        std::size_t begin = 0;
        std::vector<Candidate> const found = sample.completer.complete(typed + part, begin);
        EXPECT_EQ(typed.size(), begin) << typed + part;
        std::set<std::string> offered;
        for (Candidate const& each : found) {
          EXPECT_TRUE(each.word.starts_with(part)) << typed + part << ": " << each.word;
          EXPECT_TRUE(offered.insert(each.word).second) << typed + part << ": " << each.word << " twice";
        }
        EXPECT_TRUE(offered.count(word)) << typed + part << ": without " << word;
      }
    }
  }
  std::filesystem::current_path(before);
}

// Each attribute of a type is offered, and no other's.
TEST(Completer, OffersTheAttributesOfTheType) {
  Opened sample(R"({"PORT": {"Ethernet0": {}}, "VLAN": {"Vlan1": {}}})");
  for (auto const& [line, type] : {std::pair{"show network ports port Ethernet0 ", "ConfigDb::Port"},
                                   std::pair{"show network vlans vlan Vlan1 ", "ConfigDb::Vlan"},
                                   std::pair{"show network vlans ", "ConfigDb::Vlans"}}) {
    std::string all;
    for (Kel::KelAttr const* attr : Kel::KelType::find(type)->attributeQ())
      if (attr->copiable() || (attr->ctorParam() && !attr->isFunction())) all += attr->name().str() + " ";
    EXPECT_EQ(all, sample.words(line));
  }
}

// There is more than is listed.
TEST(Completer, SaysThatThereIsMore) {
  std::string lanes = "1";
  for (int i = 2; i <= 300; ++i) lanes += "," + std::to_string(i);
  Opened sample(R"({"PORT": {"Ethernet0": {"lanes": ")" + lanes + "\"}}}");
  auto const more = [&](std::string const& line) {
    return sample.completer.help(line).find("  ...\n") != std::string::npos;
  };
  EXPECT_TRUE(more("show network ports port Ethernet0 lane "));
  EXPECT_TRUE(more("show network ports port Ethernet0 lane 25"));
  EXPECT_FALSE(more("show network ports port Ethernet0 "));
}

// "<return>" where the line would be taken as it stands, and only there.
TEST(Completer, OffersToEndWhatIsWhole) {
  Opened sample(R"({"PORT": {"Ethernet0": {"lanes": "1,2"}}, "VLAN": {"Vlan1": {}}})");
  auto const mayEnd = [&](std::string const& line) {
    return sample.completer.help(line + " ").find("<return>") != std::string::npos;
  };
  for (char const* line :
       {"show", "show network ports", "create network vlans vlan Vlan7", "set network vlans vlan Vlan7",
        "set network ports port Ethernet0 mtu 5", "delete network ports port Ethernet0",
        "insert network ports port Ethernet0 lane end 3", "set network vlans vlan Vlan1 member Ethernet0", "commit"})
    EXPECT_TRUE(mayEnd(line)) << line;
  for (char const* line :
       {"set", "set network ports", "set network ports port", "set network ports port Ethernet0 mtu", "create network",
        "delete network", "insert network ports port Ethernet0 lane", "insert network ports port Ethernet0 lane end",
        "session", "rollback", "set network vlans member Vlan1"})
    EXPECT_FALSE(mayEnd(line)) << line;
}

// Every keyword of every command is explained.
TEST(Completer, ExplainsKeywords) {
  Opened sample(R"({"PORT": {"Ethernet0": {}}})");
  for (char const* line :
       {"", "show ", "show diff ", "show diff as ", "session ", "session close ", "commit ", "commit confirmed 5 ",
        "update ", "resolve network ports session", "load ", "save x ", "save x as ", "export ", "bypass ", "show "}) {
    std::size_t begin = 0;
    for (Candidate const& each : sample.completer.complete(line, begin)) EXPECT_NE("", each.help) << line << each.word;
  }
}

TEST(Completer, DoesNotMakeAKeyPressWait) {
  std::string text = R"({"PORT": {"Ethernet100000": {})";
  for (int i = 100000; i-- > 0;) text += ", \"Ethernet" + std::to_string(i) + "\": {}";
  Opened large(text + "}}");
  for (char const* line :
       {"show network ports port ", "show network ports port Ethernet9999", "set network ports port Ethernet77 adm",
        "set network ports port Nowhere adm", "set network vlans member Vlan1|Ethernet9999",
        "show references network ports port Ethernet9999", "resolve network ports port Ethernet77 ses",
        "set network ports breakout b port Ethernet777", "set network ports breakout b port ",
        "set qos buffers cableLength AZURE length Ethernet31", "show network/ports.port/Ethernet9999"}) {
    std::size_t const before = Tests::allocations();
    EXPECT_NE("", large.words(line)) << line;
    EXPECT_LT(Tests::allocations() - before, 10000U) << line;  // a word for each key would need 100,000
  }
  // Of many keys, and of many targets, the first ones are listed.
  for (char const* line : {"show network ports port ", "set network ports breakout b port "})
    EXPECT_EQ(0U, large.words(line).find("Ethernet0 Ethernet1 ")) << line;
}

}  // namespace
}  // namespace Shell
