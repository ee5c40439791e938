// Configurations of the config_db form, edited at random.
#pragma once

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "examples/config_db/TableMap.h"
#include "service/Commands.h"
#include "service/Difference.h"
#include "service/Json.h"

namespace Tests {

using Cli::Service::Json;

// The sample, and configurations of real devices, which are not part of the project and may not be there.
inline std::vector<std::string> configDbFiles() {
  std::vector<std::string> all{CONFIG_DB_SAMPLE};
  char const* const dir = std::getenv("CONFIG_DB_DATA");
  for (char const* name : {"leaf-small", "srv6-pe", "linecard", "linecard-new-notation", "all-tables"})
    all.push_back(std::string(dir ? dir : CONFIG_DB_DATA) + "/" + name + ".json");
  return all;
}

// Of a test on a file.
inline std::string testName(std::string const& file) {
  std::string name = std::filesystem::path(file).stem();
  std::erase_if(name, [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); });
  return name;
}

// Tables of a file, edited at random: entries and fields removed, given the values of others, added under new keys.
class FileEditor {
 public:
  explicit FileEditor(unsigned seed) : seed_(seed), random_(seed) {}

  // An edit of the table of the seed's number, and up to eleven of others.
  void edit(Json& file) {
    Json& tables = tablesOf(file);
    auto first = tables.begin();
    std::advance(first, seed_ % tables.size());
    editEntry(first.value());
    for (std::size_t n = below(12); n > 0; --n) editEntry(pick(tables).value());
  }

 private:
  std::size_t below(std::size_t n) { return random_() % n; }
  static Json& tablesOf(Json& file) {
    if (file.size() == 1 && !ConfigDb::findTable(file.begin().key())) return file.begin().value();
    return file;
  }
  Json::iterator pick(Json& object) {
    auto it = object.begin();
    std::advance(it, below(object.size()));
    return it;
  }
  void editEntry(Json& table) {
    if (!table.is_object() || table.empty()) return;
    auto const entry = pick(table), other = pick(table);
    switch (below(4)) {
      case 0: table.erase(entry.key()); return;
      case 1: entry.value() = other.value(); return;
      case 2: {
        std::string key = entry.key();
        for (char& c : key)
          if (c >= '1' && c <= '8' && below(2)) ++c;
        Json const value = other.value();
        table[key] = value;
        return;
      }
      default:
        if (!entry.value().is_object() || entry.value().empty()) return;
        auto const field = pick(entry.value());
        if (below(2) && other.value().is_object() && !other.value().empty()) {
          auto const from = pick(other.value());
          Json const value = from.value();
          entry.value()[from.key()] = value;
        } else {
          entry.value().erase(field.key());
        }
    }
  }

  unsigned seed_;
  std::mt19937 random_;
};

// Whether a tree's entry says that the file gave a value, be it 0 or false.
inline bool isGiven(Cli::Service::Tree const& tree, std::span<std::string const> words) {
  auto const place = Cli::Service::locate(tree.dir, Cli::Service::readPath(tree.dir, {}, words).path);
  Kel::KelAttr const* const present = place.entity->type()->findAttr("present");
  if (!present || !place.attr || place.attr->isCollection() || !place.attr->type()->isBuiltin()) return true;
  if (place.attr->type()->builtin() == Kel::KelType::Builtin::string) return true;
  auto const gif = Kel::GenericIf::ofEntity(place.entity);
  return gif->attribute(present->id(), Kel::GenericIf::of(place.attr->name())).ptr() != nullptr;
}

// The commands that a person types to turn one tree into another: those that are rendered, but that a value was given
// as 0 or false follows from its being typed, and one that is not given any more is deleted.
inline std::vector<std::string> typedCommands(Cli::Service::Tree const& from, Cli::Service::Tree const& to) {
  std::vector<std::string> lines;
  for (std::string const& line : Cli::Service::commands(Cli::Service::differences(from, to))) {
    Cli::Service::Words words = Cli::Service::splitWords(line);
    std::size_t const count = words.size();
    bool const set = words[0] == "set";
    if (set && count > 3 && words[count - 3] == "present") {
      words.erase(words.end() - 3);
      words.back() = "0";
    } else if (words[0] == "delete" && words[count - 2] == "present") {
      words.erase(words.end() - 2);
    } else if (set && (words.back() == "0" || words.back() == "false") &&
               !isGiven(to, std::span(words).subspan(1, count - 2))) {
      words[0] = "delete";
      words.pop_back();
    }
    lines.push_back(Cli::Service::joinedWords(words));
  }
  return lines;
}

}  // namespace Tests
