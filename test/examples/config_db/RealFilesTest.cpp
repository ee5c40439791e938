// The loader on configurations of real devices, where there are any.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "Dump.h"
#include "examples/config_db/Json.h"
#include "examples/config_db/Loader.h"
#include "examples/config_db/TableMap.h"

using namespace ConfigDb;

namespace {

std::string dataFile(std::string const& name) {
  char const* const dir = std::getenv("CONFIG_DB_DATA");
  return std::string(dir ? dir : CONFIG_DB_DATA) + "/" + name;
}

#define NEEDS(file) \
  if (!std::ifstream(file)) GTEST_SKIP() << file << " is not there"

JsonValue parsed(std::string const& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return parseJson(text.str(), JsonLimits()).value;
}

struct File {
  char const* name;
  unsigned entries;  // of tables of the model
  unsigned complaints;
};
std::ostream& operator<<(std::ostream& out, File const& file) { return out << file.name; }

class ConfigDbFile : public testing::TestWithParam<File> {};

TEST_P(ConfigDbFile, Loads) {
  std::string const file = dataFile(GetParam().name);
  NEEDS(file);
  Kel::Dir::Ptr const dir = Kel::dirFactory("");
  Report report;
  loadConfigDb(file, dir, report);
  EXPECT_EQ(report.entryCount(), GetParam().entries);
  EXPECT_EQ(report.complaints.size(), GetParam().complaints) << testing::PrintToString(report.complaints);
  std::string const text = Tests::dump(dir);
  EXPECT_GT(std::count(text.begin(), text.end(), '\n'), report.entryCount());
}

INSTANTIATE_TEST_SUITE_P(Real, ConfigDbFile,
                         testing::Values(File{"leaf-small.json", 11, 4}, File{"srv6-pe.json", 63, 5},
                                         File{"linecard.json", 151, 2}, File{"linecard-new-notation.json", 151, 2},
                                         File{"all-tables.json", 247, 155}));

TEST(ConfigDbFiles, NotationsOfReferencesAreEqual) {
  std::string trees[2];
  char const* const names[] = {"linecard.json", "linecard-new-notation.json"};
  for (int i = 0; i < 2; ++i) {
    std::string const file = dataFile(names[i]);
    NEEDS(file);
    Kel::Dir::Ptr const dir = Kel::dirFactory("");
    Report report;
    loadConfigDb(file, dir, report);
    trees[i] = Tests::dump(dir);
  }
  EXPECT_GT(std::count(trees[0].begin(), trees[0].end(), '\n'), 1000);
  EXPECT_EQ(trees[0], trees[1]);
}

// The attribute of a table's entries, or of their children, that a field is.
Kel::KelAttr const* attributeOfField(Table const& table, std::string const& field) {
  Kel::KelType const* const root = Kel::KelType::find(*[&] {
    for (Root const& r : roots())
      if (std::string_view(r.path) == table.root) return &r.type;
    throw std::runtime_error(table.root);
  }());
  Kel::KelType const* const entry = root->getAttr(table.attribute)->type();
  if (Kel::KelAttr const* const attr = attributeOf(table, *entry, field)) return attr;
  Kel::KelAttr const* const child = entry->findAttr("address");
  return child ? attributeOf(table, *child->type(), field) : nullptr;
}

// Every table and field of the description has its place, and is what the description says.
TEST(ConfigDbFiles, ModelIsComplete) {
  std::string const file = dataFile("model.json");
  NEEDS(file);
  std::map<std::string, std::string> const types = {
      {"str", "String8"},   {"u8", "U8"},   {"u16", "U16"},   {"u32", "U32"},          {"u64", "U64"},
      {"i8", "S8"},         {"i32", "S32"}, {"f64", "F64"},   {"bool", "bool"},        {"ip", "Ip"},
      {"prefix", "Prefix"}, {"mac", "Mac"}, {"hex16", "U16"}, {"hex/mask", "HexMask"}, {"ip|prefix", "IpOrPrefix"},
  };
  for (auto const& [tableName, description] : parsed(file).members) {
    Table const* const table = findTable(tableName);
    ASSERT_TRUE(table) << tableName;
    for (auto const& [field, value] : description.find("attributes")->members) {
      if (field == "NULL" || field == "*") continue;
      Kel::KelAttr const* const attr = attributeOfField(*table, field);
      ASSERT_TRUE(attr) << tableName << " " << field;
      std::string type = value.text;
      if (type.back() == '?') type.pop_back();
      EXPECT_EQ(attr->isCollection(), type.starts_with("list<")) << attr->fullName();
      EXPECT_EQ(attr->type()->isEnum(), type.starts_with("enum{")) << attr->fullName();
      if (auto const plain = types.find(type); plain != types.end()) {
        EXPECT_EQ(attr->type()->name().str(), plain->second) << attr->fullName();
      }
      std::size_t const ref = type.find("ref ");
      bool const modelled =
          ref != std::string::npos && findTable(type.substr(ref + 4, type.find_first_of("?|>", ref) - ref - 4));
      EXPECT_EQ(attr->isPtr(), modelled) << attr->fullName();
    }
  }
  EXPECT_EQ(tables().size(), parsed(file).members.size());
}

}  // namespace
