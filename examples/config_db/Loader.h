// Loads the configuration of a switch from a file of the config_db form (table, key, field, value) into a directory: a
// tree of the entities that ConfigDb.kel declares. Everything is made and written through the reflective interface.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/Dir.h"
#include "service/PendingReferences.h"

namespace ConfigDb {

// The file cannot be loaded: it is unreadable, not JSON, or of another shape. The message begins with the file, and
// with line and column if they are known.
class LoadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The result of a load.
struct Report {
  // First about names given twice, then about tables and keys, then about fields:
  // "file: TABLE|key: field: what is wrong, what was done about it".
  std::vector<std::string> complaints;
  // The tables that were loaded, with the number of their entries. An address of an interface is an entry.
  std::map<std::string, unsigned> entries;

  // References that lead nowhere: their places, relative to the directory loaded into, and their texts.
  std::vector<Cli::Service::PendingReference> dangling;

  unsigned entryCount() const;
};

struct SessionRoot {
  std::string path;      // relative to the directory loaded into: "network/ports"
  std::string typeName;  // "ConfigDb::Ports"
};

// The entities that a load makes in directories, in the order of their paths. Every load makes all of them.
std::vector<SessionRoot> const& sessionRoots();

// Loads a file. Uses directories that exist. If it raises LoadError, it has changed nothing. REQUIRES: `into` has none
// of the session roots.
void loadConfigDb(std::string const& file, Kel::Dir::Ptr const& into, Report& report);
// The same from a text; `file` is for messages.
void loadConfigDbText(std::string const& text, std::string const& file, Kel::Dir::Ptr const& into, Report& report);

}  // namespace ConfigDb
