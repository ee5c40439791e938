// Commands and JSON on configurations of devices: the sample's, and real ones where there are any.
#include <gtest/gtest.h>

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

// What the shell's transcripts do not show.
TEST(ConfigDbWords, FollowTheirTypes) {
  std::ifstream in(CONFIG_DB_SAMPLE);
  Configuration made(Json::parse(in));
  Editor editor(made.dir, made.pending);
  auto const said = [&](char const* line) {
    std::string text;
    std::string const error = Tests::messageOf<InputError>([&] { text = editor.apply(line).text; });
    return text.empty() ? error : text;
  };
  EXPECT_EQ(said("set network/ports.port/Ethernet0.adminStatus UP"),
            "network/ports.port/Ethernet0.adminStatus is up already");
  EXPECT_EQ(said("set network routing neighbor default|FC00::09 localAddr 2001:DB8::1"),
            "network/routing.neighbor/default|fc00::9 created, localAddr set to 2001:db8::1");
  EXPECT_EQ(said("set network vlans member Vlan101|Ethernet92 taggingMode priority-tagged"),
            "network/vlans.member/Vlan101|Ethernet92 created, taggingMode set to priority_tagged");
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

// Of keys, and of the targets of a pointer.
TEST(ConfigDbWords, SayThatThereIsMore) {
  std::ifstream in(CONFIG_DB_SAMPLE);
  Configuration const made(Json::parse(in));
  for (Words const& words :
       {Words{"network", "ports", "port", ""}, Words{"network", "ports", "breakout", "b", "port", ""}})
    for (std::size_t const limit : {2U, 200U}) {
      Candidates const found = complete(made.dir, {}, words, CompletionFor::set, limit);
      EXPECT_TRUE(limit > 2 ? found.list.size() > 2 : found.list.size() == 2) << joinedWords(words);
      EXPECT_EQ(found.more, limit == 2) << joinedWords(words);
    }
}

}  // namespace
