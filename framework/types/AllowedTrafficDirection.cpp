#include "framework/types/AllowedTrafficDirection.h"

#include <ostream>

namespace Bridging {

std::ostream& operator<<(std::ostream& out, AllowedTrafficDirection direction) {
  switch (direction) {
    case AllowedTrafficDirection::both:
      return out << "both";
    case AllowedTrafficDirection::ingress:
      return out << "ingress";
    case AllowedTrafficDirection::egress:
      return out << "egress";
    case AllowedTrafficDirection::none:
      return out << "none";
  }
  return out << static_cast<unsigned>(direction);
}

}  // namespace Bridging
