#include "framework/types/IgmpFilterMode.h"

#include <ostream>

namespace Gmp::Igmp {

std::ostream& operator<<(std::ostream& out, IgmpFilterMode mode) {
  return out << (mode == IgmpFilterMode::exclude ? "exclude" : "include");
}

}  // namespace Gmp::Igmp
