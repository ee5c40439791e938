// Filters: what is copied first, what is left out, what is copied last.
#define KEL_SOURCE_NAME "EntityCopy"
#include "CliSession/EntityCopy/EngineImpl.h"
#include "CliSession/EntityCopyUtils.h"
#include "Kel/Trace.h"

KEL_TRACE_MODULE("EntityCopy")

namespace Cli::Session {

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
