#include "framework/types/IntfId.h"

#include <ostream>

namespace Wirex {

std::ostream& operator<<(std::ostream& out, IntfId const& intf) {
  return out << intf.stringValue();
}

}  // namespace Wirex
