// One mistake is one error, and hides no other: laws over damaged models.
#include <gtest/gtest.h>

#include <algorithm>

#include "ModelTest.h"
#include "compiler/Lexer.h"

namespace kelc::test {
namespace {

namespace fs = std::filesystem;

constexpr char const early[] = "enum Early { a, a }\n";
constexpr char const late[] = "\nvalue Late { a : ; }\n";

// A model between two mistakes, one found by the checker and one by the parser.
class Damaged {
 public:
  explicit Damaged(fs::path const& model) {
    file_.text = readFile(model);
    std::size_t const start = file_.text.find('\n', file_.text.rfind("import \"") + 1) + 1;
    file_.text.insert(file_.text.find("import \"") == std::string::npos ? file_.text.find(";\n") + 2 : start, early);
    file_.text += late;
    Diagnostics none;
    tokens_ = lex(file_, none);
    tokens_.pop_back();
  }

  std::vector<Token> const& tokens() const { return tokens_; }
  // Whether it belongs to neither mistake.
  bool isOwn(Token const& token) const {
    std::size_t const at = start(token), first = file_.text.find(early);
    return at < first || (at >= first + sizeof early - 1 && at < file_.text.rfind(late));
  }

  // The errors of the model with other text in place of a token.
  std::vector<Diagnostic> with(Token const& token, std::string const& other) {
    std::string text = file_.text;
    text.replace(start(token), token.text.size(), other);
    compiled_ = std::make_unique<Compiled>(dir_.write("Model.kel", text));
    return compiled_->diagnostics.sorted();
  }

 private:
  std::size_t start(Token const& token) const { return static_cast<std::size_t>(token.text.data() - &file_.text[0]); }

  TemporaryDir dir_;
  SourceFile file_;
  std::vector<Token> tokens_;
  std::unique_ptr<Compiled> compiled_;
};

bool has(std::vector<Diagnostic> const& errors, std::string const& text) {
  return std::any_of(errors.begin(), errors.end(), [&](Diagnostic const& d) { return d.text == text; });
}

class Recovery : public testing::TestWithParam<std::string> {
 protected:
  Damaged model{dataDir() / GetParam()};

  // What the damage adds to the two mistakes, which both have to be found.
  std::size_t added(Token const& token, std::string const& other) {
    std::vector<Diagnostic> const errors = model.with(token, other);
    std::string all = std::string(token.text) + " in line " + std::to_string(token.loc.line) + ":\n";
    for (Diagnostic const& d : errors) all += std::to_string(d.loc.line) + ": " + d.text + "\n";
    EXPECT_TRUE(has(errors, "'a' is already declared")) << all;
    EXPECT_TRUE(has(errors, "expected a type, not ';'")) << all;
    EXPECT_GE(errors.size(), 2u) << all;
    EXPECT_LE(errors.size(), 2u + 2) << all;
    return errors.size() - 2;
  }
};

class MissingToken : public Recovery {};

TEST_P(MissingToken, IsOneError) {
  for (Token const& token : model.tokens()) {
    if (!model.isOwn(token)) continue;
    EXPECT_LE(added(token, " "), 1u) << token.text << " in line " << token.loc.line;
  }
}

// The second may have a meaning of its own: a parameter or attribute of that name, an operation `onChange`.
class WrongToken : public Recovery {};

TEST_P(WrongToken, WrittenTwiceIsAnError) {
  std::size_t two = 0;
  for (Token const& token : model.tokens()) {
    if (!model.isOwn(token)) continue;
    std::size_t const errors = added(token, std::string(token.text) + " " + std::string(token.text));
    EXPECT_GE(errors, 1u) << token.text << " in line " << token.loc.line;
    if (errors > 1) ++two;
  }
  EXPECT_LE(two, 3u);
}

TEST_P(WrongToken, UnknownCharacterIsAnError) {
  std::size_t two = 0;
  for (Token const& token : model.tokens()) {
    if (!model.isOwn(token)) continue;
    std::size_t const errors = added(token, "?");
    EXPECT_GE(errors, 1u) << token.text << " in line " << token.loc.line;
    if (errors > 1) ++two;
  }
  EXPECT_LE(two, 3u);
}

std::string stem(testing::TestParamInfo<std::string> const& tested) { return fs::path(tested.param).stem().string(); }

INSTANTIATE_TEST_SUITE_P(Models, MissingToken,
                         testing::Values("golden/Lamp.kel", "sample/Sample/Types.kel", "sample/Sample/Broad.kel"),
                         stem);
INSTANTIATE_TEST_SUITE_P(Models, WrongToken, testing::Values("golden/Lamp.kel", "sample/Sample/Types.kel"), stem);

}  // namespace
}  // namespace kelc::test
