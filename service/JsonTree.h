// Trees as JSON, for every model, through the type records.
//
// An entity is an object of its attributes by name, in the order of the model: the writable, logging ones, and its
// constructor parameters. Left out are the parameter that is its key in a collection, and the index in a queue. A
// keyed collection is an object by the texts of its keys; a queue is an array; a pointer is the path of its target
// (service/Path.h), and a pending one with several possible targets an array of their paths; null is a null pointer or
// an absent singleton. A value type is an object of its fields, a representation value is its field. Numbers that JSON
// lacks are "nan", "infinity" and "-infinity"; text that is not UTF-8 is {"$bytes": "hexadecimal digits"}; an
// enumerator without a name is its number.
//
// A directory is an object of its entries, each with "$type" first. On import, "$type" may be missing from directories,
// and from entries that exist. An announced entry, whose entity does not exist yet, has "$absent": true. An entity of a
// type derived from the attribute's has "$type", too. An entry's name that begins with '$' gets another '$' in front. A
// collection with keys that have no text (value types, null pointers) is an array of {"$key": …, "$value": …}.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "service/Export.h"
#include "service/InputError.h"
#include "service/Json.h"
#include "service/Path.h"
#include "service/PendingReferences.h"

namespace Cli::Service {

struct ExportOptions {
  // If false, attributes that have their type's default, and empty collections, are left out.
  bool defaults = false;
  // Null pointers that are pending here are written as the texts of their targets.
  PendingReferences const* pending = nullptr;
  // If false, pointers, and collections that are keyed by them, are left out.
  bool references = true;
};

// `base`: the directory that paths are relative to. Cost: proportional to what is exported.
CLI_SERVICE_API Json exportEntity(Kel::Entity const& entity, Kel::Entity const& base, ExportOptions const& = {});
// One attribute: a value, a pointer, a singleton, a whole collection.
CLI_SERVICE_API Json exportAttribute(Kel::Entity const& owner, Kel::KelAttr const& attr, Kel::Entity const& base,
                                     ExportOptions const& = {});
// A value or a pointer's target, as exportAttribute writes it.
CLI_SERVICE_API Json exportValue(Kel::GenericIf const* value, Kel::Entity const& base);
// True if an attribute has the content that it has in a new entity of the type.
CLI_SERVICE_API bool hasDefault(Kel::Entity const& owner, Kel::KelAttr const& attr);

enum class ValueRule {
  checked,   // as a user's: checked and brought into one spelling, see ValueText.h; a type's default is always accepted
  asWritten  // anything that the type can hold
};
// The value of a type. Raises InputError saying what was expected.
CLI_SERVICE_API Kel::GenericIf::Ptr valueFromJson(Kel::KelType const& type, Json const& json,
                                                  ValueRule = ValueRule::checked);

struct ImportOptions {
  // True: adds and sets what the JSON names, and leaves everything else as it is. False: the place becomes what the
  // JSON says, and what the JSON leaves out is deleted or gets its default. Either way, a queue that it names is
  // replaced.
  bool merge = false;
  ValueRule values = ValueRule::checked;
  PendingReferences* pending = nullptr;  // gets dangling references, as the report does
  // Entries at these paths are emptied instead of deleted, and so are directories on the way to them.
  std::vector<std::string> const* roots = nullptr;
};
struct ImportReport {
  std::vector<PendingReference> dangling;  // left null, or left out when they are keys
  std::size_t entities = 0;                // made
  std::size_t values = 0;                  // changed
};

// The message is "FILE:LINE: PATH: what is wrong", without a file and line if there are none.
class CLI_SERVICE_API ImportError : public InputError {
 public:
  ImportError(std::string const& file, std::size_t line, std::string const& path, std::string const& what);
  ~ImportError() override;
  ImportError(ImportError const&) = default;

  std::size_t line() const { return line_; }  // 0: none
  std::string const& path() const { return path_; }

 private:
  std::size_t line_;
  std::string path_;
};

// Puts JSON into the tree at a path: an entity, an attribute, a member. Everything is checked before anything is
// changed. If something raises later (a reactor, an allocation), the writes are taken back: the tree is as it was, with
// the same entities. References are resolved last, so they may lead to what the JSON makes. An entity that exists with
// the same constructor parameters is kept, with the handles and pointers to it. REQUIRES: the owners on the path exist.
CLI_SERVICE_API ImportReport importJson(Kel::Dir::Ptr const& base, Path const& at, Json const& json,
                                        ImportOptions const& = {});
// The same from a text; `file` is its name in messages. Raises ImportError also for a text that is not JSON, has more
// than 64 MiB or 200 levels, or a name twice in an object.
CLI_SERVICE_API ImportReport importText(Kel::Dir::Ptr const& base, Path const& at, std::string const& file,
                                        std::string_view text, ImportOptions const& = {});

}  // namespace Cli::Service
