#include "agent/config/Configuration.h"

#include <algorithm>
#include <ostream>

namespace Agent {

std::ostream& operator<<(std::ostream& out, ReportOn ports) {
  return out << (ports == ReportOn::all ? "all" : "mrouters");
}

std::ostream& operator<<(std::ostream& out, Unregistered ports) {
  return out << (ports == Unregistered::routers ? "routers" : "flood");
}

std::size_t proxiedVlans(Configuration const& configuration) {
  return static_cast<std::size_t>(std::count_if(
      configuration.vlans.begin(), configuration.vlans.end(),
      [](VlanConfig const& vlan) { return vlan.proxy && vlan.querierVersion.has_value(); }));
}

}  // namespace Agent
