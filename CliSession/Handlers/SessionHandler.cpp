// The handler of a whole session copy.
#define KEL_SOURCE_NAME "CliSession"
#include <typeinfo>

#include "CliSession/CliSession.h"
#include "CliSession/Handlers/Handlers.h"

KEL_TRACE_MODULE("CliSession")

namespace Cli::Session {

void EntityCopyGlobalSessionHandler::postAttributeCopyChanged() {
  auto const head = postAttributeCopyIterator();
  postAttributeCopyMetadataIs(PostAttributeCopyMetadata(head ? head.key() : 0, postAttributeCopys()));
}

void markCopied(EntityCopyGlobalSessionHandler& handler, Kel::String8 const& path) {
  if (path.empty() || path.pos('*') != Kel::String8::npos) return;
  Kel::validPtr(handler.copied())->prefixIs(path, Zuk::prefixTrieStateFactory());
}

namespace {

// Whether a path, or one above it, is marked. "*" is a wildcard to the trie and is never stored in a mark. A path that
// contains one is marked if the part before it is.
bool wasCopied(Zuk::PrefixTrie const& copied, Kel::String8 const& path) {
  std::string_view const text = path.view().substr(0, path.view().find('*'));
  return copied.hasPrefix(text.size() == path.chars() ? text : text.substr(0, text.find_last_of("/.") + 1));
}

}  // namespace

bool EntityCopyGlobalSessionHandler::handleEntity(Kel::Ptr<EntityCopy> const& ec, Kel::Ptr<Kel::Entity> const& dest,
                                                  Kel::Ptr<Kel::Entity const> const& src, Kel::String path) {
  requireNonNull(ec);
  KEL_TRACE(8) << "virtual bool Cli::Session::EntityCopyGlobalSessionHandler" << handleEntitySignature << path;
  KEL_ASSERT(sessionStatus());
  KEL_ASSERT(sessionStatus()->rootTrie());
  if (!src) return ec->doCopyEntityAttrs(dest, src, path, nullptr);  // an assertion
  if (!copied()) newCopied("entity");
  if (wasCopied(*copied(), path)) {
    KEL_TRACE(8) << "handleEntity() skipping " << path;
    return false;
  }
  // Looked up again after a custom handler has run, because it may register roots.
  auto const isRoot = [&] { return Kel::validPtr(Kel::validPtr(sessionStatus())->rootTrie())->isPrefix(path); };
  Kel::String8 const& typeName = src->type()->fullTypeName();
  auto const custom = handlerTable() ? handlerTable()->findCustomCopyHandler(path, typeName) : nullptr;
  bool result = false;
  if (custom && custom.ptr() != this) {
    KEL_TRACE(9) << "Custom handling for " << path << ", " << typeName;
    if (EntityCopy::Impl::of(*ec).unlogged) ensureLog(*ec);  // the handler may look at it
    result = custom->handleEntity(ec, dest, src, path);
    if (isRoot()) markCopied(*this, path);
    return result;
  }
  if (!isRoot()) {
    result = ec->doCopyEntityAttrs(dest, src, path, nullptr);
  } else {
    for (Kel::KelAttr const* attr : src->type()->attributeQ()) {
      if (!attr->copiable()) continue;
      result |= ec->doCopyAttrByName(dest, src, path, attr->name());
      if (ec->stop()) break;
      if (attr->instantiating()) markCopied(*this, path + "." + attr->name());
    }
    KEL_TRACE(9) << " mark " << path << " as copied.";
    markCopied(*this, path);
  }
  KEL_TRACE(9) << "handleEntity of " << path << " completed (" << result << ")";
  return result;
}

namespace {

// Makes the session root of a pointer's target in the destination, if it is missing. Answers whether it is there now,
// or need not be.
bool ensureRoot(Status& status, EntityCopy& ec, Kel::String8 const& root) {
  if (ec.dest()->entity(root) || ec.stopAtFirstDiff()) return true;
  // Only an entry of a directory is made here. The walk makes a root that lies inside an entity.
  Kel::Ptr<Kel::Entity const> const srcRoot = ec.src()->entity(root);
  if (!srcRoot || !dynamic_cast<Kel::Dir const*>(srcRoot->parent())) return true;
  Kel::Ptr<Kel::Dir> const source(const_cast<Kel::Dir*>(dynamic_cast<Kel::Dir const*>(ec.src().ptr())));
  status.doCreateSessionRoot(source, Kel::ptrCast<Kel::Dir>(ec.dest()), root);
  return ec.dest()->entity(root) != nullptr;
}

}  // namespace

PtrTarget EntityCopyGlobalSessionHandler::resolveEntityPtr(Kel::Ptr<EntityCopy> const& ec,
                                                           Kel::Ptr<Kel::Entity const> const& src) {
  requireNonNull(ec, src);
  KEL_TRACE(8) << "virtual Cli::Session::PtrTarget "
                  "Cli::Session::EntityCopyGlobalSessionHandler::resolveEntityPtr(const "
                  "Kel::Ptr<Cli::Session::EntityCopy>&, const Kel::Ptr<const Kel::Entity>&): "
               << src;
  KEL_ASSERT(sessionStatus());
  KEL_ASSERT(sessionStatus()->rootTrie());
  Kel::String8 const srcFullName = src->fullName();
  Kel::String8 const relative = pathBelow(ec->src().ptr(), *src);
  bool const internal = !relative.empty() && sessionStatus()->rootTrie()->hasPrefix(relative);
  // The top of the tree in which the target has a counterpart, if it has one.
  Kel::Ptr<Kel::Entity> const top = internal ? Kel::validPtr(ec->dest()).handle() : externalDest();
  bool const translated = top && !relative.empty();
  Kel::String8 const destTargetFullName = translated ? top->fullName() + src->pathFrom(ec->src().ptr()) : srcFullName;
  if (internal) {
    KEL_TRACE(3) << "Target is internal";
    Kel::String8 const targetRootFullName = sessionStatus()->rootTrie()->enclosingPrefix(relative);
    KEL_ASSERT_TEXT(!targetRootFullName.empty(), "targetRootFullName");
    bool const rootIsThere = ensureRoot(*sessionStatus(), *ec, targetRootFullName);
    KEL_ASSERT_TEXT(rootIsThere, "ec->dest()->entity( destTargetFullName )");
  } else {
    KEL_TRACE(3) << "Target is external or already pointing to dest";
    if (top) KEL_TRACE(3) << "Destination for external pointers is set to " << top->fullName();
  }
  if (destTargetFullName == srcFullName)
    KEL_TRACE(3) << "destTargetFullName needs no translation (" << destTargetFullName << ")";
  else
    KEL_TRACE(3) << "destTargetFullName: " << destTargetFullName;
  Kel::Ptr<Kel::Entity> found;
  if (ec->dest() && !destTargetFullName.empty()) found = targetInTree(*ec, *ec->dest(), destTargetFullName, src.ptr());
  return PtrTarget(destTargetFullName, found && (!internal || keepsIdentity(*ec, *found, *src)));
}

// --- Answers in advance ---

Kel::Ptr<EntityCopyGlobalSessionHandler const> EntityCopyGlobalSessionHandler::decidesAs() const {
  bool const isPlain = typeid(*this) == typeid(EntityCopyGlobalSessionHandler);
  return PtrConst(isPlain && sessionStatus() && sessionStatus()->rootTrie() ? this : nullptr);
}

bool EntityCopyGlobalSessionHandler::walksThrough(Kel::String path, bool below) const {
  if (path.pos('*') != Kel::String::npos) return false;  // the tries' wildcard
  Zuk::PathTrie const& roots = *sessionStatus()->rootTrie();
  if (roots.isContinued(path) || (!below && roots.isPrefix(path))) return false;
  if (copied() && (copied()->hasPrefix(path) || copied()->isContinued(path))) return false;
  if (!handlerTable()) return true;
  for (auto it = handlerTable()->pathSpecificHandlerIterator(); it; ++it) {
    std::string_view const key = it.key();
    // A handler for the empty path handles the copy roots.
    if (key.empty() || (key.starts_with(path) && (!below || key.size() > path.chars()))) return false;
  }
  return true;
}

bool EntityCopyGlobalSessionHandler::walksThroughType(Kel::String typeName) const {
  return !handlerTable() || !handlerTable()->typeSpecificHandlers(typeName);
}

namespace {

// The highest entity below `top`, at or above `e`, whose path has a recorded prefix; null if there is none. Session
// roots are near the top.
Kel::Entity const* highestInternal(Zuk::PathTrie const& roots, Kel::Entity const& top, Kel::Entity const& e) {
  if (&e == &top) return nullptr;
  Kel::Entity const* const above = highestInternal(roots, top, *e.parent());
  return above || !roots.hasPrefix(pathBelow(&top, e)) ? above : &e;
}

}  // namespace

Kel::Ptr<Kel::Entity const> EntityCopyGlobalSessionHandler::counterpartRoot(
    Kel::Ptr<EntityCopy> const& ec, Kel::Ptr<Kel::Entity const> const& target) const {
  if (!ec->src() || !isBelow(*target, *ec->src())) return nullptr;
  return highestInternal(*sessionStatus()->rootTrie(), *ec->src(), *target);
}

Kel::Ptr<Kel::Entity const> EntityCopyGlobalSessionHandler::ground(Kel::String path) const {
  // The walk marks nested session roots as copied.
  if (externalDest() || sessionStatus()->rootTrie()->isContinued(path)) return nullptr;
  if (copied() && (copied()->hasPrefix(path) || copied()->isContinued(path))) return nullptr;
  return sessionStatus()->rootTrie();
}

}  // namespace Cli::Session
