#include "framework/types/VlanTypeAndPrimaryVlan.h"

#include <ostream>

namespace Bridging {

std::ostream& operator<<(std::ostream& out, VlanType type) {
  switch (type) {
    case VlanType::normal:
      return out << "normal";
    case VlanType::isolated:
      return out << "isolated";
    case VlanType::community:
      return out << "community";
  }
  return out << static_cast<unsigned>(type);
}

std::ostream& operator<<(std::ostream& out, VlanTypeAndPrimaryVlan role) {
  out << role.type();
  if (role != VlanTypeAndPrimaryVlan{}) out << ' ' << role.primaryVlan();
  return out;
}

}  // namespace Bridging
