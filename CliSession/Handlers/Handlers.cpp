// The plain handler, the handler tables, and filters.
#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/Handlers/Handlers.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

bool EntityCopyHandler::handleEntity(Kel::Ptr<EntityCopy> const& ec, Kel::Ptr<Kel::Entity> const& dest,
                                     Kel::Ptr<Kel::Entity const> const& src, Kel::String path) {
  requireNonNull(ec);
  if (!ec->stopAtFirstDiff()) Kel::throwNoImplementationException("handleEntity");
  return ec->doCopyEntityAttrs(dest, src, path, nullptr);
}

PtrTarget EntityCopyHandler::resolveEntityPtr(Kel::Ptr<EntityCopy> const& ec, Kel::Ptr<Kel::Entity const> const&) {
  requireNonNull(ec);
  if (!ec->stopAtFirstDiff()) Kel::throwNoImplementationException("resolveEntityPtr");
  return PtrTarget("", false);
}

Kel::Ptr<EntityCopyGlobalSessionHandler const> EntityCopyHandler::decidesAs() const { return nullptr; }

void EntityCopyCustomHandlerTable::registerCustomCopyHandler(EntityPath const& path, Kel::String typeName,
                                                             Kel::Ptr<EntityCopyGlobalSessionHandler> const& handler) {
  Kel::validPtr(handler);
  if (typeName.empty())
    pathSpecificHandlerIs(path.value(), handler);
  else
    typeSpecificHandlersIs(typeName)->pathSpecificIs(path, handler);
}

Kel::Ptr<EntityCopyGlobalSessionHandler> EntityCopyCustomHandlerTable::findCustomCopyHandler(
    Kel::String path, Kel::String typeName) const {
  if (Kel::Ptr<EntityCopyGlobalSessionHandler> exact = pathSpecificHandler(path)) return exact;
  Kel::Ptr<EntityCopyHandlerMap const> const map = typeSpecificHandlers(typeName);
  if (!map) return nullptr;
  // Keys come in text order, so the first match is the shortest. They match by characters, not by components.
  for (auto it = map->pathSpecificIterator(); it; ++it)
    if (path.view().starts_with(it.key().value())) return it.value();
  return nullptr;
}

void EntityCopyCustomHandlerTable::registerEntityCopyFilter(Kel::Ptr<EntityCopyFilterDir> const& filterDir,
                                                            EntityPath const& path, Kel::String typeName,
                                                            Kel::Ptr<AttributeFilter> const& attrs) {
  Kel::Ptr<EntityCopyFilter> const filter = Kel::validPtr(filterDir)->ecfIs(HandlerContext(path, typeName));
  if (attrs) {
    Kel::Ptr<AttributeFilter> const filtered = filter->filteredAttributeIs();
    for (auto it = attrs->attributeNameIterator(); it; ++it) filtered->attributeNameIs(it.key(), true);
  }
  registerCustomCopyHandler(path, typeName, filter);
}

bool EntityCopyFilter::handleEntity(Kel::Ptr<EntityCopy> const& ec, Kel::Ptr<Kel::Entity> const& dest,
                                    Kel::Ptr<Kel::Entity const> const& src, Kel::String path) {
  requireNonNull(ec, src);
  KEL_TRACE(8) << "virtual bool Cli::Session::EntityCopyFilter" << handleEntitySignature << path;
  Kel::Ptr<EntityCopyGlobalSessionHandler> const marking = Kel::ptrCast<EntityCopyGlobalSessionHandler>(ec->handler());
  bool result = false;
  if (preAttribute()) {
    for (auto it = preAttribute()->attributeNameIterator(); it; ++it) {
      result |= ec->doCopyAttrByName(dest, src, path, it.value());
      if (ec->stop()) return result;
      if (!marking) continue;
      if (!marking->copied()) marking->newCopied("entity");
      markCopied(*marking, (ec->src() ? pathBelow(ec->src().ptr(), *src) : path) + "." + it.value());
    }
  }
  result |= ec->doCopyEntityAttrs(dest, src, path, filteredAttribute());
  if (ec->stop() || !postAttribute()) return result;
  for (auto it = postAttribute()->attributeNameIterator(); it; ++it) {
    result |= ec->doCopyAttrByName(dest, src, path, it.value());
    if (ec->stop()) break;
  }
  return result;
}

}  // namespace Cli::Session
