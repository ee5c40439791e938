// What tests do with entities by paths, through the reflective interface alone.
#pragma once

#include <string>
#include <vector>

#include "Kel/Dir.h"
#include "Kel/GenericIf.h"

namespace Tests {

// Calls an operation by name.
Kel::GenericIf::Ptr call(Kel::Entity::Ptr const& entity, char const* operation, Kel::GenericIf::Args const& args = {});
// Reads, or sets, an attribute by name.
Kel::GenericIf::Ptr read(Kel::Entity::Ptr const& entity, char const* attribute,
                         Kel::GenericIf::PtrConst const& key = nullptr);
void write(Kel::Entity::Ptr const& entity, char const* attribute, Kel::GenericIf::PtrConst const& value,
           Kel::GenericIf::PtrConst const& key = nullptr);
// Creates the owned member, or singleton, of an attribute from its constructor arguments, unless it is there.
Kel::Entity::Ptr create(Kel::Entity::Ptr const& entity, char const* attribute,
                        std::vector<Kel::GenericIf::PtrConst> const& args);

// What a path in a session names: an entity, one of its attributes, or a member of a collection.
struct Target {
  Kel::Entity::Ptr entity;             // the entity, or the owner of the attribute
  Kel::KelAttr const* attr = nullptr;  // null: the entity itself
  Kel::GenericIf::PtrConst key;        // null: no member

  std::string text() const;
};

// Finds what a path below a directory names: "network/ports.port/Ethernet1", "….mtu", "….members/Ethernet4". A member
// need not be there. Raises RangeException saying how far the path led.
Target locate(Kel::Dir::Ptr const& dir, std::string const& path);
// The same, for what must be there: raises RangeException for a member that is not.
Target locateExisting(Kel::Dir::Ptr const& dir, std::string const& path);

// Sets an attribute or member from texts: a value's plain text, a pointer's path below `dir` (or "null"), the
// constructor arguments of an owned entity after its key. Raises RangeException, and what the reflective interface
// raises.
void setFromText(Kel::Dir::Ptr const& dir, Target const& target, std::vector<std::string> const& texts);
// Deletes a member or a singleton, or puts a value back to its default.
void deleteTarget(Target const& target);

// How many entities there are from `top` down, and how many attributes they hold: values, set pointers and members.
struct Counts {
  std::size_t entities = 0, attributes = 0;
};
Counts countBelow(Kel::Entity::PtrConst const& top);

// One line an attribute, for people.
std::vector<std::string> describe(Kel::Entity::PtrConst const& entity);

}  // namespace Tests
