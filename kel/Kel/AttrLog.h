// Attribute logs: an entity and everything below it, as bytes.
//
// A log holds the types that it is made of, as far as it has to be sure of them, every entity with the contents of its
// logging attributes, and a checksum; docs/attribute-log.md describes it byte by byte. It is the same on every machine:
// numbers are in network byte order. Pointers inside the log lead to the entities that were read, others are kept as
// paths from the tree's root. Not kept: reactors, what is not logging (constants, operations, `nolog` attributes), what
// is derived from the rest, the private state of an `impl`, and what is not reached through ownership.
//
// Neither function calls reactors or the operations that a model hangs on changes. Their cost is linear in what is
// written or read; depth costs no stack. One thread at a time for a tree.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/Exception.h"

namespace Kel {

class AttrLogIn;
class AttrLogOut;

// The first bytes of a log. A reader refuses every version but its own.
inline constexpr std::string_view attrLogMagic = "KELA";
inline constexpr U16 attrLogVersion = 1;

// Writes an entity and everything below it. The same tree gives the same bytes. An entity that nobody owns comes along
// with the pointers at it, if its type neither owns nor points at anything (the state of a path trie does neither).
// Raises EntityIdUnavailableException when a pointer leads to any other entity of another tree, or to one that no path
// leads to.
KEL_API std::string writeAttrLog(Entity const& top);

// Reads a log into new entities, and answers the top one; it has no parent, so that it can be put where it belongs
// (`Dir::entryIs`). Paths lead through the tree of `context`; without one a log may not hold any. Raises
// AttrLogRecordException for bytes that are no log of this version, or not whole, or of other types than those of this
// process, and AttrLogEntityException for an entity that cannot be made, or not there, and for a pointer that leads
// nowhere. The message says at which offset. Nothing has changed then, and nothing is left behind.
KEL_API Entity::Ptr readAttrLog(std::string_view log, Entity* context = nullptr);

// The stream adapter of a type: which attributes are streamed, and in which order. Every type has its own
// (`KelType::attrLogSa`); a log brings another, for the attributes that it knows.
class KEL_API KelNboAttrLogSa {
 public:
  explicit KelNboAttrLogSa(KelType const& type);

  KelType const& type() const { return type_; }
  // The streamed attributes: of an entity type its constructor parameters first.
  std::vector<KelAttr const*> const& attributes() const { return attributes_; }

  // Describes the type, so that a reader can be sure to mean the same.
  void describe(AttrLogOut& out) const;
  // What a log describes. Raises AttrLogRecordException for a type, an attribute or an enumerator that is unknown here
  // or is something else here.
  static KelNboAttrLogSa described(AttrLogIn& in);

  // The contents of an entity's attributes.
  void write(Entity const& e, AttrLogOut& out) const;
  // Reads all but the constructor parameters, into an entity that was just made.
  void read(Entity& e, AttrLogIn& in) const;

 private:
  KelNboAttrLogSa(KelType const& type, std::vector<KelAttr const*> attributes)
      : type_(type), attributes_(std::move(attributes)) {}

  KelType const& type_;
  std::vector<KelAttr const*> attributes_;
};

// The parts of a log. Each record is its kind, the length of what follows, and that.
enum class AttrLogRecord : U8 { type = 1, entity = 2, end = 3 };
inline constexpr U32 attrLogNoOwner = 0xffffffff;

// The checksum of a log: CRC-32 (polynomial 0x04C11DB7 reflected, initial value and final exclusive-or all ones), as in
// ITU-T V.42.
KEL_API U32 attrLogChecksum(std::string_view bytes) noexcept;

}  // namespace Kel
