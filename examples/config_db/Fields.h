// Writes the fields of entries, and the parts of their keys, into their attributes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "examples/config_db/Json.h"
#include "examples/config_db/Tree.h"
#include "service/PendingReferences.h"

namespace ConfigDb {

// An entry to be written.
struct Entry {
  Table const* table = nullptr;
  std::string label;  // "TABLE|key", for complaints
  Kel::GenericIf::Ptr entity;
};

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
  // `dangling` gets the references that lead nowhere.
  FieldWriter(Tree const& tree, Complaints& complaints, std::vector<Cli::Service::PendingReference>& dangling)
      : tree_(tree), complaints_(complaints), dangling_(dangling) {}

  void keyPart(Entry const& entry, std::string const& attribute, std::string_view text) const;
  void field(Entry const& entry, std::string const& name, JsonValue const& value) const;

 private:
  void mapped(Entry const& entry, std::string const& name, JsonValue const& value) const;
  void single(Entry const& entry, Kel::KelAttr const& attr, std::string const& name, std::string_view text) const;
  void many(Entry const& entry, Kel::KelAttr const& attr, std::string const& name, JsonValue const& value) const;
  void one(Entry const& entry, Kel::KelAttr const& attr, std::string const& name, std::string_view text) const;
  void complain(Entry const& entry, std::string const& field, std::string const& what) const;
  Kel::GenericIf::Ptr converted(Entry const& entry, std::string const& field, Kel::KelType const& type, bool pointer,
                                std::string_view text, char const* done) const;

  // Notes a reference that leads nowhere. `key`: of the member that is the reference; `member`: the member under the
  // key that is the reference.
  void noteDangling(Entry const& entry, Kel::KelAttr const& attr, std::string_view text, Kel::GenericIf::PtrConst key,
                    Kel::GenericIf::PtrConst const& member) const;

  Tree const& tree_;
  Complaints& complaints_;
  std::vector<Cli::Service::PendingReference>& dangling_;
};

}  // namespace ConfigDb
