#pragma once

#include <map>

#include "framework/entities/BridgingConfig.h"
#include "framework/entities/DeviceIntfStatus.h"
#include "platform/interface/EthDevPamManager.h"
#include "platform/snooping/DefaultVlanSm.h"
#include "platform/snooping/SnoopedPort.h"
#include "platform/wirex/PortVlanPamManager.h"

namespace Bridging::IgmpSnooping {

/// Opens the devices of the snooped ports and hands each port what is heard in its VLANs. Packets
/// are received through the thread's Interface::EthDevPams.
class KEL_EXPORT SnoopingPamManager final : public Wirex::PortVlanPamManager {
 public:
  using Ports = std::map<Wirex::IntfId, SnoopedPort>;

  /// @param settings of the devices. With the same ones as another user they are opened once.
  SnoopingPamManager(Kel::Ptr<Bridging::Config const> bridgingConfig,
                     Kel::Ptr<Interface::DeviceIntfStatusDir const> kernelIntfStatusDir,
                     Interface::EthDevSettings const& settings);
  ~SnoopingPamManager() override;

  /// The ports that are snooped.
  Ports const& port() const { return ports_; }
  /// Null if the interface is not snooped.
  SnoopedPort* port(Wirex::IntfId const& intf);
  /// The port, which from now on is snooped.
  SnoopedPort& portIs(Wirex::IntfId const& intf);
  /// The port is snooped no longer, and leaves its VLANs. Not to be called by what a port hears.
  void portDel(Wirex::IntfId const& intf);

  /// Has the port hear a VLAN, and the VLAN's querier send through it.
  void vlanIs(Wirex::IntfId const& intf, VlanId vlan, SnoopedVlan const& snooped);
  /// Takes the port from a VLAN, in which what was learned on it is forgotten.
  void vlanDel(Wirex::IntfId const& intf, VlanId vlan);

  Kel::Ptr<Interface::EthDevPamCollection> const& ethDevPamCol() const { return ethDevPamCol_; }

  void doRxPkt(VlanId vlanId, Wirex::IntfId intfId, Wirex::Pkt::PtrConst const& pkt) override;
  void doRxPktInNoVlan(Wirex::IntfId intfId, Wirex::Pkt::PtrConst const& pkt) override;
  bool tagOnEgress(VlanId vlanId, Wirex::IntfId intfId) const override;

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  class KelEthDevPamCol;

  void handleEthDevPam(Wirex::IntfId const& intf);

  Kel::Ptr<Bridging::Config const> bridgingConfig_;
  Ports ports_;
  Kel::Table<Wirex::IntfId, SnoopedPort*> portByIntf_;  // the same, found faster for every frame
  Kel::Ptr<Interface::PamDesiredIntfDir> desired_;
  Kel::Ptr<Interface::EthDevPamCollection> ethDevPamCol_;
  Kel::Ptr<KelEthDevPamCol> kelEthDevPamCol_;
  Kel::Ptr<Interface::EthDevPamManager> ethDevPamMgr_;
  Kel::Ptr<DefaultVlanSm> defaultVlanSm_;
};

}  // namespace Bridging::IgmpSnooping
