// Models that are loaded as libraries, and the second example.
#include <gtest/gtest.h>

#include <fstream>

#include "Context.h"
#include "Device.h"
#include "Files.h"
#include "Interpreter.h"
#include "ModelLibrary.h"

namespace Shell {
namespace {

Model const& router() {
  static Model const* const model = openModelLibrary(ROUTER);
  return *model;
}

std::string answers(Model const& model, std::string const& file, std::vector<std::string> const& commands) {
  Device device(model, {file, "", [] { return 1.7e9; }});
  Context context(device);
  Interpreter interpreter(context);
  std::string out;
  for (std::string const& command : commands) {
    Interpreter::Answer const answer = interpreter.run(command);
    out += answer.output + answer.error;
  }
  return out;
}

std::string const board = SOURCE_DIR "/examples/router/board.json";

TEST(RouterModel, TakesEverythingInItsSample) {
  Device device(router(), {board, "", nullptr});
  EXPECT_EQ("59 entities of 9 modules", device.report().summary);
  for (Remark const& remark : device.report().remarks) ADD_FAILURE() << remark.place << ": " << remark.what;
}

TEST(RouterModel, TakesEverythingInARealConfiguration) {
  std::string const file = SHARED_DATA "/yang/router-board.json";
  if (!std::filesystem::exists(file)) GTEST_SKIP() << file << " is not there";
  Device device(router(), {file, "", nullptr});
  EXPECT_EQ("119 entities of 13 modules", device.report().summary);
  for (Remark const& remark : device.report().remarks) ADD_FAILURE() << remark.place << ": " << remark.what;
}

TEST(RouterModel, KeepsTheTextOfAReferenceUntilItsTargetComes) {
  Tests::TemporaryDir const dir;
  std::string const file = dir.write("x.json", R"({"ietf-interfaces:interfaces": {"interface": [
    {"name": "lan1", "infix-interfaces:bridge-port": {"bridge": "br9"}}]}})")
                               .string();
  std::string const said = answers(router(), file,
                                   {"session open s", "show references", "create interfaces interface br9",
                                    "show references", "show interfaces interface lan1 bridgePort"});
  EXPECT_EQ(
      "session s is open, equal to running\n"
      "interfaces.interface/lan1.bridgePort.bridge -> interfaces.interface/br9: there is no such Interface\n"
      "interfaces.interface/br9 created; pointing at it again: interfaces.interface/lan1.bridgePort.bridge\n"
      "every reference leads somewhere\n"
      "bridge  interfaces.interface/br9\n",
      said);
}

// What the file gives twice is not lost without a word.
TEST(RouterModel, SaysWhatIsGivenTwice) {
  Tests::TemporaryDir const dir;
  std::string const file = dir.write("x.json", R"({"ietf-system:system": {"hostname": "a", "hostname": "b"},
    "infix-firewall:firewall": {"policy": [{"name": "p"}], "zone": [{"name": "lan", "action": "drop"}, {"name": "lan"}]}})")
                               .string();
  Device device(router(), {file, "", nullptr});
  std::string said;
  for (Remark const& remark : device.report().remarks) said += remark.place + ": " + remark.what + "\n";
  EXPECT_EQ(
      "ietf-system:system/hostname: given again, the last one taken\n"
      "infix-firewall:firewall/zone/lan: an entry that is there already, both taken together\n",
      said);
  EXPECT_EQ("15 entities of 2 modules", device.report().summary);
}

TEST(RouterModel, SaysTheLineOfWhatIsNotJson) {
  Tests::TemporaryDir const dir;
  std::string const file = dir.write("x.json", "{\"infix-meta:meta\": {\n\"version\": \"1\",}}").string();
  try {
    Device const device(router(), {file, "", nullptr});
    FAIL();
  } catch (ModelError const& e) {
    EXPECT_EQ(0U, std::string(e.what()).rfind(file + ":2: syntax error", 0)) << e.what();
  }
}

TEST(RouterModel, RefusesFilesOfAnotherForm) {
  Tests::TemporaryDir const dir;
  for (char const* text : {"", "[]", "{}", "3", "{\"PORT\": {}}", "{\"a\": ", "<xml/>"})
    EXPECT_THROW(Device(router(), {dir.write("x.json", text).string(), "", nullptr}), ModelError) << text;
}

// Nested lists, queues in queues, and keys that are numbers, by commands.
TEST(RouterModel, IsEditedByCommands) {
  std::string const said =
      answers(router(), board,
              {"session open s", "set interfaces interface wan ipv4 dhcp option 12 value box",
               "insert nacm ruleList 1 rule 0", "set nacm ruleList 1 rule 0 label first", "move nacm ruleList 1 0",
               "delete interfaces interface br0", "show diff as commands"});
  EXPECT_NE(std::string::npos, said.find("interfaces.interface/wan.ipv4.dhcp.option/12.value set to box")) << said;
  EXPECT_NE(std::string::npos, said.find("set nacm ruleList 0 rule 0 label first\n")) << said;
  EXPECT_NE(std::string::npos, said.find("br0 deleted; no longer lead anywhere: ")) << said;
}

// 'insert' makes what is missing on the way, as 'set' does.
TEST(RouterModel, InsertsIntoQueuesThatAreToBeMade) {
  std::string const said =
      answers(router(), board,
              {"session open s", "insert firewall zone guests service end dns",
               "move firewall zone nowhere service 0 0", "insert firewall zone guests service 5 ssh"});
  EXPECT_EQ(
      "session s is open, equal to running\n"
      "firewall.zone/guests created, firewall.zone/guests.service/0 inserted\n"
      "'nowhere': there is no such zone; there is lan, wan, guests\n"
      "'5' is no position in the queue, which are 0 to 1\n",
      said);
}

// An entity that gets another key still points at itself, if it did.
TEST(RouterModel, RenamesReferencesOfAnEntityToItself) {
  std::string const said =
      answers(router(), board,
              {"session open s", "set interfaces interface br0 bridgePort bridge br0",
               "rename interfaces interface br0 br7", "show interfaces interface br7 bridgePort", "show references"});
  EXPECT_NE(std::string::npos, said.find("br7\nbridge  interfaces.interface/br7\nevery reference leads somewhere\n"))
      << said;
}

// What an item of a queue points at is shown where it leads nowhere.
TEST(RouterModel, ShowsWhereItemsLead) {
  std::string const said =
      answers(router(), board,
              {"session open s", "set firewall zone dmz", "insert firewall policy 0", "insert firewall policy 1",
               "set firewall policy 1 ingress dmz", "delete firewall zone dmz", "show diff"});
  EXPECT_NE(std::string::npos, said.find("+       dmz: firewall.zone/dmz (it was deleted)\n")) << said;
}

// What the description of the model says to try.
TEST(RouterModel, IsEditedAsItsDescriptionSays) {
  Device device(router(), {board, "", [] { return 1.7e9; }});
  Context context(device);
  Interpreter interpreter(context);
  std::ifstream readme(SOURCE_DIR "/examples/router/README.md");
  std::string const mark = "    > ";
  std::size_t tried = 0;
  for (std::string line; std::getline(readme, line);) {
    if (!line.starts_with(mark)) continue;
    ++tried;
    EXPECT_EQ("", interpreter.run(line.substr(mark.size())).error) << line;
  }
  EXPECT_GT(tried, 5U);
}

// A library that has types alone: its configurations are JSON trees.
TEST(ModelLibrary, IsUsedByItsTypes) {
  router();  // loads the library
  auto const types = modelOfTypes("router", {"firewall=Router::Firewall", "Router::Interfaces"});
  Tests::TemporaryDir const dir;
  std::string const file = dir.write("t.json", R"({"firewall": {"zone": {"lan": {"action": "accept",
    "interface": {"br0": "interfaces.interface/br0"}}}}, "interfaces": {"interface": {"br0": {}}}})")
                               .string();
  EXPECT_EQ("session s is open, equal to running\naction     accept\ninterface  br0\n",
            answers(*types, file, {"session open s", "show firewall zone lan"}));
  EXPECT_THROW(modelOfTypes("router", {}), ModelError);
  EXPECT_THROW(modelOfTypes("router", {"Router::Nowhere"}), ModelError);
  EXPECT_THROW(modelOfTypes("router", {"Router::NacmRule"}), ModelError);
  EXPECT_THROW(openModelLibrary("/nowhere.so"), ModelError);
}

}  // namespace
}  // namespace Shell
