// The engine's private state, and the functions that its parts share.
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
  // What walks have looked up is valid for one generation. A new one begins with each walk, and after foreign code
  // (handlers, reactors, bypass checkers) has run.
  Kel::U64 generation = 1;
  Counterparts counterparts;
  // The roots that the current run has walked in full, and the reasons why they may not be equal at its end.
  std::vector<WalkedRoot> walked;
  Kel::U64 foreignCalls = 0;  // how often foreign code has run
  bool unsettled = false;     // a value was written that does not compare equal, such as a NaN

  bool unlogged = false;  // see leaveUnlogged

  // The log's entries for each step: two a step, set and delete. An entry is valid for its generation.
  struct CountedEntry {
    AttributeEditEntry* entry = nullptr;
    Kel::U64 generation = 0;
  };
  std::vector<CountedEntry> entries;

  // The waiting pointers, by what they will set: a pointer that is met again supersedes its record. `tree` is the root
  // of the tree that the destination was in; it is compared, never dereferenced.
  struct PendingKey {
    Kel::Entity const* dest;
    Kel::KelAttr const* attr;
    std::size_t index = 0;                                // a hash of the member's key in the source
    auto operator<=>(PendingKey const&) const = default;  // NOLINT(modernize-use-nullptr): there is no null
  };
  struct Pending {
    Kel::Ptr<AttributeCopy> record;
    Kel::Entity const* tree;
    Kel::U64 number;
  };
  std::multimap<PendingKey, Pending> pending;
  Kel::U64 deferred = 0;  // the number of the last record

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

// Drops the record for one destination, attribute and index, if there is one.
void supersedePending(EntityCopy& ec, Kel::Entity const& dest, Kel::KelAttr const& attr,
                      Kel::GenericIf::PtrConst const& srcIndex);
// The records for all members of a collection, in the order in which they were made.
std::map<Kel::U64, Kel::Ptr<AttributeCopy>> pendingOf(EntityCopy& ec, Kel::Entity const& dest,
                                                      Kel::KelAttr const& attr);
// Drops the records without a target's name, which the plain handler leaves in a comparison. Allocates nothing, and
// swallows what a reactor raises.
void forgetNamelessPending(EntityCopy& ec) noexcept;
// Drops one record.
void forgetPending(EntityCopy& ec, Kel::Ptr<AttributeCopy> const& record);

// An iterator on the member under a key; null if there is none. A null `key` stands for a null pointer as key.
Kel::GenericIf::AttributeIterator memberAtKey(Kel::GenericIf const& owner, Kel::KelAttr const& attr,
                                              Kel::GenericIf::PtrConst const& key);

// Records a path in a session handler's `copied` trie. A "*" is a wildcard to a trie: a path that contains one is not
// marked.
void markCopied(EntityCopyGlobalSessionHandler& handler, Kel::String8 const& path);

// Takes the debug action that is configured for an edit, asks the bypass checker, and counts the edit. Answers whether
// it counts as a difference: a bypassed edit does not. `path` is the edited entity's full name.
bool recordEdit(EntityCopy& ec, AttributeEdit const& edit, Kel::String8 const& path,
                Kel::GenericIf::PtrConst const& value);

// What handlers trace after the name of their class.
inline constexpr char const* handleEntitySignature =
    "::handleEntity(const Kel::Ptr<Cli::Session::EntityCopy>&, const Kel::Ptr<Kel::Entity>&, const Kel::Ptr<const "
    "Kel::Entity>&, Kel::String8): ";

// Makes a log if the copy has none.
void ensureLog(EntityCopy& ec);
// The copy's runs make no log and count no edits, unless the copy is given a log or a trace handle is on. For copies
// whose log is discarded without being read. Drops the log of earlier runs.
void leaveUnlogged(EntityCopy& ec);

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
