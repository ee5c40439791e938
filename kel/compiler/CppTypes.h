// How types and literals of a model are written in C++.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "compiler/Ast.h"
#include "compiler/CppModel.h"
#include "compiler/Loader.h"

namespace kelc {

std::string cppString(std::string const& text);
std::string cppInteger(std::int64_t value);

// Whether the C++ type is passed by value: true for enumerations and for builtins except strings.
bool isScalar(TypeRef const& type);
// The bytes of such a type; 0 for any other.
unsigned scalarSize(TypeRef const& type);
// Whether values of the type can be compared.
bool isComparable(TypeRef const& type);

// The name of a constructor parameter in C++; it differs from the names of all member variables.
std::string cppParam(std::string const& name);

// How the code generated for one model writes names. A type of the model's own namespace has its short name, unless
// that means something else in the class that is being written.
class CppTypes {
 public:
  CppTypes(ModelSet const& set, Model const& model);

  // The same, inside a class whose members have these names.
  CppTypes inside(std::set<std::string> const& memberNames) const;

  std::string name(Decl const& decl) const;
  // By value: "Kel::U32", "Pair", "Kel::Ptr<Port const>".
  std::string type(TypeRef const& type) const;
  // As a parameter of an accessor: scalars by value, other types by reference.
  std::string param(TypeRef const& type) const;
  // As a parameter of an operation: the same, but strings by value.
  std::string opParam(TypeRef const& type) const;
  // The initial value: the literal, or the default of the type. Empty if the C++ type starts with that anyway.
  std::string initial(TypeRef const& type, std::optional<Literal> const& literal) const;
  // The same, but always written out.
  std::string initialValue(TypeRef const& type, std::optional<Literal> const& literal) const;

 private:
  std::string literal(TypeRef const& type, Literal const& literal) const;
  void hideParams(EntityDecl const& entity);
  bool needsGlobal(std::string const& qualified) const;

  std::string nameSpace_;
  std::set<std::string> known_;   // the full names of all namespaces and declarations
  std::set<std::string> hidden_;  // what the names of members and parameters hide
};

}  // namespace kelc
