#include "CliSession/EntityCopyUtils.h"

#include <cstring>

#include "Kel/Assert.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopyUtils")

namespace Cli::Session {

Kel::String8 relativePath(Kel::Ptr<Kel::Entity const> const& root, Kel::String8 absolutePath, char* separator) {
  KEL_ASSERT_TEXT(root && !absolutePath.empty(), "root && absolutePath");
  Kel::String8 const rootPath = root->fullName();
  Kel::U32 const n = rootPath.chars();
  Kel::String8 result;
  if (n + 1 < absolutePath.chars() && std::memcmp(absolutePath.charPtr(), rootPath.charPtr(), n) == 0) {
    result = absolutePath.substr(n + 1);
    if (separator) *separator = absolutePath[n];
  }
  KEL_TRACE(9) << "relativePath: " << absolutePath << " is " << result << " relative to " << rootPath;
  return result;
}

bool isBelow(Kel::Entity const& entity, Kel::Entity const& root) {
  for (Kel::Entity const* e = entity.parent(); e; e = e->parent())
    if (e == &root) return true;
  return false;
}

Kel::String8 pathBelow(Kel::Entity const* root, Kel::Entity const& entity) {
  if (!root || !isBelow(entity, *root)) return {};
  if (KEL_TRACE_ENABLED(9)) return relativePath(Kel::Ptr<Kel::Entity const>(root), entity.fullName());
  return entity.localPath(root);
}

Kel::String8 pathBelow(Kel::Entity const* root, Kel::String8 const& fullName) {
  if (!root || fullName.empty()) return {};
  char separator = 0;
  Kel::String8 const relative = relativePath(Kel::Ptr<Kel::Entity const>(root), fullName, &separator);
  return separator == '/' || separator == '.' ? relative : Kel::String8();
}

bool onlySeemsBelow(EntityCopy const& ec, Kel::Entity const& edited) {
  Kel::Entity const* const dest = ec.dest().ptr();
  return dest && dest->fullName().empty() && &edited != dest && !isBelow(edited, *dest);
}

Kel::Ptr<Kel::Entity> entityInTree(Kel::Entity const& member, Kel::String8 const& fullName) {
  auto* root = const_cast<Kel::Entity*>(member.root());
  return root->entity(fullName);
}

void drainPostCopies(EntityCopy& ec, EntityCopyGlobalSessionHandler& handler) {
  if (handler.postAttributeCopys() == 0) return;
  while (handler.postAttributeCopys() > 0) {
    // Taken first, because the record drops its pointers when it leaves the queue.
    Kel::Ptr<PostCopyAttribute> const front = handler.postAttributeCopyIterator().value();
    Kel::Ptr<Kel::Entity> const dest = front->dest();
    Kel::Ptr<Kel::Entity const> const src = front->src();
    handler.postAttributeCopyDeq();
    ec.doCopyAttrByName(dest, src, front->path(), front->attrName());
  }
  if (ec.pendingAttrs() > 0) ec.doCopyPendingAttrs(false);
}

bool operator>=(EntityPath const& a, EntityPath const& b) { return a.value().chars() <= b.value().chars(); }
bool operator<=(EntityPath const& a, EntityPath const& b) { return a.value().chars() >= b.value().chars(); }
bool operator>(EntityPath const& a, EntityPath const& b) { return !(a <= b); }

}  // namespace Cli::Session
