#include "Pairs.h"

namespace Pairs {

void Vine::tended() {
  if (!wild()) shootDel("weed");
}

void Shoot::grown() {
  auto* const vine = dynamic_cast<Vine*>(parent());
  if (vine && !vine->wild()) vine->shootDel("shaded");
}

}  // namespace Pairs
