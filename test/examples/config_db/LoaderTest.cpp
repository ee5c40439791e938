#include "examples/config_db/Loader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Walk.h"

using namespace ConfigDb;

namespace {

// A file of that content, gone with its owner.
class TextFile {
 public:
  explicit TextFile(std::string const& text)
      : path(std::filesystem::temp_directory_path() / ("config_db_test." + std::to_string(::getpid()) + ".json")) {
    std::ofstream(path, std::ios::binary) << text;
  }
  ~TextFile() { std::filesystem::remove(path); }
  std::filesystem::path const path;
};

struct Loaded {
  Kel::Dir::Ptr dir = newDir();
  Report report;
};

Loaded loaded(std::string const& text) {
  Loaded made;
  TextFile const file(text);
  loadConfigDb(file.path.string(), made.dir, made.report);
  // Without the file's name.
  for (std::string& line : made.report.complaints) line.erase(0, file.path.string().size() + 2);
  return made;
}

std::string failure(std::string const& file, Kel::Dir::Ptr const& dir) {
  Report report;
  try {
    loadConfigDb(file, dir, report);
  } catch (LoadError const& e) {
    return e.what();
  }
  return "no failure";
}

TEST(ConfigDbLoader, Roots) {
  EXPECT_EQ(sessionRoots().size(), 12U);
  Loaded const empty = loaded("{}");
  for (SessionRoot const& root : sessionRoots()) {
    auto const entity = empty.dir->entity(Kel::String8("/" + root.path));
    ASSERT_TRUE(entity) << root.path;
    EXPECT_EQ(entity->typeName().str(), root.typeName);
  }
}

TEST(ConfigDbLoader, Sample) {
  Kel::Dir::Ptr const dir = newDir();
  Report report;
  loadConfigDb(CONFIG_DB_SAMPLE, dir, report);
  EXPECT_EQ(report.entryCount(), 602U);
  EXPECT_EQ(report.entries["PORT"], 32U);
  EXPECT_EQ(report.entries["VLAN_INTERFACE"], 72U);
  ASSERT_EQ(report.complaints.size(), 1U);
  EXPECT_EQ(report.complaints[0],
            CONFIG_DB_SAMPLE ": SYSLOG_SERVER|2001:db8:ffff::50: vrf: there is no VRF \"Vrf_missing\", left null");

  struct {
    char const* entity;
    char const* attribute;
    char const* value;
  } const expected[] = {
      {"/network/ports.port/Ethernet96", "speed", "100000"},
      {"/network/ports.port/Ethernet96", "tpid", "33024"},
      {"/network/ports.port/Ethernet96", "fec", "rs"},
      {"/network/ports.port/Ethernet96", "lane", "97,98,99,100"},
      {"/network/ports.portChannel/PortChannel0001", "lacpKey", "auto"},
      {"/network/vlans.member/Vlan101|Ethernet0", "port", "/network/ports.port/Ethernet0"},
      {"/network/vlans.member/Vlan113|PortChannel0001", "port", "/network/ports.portChannel/PortChannel0001"},
      {"/network/vlans.vlan/Vlan101", "dhcpRelaySrcIntf", "/network/interfaces.loopback/Loopback0"},
      {"/network/vlans.vlan/Vlan101", "dhcpServer", "203.0.113.67,203.0.113.68"},
      {"/network/interfaces.vlan/Vlan101.address/2001:db8:65::1/64", "family", "ipv6"},
      {"/network/interfaces.mgmt/eth0", "port", "/network/ports.mgmtPort/eth0"},
      {"/network/routing.neighborAf/default|192.0.2.129|l2vpn_evpn", "routeMapOut", "TO_SPINE_PREPEND,TO_SPINE"},
      {"/network/routing.neighborAf/default|192.0.2.129|l2vpn_evpn", "globals", "/network/routing.bgp/default"},
      {"/network/routing.neighbor/default|192.0.2.129", "nhopself", "0"},
      {"/network/routing.neighbor/default|192.0.2.129", "vrf", "<null>"},
      {"/network/routing.bgp/default", "routerId", "192.0.2.12"},
      {"/system/device.metadata", "dockerRoutingConfigMode", "split_unified"},
      {"/system/management.snmp/location", "location", "Frankfurt 1, row C, rack 12"},
      {"/security/acl.rule/SERVERS_IN|SYN_ONLY", "tcpFlags", "0x2/0x12"},
  };
  for (auto const& e : expected) EXPECT_EQ(at(dir, e.entity, e.attribute), e.value) << e.entity << " " << e.attribute;
  EXPECT_EQ(at(dir, "/qos/maps.dscpToTc/RACK", "to", "46"), "5");
  EXPECT_EQ(at(dir, "/qos/buffers.cableLength/RACK", "length", "/network/ports.port/Ethernet96"), "300");
  EXPECT_EQ(at(dir, "/network/routing.neighbor/default|192.0.2.129", "present", "nhopself"), "true");
  EXPECT_EQ(at(dir, "/network/routing.neighbor/default|192.0.2.129", "present", "asn"), "<none>");
}

// What each file makes of one attribute, and the one complaint that it gives (empty: none).
TEST(ConfigDbLoader, Hazards) {
  struct {
    char const* text;
    char const* entity;
    char const* attribute;
    char const* value;
    char const* complaint;
  } const cases[] = {
      {R"({"PORT": {"E0": {"mtu": 9100}}})", "/network/ports.port/E0", "mtu", "9100", ""},
      {R"({"PORT": {"E0": {"mtu": "None"}}})", "/network/ports.port/E0", "present", "", ""},
      {R"({"PORT": {"E0": {"NULL": "NULL"}}})", "/network/ports.port/E0", "present", "", ""},
      {R"({"PORT": {"E0": null}})", "/network/ports.port/E0", "alias", "", ""},
      {R"({"SAMPLE": {"PORT": {"E0": {"mtu": 1}}}})", "/network/ports.port/E0", "mtu", "1", ""},
      {R"({"A": {"PORT": {"E0": {"mtu": 1}}}, "B": {}})", "/network/ports.port/E0", "mtu", "1",
       "B: beside \"A\", ignored"},
      {R"({"PORT": {"E0": {"mtu": "big"}}})", "/network/ports.port/E0", "mtu", "0",
       "PORT|E0: mtu: \"big\" is no U16, left unset"},
      {R"({"PORT": {"E0": {"fec": "best"}}})", "/network/ports.port/E0", "fec", "unset",
       "PORT|E0: fec: \"best\" is none of rs, fc, none, auto, left unset"},
      {R"({"PORT": {"E0": {"mtu": [1]}}})", "/network/ports.port/E0", "mtu", "0",
       "PORT|E0: mtu: an array is no single value, left unset"},
      {R"({"PORT": {"E0": {"lanes": "1, x;3"}}})", "/network/ports.port/E0", "lane", "1,3",
       "PORT|E0: lanes: \"x\" is no U16, left out"},
      {R"({"PORT": {"E0": {"colour": "red"}}})", "/network/ports.port/E0", "alias", "",
       "PORT|E0: colour: not in the model, ignored"},
      {R"({"PORT": {"E0": {"present": "x"}}})", "/network/ports.port/E0", "present", "",
       "PORT|E0: present: not in the model, ignored"},
      {R"({"PORT": {"E0": {"mtu": 1, "mtu": 2}}})", "/network/ports.port/E0", "mtu", "2",
       "PORT|E0: mtu: given again in line 1, the last one taken"},
      {R"({"PORT": {"E0": {}, " E0 ": {"mtu": 2}}})", "/network/ports.port/E0", "mtu", "2",
       "PORT| E0 : a key that is there already, their fields taken together"},
      {R"({"PORT": {"E0": {}}, "FOO": {"a": 1, "b": 2}})", "/network/ports.port/E0", "mtu", "0",
       "FOO: not in the model, 2 entries ignored"},
      {R"({"PORT": {"E0": {}}, "INTERFACE": {"E0|FC00::1/64 ": {}}})", "/network/interfaces.port/E0.address/fc00::1/64",
       "prefix", "fc00::1/64", ""},
      {R"({"PORT": {"E0": {}}, "INTERFACE": {"E0|here": {"scope": "local"}}})",
       "/network/interfaces.port/E0.address/here", "scope", "local",
       "INTERFACE|E0|here: prefix: \"here\" is no Prefix, left unset"},
      {R"({"INTERFACE": {"E0": {}}})", "/network/interfaces.port/E0", "port", "<null>",
       "INTERFACE|E0: port: there is no PORT \"E0\", left null"},
      {R"({"BUFFER_PROFILE": {"a": {"pool": "[BUFFER_POOL|p]"}}, "BUFFER_POOL": {"p": {}}})", "/qos/buffers.profile/a",
       "pool", "/qos/buffers.pool/p", ""},
      {R"({"BUFFER_PROFILE": {"a": {"pool": "[PORT|p]"}}, "BUFFER_POOL": {"p": {}}})", "/qos/buffers.profile/a", "pool",
       "<null>", "BUFFER_PROFILE|a: pool: there is no BUFFER_POOL \"[PORT|p]\", left null"},
      {R"({"VLAN_MEMBER": {"V1": {}}})", "/network/vlans.member/V1", "port", "<none>",
       "VLAN_MEMBER|V1: not a key of this table, entry ignored"},
      {R"({"NTP": {"local": {}}})", "/system/management.ntp", "vrf", "<none>",
       "NTP|local: not a key of this table, entry ignored"},
      {R"({"SNMP": {"MIB": {}}})", "/system/management.snmp/mib", "contact", "<none>",
       "SNMP|MIB: not a key of this table, entry ignored"},
      {R"({"TC_TO_QUEUE_MAP": {"m": {"1": "2", "x": "3"}}})", "/qos/maps.tcToQueue/m", "to", "1",
       "TC_TO_QUEUE_MAP|m: x: \"x\" is no U8, left out"},
      {R"({"BGP_NEIGHBOR": {"FC00::1": {}}})", "/network/routing.neighbor/fc00::1", "peer", "fc00::1", ""},
      {R"({"BGP_NEIGHBOR": {"default|FC00::1": {}}})", "/network/routing.neighbor/default|fc00::1", "vrf", "<null>",
       ""},
  };
  for (auto const& c : cases) {
    Loaded const made = loaded(c.text);
    std::vector<std::string> const wanted =
        *c.complaint ? std::vector<std::string>{c.complaint} : std::vector<std::string>();
    EXPECT_EQ(made.report.complaints, wanted) << c.text;
    EXPECT_EQ(at(made.dir, c.entity, c.attribute), c.value) << c.text;
  }
}

TEST(ConfigDbLoader, Malformed) {
  std::string const deep = R"({"PORT": )" + std::string(100000, '[');
  struct {
    std::string text;
    char const* error;  // behind the file's name
  } const cases[] = {
      {"", ":1:1: syntax error"},
      {"PORT", ":1:1: syntax error"},
      {"[]", ":1:1: an object of tables expected, not an array"},
      {"{\"PORT\": {}", ":1:12: syntax error"},
      {"{\n  \"PORT\" {}}", ":2:10: syntax error"},
      {"{\"PORT\": {},}", ":1:13: syntax error"},
      {"{\"PORT\": {}} x", ":1:14: syntax error"},
      {"{\"PORT\": {\"E0\": {\"mtu\": 01}}}", ":1:26: syntax error"},
      {"{\"PORT\": {\"E0\": {\"mtu\": 1.}}}", ":1:27: syntax error"},
      {"{\"PORT\": {\"E0\": {\"alias\": \"a\nb\"}}}", ":1:29: syntax error"},
      {"{\"PORT\": {\"E0\": {\"alias\": \"\\x\"}}}", ":1:29: syntax error"},
      {"{\"PORT\": {\"E0\": {\"alias\": \"\\ud800\"}}}", ":1:34: syntax error"},
      {"{\"PORT\": {\"E0\": {\"alias\": \"\xff\"}}}", ":1:28: syntax error"},
      {"{\"PORT\": {\"E0", ":1:14: syntax error"},
      {"{\"PORT\": [1]}", ":1:10: PORT: an object expected, not an array"},
      {"{\"PORT\": {\n\"E0\": \"up\"}}", ":2:7: PORT|E0: an object expected, not a string"},
      {"{\"A\": {\"PORT\": {}}, \"B\": {\"PORT\": {}}}", ":1:26: tables in \"A\" and in \"B\""},
      {deep, ":1:73: nested deeper than 64 levels"},
  };
  Kel::Dir::Ptr const dir = newDir();
  for (auto const& c : cases) {
    TextFile const file(c.text);
    std::string const begins = file.path.string() + c.error;
    EXPECT_EQ(failure(file.path.string(), dir).substr(0, begins.size()), begins);
    EXPECT_EQ(dir->entryStates(), 0U);
  }
}

TEST(ConfigDbLoader, Unreadable) {
  Kel::Dir::Ptr const dir = newDir();
  EXPECT_EQ(failure("/nowhere/x.json", dir), "/nowhere/x.json: cannot be read: No such file or directory");
  EXPECT_EQ(failure("/", dir), "/: is no regular file");
  TextFile const big("{}");
  std::filesystem::resize_file(big.path, std::uintmax_t(1) << 32);
  EXPECT_EQ(failure(big.path.string(), dir), big.path.string() + ": is bigger than 67108864 bytes");
  EXPECT_EQ(dir->entryStates(), 0U);
}

TEST(ConfigDbLoader, TakenPlaces) {
  TextFile const file("{}");
  Kel::Dir::Ptr const dir = newDir();
  dir->newEntity("ConfigDb::Topology", "qos");
  EXPECT_EQ(failure(file.path.string(), dir), file.path.string() + ": cannot be loaded into \"\": qos is no directory");
  EXPECT_EQ(dir->entryStates(), 1U);
  dir->entryDel("qos");
  EXPECT_EQ(failure(file.path.string(), dir), "no failure");
  EXPECT_EQ(failure(file.path.string(), dir),
            file.path.string() + ": cannot be loaded into \"\": network/interfaces is there already");
}

}  // namespace
