// The names that generated code uses, and those that it cannot use.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "compiler/Ast.h"

namespace kelc {

std::string upperFirst(std::string text);
std::string lowerFirst(std::string text);

// The reason why no declaration, attribute, parameter or enumerator can have the name; empty if they can.
std::string whyNoName(std::string_view name);
// The words of the language and its builtin types cannot name a declaration either.
bool isModelWord(std::string_view name);

// The builtin type of that name, or Builtin::none; and the other way round.
Builtin builtinOf(std::string_view name);
std::string_view builtinName(Builtin type);
// The names of all builtin types.
std::vector<std::string_view> builtinNames();

// The names that an attribute uses in its class, its own first: accessors, member variable, id, iterator types.
std::vector<std::string> namesOf(Attribute const& attribute);
// The same for an operation.
std::vector<std::string> namesOf(Operation const& op);
// Whether the operation has an id of its own: false if it is hidden, or overrides one of the base.
bool hasId(Operation const& op);
// The names that mean something else inside an entity's class than outside.
std::set<std::string> memberNames(EntityDecl const& entity);
// `onX`, the attribute's operation in the reactor classes; empty if the attribute cannot change.
std::string reactorName(Attribute const& attribute);
// The function that makes an entity.
std::string factoryName(EntityDecl const& entity);

// The names that every entity, value type and namespace of generated code has already.
bool isEntityMember(std::string_view name);
bool isValueMember(std::string_view name);
bool isReactorMember(std::string_view name);
bool isNamespaceMember(std::string_view name);

}  // namespace kelc
