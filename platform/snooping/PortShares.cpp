#include "platform/snooping/PortShares.h"

namespace Bridging::IgmpSnooping {

using Igmp::IgnoreReason;
using Wirex::IntfId;

void PortShares::portIs(IntfId const& intf) {
  Port& port = this->port(intf);
  if (!port.isMember) ++members_;
  port.isMember = true;
}

void PortShares::portDel(IntfId const& intf) {
  Port& port = this->port(intf);
  if (port.isMember) --members_;
  port.isMember = false;
}

PortUse& PortShares::use(IntfId const& intf) {
  return port(intf).use;
}

PortShares::Port& PortShares::port(IntfId const& intf) {
  auto* const known = ports_.find(intf);
  return known ? **known : *ports_.add(intf, std::make_unique<Port>());
}

PortShares::Decision PortShares::decide(PortUse const& use, bool isCommon,
                                        SnoopingPolicy const& policy) const {
  if (policy.maxInterfaceGroups != 0 && use.groups >= policy.maxInterfaceGroups)
    return {IgnoreReason::tooManyInterfaceGroups};
  if (isCommon || policy.maxGroups == 0) return {std::nullopt, GroupCharge::common};
  std::uint32_t const share = members_ == 0 ? 0 : policy.maxGroups / 2 / members_;
  if (use.groupsOfShare < share) return {std::nullopt, GroupCharge::share};
  if (commonGroups_ < policy.maxGroups - members_ * share)
    return {std::nullopt, GroupCharge::common};
  return {IgnoreReason::tooManyGroups};
}

}  // namespace Bridging::IgmpSnooping
