#pragma once

#include "framework/types/IntfId.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"
#include "platform/wirex/Ethernet.h"

namespace Bridging::IgmpSnooping {

/// A port as a querier knows it.
class KEL_EXPORT QueryPort {
 public:
  virtual Wirex::IntfId const& intfId() const = 0;

  /// How long an IP datagram may be.
  virtual std::size_t mtu() const = 0;

  virtual Wirex::MacAddress const& macAddress() const = 0;

  /// Whether a query would leave at present.
  virtual bool canSend() const = 0;

  /// Sends an IGMP message in a VLAN. Returns whether the port can send at present.
  virtual bool send(VlanId vlan, Wirex::IpAddr source, Wirex::IpAddr destination,
                    Wirex::Bytes message) = 0;

 protected:
  ~QueryPort() = default;
};

}  // namespace Bridging::IgmpSnooping
