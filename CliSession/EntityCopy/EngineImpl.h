// What the engine keeps for itself, beside what the model shows.
#pragma once

#include <unordered_map>

#include "CliSession/EntityCopy.h"
#include "CliSession/EntityCopy/Depth.h"
#include "CliSession/EntityCopy/TypedWalk.h"
#include "Kel/Assert.h"

namespace Cli::Session {

class EntityCopy::Impl {
 public:
  Kel::U32 depth = 0;
  TypedWalk walk;

  // The deferred pointers by what they will set, so that meeting one again supersedes its record; each with the root of
  // the tree that its destination was in, for comparison alone.
  struct PendingKey {
    Kel::Entity const* dest;
    Kel::KelAttr const* attr;
    bool operator==(PendingKey const&) const = default;
  };
  struct PendingHash {
    std::size_t operator()(PendingKey const& key) const {
      return std::hash<void const*>()(key.dest) ^ (std::hash<void const*>()(key.attr) << 1);
    }
  };
  struct Pending {
    Kel::Ptr<AttributeCopy> record;
    Kel::Entity const* tree;
  };
  std::unordered_multimap<PendingKey, Pending, PendingHash> pending;

  static Impl& of(EntityCopy& ec) {
    if (!ec.impl()) ec.impl() = std::make_shared<Impl>();
    return *ec.impl();
  }
};

// What an operation that may be called by name cannot do without: null raises "null ValidPtr".
template <class... P>
void wantArgs(P const&... args) {
  if (!(args && ...)) Kel::throwNullValidPtr();
}

// The attribute of the destination that stands for one of the source: its own where the types agree, else the one of
// that name. Raises UnknownAttrException, with the path, when there is none.
Kel::KelAttr const& destAttribute(Kel::Entity const& dest, Kel::KelAttr const& attr);

// `doCopyPtr` for a member whose key differs between the trees.
bool copyPtrMember(EntityCopy& ec, Kel::Ptr<Kel::Entity> const& dest, Kel::Ptr<Kel::Entity const> const& src,
                   Kel::String8 const& path, Kel::Ptr<Kel::KelAttr const> const& attr,
                   Kel::GenericIf::PtrConst const& srcIndex, Kel::GenericIf::PtrConst const& index);

// Forgets what was deferred for the same place: there is one record per destination, attribute and index.
void supersedePending(EntityCopy& ec, Kel::Entity const& dest, Kel::KelAttr const& attr,
                      Kel::GenericIf::PtrConst const& srcIndex);
// The same for all members of a collection.
void supersedePending(EntityCopy& ec, Kel::Entity const& dest, Kel::KelAttr const& attr);
// Forgets one record.
void forgetPending(EntityCopy& ec, Kel::Ptr<AttributeCopy> const& record);

// Whether an entity of the destination outlives the run as the counterpart of one of the source: neither it nor what
// holds it has other constructor parameters, so that it would be deleted and made anew. A pointer to one that does not
// waits for its successor.
bool outlivesRun(EntityCopy const& ec, Kel::Entity const& dest, Kel::Entity const& src);

// The entity below `destTop` that stands where `src` stands below `srcTop`: found step by step by what holds it,
// without any path. Null when there is none, or when a step is one that only a path can take.
Kel::Entity* standIn(Kel::Entity const& src, Kel::Entity const& srcTop, Kel::Entity& destTop);

// The entity of that full name in the tree of another one. Keys may hold separators, so that two entities can bear one
// name: of these it is the one that stands where `srcTarget` stands in the source.
Kel::Ptr<Kel::Entity> targetInTree(EntityCopy const& ec, Kel::Entity const& member, Kel::String8 const& fullName,
                                   Kel::Entity const* srcTarget);

// The member of a collection under a key, which is null for a null pointer; on no member when there is none.
Kel::GenericIf::AttributeIterator memberAtKey(Kel::GenericIf const& owner, Kel::KelAttr const& attr,
                                              Kel::GenericIf::PtrConst const& key);

// Records a path in a session handler's `copied` trie. A "*" is a wildcard to a trie: what has one is simply not
// marked.
void markCopied(EntityCopyGlobalSessionHandler& handler, Kel::String8 const& path);

// `addAttributeEditBypassEntry`, and whether the edit counts as a difference: a bypassed one does not.
bool logEdit(EntityCopy& ec, AttributeEdit const& edit, Kel::String8 const& path,
             Kel::GenericIf::PtrConst const& value);

// Makes the engine's log, where it has none.
void ensureLog(EntityCopy& ec);

inline Kel::GenericIf::Ptr genericIf(Kel::Ptr<Kel::Entity> const& e) { return Kel::GenericIf::ofEntity(e); }
inline Kel::GenericIf::PtrConst genericIf(Kel::Ptr<Kel::Entity const> const& e) { return Kel::GenericIf::ofEntity(e); }

// A generic object as an entity; null when it is none.
inline Kel::Ptr<Kel::Entity> entityOf(Kel::GenericIf::PtrConst const& object) {
  return object ? object->entity() : nullptr;
}
inline Kel::Ptr<Kel::Entity const> entityConstOf(Kel::GenericIf::PtrConst const& object) {
  return object ? object->entityConst() : nullptr;
}

}  // namespace Cli::Session
