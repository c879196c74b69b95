#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string_view>

#include "framework/kel/Export.h"

namespace Igmp {

/// Why a received frame, or one group record of it, is not used. Counters are kept by cause.
enum class IgnoreReason : std::uint8_t {
  notIgmp,             ///< Not an error: another protocol, or more than one VLAN tag.
  reservedVlan,        ///< Tagged with VLAN 4095 (IEEE 802.1Q).
  truncated,           ///< The capture ends before the lengths in its headers do.
  badIpHeader,         ///< IP version, header length or options that cannot be.
  badIpChecksum,       ///< Of the IPv4 header.
  fragment,            ///< IGMP messages are never fragmented by those who mean well.
  badTtl,              ///< Other than 1: the message may come from another network.
  noRouterAlert,       ///< RFC 2113's option is missing and was required.
  sourceNotUnicast,    ///< Of the IP header, or in a source list.
  inconsistentLength,  ///< A message shorter than its type or its counts ask for.
  badIgmpChecksum,     ///< Over the whole IP payload.
  unknownType,         ///< An IGMP message type that a snooping switch has no use for.
  unknownRecordType,   ///< A group record of a type that RFC 9776 section 4.2.12 lacks.
  groupNotMulticast,   ///< The group lies outside 224.0.0.0/4.
  groupLinkLocal,      ///< The group lies in 224.0.0.0/24, which is never pruned (RFC 4541).
  portBlocked,         ///< The port takes no frames in.
  notInVlan,           ///< The port is no such member of the frame's VLAN.
  tooManyGroups,       ///< The VLAN has as many groups as it may have, or as the port may take.
  tooManySources,      ///< The reporter would have more sources of the group than it may have.
  badPimChecksum,      ///< Of a PIM hello.
  badPimHello,         ///< A PIM hello of another version than 2, or not sent to all PIM routers.
  tooManyInterfaceGroups,   ///< The port has as many groups as it may have.
  tooManyInterfaceSources,  ///< The port has as many sources as it may have.
  tooManyMemberships,  ///< The port has as many reporters as it may have: this one is merged with
                       ///< others, so that nothing but its own leaving is ignored.
  ssmOlderReport,      ///< An IGMPv1 or IGMPv2 report of a group of the SSM range (RFC 4604).
  ssmExclude,          ///< A record of EXCLUDE mode of such a group.
  querierNotAllowed,   ///< A query on a port on which no querier is to be.
  routerNotAllowed,    ///< A PIM hello on a port on which no router is to be.
};

/// How many reasons there are.
inline constexpr std::size_t ignoreReasons =
    static_cast<std::size_t>(IgnoreReason::routerNotAllowed) + 1;

/// Whether a configured limit is the cause.
KEL_EXPORT bool isLimit(IgnoreReason cause) noexcept;

/// The cause as operators read it: "bad-ip-checksum".
KEL_EXPORT std::string_view name(IgnoreReason cause) noexcept;

KEL_EXPORT std::ostream& operator<<(std::ostream& out, IgnoreReason cause);

}  // namespace Igmp
