// A configuration file, read and checked for its shape; nothing is loaded yet.
#pragma once

#include <string>
#include <vector>

#include "examples/config_db/Json.h"

namespace ConfigDb {

struct Source {
  std::string file;
  JsonDocument document;
  std::string wrapper;  // the name of the member that contains the tables; empty if the document itself does

  // The object that holds the tables.
  JsonValue const& tables() const;
};

// Raises LoadError.
Source readSource(std::string const& file);
// The same from a text; `file` is for messages. Entries may be in their tables, {"TABLE": {"KEY": {…}}}, or by
// themselves, {"TABLE|KEY": {…}}. Raises LoadError for a text without any table of the model, unless it is "{}".
Source sourceOf(std::string const& text, std::string const& file);

// The complaints about names that are given more than once.
std::vector<std::string> duplicateComplaints(Source const& source);

}  // namespace ConfigDb
