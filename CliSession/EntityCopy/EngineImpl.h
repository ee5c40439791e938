// The engine's private state, and the functions that its parts share.
#pragma once

#include <map>
#include <memory>
#include <tuple>
#include <vector>

#include "CliSession/EntityCopy.h"
#include "CliSession/EntityCopy/Counterparts.h"
#include "CliSession/EntityCopy/Depth.h"
#include "Kel/Assert.h"

namespace Cli::Session {

class EntityCopy::Impl {
 public:
  Kel::U32 depth = 0;
  // What walks have looked up is valid for one generation. A new one begins with each walk, and after foreign code
  // (handlers, reactors, bypass checkers) has run.
  Kel::U64 generation = 1;
  Counterparts counterparts;
  // Runs make no log and count no edits, unless the copy is given a log or a trace handle is on. For copies whose log
  // is discarded without being read.
  bool unlogged = false;

  // The log's entries for each step: two a step, set and delete. An entry is valid for its generation.
  struct CountedEntry {
    AttributeEditEntry* entry = nullptr;  // null: foreign code or a debug action has to see these edits
    Kel::U64 generation = 0;
  };
  std::vector<CountedEntry> entries;

  // An index of the waiting pointers, by what they will set: the destination, its attribute and, for a member, the key
  // in the source (the entity, or the text of a value). It may have records that no longer wait, until the run ends.
  // `tree` is the root of the tree that the destination was in; it is compared, never dereferenced.
  using PendingKey = std::tuple<Kel::Entity const*, Kel::KelAttr const*, Kel::Entity const*, Kel::String8>;
  struct Pending {
    Kel::Ptr<AttributeCopy> record;
    Kel::Entity const* tree;
  };
  std::map<PendingKey, Pending> pending;

  static Impl& of(EntityCopy& ec) {
    if (!ec.impl()) ec.impl() = std::make_shared<Impl>();
    return *ec.impl();
  }
};

// For operations that are called by name: raises "null ValidPtr" if an argument is null.
template <class... P>
void requireNonNull(P const&... args) {
  if (!(args && ...)) Kel::throwNullValidPtr();
}

// The destination's attribute for one of the source: the same if it has that, else the one of the same name. Raises
// UnknownAttrException, with the path, if there is none.
Kel::KelAttr const& destAttribute(Kel::Entity const& dest, Kel::KelAttr const& attr);

// Makes a log if the copy has none.
void ensureLog(EntityCopy& ec);

inline Kel::GenericIf::Ptr genericIf(Kel::Entity* e) { return Kel::GenericIf::ofEntity(Kel::Ptr<Kel::Entity>(e)); }
inline Kel::GenericIf::PtrConst genericIf(Kel::Entity const* e) {
  return Kel::GenericIf::ofEntity(Kel::Ptr<Kel::Entity const>(e));
}
inline Kel::GenericIf::Ptr genericIf(Kel::Ptr<Kel::Entity> const& e) { return Kel::GenericIf::ofEntity(e); }
inline Kel::GenericIf::PtrConst genericIf(Kel::Ptr<Kel::Entity const> const& e) { return Kel::GenericIf::ofEntity(e); }

// The entity that a generic object stands for, or null.
inline Kel::Ptr<Kel::Entity> entityOf(Kel::GenericIf::PtrConst const& object) {
  return object ? object->entity() : nullptr;
}
inline Kel::Ptr<Kel::Entity const> entityConstOf(Kel::GenericIf::PtrConst const& object) {
  return object ? object->entityConst() : nullptr;
}

}  // namespace Cli::Session
