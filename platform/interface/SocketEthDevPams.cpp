#include "platform/interface/SocketEthDevPams.h"

#include "platform/interface/SocketEthDevPam.h"

namespace Interface {

Kel::Ptr<EthDevPam> SocketEthDevPams::newPam(Wirex::IntfId const& intfId,
                                             IntfStatusAndDeviceName const& device,
                                             EthDevSettings const& settings) {
  return Kel::make<SocketEthDevPam>(loop_, opener_, intfId, device, settings);
}

}  // namespace Interface
