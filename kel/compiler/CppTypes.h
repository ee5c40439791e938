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

// Whether the C++ type is passed by value: builtins but strings, and enumerations.
bool isScalar(TypeRef const& type);
// Whether values of the type can be compared.
bool isComparable(TypeRef const& type);

// The name of a constructor's parameter where it stands for an attribute; never that of a member variable.
std::string cppParam(std::string const& name);

// Names of the generated code of one model. A type of the model's own namespace is written by its short name, unless
// that means something else in the class that is being written.
class CppTypes {
 public:
  CppTypes(ModelSet const& set, Model const& model);

  // The same, inside a class whose members have these names.
  CppTypes inside(std::set<std::string> const& memberNames) const;

  std::string name(Decl const& decl) const;
  // By value: "Kel::U32", "Pair", "Kel::Ptr<Port const>".
  std::string type(TypeRef const& type) const;
  // As the parameter of an accessor: what is not scalar by reference.
  std::string param(TypeRef const& type) const;
  // As the parameter of an operation, which also takes strings by value.
  std::string opParam(TypeRef const& type) const;
  // What a value starts with: the literal, or the type's default. Empty when the C++ type's own default is that.
  std::string initial(TypeRef const& type, std::optional<Literal> const& literal) const;
  // The same, but never empty.
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
