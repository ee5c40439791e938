// What is typed at the shell, against what files say.
#include <gtest/gtest.h>

#include <fstream>

#include "ConfigDbFiles.h"
#include "DiffView.h"
#include "Interpreter.h"
#include "examples/config_db/Model.h"

namespace Shell {
namespace {

namespace Service = Cli::Service;
using Service::Json;

class TypedEdits : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    std::ifstream in(GetParam());
    if (!in) GTEST_SKIP() << GetParam() << " is not there";
    json_ = Json::parse(in);
  }
  static Device device(Json const& json) {
    return Device(ConfigDb::model(), {"x.json", "", [] { return 1.7e9; }, json.dump()});
  }
  Json json_;
};

// A session on a file, or on none, edited line by line, is as the edited file is. What led nowhere in neither file, and
// does now, does so in the edited file as well.
TEST_P(TypedEdits, GiveTheTreeOfTheEditedFile) {
  constexpr unsigned seeds = 80;
  std::size_t typed = 0, refused = 0;
  for (unsigned seed = 0; seed < seeds; ++seed) {
    Json edited = json_;
    Tests::FileEditor(seed).edit(edited);
    Device from = device(seed % 8 ? json_ : Json::object()), to = device(edited);
    Context context(from);
    Interpreter interpreter(context);
    interpreter.run("session open s");
    bool whole = true;
    std::string said;
    for (std::string const& line : Tests::typedCommands(from.service().running(), to.service().running())) {
      Interpreter::Answer const answer = interpreter.run(line);
      said += line + "\n" + answer.output + answer.error;
      ++typed;
      if (answer.error.empty()) continue;
      // Files hold keys that are none: they are complained about, and not typed.
      EXPECT_NE(answer.error.find("of the key"), std::string::npos) << line << ": " << answer.error;
      whole = false;
    }
    refused += !whole;
    if (!whole) continue;
    auto const wrong = Service::differences(context.tree(), to.service().running());
    ASSERT_EQ(diffText(wrong, DiffForm::commands, Paint()), "") << "seed " << seed << "\n" << said;
    for (auto const& reference : context.pending().list())
      EXPECT_TRUE(from.pending().find(reference.place) || to.pending().find(reference.place))
          << "seed " << seed << ": " << reference.place.text();
  }
  EXPECT_LT(refused, seeds / 4);
  std::cout << typed << " commands typed\n";
}

INSTANTIATE_TEST_SUITE_P(Files, TypedEdits, testing::ValuesIn(Tests::configDbFiles()),
                         [](auto const& file) { return Tests::testName(file.param); });

}  // namespace
}  // namespace Shell
