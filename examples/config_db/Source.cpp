#include "examples/config_db/Source.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "examples/config_db/Loader.h"
#include "examples/config_db/TableMap.h"

namespace ConfigDb {

namespace {

constexpr std::uintmax_t maxFileSize = 64U << 20;

[[noreturn]] void fail(std::string const& file, std::string const& what) { throw LoadError(file + ": " + what); }

[[noreturn]] void fail(std::string const& file, JsonPlace place, std::string const& what) {
  fail(file + ":" + std::to_string(place.line) + ":" + std::to_string(place.column), what);
}

std::string contents(std::string const& file) {
  std::error_code error;
  auto const status = std::filesystem::status(file, error);
  if (error || !std::filesystem::exists(status)) fail(file, "cannot be read: " + error.message());
  if (!std::filesystem::is_regular_file(status)) fail(file, "is no regular file");
  std::uintmax_t const size = std::filesystem::file_size(file, error);
  if (error) fail(file, "cannot be read: " + error.message());
  if (size > maxFileSize) fail(file, "is bigger than " + std::to_string(maxFileSize) + " bytes");
  std::ifstream in(file, std::ios::binary);
  std::string text(static_cast<std::size_t>(size), '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!in) fail(file, "cannot be read");
  return text;
}

bool holdsTables(JsonValue const& value) {
  return std::any_of(value.members.begin(), value.members.end(),
                     [](JsonMember const& member) { return findTable(member.name); });
}

// The member that holds the tables, in a document that does not hold them itself.
std::string wrapperIn(std::string const& file, JsonValue const& value) {
  std::string wrapper;
  for (auto const& [name, member] : value.members) {
    if (!holdsTables(member)) continue;
    if (!wrapper.empty()) fail(file, member.place, "tables in \"" + wrapper + "\" and in \"" + name + "\"");
    wrapper = name;
  }
  return wrapper;
}

// Puts entries that stand by themselves, "TABLE|KEY", into their tables.
void gatherFlatEntries(JsonValue& value) {
  std::vector<JsonMember> members;
  for (JsonMember& member : value.members) {
    std::size_t const bar = member.name.find('|');
    std::string const name = bar == std::string::npos ? std::string() : member.name.substr(0, bar);
    if (name.empty() || !findTable(name)) {
      members.push_back(std::move(member));
      continue;
    }
    auto table = std::find_if(members.begin(), members.end(), [&](JsonMember const& m) { return m.name == name; });
    if (table == members.end()) {
      JsonValue made;
      made.kind = JsonValue::Kind::object;
      made.place = member.value.place;
      table = members.insert(members.end(), JsonMember{name, made});
    }
    table->value.members.push_back({member.name.substr(bar + 1), std::move(member.value)});
  }
  value.members = std::move(members);
}

// Checks that the tables and entries of the model are objects, or null if they are empty.
void checkShape(Source const& source) {
  auto const check = [&](std::string const& name, JsonValue const& value) {
    if (value.isObject() || value.kind == JsonValue::Kind::null) return;
    fail(source.file, value.place, name + ": an object expected, not " + kindName(value.kind));
  };
  for (auto const& [tableName, table] : source.tables().members) {
    if (!findTable(tableName)) continue;
    check(tableName, table);
    for (auto const& [key, entry] : table.members) check(tableName + "|" + key, entry);
  }
}

}  // namespace

JsonValue const& Source::tables() const { return wrapper.empty() ? document.value : *document.value.find(wrapper); }

Source readSource(std::string const& file) { return sourceOf(contents(file), file); }

Source sourceOf(std::string const& text, std::string const& file) {
  Source source;
  source.file = file;
  try {
    source.document = parseJson(text, JsonLimits());
  } catch (JsonError const& e) {
    fail(file, e.place, e.what());
  }
  JsonValue& value = source.document.value;
  if (!value.isObject())
    fail(file, value.place, std::string("an object of tables expected, not ") + kindName(value.kind));
  gatherFlatEntries(value);
  if (!holdsTables(value)) source.wrapper = wrapperIn(file, value);
  if (!value.members.empty() && source.wrapper.empty() && !holdsTables(value))
    fail(file, value.place, "no configuration of the config_db form: no table of the model is in it");
  checkShape(source);
  return source;
}

std::vector<std::string> duplicateComplaints(Source const& source) {
  std::vector<std::string> complaints;
  for (JsonDuplicate const& duplicate : source.document.duplicates) {
    bool const wrapped = !source.wrapper.empty() && duplicate.path.front() == source.wrapper;
    std::size_t const first = wrapped && duplicate.path.size() > 1 ? 1 : 0;
    std::string where;
    for (std::size_t i = first; i < duplicate.path.size(); ++i)
      where += (i == first ? "" : i == first + 1 ? "|" : ": ") + duplicate.path[i];
    complaints.push_back(source.file + ": " + where + ": given again in line " + std::to_string(duplicate.place.line) +
                         ", the last one taken");
  }
  return complaints;
}

}  // namespace ConfigDb
