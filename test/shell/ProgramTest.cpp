// The programs as processes: exit status and output.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "Files.h"
#include "Process.h"

namespace {

using Tests::Result;
using Tests::run;

std::string const sample = SOURCE_DIR "/examples/config_db/leaf.json";

std::string const open = " -c 'session open s'";
std::string const change = open + " -c 'set network ports port Ethernet0 mtu 1500'";

// What a command says that ends with that status and has that text in its output.
std::string said(std::string const& command, int status, std::string const& text) {
  Result const result = run(command);
  EXPECT_EQ(status, result.status) << result.output;
  EXPECT_NE(std::string::npos, result.output.find(text)) << result.output;
  return result.output;
}

TEST(CliSession, EndsWithTheStatusOfItsLastCommand) {
  std::string const program = CLI_SESSION " " + sample;
  EXPECT_EQ(0, run(program + open + " -c compare").status);
  EXPECT_EQ(1, run(program + change + " -c compare").status);
  EXPECT_EQ(1, run(program + change + " -c 'show diff'").status);
  EXPECT_EQ(0, run(program + change + " -c compare -c commit -c 'show diff' -c compare").status);
  EXPECT_EQ(2, run(program + " -c nonsense" + open).status);
  EXPECT_EQ(1, run("printf 'session open s\ndelete network/vlans.vlan/Vlan101\ncompare\n' | " + program).status);
  EXPECT_EQ(1, run(program + change + " -c 'session open t' -c 'set network ports port Ethernet0 mtu 1600' -c commit" +
                   open + " -c commit")
                   .status);
  EXPECT_EQ(2, run(CLI_SESSION).status);
  EXPECT_EQ(0, run(CLI_SESSION " --help").status);
}

TEST(CliSession, SaysTheLineOfAScriptThatFails) {
  Tests::TemporaryDir const dir;
  std::string const script = dir.write("script", "# comment\nsession open s\n\nset nowhere 1\nshow\n").string();
  std::string const output =
      said(CLI_SESSION " --quiet " + sample + " --script " + script, 2, script + ":4: 'nowhere': ");
  EXPECT_EQ(std::string::npos, output.find("network/ports")) << "went on: " << output;
  said(CLI_SESSION " --quiet " + sample + " < " + script, 2, "standard input:4: 'nowhere': ");
  EXPECT_EQ(2, run(CLI_SESSION " " + sample + " --script /nowhere").status);
}

TEST(CliSession, SaysThatEditsAreLost) {
  std::string const lost = "1 edit is lost: there was no commit\n";
  std::string const program = CLI_SESSION " --quiet " + sample + change;
  said(program, 0, lost);
  said(program + " -c nonsense", 2, lost);
  EXPECT_EQ(std::string::npos, run(program + " -c commit").output.find("lost"));
}

// References that lead nowhere are null on both sides, but not equal.
TEST(CliSession, ComparesReferencesThatLeadNowhere) {
  Tests::TemporaryDir const dir;
  auto const file = [&](char const* name, char const* sessions) {
    return dir
        .write(name,
               std::string(R"({"ACL_TABLE": {"T": {"ports": ["Ethernet9"]}}, "MIRROR_SESSION": )") + sessions + "}")
        .string();
  };
  std::string const a = file("a", R"({"m": {"dst_port": "Ethernet1"}, "n": {"dst_port": "Ethernet2"}})"),
                    b = file("b", R"({"n": {"dst_port": "Ethernet3"}, "o": {"dst_port": "Ethernet4"}})");
  EXPECT_EQ(0, run(CLI_SESSION " diff " + a + " " + a).status);
  Result const found = run(CLI_SESSION " diff " + a + " " + b);
  EXPECT_EQ(1, found.status);
  EXPECT_EQ(
      "  security/acl\n"
      "-   mirrorSession m\n"
      "-     dstPort: network/ports.port/Ethernet1\n"
      "+   mirrorSession o\n"
      "+     dstPort: network/ports.port/Ethernet4 (there is no PORT \"Ethernet4\")\n"
      "    mirrorSession n\n"
      "~     dstPort: network/ports.port/Ethernet2 -> network/ports.port/Ethernet3 (there is no PORT \"Ethernet3\")\n",
      found.output);
  std::string const commands =
      dir.write("commands", run(CLI_SESSION " diff --commands " + a + " " + b).output).string();
  EXPECT_EQ(
      "session s is open, equal to running\n" + commands +
          " is loaded: 2 edits to commit, 3 references to nowhere\nequal\n2 edits are lost: there was no commit\n",
      run(CLI_SESSION " --quiet " + a + open + " -c 'load merge " + commands + "' -c 'show diff file " + b + "'")
          .output);
}

// An export as commands is a script: what they point at is made before.
TEST(CliSession, ExportsCommandsThatItTakes) {
  Tests::TemporaryDir const dir;
  std::string const script = (dir.path() / "script").string(), before = (dir.path() / "a").string(),
                    after = (dir.path() / "b").string(), none = dir.write("none", "{}").string();
  std::string const config =
      dir.write(
             "x",
             R"({"PORT": {"Ethernet0": {"lanes": "1,2"}}, "VLAN": {"Vlan1": {}}, "VLAN_MEMBER": {"Vlan1|Ethernet0": {}},
        "INTERFACE": {"Ethernet0": {"vrf_name": "Vrf1"}, "Ethernet0|192.0.2.1/24": {}}, "VRF": {"Vrf1": {}}})")
          .string();
  run(CLI_SESSION " --quiet " + config + open + " -c 'save " + before + "' -c 'export --commands | save " + script +
      "'");
  Result const typed =
      run("(echo session open s; cat " + script + "; echo save " + after + ") | " CLI_SESSION " --quiet " + none);
  EXPECT_EQ(0, typed.status) << typed.output;
  EXPECT_EQ(0, run("cmp " + before + " " + after).status);
  Result const again = run(CLI_SESSION " --quiet " + config + open + " -c 'load merge " + script + "' -c compare");
  EXPECT_EQ(0, again.status) << again.output;
}

// A word of a megabyte is not repeated as a whole.
TEST(CliSession, CutsWhatNobodyWouldRead) {
  Tests::TemporaryDir const dir;
  std::string const script = dir.write("script", "session open s\nshow " + std::string(1U << 20U, 'x') + "\n").string();
  Result const result = run(CLI_SESSION " --quiet " + sample + " --script " + script);
  EXPECT_EQ(2, result.status);
  EXPECT_GT(2000U, result.output.size());
}

TEST(CliSession, SaysThatItsOutputIsLost) {
  std::string const program = CLI_SESSION " --quiet " + sample;
  Result const lost = run(program + open + " >/dev/full");
  EXPECT_EQ(2, lost.status) << lost.output;
  EXPECT_EQ(2, run(CLI_SESSION " diff " + sample + " " + sample + " --json >/dev/full").status);
}

TEST(CliSession, TakesAScriptFromStandardInput) {
  Result const result = run("echo session open s | " CLI_SESSION " --quiet --script - " + sample);
  EXPECT_EQ("session s is open, equal to running\n", result.output);
  EXPECT_EQ(0, result.status);
  EXPECT_EQ(2, run(CLI_SESSION " - --script - <" + sample).status) << "one input for both";
}

TEST(CliSession, TakesAConfigurationFromStandardInput) {
  said(CLI_SESSION " - --quiet" + open + " -c 'show network vlans vlan Vlan101 mtu' < " + sample, 0, "\n9100\n");
}

TEST(CliSession, TakesTheFlatForm) {
  Tests::TemporaryDir const dir;
  std::string const nested =
      R"({"PORT": {"Ethernet0": {"mtu": "1500", "lanes": "1,2"}}, "VLAN_MEMBER": {"Vlan1|Ethernet0": {}}})";
  std::string const flat = R"({"PORT|Ethernet0": {"mtu": "1500", "lanes@": "1,2"}, "VLAN_MEMBER|Vlan1|Ethernet0": {}})";
  Result const result =
      run(CLI_SESSION " diff " + dir.write("a.json", nested).string() + " " + dir.write("b.json", flat).string());
  EXPECT_EQ(0, result.status) << result.output;
  EXPECT_EQ("", result.output);
  said(CLI_SESSION " " + (dir.path() / "b.json").string() + " -c 'session list'", 0, "2 entries of 2 tables loaded");
}

// A file is a tree only if all of it is: a name of a root beside tables is passed by with a remark.
TEST(CliSession, TakesAFileWithTablesForNoTree) {
  Tests::TemporaryDir const dir;
  std::string const file = dir.write("x.json", R"({"PORT": {"Ethernet0": {}}, "network": {}})").string();
  said(CLI_SESSION " " + file + " -c 'session list'", 0, "1 entry of 1 table loaded, 1 remark");
}

TEST(CliSession, ComparesTwoFiles) {
  Tests::TemporaryDir const dir;
  std::string const a = dir.write("a.json", R"({"PORT": {"Ethernet0": {"mtu": "1500"}}})").string();
  std::string const b = dir.write("b.json", R"({"PORT": {"Ethernet0": {"mtu": "9000"}}})").string();
  Result const same = run(CLI_SESSION " diff " + a + " " + a);
  EXPECT_EQ(0, same.status);
  EXPECT_EQ("", same.output);
  Result const result = run(CLI_SESSION " diff " + a + " " + b + " --commands");
  EXPECT_EQ(1, result.status);
  EXPECT_EQ("set network ports port Ethernet0 mtu 9000\n", result.output);
  EXPECT_EQ(2, run(CLI_SESSION " diff " + a + " /nowhere").status);
  EXPECT_EQ(2, run(CLI_SESSION " diff " + a).status);
}

TEST(CliSession, RefusesFilesItCannotReadAndSaysWhere) {
  Tests::TemporaryDir const dir;
  std::string const file = dir.write("x.json", R"({"PORT": {"Ethernet1": [1]}})").string();
  EXPECT_EQ(0u, said(CLI_SESSION " " + file + " -c help", 2, "PORT|Ethernet1").find(file + ":1:"));
  EXPECT_EQ(2, run(CLI_SESSION " /nonexistent.json").status);
  EXPECT_EQ(2, run(CLI_SESSION " /").status);
  run("truncate -s 65M " + file);
  said(CLI_SESSION " " + file + " -c help", 2, "is bigger than");
  // Not "0 entries": files of another form.
  for (char const* text : {"", " ", "[]", "7", "\"text\"", "{\"interfaces\": {\"eth0\": {}}}", "hostname leaf\n"})
    EXPECT_EQ(2, run(CLI_SESSION " " + dir.write("x.json", text).string() + open + " -c compare").status) << text;
}

TEST(CliSession, FoldsRemarksOfOneKind) {
  Tests::TemporaryDir const dir;
  std::string const two = R"({"VLAN_MEMBER": {"Vlan1|Ethernet0": {}, "Vlan1|Ethernet1": {}}})";
  said(CLI_SESSION " " + dir.write("two.json", two).string() + " -c 'session list'", 0, "and 1 place more");
  std::string members;
  for (int i = 0; i < 500; ++i) members += (i ? ", " : "") + ("\"Vlan1|Ethernet" + std::to_string(i)) + "\": {}";
  std::string const file = dir.write("x.json", "{\"VLAN_MEMBER\": {" + members + "}}").string();
  std::string const folded = said(CLI_SESSION " " + file + " -c 'session list'", 0, "and 499 places more");
  EXPECT_GT(10, std::count(folded.begin(), folded.end(), '\n')) << folded;
  Result const all = run(CLI_SESSION " " + file + " -c 'show remarks all'");
  EXPECT_LT(1000, std::count(all.output.begin(), all.output.end(), '\n'));
  // The text of each is kept.
  said(CLI_SESSION " " + file + open + " -c 'show references'", 0, "network/vlans.vlan/Vlan1: there is no");
}

// A debug action that comes after a session was opened is that session's as well.
TEST(CliSession, TracesAnEditOfAnOpenSession) {
  std::string const program = CLI_SESSION " --quiet " + sample + change;
  std::string const debug = " -c 'debug edit set ConfigDb::Port::mtu ";
  said(program + debug + "trace' -c commit", 0, "ConfigDb::Port::mtu set triggered");
  Result const not_ = run(program + debug + "trace'" + debug + "none' -c commit");
  EXPECT_EQ(std::string::npos, not_.output.find("triggered")) << not_.output;
  Result const off = run(program + " -c 'trace CliSession/0-9' -c 'trace off' -c commit");
  EXPECT_EQ(std::string::npos, off.output.find("handleEntity")) << off.output.substr(0, 1000);
}

TEST(CliSession, KeepsCommitsInItsStateDirectory) {
  Tests::TemporaryDir const dir;
  std::string const program = CLI_SESSION " --quiet " + sample + " --state " + (dir.path() / "state").string();
  Result const first =
      run(program + change + " -c 'create network routing vrf Vrf_missing' -c 'commit smaller frames'");
  EXPECT_EQ(0, first.status) << first.output;
  EXPECT_EQ(std::string::npos, first.output.find("not kept")) << first.output;
  said(program + open + " -c 'show network ports port Ethernet0 mtu'", 0, "\n1500\n");
  said(program + " -c history", 0, "smaller frames");
  said(program + open + " -c 'show references'", 0, "every reference leads somewhere");
  said(program + open + " -c clear -c 'show diff as commands' -c 'commit back' -c 'show diff clean'", 0,
       "set network ports port Ethernet0 mtu 9100");
  EXPECT_EQ(2, run(program + "/commits.db -c help").status) << "a file where a directory belongs";
}

// One process at a time has the store; what was answered is there behind a process that was killed.
TEST(CliSession, KeepsCommitsOfAProcessThatIsKilled) {
  Tests::TemporaryDir const dir;
  std::string const program = CLI_SESSION " --quiet " + sample + " --state " + (dir.path() / "state").string();
  dir.write("commands", "session open s\nset network ports port Ethernet0 mtu 1500\ncommit\n");
  said("(cd " + dir.path().string() + "; mkfifo input; " + program +
           " <input >output & first=$!; exec 3>input; cat commands >&3; until grep -q '^commit 1' output; do "
           "sleep 0.05; done; " +
           program + " -c help; status=$?; kill -9 $first; wait; exit $status)",
       2, "another process has the store open");
  said(program + open + " -c 'show network ports port Ethernet0 mtu'", 0, "\n1500\n");
}

// The demonstration is what the README shows.
TEST(Demo, IsShownInTheReadme) {
  Result const result = run("cd " SOURCE_DIR " && SOURCE_DATE_EPOCH=1763800000 TZ=UTC LOGNAME=operator " CLI_SESSION
                            " --echo --quiet examples/config_db/leaf.json --script examples/config_db/demo.commands");
  EXPECT_EQ(0, result.status) << result.output;
  EXPECT_GE(80, std::count(result.output.begin(), result.output.end(), '\n'));
  std::string const readme = Tests::readFile(SOURCE_DIR "/README.md");
  EXPECT_NE(std::string::npos, readme.find("```\n" + result.output + "```\n")) << result.output;
}

// What the README shows is what the tests compile and run.
TEST(Quickstart, PrintsTheEditsAndIsShownInTheReadme) {
  Result const result = run(QUICKSTART);
  EXPECT_EQ(0, result.status);
  EXPECT_EQ("set port at switch x1\nset mtu at switch.port/Ethernet1 x1\n", result.output);
  std::string const readme = Tests::readFile(SOURCE_DIR "/README.md");
  for (char const* file : {"Switch.kel", "main.cpp", "CMakeLists.txt"}) {
    std::string const text = Tests::readFile(std::string(SOURCE_DIR "/examples/quickstart/") + file);
    EXPECT_NE(std::string::npos, readme.find(text)) << file;
  }
  EXPECT_NE(std::string::npos, readme.find(result.output));
}

}  // namespace
