// Places in a tree, relative to the directory that holds the session roots.
//
// A path is the same in every tree: the running configuration, a session, an ancestor. So it names a member of a queue
// by its position (0 is the head), not by its index, which differs between equal trees; and it names a key that is a
// pointer by the path of the target.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Dir.h"
#include "Kel/GenericIf.h"
#include "service/Export.h"
#include "service/InputError.h"

namespace Cli::Service {

// One step down from an entity: to an entry of a directory, an attribute, or a member of a collection.
struct CLI_SERVICE_API PathStep {
  Kel::Name entry;                     // of a directory; empty: an attribute
  Kel::KelAttr const* attr = nullptr;  // null: a directory's entry
  // Null: the attribute itself, or a singleton. Otherwise a value of the collection's key type; for a queue the
  // position, a U32; for a key that is a pointer the text of the target's path, a String8, empty for a null pointer.
  Kel::GenericIf::PtrConst key;

  // The key as it appears in a path; empty if there is none.
  std::string keyText() const { return key ? key->text().str() : std::string(); }

  bool operator==(PathStep const& other) const;
  // Entries by name; attributes in the order of the model; keys by value, numbers as numbers.
  std::strong_ordering operator<=>(PathStep const& other) const;
};

CLI_SERVICE_API PathStep entryStep(Kel::Name name);
CLI_SERVICE_API PathStep attributeStep(Kel::KelAttr const& attr);
CLI_SERVICE_API PathStep memberStep(Kel::KelAttr const& attr, Kel::GenericIf::PtrConst key);
CLI_SERVICE_API PathStep queueStep(Kel::KelAttr const& attr, std::size_t position);

struct CLI_SERVICE_API Path {
  std::vector<PathStep> steps;

  // The dotted form, which is printed: "network/ports.port/Ethernet0.mtu".
  std::string text() const;
  // The form that is typed: "network", "ports", "port", "Ethernet0", "mtu".
  std::vector<std::string> words() const;
  // The words as one line of a command, quoted if necessary.
  std::string line() const;

  bool empty() const { return steps.empty(); }
  // The position of a member of a queue. Raises std::logic_error if the last step is not such a member.
  std::size_t position() const;
  Path operator/(PathStep step) const;
  // Without the last step; the empty path's is empty.
  Path parent() const;
  // True if the path is `top`, or below it.
  bool isWithin(Path const& top) const;

  bool operator==(Path const&) const = default;
  std::strong_ordering operator<=>(Path const& other) const;
};

// The path of an entity relative to `base`; empty if it is not below it. Cost: the length of the path, and for each
// queue on the way the member's position.
CLI_SERVICE_API std::optional<Path> pathOf(Kel::Entity const& entity, Kel::Entity const& base);
// The text of the path of a pointer's target: relative to `base`, or from the tree's root, with a leading '/', for a
// target elsewhere in the same tree. Empty for a target that has left the tree.
CLI_SERVICE_API std::string targetText(Kel::Entity const& target, Kel::Entity const& base);

// Where a path leads in a tree.
struct Place {
  Kel::Entity::Ptr entity;             // the place itself, or the owner of `attr`; null: not even the owner exists
  Kel::KelAttr const* attr = nullptr;  // null: the place is `entity`
  // The member's key in this tree: a queue's index, a pointer's target. Null: no member, or a null pointer.
  Kel::GenericIf::PtrConst key;
  bool isMember = false;    // a member of a collection of values or pointers; an entity as member is `entity`
  std::size_t missing = 0;  // how many steps at the end of the path lead nowhere
  bool there() const { return missing == 0; }
};

// Looks up a path. A value or a single pointer is always there, null or not; a member, a singleton or an entry only if
// it exists.
CLI_SERVICE_API Place locate(Kel::Dir::Ptr const& base, Path const& path);
// The entity at a path; null if there is none, or if the path leads to a value.
CLI_SERVICE_API Kel::Entity::Ptr entityAt(Kel::Dir::Ptr const& base, Path const& path);
// The target of a pointer from its text (see targetText); null if it leads nowhere.
CLI_SERVICE_API Kel::Entity::Ptr targetAt(Kel::Dir::Ptr const& base, std::string_view text);

// Parses the dotted form. Entries of directories must exist; members of collections need not. Keys may contain '/' and
// '.': a key ends where an existing member's key ends, or else where the rest of the text is a path of the model.
// Raises InputError, which says how far the path leads.
CLI_SERVICE_API Path parsePath(Kel::Dir::Ptr const& base, std::string_view text);

}  // namespace Cli::Service
