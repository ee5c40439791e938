// How the engine compares two values, or the constructor parameters of two entities.
#pragma once

#include "CliSession/EntityCopy.h"

namespace Cli::Session {

// A list of constructor parameters.
using ParamList = Kel::Ptr<Kel::GenericIf::List>;

// Fills `params` with the constructor parameters of the source, in order. Answers whether they differ from those of the
// destination; true if the destination is null or of another type. The index of a queue's member does not count as a
// parameter. REQUIRES: pointers among the parameters are null (assertion "Pointers in constructor parameters are not
// supported by EntityCopy").
KEL_API bool constructorParams(Kel::Ptr<Kel::Entity const> const& dest, Kel::Ptr<Kel::Entity const> const& src,
                               Kel::KelAttr const& attr, ParamList const& params);
// The same without a destination: only fills `params`.
KEL_API void constructorParams(Kel::Ptr<Kel::Entity const> const& src, Kel::KelAttr const& attr,
                               ParamList const& params);

// Whether two values are equal: builtins by ==, enumerators by number, other values by their own comparison or, without
// one, by their representation. Two nulls are equal; values of different types are not. REQUIRES: a value type has a
// comparison or a representation (assertion "No comparison operator found").
KEL_API bool valueTypeEqual(Kel::GenericIf::PtrConst const& a, Kel::GenericIf::PtrConst const& b);

// Whether two members of an attribute are equal: entities by their constructor parameters, values by valueTypeEqual.
// Either may be null.
KEL_API bool attrEqual(Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& dest,
                       Kel::GenericIf::PtrConst const& src);

// Checks the type of an attribute's values, or of its keys. REQUIRES: all fields of the type are values or operations
// (assertion "Value types with attributes that are not value types are not supported by EntityCopy").
KEL_API void checkValue(Kel::KelAttr const& attr, Kel::KelType const& type);

// Whether one entry of a bypass table keeps an edit out of the log. `path` is the full name of the edited entity;
// `value` is what would be set or deleted. A null entry answers false. REQUIRES: an entry with a default entity is for
// deletions.
KEL_API bool checkBypassAttributeEditLog(AttributeEditBypassEntry::PtrConst const& aeBypass, EntityCopy::Ptr const& ec,
                                         Kel::String path, Kel::GenericIf::PtrConst const& value);

}  // namespace Cli::Session
