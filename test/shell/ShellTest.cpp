// The shell's commands on the sample configuration, as a transcript: behind each command stands what it printed, the
// lines that it added to the edit log ("+"), and its outcome where that is not 0.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "Commands.h"
#include "Files.h"
#include "examples/config_db/Loader.h"

namespace Shell {
namespace {

class Transcript {
 public:
  Transcript() {
    ConfigDb::Report report;
    ConfigDb::loadConfigDb(SOURCE_DIR "/examples/config_db/leaf.json", workspace_.running(), report);
    for (auto const& root : ConfigDb::sessionRoots()) workspace_.sessionRootIs(root.path, root.typeName);
  }

  std::string of(std::string const& command) {
    std::set<std::string> const before = log();
    std::ostringstream said;
    testing::internal::CaptureStderr();
    Outcome const outcome = run(command, said);
    said << testing::internal::GetCapturedStderr();
    if (command == "replace")
      for (std::string const& line : log())
        if (!before.count(line)) said << "+ " << line << "\n";
    if (outcome != Outcome::ok) said << "[" << static_cast<int>(outcome) << "]\n";
    return said.str();
  }

 private:
  Outcome run(std::string const& command, std::ostream& out) { return Commands(workspace_, out, out).run(command); }
  std::set<std::string> log() {
    std::stringstream out;
    std::set<std::string> lines;
    if (run("log all", out) == Outcome::ok)
      for (std::string line; std::getline(out, line);)
        if (line.find(" x") != std::string::npos) lines.insert(line);
    return lines;
  }

  Workspace workspace_;
};

TEST(Shell, SaysWhatTheTranscriptSays) {
  std::string const path = SOURCE_DIR "/test/shell/transcript.golden";
  Transcript transcript;
  std::string const said = Tests::answered(path, [&](std::string const& command) { return transcript.of(command); });
  EXPECT_EQ(Tests::golden(path, said), said);
}

}  // namespace
}  // namespace Shell
