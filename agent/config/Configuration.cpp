#include "agent/config/Configuration.h"

#include <algorithm>
#include <ostream>
#include <utility>

namespace Agent {

std::ostream& operator<<(std::ostream& out, ReportOn ports) {
  return out << (ports == ReportOn::all ? "all" : "mrouters");
}

std::ostream& operator<<(std::ostream& out, Unregistered ports) {
  return out << (ports == Unregistered::routers ? "routers" : "flood");
}

VlanMember const* VlanConfig::member(Wirex::IntfId const& intfId) const {
  auto const found = std::find_if(members.begin(), members.end(), [&](VlanMember const& member) {
    return member.intfId == intfId;
  });
  return found == members.end() ? nullptr : &*found;
}

VlanMember* VlanConfig::member(Wirex::IntfId const& intfId) {
  VlanMember const* const found = std::as_const(*this).member(intfId);
  return found ? &members[static_cast<std::size_t>(found - members.data())] : nullptr;
}

VlanConfig const* Configuration::vlanFrom(unsigned number) const {
  auto const found = std::lower_bound(
      vlans.begin(), vlans.end(), number,
      [](VlanConfig const& vlan, unsigned id) { return vlan.vlanId.value() < id; });
  return found == vlans.end() ? nullptr : &*found;
}

std::size_t proxiedVlans(Configuration const& configuration) {
  return static_cast<std::size_t>(std::count_if(
      configuration.vlans.begin(), configuration.vlans.end(),
      [](VlanConfig const& vlan) { return vlan.proxy && vlan.querierVersion.has_value(); }));
}

}  // namespace Agent
