// The shell's commands on the sample configuration, as transcripts: behind each command stands what it answered, and
// its status where that is not 0.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "Device.h"
#include "Golden.h"
#include "Interpreter.h"
#include "examples/config_db/Model.h"

namespace Shell {
namespace {

class Transcript : public testing::TestWithParam<std::string> {
 protected:
  std::unique_ptr<Device> sample() {
    ::setenv("TZ", "UTC", 1);
    ::setenv("LOGNAME", "operator", 1);
    return std::make_unique<Device>(
        ConfigDb::model(), Device::Settings{SOURCE_DIR "/examples/config_db/leaf.json", "", [this] { return time_; }});
  }
  // "wait SECONDS", which is no command of the shell.
  bool wait(Device& device, std::string const& command) {
    if (!command.starts_with("wait ")) return false;
    time_ += std::stod(command.substr(5));
    device.service().poll();
    return true;
  }

 private:
  double time_ = 1.7e9;
};

TEST_P(Transcript, Holds) {
  std::string const path = SOURCE_DIR "/test/shell/transcripts/" + GetParam() + ".golden";
  Tests::TemporaryDir const folder;
  auto const before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  auto const device = sample();
  Context context(*device);
  Interpreter interpreter(context);
  std::string const said = Tests::answered(path, [&](std::string const& command) {
    if (wait(*device, command)) return std::string();
    Interpreter::Answer const answer = interpreter.run(command);
    std::string text = answer.output + answer.error;
    if (answer.outcome != Outcome::ok) text += "[" + std::to_string(static_cast<int>(answer.outcome)) + "]\n";
    return text;
  });
  std::filesystem::current_path(before);
  Tests::expectGolden(path, said);
}

std::vector<std::string> names() {
  std::vector<std::string> out;
  for (auto const& entry : std::filesystem::directory_iterator(SOURCE_DIR "/test/shell/transcripts"))
    out.push_back(entry.path().stem().string());
  std::sort(out.begin(), out.end());
  return out;
}

INSTANTIATE_TEST_SUITE_P(Shell, Transcript, testing::ValuesIn(names()),
                         [](auto const& transcript) { return transcript.param; });

}  // namespace
}  // namespace Shell
