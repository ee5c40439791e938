// Trees of any model, through reflection alone: text, comparison, and random content.
#pragma once

#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "Kel/Dir.h"
#include "Kel/Entity.h"
#include "Kel/GenericIf.h"

namespace Tests {

using EntityPtr = Kel::Ptr<Kel::Entity>;
using EntityPtrConst = Kel::Ptr<Kel::Entity const>;

// Whether `e` is `root` or below it.
bool isWithin(Kel::Entity const& e, Kel::Entity const& root);
// The entity and all that it owns, itself first; of a directory its children, without the records of its entries.
std::vector<Kel::Entity*> entitiesOf(Kel::Entity& root);

// What is compared as a whole: pointers to what lies within `roots` are named relative to `top`, so that equal trees in
// different places look equal.
struct Scope {
  Kel::Entity const& top;
  std::vector<Kel::Entity const*> roots;
};

// What a copy carries, one line an attribute or member, sorted where order means nothing.
std::string dump(Kel::Entity const& e, Scope const& scope);
// Of all roots of a scope.
std::string dump(Scope const& scope);

// What has to be edited to make `dest` equal to `src`: "Type::attribute set path" with the number of edits at that
// path, paths relative to the destination's top. The types may differ: attributes are found by name.
using Edits = std::map<std::string, Kel::U32>;
// Which edits are left out, by that text. Of those the rest may see (`valued`: whether there is a value to be set or
// deleted, as bypass rules ask) what is `withheld` is not made either, so that nothing is copied into it.
struct LeftOut {
  std::function<bool(std::string const& edit, bool valued)> matches;
  bool withheld = false;
};
Edits editsBetween(Kel::Entity const& dest, Scope const& destScope, Kel::Entity const& src, Scope const& srcScope,
                   LeftOut const& leftOut = {});
// The same for one attribute of `src`.
Edits editsBetween(Kel::Entity const& dest, Scope const& destScope, Kel::Entity const& src, Scope const& srcScope,
                   Kel::KelAttr const& attr);

// Random content; the same seed makes the same.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  unsigned nans = 0;  // one number in so many is none

  std::size_t below(std::size_t n) { return random_() % n; }
  // Fills an entity with values and owned entities, `depth` levels down.
  void fill(Kel::Entity& e, int depth);
  // Points the pointers of an entity and of what it owns at some of `targets`, or at nothing.
  void point(Kel::Entity& root, std::vector<Kel::Entity*> const& targets);
  // Changes some attribute or member of some entity of the tree, or adds, moves or deletes some entry of a directory.
  void mutate(Kel::Entity& root, std::vector<Kel::Entity*> const& targets);

 private:
  Kel::GenericIf::PtrConst value(Kel::KelType const& type, std::size_t spread);
  Kel::GenericIf::PtrConst target(Kel::KelAttr const& attr, std::vector<Kel::Entity*> const& targets);
  Kel::GenericIf::Ptr params(Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& key);
  Kel::GenericIf::PtrConst newKey(Kel::KelAttr const& attr, std::vector<Kel::Entity*> const& targets);
  void fillDir(Kel::Dir& dir, int depth);
  void addEntry(Kel::Dir& dir, int depth);
  void addMember(Kel::Entity& e, Kel::KelAttr const& attr, std::vector<Kel::Entity*> const& targets, int depth);
  void setSingle(Kel::Entity& e, Kel::KelAttr const& attr, std::vector<Kel::Entity*> const& targets, int depth);

  std::mt19937 random_;
};

// Deletes an entity from what owns it. A root stays.
void erase(Kel::Entity& e);
// Clears the pointers, in the tree, to entities that have left it.
void dropOrphans(Kel::Entity& root);

// The pointers of a tree that lead into another one, as "path attribute -> target".
std::vector<std::string> pointersInto(Kel::Entity& root, Kel::Entity const& other);

}  // namespace Tests
