// Edits as commands: `set`, `delete`, `insert`, `move`, typed by a person or rendered from differences.
//
//   set PATH VALUE              an attribute, or a member of a collection of values or pointers
//   set PATH [PARAMETER VALUE]… an entity: made with these constructor parameters, unless it has them already
//   delete PATH                 a member, a singleton, an entry; a value gets its default; a collection is emptied
//   insert PATH POSITION VALUE  an item of a queue, before the one at that position; `end`: after the last
//   insert PATH POSITION [PARAMETER VALUE]…   an item that is an entity
//   move PATH FROM TO           an item of a queue: TO is the position that it has afterwards
//   create TYPE NAME [PARAMETER VALUE]… [absent] in PATH
//                               an entry of a directory, or a member of a type derived from the collection's
//
// Members and singletons on the way that do not exist are made. A pointer's value is the path or the unique name of its
// target. Rendered commands may name several possible targets of a pointer that is pending.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "service/Export.h"
#include "service/InputError.h"
#include "service/PathWords.h"
#include "service/PendingReferences.h"

namespace Cli::Service {

struct Difference;

// The commands that apply the differences, in an order that works: deletions first, then creations and values, then
// pointers.
CLI_SERVICE_API std::vector<std::string> commands(std::vector<Difference> const& differences);
// The commands that make an entity or attribute from its JSON (JsonTree.h), as in an empty tree.
CLI_SERVICE_API std::vector<std::string> commands(Path const& at, Json const& content);

// What one command did.
struct Applied {
  Path path;
  bool changed = false;
  std::vector<Path> created;   // entities, outermost first
  std::vector<Path> revived;   // references that were pending and have their targets now
  std::vector<Path> dangling;  // references that lost their target; they are pending
  std::string text;            // one line for the user: "network/ports.port/Ethernet9 created, mtu set to 9000"
};

// Applies commands to the tree below a directory. Each operation is carried out whole or not at all: if anything raises
// (a refusal, a reactor, a hook, an allocation), the tree is as it was, with the same entities, and so are the pending
// references. If a reactor refuses the write that takes a step back, this is tried four times, and then the step is
// left as it is.
class CLI_SERVICE_API Editor {
 public:
  // `person`: words are checked and brought into one spelling, and entries of directories are neither created nor
  // deleted. `rendering`: words are taken as `commands` writes them.
  enum class Source { person, rendering };
  // `pending`: the pending references of this tree. REQUIRES: `pending` outlives the editor.
  Editor(Kel::Dir::Ptr base, PendingReferences& pending, Source source = Source::person);
  ~Editor();
  Editor(Editor const&) = delete;
  Editor& operator=(Editor const&) = delete;

  // `at`: where paths begin. Raises InputError for a command that cannot be carried out.
  Applied apply(std::span<std::string const> words, Path const& at = {});
  Applied apply(std::string_view line, Path const& at = {});
  // Applies a list of commands, all or none. Pointers to an entity that is deleted and made again under the same path
  // lead to the new one. Raises InputError naming the line.
  void applyAll(std::span<std::string const> lines);

  // Deletes what is at a path, as `delete` does.
  Applied remove(Path const& path);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

// The pointers from outside of an entity to it or to what is below it. Cost: a walk over everything that may hold such
// pointers.
CLI_SERVICE_API std::vector<Path> referencesTo(Kel::Dir::Ptr const& base, Kel::Entity const& target);
// The same for what is at or below a path; of a collection, for its members.
CLI_SERVICE_API std::vector<Path> referencesTo(Kel::Dir::Ptr const& base, Path const& path);

}  // namespace Cli::Service
