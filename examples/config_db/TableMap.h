// Maps the tables of a file to places in the tree, and fields to attributes, where the type records do not imply them.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/KelType.h"

namespace ConfigDb {

struct Root {
  char const* path;  // relative to the directory loaded into
  char const* type;  // full type name
};

// A part of a composite key. Its value is in an attribute of the entry, or of the entry's child whose key the part is.
struct KeyPart {
  std::string attribute;  // of the entry, or of the child; empty: the part is in the name only
  std::string child;      // the child collection; empty: none
  bool optional = false;  // the first part of a key may be missing
};

struct Table {
  char const* name;
  char const* root;       // its root's path
  char const* attribute;  // the root's attribute that holds the entries
  // The parts of the key, by '|'. A part is an attribute's name, nothing, or "child.attribute"; a '?' behind it:
  // optional. "=word": the one key there is, of a singleton.
  char const* key;

  bool isSingleton() const { return key[0] == '='; }
  std::vector<KeyPart> keyParts() const;
};

std::span<Root const> roots();
std::span<Table const> tables();
// Null if the model does not have the table.
Table const* findTable(std::string_view name);

// Whether every device has that entry although files do not list it. A reference to it is null.
bool isImplied(Table const& table, std::string_view entry);

// The attribute that has the values of all fields of a table whose field names are data; null for any other table.
char const* mapAttribute(Table const& table);

// The attribute of `type` (an entry of the table, or a child of one) for a field; null if there is none.
Kel::KelAttr const* attributeOf(Table const& table, Kel::KelType const& type, std::string_view field);

}  // namespace ConfigDb
