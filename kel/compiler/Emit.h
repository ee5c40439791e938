// Writes the C++ of a checked model.
#pragma once

#include <string>
#include <vector>

#include "compiler/Ast.h"
#include "compiler/CppModel.h"
#include "compiler/CppTypes.h"
#include "compiler/Loader.h"

namespace kelc {

struct Generated {
  std::string header;
  std::string source;
  std::vector<std::string> furtherSources;
};

// What the library that contains the output needs.
struct Linkage {
  bool exported = false;  // its types and functions are marked for export
  std::string anchor;     // a C symbol that the source defines; may be empty
  unsigned parts = 1;     // the sources over which the definitions are spread
};

// The header and the sources of the main model.
Generated emit(ModelSet const& set, Linkage const& linkage = {});
// Empty bodies of all operations, which the model expects to be written by hand.
std::string emitStubs(ModelSet const& set);

// --- Parts of it ---

// Declarations go to the header, definitions to the source.
struct Texts {
  CppText header;
  CppText source;
  std::string exported;  // the mark of exported declarations, followed by a blank; or empty
};

// Writes an empty line and the heading of a part of a file.
void heading(CppText& out, std::string const& what);

void emitEnum(EnumDecl const& decl, Texts& out);
// The table that the definitions of an enumeration use.
void emitEnumNames(EnumDecl const& decl, CppText& source);
void emitValue(ValueDecl const& decl, CppTypes const& types, Texts& out);

// The key of an entity in its owner: either the entity's name, which the framework stores, or a parameter of another
// name, for which an `EntityKey` is generated.
bool isKeyedByName(EntityDecl const& entity);
// Whether the entity's name is a key that has to be printed.
bool printsKey(EntityDecl const& entity);
bool hasEntityKey(EntityDecl const& entity);
void emitEntityKey(EntityDecl const& entity, CppTypes const& types, CppText& header);
void emitEntityKeyBody(EntityDecl const& entity, CppTypes const& types, CppText& header);

void emitEntity(EntityDecl const& entity, CppTypes const& types, Texts& out);
void emitReactors(EntityDecl const& entity, CppTypes const& types, Texts& out);
// The definition of an entity's `_fwkType`.
Lines typeRecord(EntityDecl const& entity, CppTypes const& types);

// The attributes that an entity type itself adds to plain content: copiable values, values by key, and queues of
// values. Left out are types without a comparison, collections keyed by pointers, and counters. Single values come
// first.
std::vector<Attribute const*> plainAttributes(EntityDecl const& entity);
// The definition of an entity's `_plainDifferences`; `plain` are the attributes that the type adds.
Lines plainDifferences(EntityDecl const& entity, std::vector<Attribute const*> const& plain);

// The accessors of an attribute, its member variable, and the types that go with it.
void addAccessors(CppClass& into, Attribute const& attribute, CppTypes const& types);
CppMethod operationMethod(Operation const& op, CppTypes const& types);

// Attributes, constants, and the operations that have ids, in the order of the ids.
struct IdMember {
  Attribute const* attribute = nullptr;
  Operation const* operation = nullptr;
  Ident const& name() const { return attribute ? attribute->name : operation->name; }
};
std::vector<IdMember> idMembers(EntityDecl const& entity);

}  // namespace kelc
