#include "examples/config_db/Values.h"

#include <gtest/gtest.h>

#include "Golden.h"
#include "examples/config_db/Loader.h"

using namespace ConfigDb;

namespace {

TEST(ConfigDbValues, OneSpelling) {
  ASSERT_FALSE(sessionRoots().empty());        // the library with the types is there,
  ASSERT_TRUE(Kel::TypeOf<Kel::U16>::type());  // and the builtin types are made
  std::string const path = SOURCE_DIR "/test/examples/config_db/values.golden";
  std::string const said = Tests::answered(path, [](std::string const& question) {
    std::size_t const blank = question.find(' ');
    Kel::KelType const* const type = Kel::KelType::find(Kel::String8(question.substr(0, blank)));
    auto const value = type ? Cli::Service::valueOf(*type, question.substr(blank + 1)) : nullptr;
    return (value ? value->text().str() : "refused") + "\n";
  });
  Tests::expectGolden(path, said);
}

TEST(ConfigDbValues, Absent) {
  for (char const* text : {"", " ", "None", "NULL", "null"}) EXPECT_TRUE(isAbsent(text)) << text;
  for (char const* text : {"none", "0", "false"}) EXPECT_FALSE(isAbsent(text)) << text;
}

}  // namespace
