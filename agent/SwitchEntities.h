#pragma once

#include "framework/entities/BridgingConfig.h"
#include "framework/entities/DeviceIntfStatus.h"
#include "framework/entities/IgmpContextStatus.h"
#include "framework/entities/IgmpProtocolConfig.h"
#include "framework/entities/LibVlanState.h"
#include "framework/entities/PrivateVlanState.h"
#include "framework/entities/QuerierConfig.h"
#include "platform/igmp/IgmpHost.h"

namespace Agent {

/// The entities that describe the switch to snooping and to the proxy.
struct SwitchEntities {
  Kel::Ptr<Bridging::Config> bridging = Kel::make<Bridging::Config>();
  Kel::Ptr<Topology::Library::Vlan::LibVlanState> topology =
      Kel::make<Topology::Library::Vlan::LibVlanState>();
  Kel::Ptr<PrivateVlanLib::LibState> privateVlans = Kel::make<PrivateVlanLib::LibState>();
  Kel::Ptr<Interface::PamDesiredIntfDir> desiredIntfs =
      Kel::make<Interface::PamDesiredIntfDir>("igmpsnoopd");
  Kel::Ptr<Interface::DeviceIntfStatusDir> kernelIntfs =
      Kel::make<Interface::DeviceIntfStatusDir>();
  Kel::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus> snoopingStatus =
      Kel::make<Bridging::IgmpSnooping::IgmpProtocolStatus>();
  Kel::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig> snoopingConfig =
      Kel::make<Bridging::IgmpSnooping::IgmpProtocolConfig>();
  Kel::Ptr<Igmp::QuerierConfigDir> queriers = Kel::make<Igmp::QuerierConfigDir>();
  Kel::Ptr<Igmp::IgmpHostDir> hosts = Kel::make<Igmp::IgmpHostDir>();
};

}  // namespace Agent
