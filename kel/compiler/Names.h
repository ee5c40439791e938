// The names that generated code takes, and those that it cannot.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "compiler/Ast.h"

namespace kelc {

std::string upperFirst(std::string text);
std::string lowerFirst(std::string text);

// Why no declaration, attribute, parameter or enumerator can have the name; empty when it can.
std::string whyNoName(std::string_view name);
// The words of the language and its builtin types cannot name a declaration either.
bool isModelWord(std::string_view name);

// The builtin type of that name, or Builtin::none; and the other way round.
Builtin builtinOf(std::string_view name);
std::string_view builtinName(Builtin type);
// The names of all builtin types.
std::vector<std::string_view> builtinNames();

// The names that an attribute takes in its class, its own first: accessors, member variable, id, iterator types.
std::vector<std::string> namesOf(Attribute const& attribute);
// The same for an operation.
std::vector<std::string> namesOf(Operation const& op);
// Whether the operation is an attribute of its type, and has an id: not when it is hidden or has that of its base.
bool hasId(Operation const& op);
// The names that mean something else inside an entity's class than outside of it.
std::set<std::string> memberNames(EntityDecl const& entity);
// `onX`: the attribute's part in the reactor classes; empty when it cannot change.
std::string reactorName(Attribute const& attribute);
// The function that makes an entity.
std::string factoryName(EntityDecl const& entity);

// The names that every entity, value type and namespace of generated code has already.
bool isEntityMember(std::string_view name);
bool isValueMember(std::string_view name);
bool isReactorMember(std::string_view name);
bool isNamespaceMember(std::string_view name);

}  // namespace kelc
