// Relative paths, and the order of the paths under which handlers are registered.
#pragma once

#include "CliSession/EntityCopy.h"

namespace Cli::Session {

// `absolutePath` relative to `root`, or "" if the path does not continue the root's path. Compares characters only: the
// character after the root's path may be any. It is stored through `separator`, if that is given and there is a result.
// If the path may not lie below the root, ask `isBelow` first.
// REQUIRES: a root and a path that is not empty (assertion "root && absolutePath").
KEL_API Kel::String8 relativePath(Kel::Ptr<Kel::Entity const> const& root, Kel::String8 absolutePath,
                                  char* separator = nullptr);

// Whether an entity lies strictly below another in its tree. Cost: the distance to the tree's root.
KEL_API bool isBelow(Kel::Entity const& entity, Kel::Entity const& root);
// The path of an entity relative to `root`; "" for `root` itself, for an entity that does not lie below it, and without
// a root.
KEL_API Kel::String8 pathBelow(Kel::Entity const* root, Kel::Entity const& entity);
// The same for the full name of an entity, by its text: an entity of another tree may have a name that lies below the
// root's.
KEL_API Kel::String8 pathBelow(Kel::Entity const* root, Kel::String8 const& fullName);
// Whether an edited entity is not below the copy's destination, and its full name says so wrongly, because the
// destination is a root without a name.
KEL_API bool onlySeemsBelow(EntityCopy const& ec, Kel::Entity const& edited);

// The entity of that full name in the tree of `member`, or null.
KEL_API Kel::Ptr<Kel::Entity> entityInTree(Kel::Entity const& member, Kel::String8 const& fullName);

// Copies the attributes that custom handlers have put off until the copy of the roots has ended, those that are put off
// meanwhile included. Sets waiting pointers afterwards. A handler that has put nothing off costs nothing.
KEL_API void drainPostCopies(EntityCopy& ec, EntityCopyGlobalSessionHandler& handler);

// Order paths by length: the longer path is the smaller one. Maps with paths as keys do not use this order; they use
// that of the text (`EntityPath::compare`).
KEL_API bool operator>=(EntityPath const& a, EntityPath const& b);
KEL_API bool operator<=(EntityPath const& a, EntityPath const& b);
KEL_API bool operator>(EntityPath const& a, EntityPath const& b);

}  // namespace Cli::Session
