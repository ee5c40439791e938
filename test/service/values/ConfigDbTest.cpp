// Commands and JSON on configurations of devices: the sample's, and real ones where there are any.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "ConfigDbFiles.h"
#include "Dump.h"
#include "Golden.h"
#include "MessageOf.h"
#include "examples/config_db/Loader.h"
#include "service/Commands.h"
#include "service/Difference.h"
#include "service/JsonTree.h"

namespace {

using namespace Cli::Service;

struct Configuration {
  Kel::Dir::Ptr dir = Kel::dirFactory("");
  ConfigDb::Report report;
  PendingReferences pending;
  std::vector<std::string> roots;

  explicit Configuration(Json const& json) {
    Tests::TemporaryDir const temporary;
    ConfigDb::loadConfigDb(temporary.write("x.json", json.dump()).string(), dir, report);
    for (auto const& root : ConfigDb::sessionRoots()) roots.push_back(root.path);
    for (PendingReference const& reference : report.dangling) pending.add(reference);
  }
  std::string text() const { return Tests::dump(dir); }
  Tree tree() const { return {dir, &roots}; }
  // What there is, whatever the order in which it came.
  Json content(bool withDangling = true) const {
    nlohmann::json const sorted =
        nlohmann::json::parse(exportEntity(*dir, *dir, {false, withDangling ? &pending : nullptr}).dump());
    return Json::parse(sorted.dump());
  }
};

class ConfigDbTree : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    std::ifstream in(GetParam());
    if (!in) GTEST_SKIP() << GetParam() << " is not there";
    json_ = Json::parse(in);
  }
  Json json_;
};

TEST_P(ConfigDbTree, CommandsLeadThereAndBack) {
  Configuration const first(json_);
  for (unsigned seed = 0; seed < 60; ++seed) {
    Json edited = json_;
    Tests::FileEditor(seed).edit(edited);
    Configuration second(edited);
    std::vector<std::string> const back = commands(differences(second.tree(), first.tree()));
    std::vector<std::string> const again = commands(differences(first.tree(), second.tree()));
    PendingReferences pending;
    Editor editor(second.dir, pending, Editor::Source::rendering);
    Json const before = second.content(false);
    editor.applyAll(back);
    ASSERT_EQ(second.content(false), first.content(false)) << "seed " << seed << "\n" << Tests::textOf(back);
    editor.applyAll(again);
    ASSERT_EQ(second.content(false), before) << "seed " << seed << "\n" << Tests::textOf(again);
  }
}

// What a person types, without anything that follows from a key or from a value, gives the tree that the file gives.
TEST_P(ConfigDbTree, TypedCommandsGiveTheSameTree) {
  std::size_t typed = 0, compared = 0;
  for (unsigned seed = 0; seed < 10; ++seed) {
    Json edited = json_;
    if (seed > 0) Tests::FileEditor(seed).edit(edited);
    Configuration const loaded(edited);
    Configuration made(Json::parse("{}"));
    std::vector<std::string> const lines = Tests::typedCommands(made.tree(), loaded.tree());
    Editor editor(made.dir, made.pending);
    bool refused = false;
    for (std::string const& line : lines) {
      try {
        editor.apply(line);
        ++typed;
      } catch (InputError const& e) {
        // Files hold keys that are none: they are complained about, and not typed.
        EXPECT_NE(std::string(e.what()).find("of the key"), std::string::npos) << line << ": " << e.what();
        refused = true;
      }
    }
    if (refused) continue;
    ++compared;
    EXPECT_EQ(Json::diff(made.content(false), loaded.content(false)).dump(1), "[]") << "seed " << seed;
    // A reference in a key dangles as one in a file does.
    for (PendingReference const& reference : made.pending.list())
      EXPECT_TRUE(loaded.pending.find(reference.place)) << reference.place.text();
  }
  EXPECT_GT(compared, 0U);
  std::cout << typed << " commands typed\n";
}

TEST_P(ConfigDbTree, JsonHoldsIt) {
  Configuration const loaded(json_);
  Configuration made(Json::parse("{}"));
  ImportOptions options;
  options.pending = &made.pending;
  ImportReport const report =
      importText(made.dir, {}, "x", exportEntity(*loaded.dir, *loaded.dir, {false, &loaded.pending}).dump(), options);
  EXPECT_EQ(made.content(), loaded.content());
  EXPECT_EQ(report.dangling.size(), loaded.pending.list().size());
}

INSTANTIATE_TEST_SUITE_P(Files, ConfigDbTree, testing::ValuesIn(Tests::configDbFiles()),
                         [](auto const& file) { return Tests::testName(file.param); });

TEST(ConfigDbWords, SayWhatIsWrong) {
  std::ifstream in(CONFIG_DB_SAMPLE);
  Configuration made(Json::parse(in));
  Editor editor(made.dir, made.pending);
  auto const said = [&](char const* line) {
    std::string text;
    std::string const error = Tests::messageOf<InputError>([&] { text = editor.apply(line).text; });
    return text.empty() ? error : text;
  };
  EXPECT_EQ(said("set network ports port Ethernet0 mtux 9000"),
            "'mtux': a Port has no such attribute; did you mean mtu?");
  EXPECT_EQ(said("set net po port Ethernet0 mtu 9000"), "network/ports.port/Ethernet0.mtu set to 9000, was 9100");
  EXPECT_EQ(said("set network ports port Ethernet0 mtu 70000"), "mtu: '70000' is not a number from 0 to 65535");
  EXPECT_EQ(said("set network/ports.port/Ethernet0.adminStatus UP"),
            "network/ports.port/Ethernet0.adminStatus is up already");
  EXPECT_EQ(said("set network routing neighbor fc00::9 localAddr banana"),
            "localAddr: 'banana' is not an address like 192.0.2.1 or 2001:db8::1");
  EXPECT_EQ(said("set network routing neighbor default|FC00::09 localAddr 2001:DB8::1"),
            "network/routing.neighbor/default|fc00::9 created, localAddr set to 2001:db8::1");
  EXPECT_EQ(said("set network vlans member Vlan101 taggingMode tagged"),
            "'Vlan101' is no key of member, which has the form vlan|port");
  EXPECT_EQ(said("set network vlans vlan Vlan999 vlanid 999"), "network/vlans.vlan/Vlan999 created, vlanid set to 999");
  EXPECT_EQ(said("set network vlans member Vlan999|Ethernet4 taggingMode priority-tagged"),
            "network/vlans.member/Vlan999|Ethernet4 created, taggingMode set to priority_tagged");
  EXPECT_EQ(
      exportEntity(*made.dir->entity("network/vlans.member/Vlan999|Ethernet4"), *made.dir).dump(),
      R"({"vlan":"network/vlans.vlan/Vlan999","port":"network/ports.port/Ethernet4","taggingMode":"priority_tagged"})");
  EXPECT_EQ(said("delete network vlans vlan Vlan999"),
            "network/vlans.vlan/Vlan999 deleted; no longer lead anywhere: network/vlans.member/Vlan999|Ethernet4.vlan");
  EXPECT_EQ(said("set network vlans vlan Vlan999"),
            "network/vlans.vlan/Vlan999 created; pointing at it again: network/vlans.member/Vlan999|Ethernet4.vlan");
  said("delete system device crm");
  EXPECT_EQ(said("set system device crm pollingInterval 0"), "system/device.crm created, pollingInterval set to 0");
  EXPECT_EQ(made.dir->entity("system/device.crm")->name().str(), "Config");
  EXPECT_EQ(made.dir->entity("system/device.crm")
                ->attributeString(made.dir->entity("system/device.crm")->type()->getAttr("present")->id())
                .str(),
            "{pollingInterval: true}");
}

// A member of a VLAN may be a port or a LAG: whichever comes, in a file or typed.
TEST(ConfigDbWords, AReferenceWaitsForEachTable) {
  Configuration made(Json::parse(R"({"VLAN": {"Vlan5": {}}, "VLAN_MEMBER": {"Vlan5|PortChannel9": {}}})"));
  ASSERT_EQ(made.pending.list().size(), 1U);
  Editor editor(made.dir, made.pending);
  std::string const again = " created; pointing at it again: network/vlans.member/Vlan5|PortChannel";
  EXPECT_EQ(editor.apply("set network ports portChannel PortChannel9").text,
            "network/ports.portChannel/PortChannel9" + again + "9.port");
  editor.apply("set network vlans member Vlan5|PortChannel8");
  EXPECT_EQ(editor.apply("set network ports portChannel PortChannel8").text,
            "network/ports.portChannel/PortChannel8" + again + "8.port");
  EXPECT_TRUE(made.pending.empty());
}

// Every word of a long path, at the end of a collection of many.
TEST(ConfigDbWords, CompleteFast) {
  Kel::Dir::Ptr const dir = Kel::dirFactory("");
  ConfigDb::Report report;
  Tests::TemporaryDir const temporary;
  ConfigDb::loadConfigDb(temporary.write("x.json", "{}").string(), dir, report);
  PendingReferences pending;
  auto const ports = Kel::GenericIf::ofEntity(dir->entity("network/ports"));
  Kel::AttributeId const port = ports->attributeId("port");
  for (unsigned i = 0; i < 100000; ++i)
    ports->attributeIs(port, Kel::GenericIf::of(Kel::Name("Ethernet" + std::to_string(i))), nullptr);
  // NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): there are few of them
  struct {
    Words words;
    CompletionFor what;
    std::size_t found;
    char const* first;
    bool more;
  } const cases[] = {
      {{""}, CompletionFor::path, 5, "network", false},
      {{"network", "po"}, CompletionFor::path, 1, "ports", false},
      {{"network", "ports", "port", ""}, CompletionFor::path, maxCandidates, "Ethernet0", true},
      {{"network", "ports", "port", "Ethernet9999"}, CompletionFor::path, 11, "Ethernet9999", false},
      {{"network", "ports", "port", "Ethernet5", "m"}, CompletionFor::set, 3, "mtu", false},
      {{"network", "ports", "port", "Ethernet5", "adminStatus", ""}, CompletionFor::set, 2, "up", false},
      {{"network", "ports", "breakout", "b", "port", "Ethernet777"}, CompletionFor::set, 111, "Ethernet777", false},
      {{"network", "ports", "breakout", "b", "port", ""}, CompletionFor::set, maxCandidates, "Ethernet0", true},
      {{"network/ports.port/Ethernet9999"}, CompletionFor::path, 11, "network/ports.port/Ethernet9999", false},
      {{"qos", "buffers", "cableLength", "AZURE", "length", "Ethernet31"},
       CompletionFor::set,
       maxCandidates,
       "Ethernet31",
       true},
  };
  for (auto const& c : cases) {
    auto const start = std::chrono::steady_clock::now();
    Candidates const found = complete(dir, {}, c.words, c.what);
    std::chrono::duration<double, std::milli> const took = std::chrono::steady_clock::now() - start;
    std::string const line = joinedWords(c.words);
    EXPECT_EQ(found.list.size(), c.found) << line;
    EXPECT_EQ(found.more, c.more) << line;
    EXPECT_TRUE(!found.list.empty() && found.list[0].word == c.first) << line;
    std::cout << line << ": " << took.count() << " ms\n";
    EXPECT_LT(took.count(), 250) << line;  // 50 on a machine that does nothing else
  }
  Candidates const value =
      complete(dir, {}, Words{"network", "ports", "port", "Ethernet5", "mtu", ""}, CompletionFor::set);
  EXPECT_EQ(value.hint, "a number from 0 to 65535");
}

}  // namespace
