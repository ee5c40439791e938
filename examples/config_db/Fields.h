// Writes the fields of entries, and the parts of their keys, into their attributes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "examples/config_db/Json.h"
#include "examples/config_db/Loader.h"
#include "examples/config_db/Tree.h"

namespace ConfigDb {

// An entry to be written.
struct Entry {
  Table const* table = nullptr;
  std::string label;  // "TABLE|key", for complaints
  Kel::GenericIf::Ptr entity;
};

// Whether a value that was given would pass for one that was not.
bool looksAbsent(Kel::GenericIf const& value);

class Complaints {
 public:
  Complaints(std::string file, std::vector<std::string>& lines) : file_(std::move(file)), lines_(lines) {}
  // `where` is a table, an entry's label, or either and a field.
  void add(std::string const& where, std::string const& what);

 private:
  std::string const file_;
  std::vector<std::string>& lines_;
};

class FieldWriter {
 public:
  FieldWriter(Tree const& tree, Complaints& complaints, std::vector<Report::Dangling>& dangling)
      : tree_(tree), complaints_(complaints), dangling_(dangling) {}

  void keyPart(Entry const& entry, std::string const& attribute, std::string_view text) const;
  void field(Entry const& entry, std::string const& name, JsonValue const& value) const;

 private:
  void mapped(Entry const& entry, std::string const& name, JsonValue const& value) const;
  void single(Entry const& entry, Kel::KelAttr const& attr, std::string const& name, std::string_view text) const;
  void many(Entry const& entry, Kel::KelAttr const& attr, std::string const& name, JsonValue const& value) const;
  void one(Entry const& entry, Kel::KelAttr const& attr, std::string const& name, std::string_view text) const;
  void complain(Entry const& entry, std::string const& field, std::string const& what) const;
  Kel::GenericIf::Ptr converted(Entry const& entry, std::string const& field, Kel::KelType const& type,
                                Kel::KelAttr const* pointer, std::string_view text, char const* done) const;

  Tree const& tree_;
  Complaints& complaints_;
  std::vector<Report::Dangling>& dangling_;
};

}  // namespace ConfigDb
