// Relative paths, and the order of the paths under which handlers are registered.
#pragma once

#include "CliSession/EntityCopy.h"

namespace Cli::Session {

// `absolutePath` relative to `root`, or the empty string when it does not lie strictly below it by its characters. Both
// must be given (assertion "root && absolutePath"). The character between the root's path and the relative part is not
// examined but stored through `separator`, when that is given and there is a result: a caller that does not know that
// the path lies below the root asks `isBelow` first.
KEL_API Kel::String8 relativePath(Kel::Ptr<Kel::Entity const> const& root, Kel::String8 absolutePath,
                                  char* separator = nullptr);

// Whether an entity lies strictly below another in its tree. Cost: the distance to the tree's root.
KEL_API bool isBelow(Kel::Entity const& entity, Kel::Entity const& root);
// The entity's path relative to `root`; "" for `root` itself and for whatever does not lie below it.
KEL_API Kel::String8 pathBelow(Kel::Entity const& root, Kel::Entity const& entity, char* separator = nullptr);
// The same for the full name of an entity of the root's tree.
KEL_API Kel::String8 pathBelow(Kel::Ptr<Kel::Entity const> const& root, Kel::String8 const& fullName);

// The entity of that full name in the tree of another; null for the empty name.
KEL_API Kel::Ptr<Kel::Entity> entityInTree(Kel::Entity const& member, Kel::String8 const& fullName);

// By the lengths of the paths, the longer one being the smaller: not the order of the maps that paths are keys of,
// which is that of the text (`EntityPath::compare`).
KEL_API bool operator>=(EntityPath const& a, EntityPath const& b);
KEL_API bool operator<=(EntityPath const& a, EntityPath const& b);
KEL_API bool operator>(EntityPath const& a, EntityPath const& b);

}  // namespace Cli::Session
