#include "Model.h"

namespace Ports {

void Switch::checkMtu(Kel::U32 mtu) const {
  if (mtu > 9216) Kel::throwRangeException("mtu > 9216");
}

bool PortHandler::handleEntity(Kel::Ptr<Cli::Session::EntityCopy> const& ec, Kel::Ptr<Kel::Entity> const& dest,
                               Kel::Ptr<Kel::Entity const> const& src, Kel::String path) {
  seenInc();
  return ec->doCopyEntityAttrs(dest, src, path, nullptr);
}

}  // namespace Ports
