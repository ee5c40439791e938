// The tree during a load: the session roots, which are not in any directory yet.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Dir.h"
#include "Kel/GenericIf.h"
#include "examples/config_db/TableMap.h"
#include "service/Path.h"

namespace ConfigDb {

class Tree {
 public:
  Tree();

  Kel::KelType const& entryType(Table const& table) const { return *places_.at(&table).attr->type(); }
  // The entry of that name, which is made if it is missing; null if an entry of the table cannot have the name.
  Kel::GenericIf::Ptr entry(Table const& table, std::string const& name);
  // The same for a member of an entry's child collection.
  static Kel::GenericIf::Ptr child(Kel::GenericIf::Ptr const& entry, std::string const& collection,
                                   std::string const& name);

  // The entry, of a table with that type, to which a text refers ("name" or "[TABLE|name]"). Otherwise, what is wrong
  // with the text; both are empty if the reference needs no entry.
  struct Found {
    Kel::Entity::Ptr entity;
    std::string problem;
  };
  Found referred(Kel::KelType const& type, std::string_view text) const;
  // The paths that the target of a text would have: in the table that it names, or in each that may have it.
  std::vector<std::string> expected(Kel::KelType const& type, std::string_view text) const;
  // The name in the text of a reference.
  static std::string nameIn(std::string_view text);
  // The path that an entity of the tree will have.
  Cli::Service::Path pathOf(Kel::Entity const& entity) const;

  // Puts the roots into directories below `into`. If it raises LoadError, it has changed nothing.
  void attach(std::string const& file, Kel::Dir::Ptr const& into) const;

 private:
  struct Place {
    Kel::GenericIf::Ptr root;
    Kel::KelAttr const* attr;
  };
  std::vector<Table const*> const& tablesOf(Kel::KelType const& type) const;

  std::map<std::string, Kel::GenericIf::Ptr> roots_;
  std::map<Table const*, Place> places_;
  mutable std::map<Kel::KelType const*, std::vector<Table const*>> tablesOf_;
};

}  // namespace ConfigDb
