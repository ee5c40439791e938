// Trees as JSON, for every model, through the type records.
//
// An entity is an object of its attributes by name, in the order of the model: the writable, logging ones, and its
// constructor parameters. Left out are the parameter that is its key in a collection, and the index in a queue. A
// keyed collection is an object by the texts of its keys; a queue is an array; a pointer is the path of its target
// (service/Path.h); null is a null pointer or a singleton that is not there. A value type is an object of its fields, a
// representation value what it represents. A number that JSON has none for is "nan", "infinity" or "-infinity"; text
// that is not UTF-8 is {"$bytes": "hexadecimal digits"}; an enumerator without a name is its number. A directory is an
// object of its entries, each with "$type" in front (read, it may be missing from directories, and from entries that
// are there); an entry whose entity is to come has "$absent": true. An entity of a type derived from the attribute's
// has "$type", too. A name of an entry that begins with '$' gets another one in front. A collection with keys that have
// no text of their own (value types, null pointers) is an array of {"$key": …, "$value": …}.
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
  // Attributes that have their type's default, and empty collections, are left out unless this is set.
  bool defaults = false;
  // Pointers that are null and pending here are written as the texts that they wait for.
  PendingReferences const* pending = nullptr;
  // Pointers, and collections that are keyed by them, are left out unless this is set.
  bool references = true;
};

// `base`: the directory that paths are relative to. Cost: proportional to what is exported.
CLI_SERVICE_API Json exportEntity(Kel::Entity const& entity, Kel::Entity const& base, ExportOptions const& = {});
// One attribute: a value, a pointer, a singleton, a whole collection.
CLI_SERVICE_API Json exportAttribute(Kel::Entity const& owner, Kel::KelAttr const& attr, Kel::Entity const& base,
                                     ExportOptions const& = {});
// A value, or a pointer's target, that `attr` holds or may hold: what exportAttribute gives, or a member of it.
CLI_SERVICE_API Json exportValue(Kel::GenericIf const* value, Kel::Entity const& base);
// True if an attribute has the content that a new entity of the type has in it.
CLI_SERVICE_API bool hasDefault(Kel::Entity const& owner, Kel::KelAttr const& attr);

enum class ValueRule {
  checked,   // spelt and checked as a person's are, see ValueText.h; a type's default is always taken
  asWritten  // what the type itself can hold
};
// The value of a type. Raises InputError saying what was expected.
CLI_SERVICE_API Kel::GenericIf::Ptr valueFromJson(Kel::KelType const& type, Json const& json,
                                                  ValueRule = ValueRule::checked);

struct ImportOptions {
  // Adds and sets what the JSON names, and leaves everything else. Otherwise the place becomes what the JSON says: what
  // it leaves out goes, or gets its default. A queue that is named is replaced either way.
  bool merge = false;
  ValueRule values = ValueRule::checked;
  PendingReferences* pending = nullptr;  // gets references that dangle, next to the report
  // Entries at these paths are emptied instead of deleted, and so are directories on the way to them.
  std::vector<std::string> const* roots = nullptr;
};
struct ImportReport {
  std::vector<PendingReference> dangling;  // left null, or left out when they are keys
  std::size_t entities = 0;                // made
  std::size_t values = 0;                  // set to something else than before
};

// The message is "FILE:LINE: PATH: what is wrong" as far as there are a file and a line.
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

// Puts JSON into the tree at a path: an entity, an attribute, a member. What is on the way must be there. Everything is
// checked before anything is changed, and what raises later (a reactor, an allocation) has its writes taken back: the
// tree is as it was, with the same entities. References are resolved last, so that they may lead to what the same JSON
// makes, and to what is in the tree. An entity that is there with the same constructor parameters is kept; its handles
// and pointers to it stay good.
CLI_SERVICE_API ImportReport importJson(Kel::Dir::Ptr const& base, Path const& at, Json const& json,
                                        ImportOptions const& = {});
// The same from a text; `file` is its name in messages. Raises ImportError for what is no JSON, too: at most 64 MiB,
// 200 levels, no name twice in an object.
CLI_SERVICE_API ImportReport importText(Kel::Dir::Ptr const& base, Path const& at, std::string const& file,
                                        std::string_view text, ImportOptions const& = {});

}  // namespace Cli::Service
