// Attribute logs: an entity and everything below it, as bytes.
//
// A log holds a description of the types in it, every entity with the contents of its logging attributes, and a
// checksum. docs/attribute-log.md describes it byte by byte. It is the same on every machine: numbers are in network
// byte order. A pointer to an entity of the log leads to the entity that is read; any other pointer is kept as a path
// from the tree's root. Not kept: reactors; attributes that are not logging (constants, operations, `nolog`);
// attributes that are derived from others; the private state of an `impl`; what is not owned.
//
// Neither function calls reactors, or the `onChange` operations of a model. The cost is linear in what is written or
// read. Neither recurses, so trees may have any depth. A tree belongs to one thread at a time.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Kel/Entity.h"
#include "Kel/Exception.h"

namespace Kel {

class AttrLogIn;
class AttrLogOut;

// The first bytes of a log.
inline constexpr std::string_view attrLogMagic = "KELA";
// The version of the format. A reader refuses every other one.
inline constexpr U16 attrLogVersion = 1;

// Writes an entity and everything below it. The same tree gives the same bytes. An entity without an owner is written
// with the first pointer to it, if its type neither owns entities nor has pointers; the state of a path trie is such an
// entity. Raises EntityIdUnavailableException if a pointer leads to any other entity of another tree, or to one that
// its path does not lead to.
KEL_API std::string writeAttrLog(Entity const& top);

// Reads a log into new entities and answers the top one. It has no parent; `Dir::entryIs` adds it to a directory. Paths
// in the log are resolved in the tree of `context`; without one, a log with paths is refused.
//
// Raises AttrLogRecordException if the bytes are not a whole log of this version and of the types of this process.
// Raises AttrLogEntityException if an entity cannot be made, or a pointer leads nowhere. The message begins with the
// offset. After an exception nothing has changed.
KEL_API Entity::Ptr readAttrLog(std::string_view log, Entity* context = nullptr);

// For the framework: the stream adapter of a type, which says what attributes are streamed, and in which order. Every
// type has one (`KelType::attrLogSa`). A reader makes another for the attributes that the log describes.
class KEL_API KelNboAttrLogSa {
 public:
  // The adapter of a type, for all its logging attributes.
  explicit KelNboAttrLogSa(KelType const& type);

  KelType const& type() const { return type_; }
  // The streamed attributes; an entity type's constructor parameters come first.
  std::vector<KelAttr const*> const& attributes() const { return attributes_; }

  // Writes the description of the type, against which a reader checks its own type.
  void describe(AttrLogOut& out) const;
  // Reads a description. Raises AttrLogRecordException if this process does not know the type, an attribute or an
  // enumerator, or has another one of that name.
  static KelNboAttrLogSa described(AttrLogIn& in);

  // Writes the contents of an entity's attributes.
  void write(Entity const& e, AttrLogOut& out) const;
  // Reads all but the constructor parameters. REQUIRES: the entity was just made.
  void read(Entity& e, AttrLogIn& in) const;

 private:
  KelNboAttrLogSa(KelType const& type, std::vector<KelAttr const*> attributes)
      : type_(type), attributes_(std::move(attributes)) {}

  KelType const& type_;
  std::vector<KelAttr const*> attributes_;
};

// The kinds of records in a log.
enum class AttrLogRecord : U8 { type = 1, entity = 2, end = 3 };
// The number of the owner of an entity that has none.
inline constexpr U32 attrLogNoOwner = 0xffffffff;

// The checksum of a log: CRC-32 (polynomial 0x04C11DB7 reflected, initial value and final exclusive-or all ones), as in
// ITU-T V.42.
KEL_API U32 attrLogChecksum(std::string_view bytes) noexcept;

}  // namespace Kel
