// The differences between two trees, as one list to show, compare, store, apply and undo.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "service/Json.h"
#include "service/Path.h"

namespace Cli::Service {

enum class DifferenceKind {
  created,
  deleted,
  changed,
  reordered  // queues only: a run of items was moved
};
CLI_SERVICE_API char const* text(DifferenceKind kind);

// One node that differs. It has its own copy of the contents, and stays valid when the trees change or are destroyed.
//
// A node is an attribute that holds a value or a pointer, a member of a collection of these, an owned entity, an entry
// of a directory, or a run of items of a queue. A created or deleted entity is one difference, with its whole content.
// An entity that was replaced by another (other constructor parameters, or another type) is `changed`, with the whole
// contents of both.
struct Difference {
  DifferenceKind kind = DifferenceKind::changed;
  Path path;                           // of a run: of the queue
  Kel::KelType const* type = nullptr;  // the type of the owner of `attr`; of a directory's entry: Kel::Dir
  Kel::KelAttr const* attr = nullptr;  // null: a directory's entry
  // The contents on both sides; null if there is none. A pointer: the path of its target, relative to its tree; null
  // for a null pointer. An entity: as JsonTree.h exports it. A run: an array of its items.
  Json before, after;

  // A run of items: where it begins in the queue, counted from 0, before and after. A run that was moved is one
  // difference `reordered` with the same content on both sides.
  struct Run {
    Kel::U32 from = 0, to = 0;
    bool operator==(Run const&) const = default;
  };
  std::optional<Run> run;

  // Whether the node is an owned entity or an entry of a directory.
  bool isEntity() const { return !run && (!attr || attr->instantiating()); }
};

// The list that takes these differences back. REQUIRES: `differences` is complete, because positions in queues are
// counted anew.
CLI_SERVICE_API std::vector<Difference> inverse(std::vector<Difference> const& differences);

// A tree as the service knows it: the session roots below a directory. Roots are paths relative to it ("sys/annex").
struct Tree {
  Kel::Dir::Ptr dir;
  std::vector<std::string> const* roots = nullptr;
};

// What makes `from` equal to `to`, in the order of the copy engine's walk. Positions and paths below queues are those
// of `from`. Changes neither tree. Cost: a walk over both trees.
CLI_SERVICE_API std::vector<Difference> differences(Tree const& from, Tree const& to);

// Applies differences to a tree, as a whole or not at all: if anything raises (a reactor, an allocation, a bad
// content), what was written is taken back, and the exception passes through. Pointers without a target are left null;
// the result lists them. REQUIRES: the nodes that the differences name are as `before` says.
CLI_SERVICE_API std::vector<Path> carryOut(std::vector<Difference> const& differences, Tree const& tree);

// Differences as bytes, for a store or a wire. `differencesOf` raises Kel::RangeException for damaged bytes, and for
// types and attributes that this process does not have.
CLI_SERVICE_API std::string bytesOf(std::vector<Difference> const& differences);
CLI_SERVICE_API std::vector<Difference> differencesOf(std::string_view bytes);

// One line of text: "created network/ports.port/Ethernet0", "changed a.b.mtu: 1500 -> 9000".
CLI_SERVICE_API std::string text(Difference const& difference);

}  // namespace Cli::Service
