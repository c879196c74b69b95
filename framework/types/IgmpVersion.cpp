#include "framework/types/IgmpVersion.h"

#include <ostream>

namespace Igmp {

std::ostream& operator<<(std::ostream& out, IgmpVersion version) {
  return out << static_cast<unsigned>(version);
}

}  // namespace Igmp
