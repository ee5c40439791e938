// The shell's commands on the sample configuration.
#include <gtest/gtest.h>

#include <sstream>

#include "Commands.h"
#include "examples/config_db/Loader.h"

namespace Shell {
namespace {

class ShellTest : public testing::Test {
 protected:
  ShellTest() {
    ConfigDb::Report report;
    ConfigDb::loadConfigDb(SOURCE_DIR "/examples/config_db/leaf.json", workspace_.running(), report);
    for (auto const& root : ConfigDb::sessionRoots()) workspace_.sessionRootIs(root.path, root.typeName);
  }
  Outcome run(std::string const& line) {
    out_.str("");
    err_.str("");
    return commands_.run(line);
  }
  std::string out() const { return out_.str(); }
  std::string err() const { return err_.str(); }
  // The lines of the edit log that a command added to it.
  std::vector<std::string> logged(std::vector<std::string> const& lines) {
    auto const before = logLines();
    for (auto const& line : lines) EXPECT_EQ(Outcome::ok, run(line)) << line << ": " << err();
    std::vector<std::string> added;
    for (auto const& line : logLines())
      if (std::find(before.begin(), before.end(), line) == before.end()) added.push_back(line);
    return added;
  }

  Workspace workspace_;

 private:
  std::vector<std::string> logLines() {
    EXPECT_EQ(Outcome::ok, run("log all"));
    std::istringstream in(out());
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    if (!lines.empty()) lines.pop_back();  // the sum
    return lines;
  }

  std::ostringstream out_, err_;
  Commands commands_{workspace_, out_, err_};
};

TEST_F(ShellTest, FillsASessionThatComparesEqual) {
  ASSERT_EQ(Outcome::ok, run("session open s1"));
  EXPECT_EQ(Outcome::ok, run("compare"));
  EXPECT_EQ("equal\n", out());
  ASSERT_EQ(Outcome::ok, run("roots"));
  for (auto const& root : ConfigDb::sessionRoots()) EXPECT_NE(std::string::npos, out().find(root.path));
  EXPECT_EQ(12u, ConfigDb::sessionRoots().size());
}

TEST_F(ShellTest, ShowsTheFirstDifferenceAndPutsItBack) {
  ASSERT_EQ(Outcome::ok, run("session open s1"));
  EXPECT_TRUE(logged({"replace"}).empty());

  ASSERT_EQ(Outcome::ok, run("set network/ports.port/Ethernet0.mtu 1234")) << err();
  EXPECT_EQ(Outcome::differs, run("compare"));
  EXPECT_EQ("differs at network/ports.port/Ethernet0: set mtu of ConfigDb::Port\n", out());
  ASSERT_EQ(Outcome::ok, run("show network/ports.port/Ethernet0.mtu"));
  EXPECT_EQ("1234\n", out());
  auto const edits = logged({"replace"});
  ASSERT_EQ(1u, edits.size());
  EXPECT_EQ(0u, edits[0].find("set ConfigDb::Port::mtu at network/ports.port/Ethernet0 x")) << edits[0];
  EXPECT_EQ(Outcome::ok, run("compare"));
}

TEST_F(ShellTest, PutsADeletedMemberBack) {
  ASSERT_EQ(Outcome::ok, run("session open s1"));
  // Nothing refers to it: what is logged is its own.
  ASSERT_EQ(Outcome::ok, run("delete network/vlans.member/Vlan101|Ethernet0")) << err();
  EXPECT_EQ(Outcome::differs, run("compare"));
  auto const edits = logged({"replace"});
  EXPECT_GE(edits.size(), 2u);
  for (auto const& edit : edits)
    EXPECT_TRUE(edit.find("at network/vlans.member/Vlan101|Ethernet0 x") != std::string::npos ||
                edit.find("set ConfigDb::Vlans::member at network/vlans x") == 0)
        << edit;
  EXPECT_EQ(Outcome::ok, run("compare"));

  // What pointed at a deleted entity is pointed at the new one.
  ASSERT_EQ(Outcome::ok, run("delete network/ports.port/Ethernet0")) << err();
  EXPECT_EQ(Outcome::ok, run("replace"));
  EXPECT_EQ(Outcome::ok, run("compare"));
  ASSERT_EQ(Outcome::ok, run("show network/vlans.member/Vlan101|Ethernet0"));
  EXPECT_NE(std::string::npos, out().find("/session/s1/network/ports.port/Ethernet0")) << out();
}

TEST_F(ShellTest, LeavesDeletionsOfDefaultsOutOfTheLog) {
  ASSERT_EQ(Outcome::ok, run("session open s1"));
  std::vector<std::string> const deletion{"del ConfigDb::Ports::port at network/ports x1"};
  ASSERT_EQ(Outcome::ok, run("bypass on"));
  ASSERT_EQ(Outcome::ok, run("set network/ports.port/Ethernet9000")) << err();
  EXPECT_TRUE(logged({"replace"}).empty()) << "nobody had configured anything";
  EXPECT_EQ(Outcome::failed, run("show network/ports.port/Ethernet9000"));
  ASSERT_EQ(Outcome::ok, run("bypass off"));
  ASSERT_EQ(Outcome::ok, run("set network/ports.port/Ethernet9000"));
  EXPECT_EQ(deletion, logged({"replace"}));
}

TEST_F(ShellTest, DebugsEditsWhereTheyHappen) {
  ASSERT_EQ(Outcome::ok, run("session open s1"));
  auto const said = [&] {
    EXPECT_EQ(Outcome::ok, run("set network/ports.port/Ethernet0.mtu 1234")) << err();
    testing::internal::CaptureStderr();
    EXPECT_EQ(Outcome::ok, run("replace")) << err();
    return testing::internal::GetCapturedStderr();
  };
  std::string const text = "ConfigDb::Port::mtu set triggered entityCopy attr debugging\n";
  EXPECT_EQ("", said());
  ASSERT_EQ(Outcome::ok, run("debug set ConfigDb::Port::mtu trace network/ports.port/Ethernet0")) << err();
  EXPECT_EQ(text, said());
  ASSERT_EQ(Outcome::ok, run("debug"));
  EXPECT_EQ("actionTrace: set ConfigDb::Port::mtu at network/ports.port/Ethernet0\n", out());
  ASSERT_EQ(Outcome::ok, run("debug set ConfigDb::Port::mtu none network/ports.port/Ethernet0"));
  EXPECT_EQ("", said());
  ASSERT_EQ(Outcome::ok, run("debug set ConfigDb::Port::mtu trace"));
  EXPECT_EQ(text, said());
}

TEST_F(ShellTest, SaysWhatIsWrong) {
  struct Case {
    char const* command;
    char const* error;
  };
  EXPECT_EQ(Outcome::failed, run("roots"));
  EXPECT_NE(std::string::npos, err().find("no session is open"));
  ASSERT_EQ(Outcome::ok, run("session open s1"));
  Case const cases[] = {
      {"frobnicate", "no such command"},
      {"set network/ports.port/Ethernet0.mtu many", "'many': U16 expected"},
      {"set network/ports.port/Ethernet0.mtu 70000", "out of the range of U16"},
      {"set network/ports.port/Ethernet0.mtu", "one value expected"},
      {"set network/ports.port/Ethernet0.nothing 1", "a new Port takes 0 values after its key, 1 given"},
      {"set network/ports.nothing 1", "no such attribute"},
      {"show network/ports.port/Ethernet1000", "no such member"},
      {"set nowhere.port/x.mtu 1", "no such entity"},
      {"set network/ports.port/Ethernet0 1", "is there already"},
      {"delete network/ports.port/Ethernet0.name", "not supported"},
      {"show \"network", "a quote is not closed"},
      {"session close s1", "usage: session open NAME"},
      {"log none", "usage: log"},
      {"debug set ConfigDb::Port::mtu", "usage: debug"},
      {"debug set ConfigDb::Port::speeed trace", "ConfigDb::Port has no attribute 'speeed'"},
      {"bypass maybe", "usage: bypass on|off"},
      {"debug set mtu trace", "'mtu': TYPE::ATTRIBUTE expected"},
      {"debug change ConfigDb::Port::mtu trace", "'change': no such AttributeEditType"},
      {"debug set ConfigDb::Port::mtu stop", "'stop': no such AttributeDebugAction"},
  };
  for (Case const& c : cases) {
    EXPECT_EQ(Outcome::failed, run(c.command)) << c.command;
    EXPECT_NE(std::string::npos, err().find(c.error)) << c.command << ": " << err();
  }
  EXPECT_EQ(Outcome::ok, run("compare"));
  EXPECT_EQ("equal\n", out());
}

}  // namespace
}  // namespace Shell
