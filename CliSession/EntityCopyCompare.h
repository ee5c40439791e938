// How the engine tells whether two values, or the constructor parameters of two entities, are equal.
#pragma once

#include "CliSession/EntityCopy.h"

namespace Cli::Session {

using ParamList = Kel::Ptr<Kel::GenericIf::List>;

// Fills `params` with the source's constructor parameters, in order; answers whether they differ from the destination's
// (a missing destination, and one of another type, always differs). The index of a queue's member is no parameter. A
// pointer among them must be null: assertion "Pointers in constructor parameters are not supported by EntityCopy".
KEL_API bool constructorParams(Kel::Ptr<Kel::Entity const> const& dest, Kel::Ptr<Kel::Entity const> const& src,
                               Kel::KelAttr const& attr, ParamList const& params);
// Only fills `params`.
KEL_API void constructorParams(Kel::Ptr<Kel::Entity const> const& src, Kel::KelAttr const& attr,
                               ParamList const& params);

// Builtins by ==, enumerators by value, other values by their own comparison or, without one, by their representation.
// Two nulls are equal.
KEL_API bool valueTypeEqual(Kel::GenericIf::PtrConst const& a, Kel::GenericIf::PtrConst const& b);

// Two members of an attribute: entities by their constructor parameters, values by value.
KEL_API bool attrEqual(Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& dest,
                       Kel::GenericIf::PtrConst const& src);

// Whether setting an attribute, or the member under `index`, would change nothing; `current` is what is there, where
// the caller knows it. A member whose key is absent always differs, and so does what a set creates.
bool alreadySet(Kel::GenericIf const& destGif, Kel::KelAttr const& attr, Kel::GenericIf::PtrConst const& index,
                Kel::GenericIf::PtrConst const& value, Kel::GenericIf::PtrConst current);

// The type of an attribute's values, or of its keys, may hold values and functions only; anything else is an
// unsupported model.
KEL_API void checkValue(Kel::KelAttr const& attr, Kel::KelType const& type);

// Whether one entry of a bypass table keeps an edit out of the log; null does not.
KEL_API bool checkBypassAttributeEditLog(AttributeEditBypassEntry::PtrConst const& aeBypass, EntityCopy::Ptr const& ec,
                                         Kel::String path, Kel::GenericIf::PtrConst const& value);

}  // namespace Cli::Session
