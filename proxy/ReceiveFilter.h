#pragma once

#include <array>

#include "framework/kel/Export.h"
#include "platform/interface/SocketFilter.h"

namespace Bridging::IgmpSnooping::Proxy {

/// What the proxy's packet sockets take: of the frames that come in to an IPv4 multicast MAC
/// address, IGMP, PIM, whatever goes to 224.0.0.0/24, and frames of Ethernet type 0x0801; without a
/// VLAN tag or with one. The switch's own frames are outgoing and never taken.
KEL_EXPORT extern std::array<Interface::BpfInstruction, 29> const receiveFilter;

}  // namespace Bridging::IgmpSnooping::Proxy
