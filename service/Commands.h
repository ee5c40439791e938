// Edits as commands: `set`, `delete`, `insert`, `move`, typed by a person or rendered from differences.
//
//   set PATH VALUE              an attribute, or a member of a collection of values or pointers
//   set PATH [PARAMETER VALUE]… an entity: made with these constructor parameters, unless it is there with the same
//   delete PATH                 a member, a singleton, an entry; a value gets its default; a collection is emptied
//   insert PATH POSITION VALUE  an item of a queue, before the one at that position; `end`: behind the last
//   insert PATH POSITION [PARAMETER VALUE]…   an item that is an entity
//   move PATH FROM TO           an item of a queue: TO is the position that it has afterwards
//   create TYPE NAME [PARAMETER VALUE]… [absent] in PATH
//                               an entry of a directory, or a member of a type derived from the collection's
//
// A path that goes on below a key, or a singleton, that is not there makes it. A pointer's value is the path or the
// unique name of its target.
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

// The commands that turn the tree in front of the differences into the one behind them, in an order in which they can
// be applied: deletions, then what is made and set, then pointers.
CLI_SERVICE_API std::vector<std::string> commands(std::vector<Difference> const& differences);
// The commands that make an entity or attribute from its JSON (JsonTree.h), as in an empty tree.
CLI_SERVICE_API std::vector<std::string> commands(Path const& at, Json const& content);

// What one command did.
struct Applied {
  Path path;
  bool changed = false;
  std::vector<Path> created;   // entities, outermost first
  std::vector<Path> revived;   // pending references whose targets came
  std::vector<Path> dangling;  // references that lost their target; they are pending
  std::string text;            // one line for the person: "network/ports.port/Ethernet9 created, mtu set to 9000"
};

// Applies commands to the tree below a directory. One command is applied whole or not at all.
class CLI_SERVICE_API Editor {
 public:
  // Words are checked and spelt as a person's are, or, from a rendering, taken as they are written.
  enum class Source { person, rendering };
  // `pending`: the references of this tree that wait; must live as long as the editor. A person does not delete
  // entries of directories, nor creates them.
  Editor(Kel::Dir::Ptr base, PendingReferences& pending, Source source = Source::person);
  ~Editor();
  Editor(Editor const&) = delete;
  Editor& operator=(Editor const&) = delete;

  // `at`: where paths begin. Raises InputError, and then has changed nothing.
  Applied apply(std::span<std::string const> words, Path const& at = {});
  Applied apply(std::string_view line, Path const& at = {});
  // A list of commands, whole or not at all is up to the caller; deleted entities that come again under the same path
  // get the pointers back that led to them. Raises InputError naming the line.
  void applyAll(std::span<std::string const> lines);

  // Deletes what is at a path, as `delete` does.
  Applied remove(Path const& path);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

// Who points at an entity or below it, from outside of it. Cost: a walk over everything that may hold such pointers.
CLI_SERVICE_API std::vector<Path> referencesTo(Kel::Dir::Ptr const& base, Kel::Entity const& target);

}  // namespace Cli::Service
