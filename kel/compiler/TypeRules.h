// What a type may be used for.
#pragma once

#include <string>

#include "compiler/Ast.h"
#include "compiler/Diagnostic.h"
#include "compiler/Scope.h"

namespace kelc {

// The type as diagnostics write it: "U32", "ref const Port".
std::string spelled(TypeRef const& type);

// The kind as diagnostics write it: "a value type".
char const* kindOf(TypeRef const& type);

bool isInteger(Builtin type);
// "U8 (0..255)", for the message "out of range for".
std::string withRange(Builtin integer);
// Whether both are the same type in C++, as `String` and `Name` are.
bool sameType(TypeRef const& a, TypeRef const& b);
// The declaration of a value type; null for any other type.
ValueDecl const* valueDecl(TypeRef const& type);
EnumDecl const* enumDecl(TypeRef const& type);
// The declaration of an entity of a model or of the framework; null for an `extern` one.
EntityDecl const* entityDecl(TypeRef const& type);

// Each check reports errors, and answers whether there are none. It reports nothing for a type with an unknown name,
// which was reported when it was resolved. `what` names the use: "a field", "a constructor parameter".
class TypeRules {
 public:
  TypeRules(Scope const& scope, Diagnostics& diagnostics) : scope_(scope), diagnostics_(diagnostics) {}

  // Resolves the names of a type, and of all types of a shape except the field of a key.
  void resolve(Model const& model, TypeRef& type) const;
  void resolve(Model const& model, Shape& shape) const;

  // Reports a name that is unknown in a model, unless something that the model sees could not be read. `what` was
  // expected ("type"); `target` is set if it was for a pointer.
  void refuseUnknown(Model const& model, QName const& name, std::string const& what, bool target) const;

  // The name of a declaration, member, parameter or enumerator.
  void checkName(Ident const& name) const;
  // A builtin, an enumeration or a value type.
  bool checkValue(TypeRef const& type, std::string const& what) const;
  // A pointer to an entity or counted object.
  bool checkPointer(TypeRef const& type) const;
  bool checkValueOrPointer(TypeRef const& type, std::string const& what) const;
  // The same, and the shape is neither a collection nor a queue.
  bool checkSingle(Shape const& shape, std::string const& what) const;
  // The key of a keyed collection. If the key is a field of the members, completes its type.
  bool checkKey(Shape& shape) const;
  // Whether the literal is a value of the type. REQUIRES: the type has passed `checkValue`.
  void checkLiteral(Literal const& literal, TypeRef const& type) const;
  // Whether the integer is a value of a builtin integer type.
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
