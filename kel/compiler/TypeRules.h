// What a type may be used for.
#pragma once

#include <string>

#include "compiler/Ast.h"
#include "compiler/Diagnostic.h"
#include "compiler/Scope.h"

namespace kelc {

// As diagnostics write it: "U32", "ref const Port".
std::string spelled(TypeRef const& type);

// As diagnostics write it: "a value type".
char const* kindOf(TypeRef const& type);

bool isInteger(Builtin type);
// "U8 (0..255)", behind "out of range for".
std::string withRange(Builtin integer);
// The same type in C++; `String` and `Name` are one.
bool sameType(TypeRef const& a, TypeRef const& b);
// The declaration of a value type; null for any other.
ValueDecl const* valueDecl(TypeRef const& type);
EnumDecl const* enumDecl(TypeRef const& type);
// An entity with a model of its own or of the framework; null for an `extern` one.
EntityDecl const* entityDecl(TypeRef const& type);

// Each check reports what is wrong and answers whether all is well; a type whose name means nothing was reported when
// it was resolved, and fails quietly. `what` names the use: "a field", "a constructor parameter".
class TypeRules {
 public:
  TypeRules(Scope const& scope, Diagnostics& diagnostics) : scope_(scope), diagnostics_(diagnostics) {}

  // Finds out what the names of a type, and of all types of a shape but the field of a key, stand for.
  void resolve(Model const& model, TypeRef& type) const;
  void resolve(Model const& model, Shape& shape) const;

  // Reports a name that means nothing in a model, if all that it sees could be read; `what` was expected ("type"), for
  // a pointer when `target`.
  void refuseUnknown(Model const& model, QName const& name, std::string const& what, bool target) const;

  // The name of a declaration, member, parameter or enumerator.
  void checkName(Ident const& name) const;
  // A builtin, an enumeration or a value type.
  bool checkValue(TypeRef const& type, std::string const& what) const;
  // A pointer to an entity or counted object.
  bool checkPointer(TypeRef const& type) const;
  bool checkValueOrPointer(TypeRef const& type, std::string const& what) const;
  // The same, and the shape is that of neither collection nor queue.
  bool checkSingle(Shape const& shape, std::string const& what) const;
  // The key of a keyed collection. Completes the type of one that is a field of the collection's members.
  bool checkKey(Shape& shape) const;
  // That the literal is a value of the type. The type has passed `checkValue`.
  void checkLiteral(Literal const& literal, TypeRef const& type) const;
  // That the integer is a value of a builtin integer type.
  bool checkRange(Literal const& integer, Builtin type) const;

 private:
  void refuse(TypeRef const& type, std::string const& text) const;
  bool checkNoArgs(TypeRef const& type) const;
  bool checkKeyType(TypeRef const& type, bool ordered, Loc loc) const;
  bool checkFieldKey(Shape& shape) const;
  void checkInteger(Literal const& literal, TypeRef const& type) const;
  void checkFloating(Literal const& literal, TypeRef const& type) const;
  void checkCharacter(Literal const& literal) const;
  void checkEnumerator(Literal const& literal, EnumDecl const& decl) const;

  Scope const& scope_;
  Diagnostics& diagnostics_;
};

}  // namespace kelc
