#include "platform/igmp/wire/IgnoreReason.h"

#include <ostream>

namespace Igmp {

std::string_view name(IgnoreReason cause) noexcept {
  switch (cause) {
    case IgnoreReason::notIgmp:
      return "not-igmp";
    case IgnoreReason::reservedVlan:
      return "reserved-vlan";
    case IgnoreReason::truncated:
      return "truncated";
    case IgnoreReason::badIpHeader:
      return "bad-ip-header";
    case IgnoreReason::badIpChecksum:
      return "bad-ip-checksum";
    case IgnoreReason::fragment:
      return "fragment";
    case IgnoreReason::badTtl:
      return "bad-ttl";
    case IgnoreReason::noRouterAlert:
      return "no-router-alert";
    case IgnoreReason::sourceNotUnicast:
      return "source-not-unicast";
    case IgnoreReason::inconsistentLength:
      return "inconsistent-length";
    case IgnoreReason::badIgmpChecksum:
      return "bad-igmp-checksum";
    case IgnoreReason::unknownType:
      return "unknown-type";
    case IgnoreReason::unknownRecordType:
      return "unknown-record-type";
    case IgnoreReason::groupNotMulticast:
      return "group-not-multicast";
    case IgnoreReason::groupLinkLocal:
      return "group-link-local";
    case IgnoreReason::portBlocked:
      return "port-blocked";
    case IgnoreReason::notInVlan:
      return "not-in-vlan";
    case IgnoreReason::tooManyGroups:
      return "too-many-groups";
    case IgnoreReason::tooManySources:
      return "too-many-sources";
    case IgnoreReason::badPimChecksum:
      return "bad-pim-checksum";
    case IgnoreReason::badPimHello:
      return "bad-pim-hello";
    case IgnoreReason::tooManyInterfaceGroups:
      return "too-many-interface-groups";
    case IgnoreReason::tooManyInterfaceSources:
      return "too-many-interface-sources";
    case IgnoreReason::tooManyMemberships:
      return "too-many-memberships";
    case IgnoreReason::ssmOlderReport:
      return "ssm-older-report";
    case IgnoreReason::ssmExclude:
      return "ssm-exclude";
    case IgnoreReason::querierNotAllowed:
      return "querier-not-allowed";
    case IgnoreReason::routerNotAllowed:
      return "router-not-allowed";
  }
  return "unknown-cause";
}

bool isLimit(IgnoreReason cause) noexcept {
  return cause == IgnoreReason::tooManyGroups || cause == IgnoreReason::tooManySources ||
         cause == IgnoreReason::tooManyInterfaceGroups ||
         cause == IgnoreReason::tooManyInterfaceSources ||
         cause == IgnoreReason::tooManyMemberships;
}

std::ostream& operator<<(std::ostream& out, IgnoreReason cause) {
  return out << name(cause);
}

}  // namespace Igmp
