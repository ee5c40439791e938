#include "Kel/AttrOwned.h"

namespace Kel {

template class EntityMapOf<NameKey>;
template struct Members<EntityMapOf<NameKey>>;
template struct Members<EntityTreeOf<NameKey>>;
template class OwnedAccess<EntityMapOf<NameKey>>;
template class OwnedAccess<EntityTreeOf<NameKey>>;

}  // namespace Kel
