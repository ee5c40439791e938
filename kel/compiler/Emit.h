// Writes the C++ of a checked model.
#pragma once

#include <string>

#include "compiler/Ast.h"
#include "compiler/CppModel.h"
#include "compiler/CppTypes.h"
#include "compiler/Loader.h"

namespace kelc {

struct Generated {
  std::string header;
  std::string source;
};

// What the output owes to the library that it becomes part of.
struct Linkage {
  bool exported = false;  // its types and functions are marked for export
  std::string anchor;     // a C symbol that the source defines; may be empty
};

// The header and the source of the set's main model.
Generated emit(ModelSet const& set, Linkage const& linkage = {});
// What the model expects to be written by hand: the operations, empty.
std::string emitStubs(ModelSet const& set);

// --- Parts of it ---

// Declarations go to the header, definitions to the source.
struct Texts {
  CppText header;
  CppText source;
  std::string exported;  // the mark in front of what is exported, with a blank behind it; or empty
};

// An empty line and a line that names a part of a file.
void heading(CppText& out, std::string const& what);

void emitEnum(EnumDecl const& decl, Texts& out);
// The table that the definitions of an enumeration stand on.
void emitEnumNames(EnumDecl const& decl, CppText& source);
void emitValue(ValueDecl const& decl, CppTypes const& types, Texts& out);

// What identifies an entity in its owner: whether it is the entity's name, which the framework keeps, or a parameter of
// another name, which then gets an `EntityKey`.
bool isKeyedByName(EntityDecl const& entity);
bool hasEntityKey(EntityDecl const& entity);
void emitEntityKey(EntityDecl const& entity, CppTypes const& types, CppText& header);
void emitEntityKeyBody(EntityDecl const& entity, CppTypes const& types, CppText& header);

void emitEntity(EntityDecl const& entity, CppTypes const& types, Texts& out);
void emitReactors(EntityDecl const& entity, CppTypes const& types, Texts& out);
// The definition of an entity's `_fwkType`.
Lines typeRecord(EntityDecl const& entity, CppTypes const& types);

// What an entity type itself adds to the comparison of plain content: the attributes that a copy carries and that are
// single values, values by key or queues of values. What cannot be compared, what is keyed by pointers and counts that
// may be deferred stay out. Single values come first.
std::vector<Attribute const*> plainAttributes(EntityDecl const& entity);
// The definition of an entity's `_plainEqual`; `plain` is what it adds.
Lines plainEquality(EntityDecl const& entity, std::vector<Attribute const*> const& plain);

// The accessors of an attribute, its member variable, and the types that go with it.
void addAccessors(CppClass& into, Attribute const& attribute, CppTypes const& types);
CppMethod operationMethod(Operation const& op, CppTypes const& types);

// Attributes, constants and those operations that are attributes, too, in the order of their ids.
struct IdMember {
  Attribute const* attribute = nullptr;
  Operation const* operation = nullptr;
  Ident const& name() const { return attribute ? attribute->name : operation->name; }
};
std::vector<IdMember> idMembers(EntityDecl const& entity);

}  // namespace kelc
