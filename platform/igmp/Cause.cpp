#include "platform/igmp/Cause.h"

#include <ostream>

namespace Igmp {

std::string_view name(Cause cause) noexcept {
  switch (cause) {
    case Cause::notIgmp:
      return "not-igmp";
    case Cause::reservedVlan:
      return "reserved-vlan";
    case Cause::truncated:
      return "truncated";
    case Cause::badIpHeader:
      return "bad-ip-header";
    case Cause::badIpChecksum:
      return "bad-ip-checksum";
    case Cause::fragment:
      return "fragment";
    case Cause::badTtl:
      return "bad-ttl";
    case Cause::noRouterAlert:
      return "no-router-alert";
    case Cause::sourceNotUnicast:
      return "source-not-unicast";
    case Cause::inconsistentLength:
      return "inconsistent-length";
    case Cause::badIgmpChecksum:
      return "bad-igmp-checksum";
    case Cause::unknownType:
      return "unknown-type";
    case Cause::unknownRecordType:
      return "unknown-record-type";
    case Cause::groupNotMulticast:
      return "group-not-multicast";
    case Cause::groupLinkLocal:
      return "group-link-local";
    case Cause::portBlocked:
      return "port-blocked";
    case Cause::notInVlan:
      return "not-in-vlan";
    case Cause::tooManyGroups:
      return "too-many-groups";
    case Cause::tooManySources:
      return "too-many-sources";
    case Cause::badPimChecksum:
      return "bad-pim-checksum";
    case Cause::badPimHello:
      return "bad-pim-hello";
  }
  return "unknown-cause";
}

std::ostream& operator<<(std::ostream& out, Cause cause) {
  return out << name(cause);
}

}  // namespace Igmp
