#include "platform/interface/MultiplexerBinding.h"

namespace Interface {

Kel::Ptr<Wirex::Multiplexer> bindMultiplexer(EthDevPamCollection const& opened,
                                             Wirex::PortVlanPamManager& manager,
                                             Wirex::IntfId const& intf) {
  Kel::Ptr<EthDevPamCollection const> const self(&opened);
  if (!opened.intfPam(intf)) {
    manager.multiplexerDel(intf);
    return nullptr;
  }
  auto multiplexer = manager.multiplexerIs(intf, &manager);
  // Who heard of the multiplexer may have closed the device, or opened another one.
  multiplexer->devicePamIs(opened.intfPam(intf));
  return multiplexer;
}

}  // namespace Interface
