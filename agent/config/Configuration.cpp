#include "agent/config/Configuration.h"

#include <ostream>

namespace Agent {

std::ostream& operator<<(std::ostream& out, ReportOn ports) {
  return out << (ports == ReportOn::all ? "all" : "mrouters");
}

}  // namespace Agent
