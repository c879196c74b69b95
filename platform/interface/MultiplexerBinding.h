#pragma once

#include "platform/interface/EthDevPamCollection.h"
#include "platform/wirex/PortVlanPamManager.h"

namespace Interface {

/// Makes a manager hold a multiplexer for an interface exactly if its device is open, bound to that
/// device. Returns the multiplexer, or null.
KEL_EXPORT Kel::Ptr<Wirex::Multiplexer> bindMultiplexer(EthDevPamCollection const& opened,
                                                        Wirex::PortVlanPamManager& manager,
                                                        Wirex::IntfId const& intf);

}  // namespace Interface
