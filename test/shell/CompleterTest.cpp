// What may come next.
#include "Completer.h"

#include <gtest/gtest.h>

#include <ctime>

#include "Interpreter.h"
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
  std::string text = R"({"PORT": {"Ethernet0": {})";
  for (int i = 1; i < 100000; ++i) text += ", \"Ethernet" + std::to_string(i) + "\": {}";
  Opened large(text + "}}");
  for (char const* line :
       {"show network ports port ", "show network ports port Ethernet9999", "set network ports port Ethernet77 adm",
        "set network ports port Nowhere adm", "set network vlans member Vlan1|Ethernet9999",
        "show references network ports port Ethernet9999", "resolve network ports port Ethernet77 ses"}) {
    std::clock_t const start = std::clock();  // of the processor: other programs do not count
    EXPECT_NE("", large.words(line)) << line;
    double const took = 1000.0 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    EXPECT_LT(took, 100) << line;  // milliseconds; 50 on a machine that does nothing else
  }
}

}  // namespace
}  // namespace Shell
