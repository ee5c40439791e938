// What the engine keeps for itself, beside what the model shows, and what its parts share.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "CliSession/EntityCopy.h"
#include "CliSession/EntityCopy/Changes.h"
#include "CliSession/EntityCopy/Counterparts.h"
#include "CliSession/EntityCopy/Depth.h"
#include "Kel/Assert.h"

namespace Cli::Session {

class EntityCopy::Impl {
 public:
  Kel::U32 depth = 0;
  // Counts the times that foreign code has run: handlers, reactors, bypass checkers. What the walks keep is good for
  // one generation.
  Kel::U64 generation = 1;
  Counterparts counterparts;
  // The roots that the run under way has walked whole, and what keeps it from remembering that they are equal.
  std::vector<WalkedRoot> walked;
  Kel::U64 foreignCalls = 0;  // how often foreign code has run
  bool unsettled = false;     // something was written that does not compare equal, as a NaN does not

  // Where the edits of each step are counted: two for each, set and delete. An entry is good for its generation.
  struct CountedEntry {
    AttributeEditEntry* entry = nullptr;
    Kel::U64 generation = 0;
  };
  std::vector<CountedEntry> entries;

  // The deferred pointers by what they will set, so that meeting one again supersedes its record; each with the root of
  // the tree that its destination was in, for comparison alone.
  struct PendingKey {
    Kel::Entity const* dest;
    Kel::KelAttr const* attr;
    std::size_t index = 0;  // a hash of the member's key in the source
    auto operator<=>(PendingKey const&) const = default;
  };
  struct Pending {
    Kel::Ptr<AttributeCopy> record;
    Kel::Entity const* tree;
    Kel::U64 number;
  };
  std::multimap<PendingKey, Pending> pending;
  Kel::U64 deferred = 0;  // pointers so far

  static Impl& of(EntityCopy& ec) {
    if (!ec.impl()) ec.impl() = std::make_shared<Impl>();
    return *ec.impl();
  }
};

// For operations that may be called by name: null among what one cannot do without raises "null ValidPtr".
template <class... P>
void requireNonNull(P const&... args) {
  if (!(args && ...)) Kel::throwNullValidPtr();
}

// The attribute of the destination that stands for one of the source: its own where the types agree, else the one of
// that name. Raises UnknownAttrException, with the path, when there is none.
Kel::KelAttr const& destAttribute(Kel::Entity const& dest, Kel::KelAttr const& attr);

// Drops the record of the pointer that waits at the same place: there is one per destination, attribute and index.
void supersedePending(EntityCopy& ec, Kel::Entity const& dest, Kel::KelAttr const& attr,
                      Kel::GenericIf::PtrConst const& srcIndex);
// The records for all members of a collection, in the order in which they were made.
std::map<Kel::U64, Kel::Ptr<AttributeCopy>> pendingOf(EntityCopy& ec, Kel::Entity const& dest,
                                                      Kel::KelAttr const& attr);
// Drops the records that do not say where their pointer leads: the plain handler defers every pointer of a comparison
// so. Takes no memory. What a reactor raises is dropped.
void forgetNamelessPending(EntityCopy& ec) noexcept;
// Drops one record.
void forgetPending(EntityCopy& ec, Kel::Ptr<AttributeCopy> const& record);

// The member of a collection under a key, which is null for a null pointer; on no member when there is none.
Kel::GenericIf::AttributeIterator memberAtKey(Kel::GenericIf const& owner, Kel::KelAttr const& attr,
                                              Kel::GenericIf::PtrConst const& key);

// Records a path in a session handler's `copied` trie. A "*" is a wildcard to a trie: a path that contains one is not
// marked.
void markCopied(EntityCopyGlobalSessionHandler& handler, Kel::String8 const& path);

// Makes the engine's log, where it has none.
void ensureLog(EntityCopy& ec);

inline Kel::GenericIf::Ptr genericIf(Kel::Ptr<Kel::Entity> const& e) { return Kel::GenericIf::ofEntity(e); }
inline Kel::GenericIf::PtrConst genericIf(Kel::Ptr<Kel::Entity const> const& e) { return Kel::GenericIf::ofEntity(e); }

// A generic object as an entity; null when it is no entity.
inline Kel::Ptr<Kel::Entity> entityOf(Kel::GenericIf::PtrConst const& object) {
  return object ? object->entity() : nullptr;
}
inline Kel::Ptr<Kel::Entity const> entityConstOf(Kel::GenericIf::PtrConst const& object) {
  return object ? object->entityConst() : nullptr;
}

}  // namespace Cli::Session
