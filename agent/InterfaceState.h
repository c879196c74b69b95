#pragma once

#include <cstdint>

#include "platform/wirex/Ethernet.h"

namespace Agent {

/// What a driver knows of an interface. The default value is that of one that does not exist.
struct InterfaceState {
  bool present = false;
  std::uint32_t kernelIndex = 0;  ///< 0 where no kernel has the interface
  Wirex::MacAddress macAddress{};
  std::uint16_t mtu = 0;  ///< bytes of an IP datagram
  bool carrier = false;
  bool forwarding = false;  ///< false while a bridge keeps its port from forwarding

  bool operational() const { return present && carrier && forwarding; }

  friend bool operator==(InterfaceState const&, InterfaceState const&) = default;
};

}  // namespace Agent
