#include "framework/types/VlanId.h"

#include <ostream>

#include "framework/kel/Exception.h"

namespace Bridging {

void VlanId::refuse() {
  throw Kel::RangeException("VlanId::value < 1 or > 4094 not allowed");
}

std::ostream& operator<<(std::ostream& out, VlanId vlan) {
  return out << vlan.value();
}

}  // namespace Bridging
