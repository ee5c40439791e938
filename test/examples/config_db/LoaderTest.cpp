#include "examples/config_db/Loader.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "Dump.h"
#include "Golden.h"

using namespace ConfigDb;

namespace {

std::set<std::string> linesOf(std::string const& text) {
  std::set<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.insert(line);
  return lines;
}

struct Loaded {
  Kel::Dir::Ptr dir = Kel::dirFactory("");
  Report report;
};

Loaded loaded(std::string const& text) {
  Loaded made;
  Tests::TemporaryDir const temporary;
  std::string const file = temporary.write("x.json", text).string();
  loadConfigDb(file, made.dir, made.report);
  // Without the file's name.
  for (std::string& line : made.report.complaints) line.erase(0, file.size() + 2);
  return made;
}

std::string failure(std::string const& file, Kel::Dir::Ptr const& dir) {
  Report report;
  report.entries["VLAN"] = 7;
  try {
    loadConfigDb(file, dir, report);
  } catch (LoadError const& e) {
    EXPECT_EQ(report.entries, (std::map<std::string, unsigned>{{"VLAN", 7}})) << "changed by a failed load";
    return e.what();
  }
  return "no failure";
}

TEST(ConfigDbLoader, Sample) {
  Kel::Dir::Ptr const dir = Kel::dirFactory("");
  Report report;
  loadConfigDb(CONFIG_DB_SAMPLE, dir, report);
  EXPECT_EQ(report.entryCount(), 602U);
  EXPECT_EQ(report.entries["PORT"], 32U);
  EXPECT_EQ(report.entries["VLAN_INTERFACE"], 72U);
  ASSERT_EQ(report.complaints.size(), 1U);
  EXPECT_EQ(report.complaints[0],
            CONFIG_DB_SAMPLE ": SYSLOG_SERVER|2001:db8:ffff::50: vrf: there is no VRF \"Vrf_missing\", left null");

  std::string const said = Tests::dump(dir);
  for (char const* line : {
           "/network/ports.port/Ethernet96.speed = 100000",
           "/network/ports.port/Ethernet96.tpid = 33024",
           "/network/ports.port/Ethernet96.fec = rs",
           "/network/ports.port/Ethernet96.lane = {0: 97, 1: 98, 2: 99, 3: 100}",
           "/network/ports.portChannel/PortChannel0001.lacpKey = auto",
           "/network/vlans.member/Vlan101|Ethernet0.port = /network/ports.port/Ethernet0",
           "/network/vlans.member/Vlan113|PortChannel0001.port = /network/ports.portChannel/PortChannel0001",
           "/network/vlans.vlan/Vlan101.dhcpRelaySrcIntf = /network/interfaces.loopback/Loopback0",
           "/network/vlans.vlan/Vlan101.dhcpServer = {0: 203.0.113.67, 1: 203.0.113.68}",
           "/network/interfaces.vlan/Vlan101.address/2001:db8:65::1/64.family = ipv6",
           "/network/interfaces.mgmt/eth0.port = /network/ports.mgmtPort/eth0",
           "/network/routing.neighborAf/default|192.0.2.129|l2vpn_evpn.routeMapOut = {0: TO_SPINE_PREPEND, 1: "
           "TO_SPINE}",
           "/network/routing.neighborAf/default|192.0.2.129|l2vpn_evpn.globals = /network/routing.bgp/default",
           "/network/routing.neighbor/default|192.0.2.129.nhopself = 0",
           "/network/routing.neighbor/default|192.0.2.129.vrf = <null>",
           "/network/routing.bgp/default.routerId = 192.0.2.12",
           "/system/device.metadata.dockerRoutingConfigMode = split_unified",
           "/system/management.snmp/location.location = Frankfurt 1, row C, rack 12",
           "/security/acl.rule/SERVERS_IN|SYN_ONLY.tcpFlags = 0x2/0x12",
           "/network/routing.neighbor/default|192.0.2.129.present = {nhopself: true, rrclient: true}",
       })
    EXPECT_NE(said.find("\n" + std::string(line) + "\n"), std::string::npos) << line;
  for (char const* member : {" 46: 5,", " /network/ports.port/Ethernet96: 300,"})
    EXPECT_NE(said.find(member), std::string::npos) << member;
}

// Behind each file stand its failure or the complaints of it, and what of the result is not as in an empty file, unset,
// or said by the line of an entity: its name, and that its owner has it.
TEST(ConfigDbLoader, SaysWhatTheTranscriptSays) {
  std::string const path = SOURCE_DIR "/test/examples/config_db/loader.golden";
  std::set<std::string> const empty = linesOf(Tests::dump(loaded("{}").dir));
  auto const saysNothing = [](std::string const& line) {
    std::size_t const at = line.rfind(" = ");
    if (at == std::string::npos) return false;
    std::string const attribute = line.substr(0, at), value = line.substr(at + 3);
    bool const members = value.starts_with("{") && value.find(": ") == std::string::npos;
    return members || attribute.ends_with("/" + value + ".name") || value.empty() || value == "0" || value == "false" ||
           value == "unset" || value == "<null>";
  };
  std::string const said = Tests::answered(path, [&](std::string const& content) {
    std::string answer;
    try {
      Loaded const made = loaded(content);
      for (std::string const& complaint : made.report.complaints) answer += complaint + "\n";
      for (std::string const& line : linesOf(Tests::dump(made.dir)))
        if (!empty.count(line) && !saysNothing(line)) answer += line + "\n";
    } catch (LoadError const& e) {
      std::string const message = e.what();
      std::size_t const end = message.find(" while parsing");  // what comes behind it is the parser's
      answer = message.substr(0, end).substr(message.find(".json:") + 5) + "\n";
    }
    return answer;
  });
  Tests::expectGolden(path, said);
}

// What a line of the transcript cannot hold.
TEST(ConfigDbLoader, Malformed) {
  std::string const deep = R"({"PORT": )" + std::string(100000, '[');
  struct {
    std::string text;
    char const* error;  // behind the file's name
  } const cases[] = {
      {"{\n  \"PORT\" {}}", ":2:10: syntax error"},
      {"{\"PORT\": {\"E0\": {\"alias\": \"a\nb\"}}}", ":1:29: syntax error"},
      {"{\"PORT\": {\"E0\": {\"alias\": \"\xff\"}}}", ":1:28: syntax error"},
      {"{\"PORT\": {\n\"E0\": \"up\"}}", ":2:7: PORT|E0: an object expected, not a string"},
      {deep, ":1:73: nested deeper than 64 levels"},
  };
  Tests::TemporaryDir const temporary;
  Kel::Dir::Ptr const dir = Kel::dirFactory("");
  for (auto const& c : cases) {
    std::string const file = temporary.write("x.json", c.text).string();
    EXPECT_EQ(failure(file, dir).substr(0, (file + c.error).size()), file + c.error);
    EXPECT_EQ(dir->entryStates(), 0U);
  }
}

TEST(ConfigDbLoader, Unreadable) {
  Kel::Dir::Ptr const dir = Kel::dirFactory("");
  EXPECT_EQ(failure("/nowhere/x.json", dir), "/nowhere/x.json: cannot be read: No such file or directory");
  EXPECT_EQ(failure("/", dir), "/: is no regular file");
  Tests::TemporaryDir const temporary;
  std::string const big = temporary.write("big.json", "{}").string();
  std::filesystem::resize_file(big, std::uintmax_t(1) << 32);
  EXPECT_EQ(failure(big, dir), big + ": is bigger than 67108864 bytes");
  EXPECT_EQ(dir->entryStates(), 0U);
}

TEST(ConfigDbLoader, TakenPlaces) {
  Tests::TemporaryDir const temporary;
  std::string const file = temporary.write("x.json", R"({"PORT": {}})").string();
  Kel::Dir::Ptr const dir = Kel::dirFactory("");
  dir->newEntity("ConfigDb::Topology", "qos");
  EXPECT_EQ(failure(file, dir), file + ": cannot be loaded into \"\": qos is no directory");
  EXPECT_EQ(dir->entryStates(), 1U);
  dir->entryDel("qos");
  EXPECT_EQ(failure(file, dir), "no failure");
  EXPECT_EQ(failure(file, dir), file + ": cannot be loaded into \"\": network/interfaces is there already");
}

}  // namespace
