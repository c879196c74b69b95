#include "platform/interface/SocketEthDevPams.h"

#include "platform/interface/SocketEthDevPam.h"

namespace Interface {

Kel::Ptr<EthDevPam> SocketEthDevPams::newPam(Wirex::IntfId const& intfId,
                                             IntfStatusAndDeviceName const& device,
                                             EthDevSettings const& settings) {
  return Kel::make<SocketEthDevPam>(loop_, opener_, intfId, device, settings);
}

std::vector<PacketSocket::PassedOn> SocketEthDevPams::passedOn() const {
  std::vector<PacketSocket::PassedOn> all;
  for (EthDevPam const* const pam : open())
    if (auto const passed = static_cast<SocketEthDevPam const*>(pam)->passedOn())
      all.push_back(*passed);
  return all;
}

}  // namespace Interface
