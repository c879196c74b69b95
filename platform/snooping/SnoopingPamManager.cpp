#include "platform/snooping/SnoopingPamManager.h"

#include <utility>

#include "framework/kel/Reactors.h"
#include "platform/interface/MultiplexerBinding.h"

namespace Bridging::IgmpSnooping {

using Wirex::IntfId;

class SnoopingPamManager::KelEthDevPamCol final
    : public Kel::ReactorFor<SnoopingPamManager, Interface::EthDevPamCollection::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onIntfPam(IntfId intf) override {
    if (notificationActive()) owner().handleEthDevPam(intf);
  }
};

SnoopingPamManager::SnoopingPamManager(
    Kel::Ptr<Bridging::Config const> bridgingConfig,
    Kel::Ptr<Interface::DeviceIntfStatusDir const> kernelIntfStatusDir,
    Interface::EthDevSettings const& settings)
    : PortVlanPamManager("SnoopingPamManager"),
      desired_(Kel::make<Interface::PamDesiredIntfDir>("SnoopingPamManager")),
      ethDevPamCol_(Kel::make<Interface::EthDevPamCollection>("SnoopingEthDevPamCol")),
      kelEthDevPamCol_(Kel::make<KelEthDevPamCol>(ethDevPamCol_, this)),
      ethDevPamMgr_(Kel::make<Interface::EthDevPamManager>(desired_, ethDevPamCol_,
                                                           std::move(kernelIntfStatusDir))),
      defaultVlanSm_(Kel::make<DefaultVlanSm>(std::move(bridgingConfig), this)) {
  ethDevPamMgr_->bufferSizeIs(settings.bufferSize);
  ethDevPamMgr_->protocolIs(settings.protocol);
  ethDevPamMgr_->filterIs(settings.filter.size(), settings.filter.data());
  ethDevPamMgr_->enabledIs(true);
}

SnoopingPamManager::~SnoopingPamManager() {
  SnoopingPamManager::kelDoZombieReactors(true);
}

SnoopedPort* SnoopingPamManager::port(IntfId const& intf) {
  auto const port = ports_.find(intf);
  return port == ports_.end() ? nullptr : &port->second;
}

SnoopedPort& SnoopingPamManager::portIs(IntfId const& intf) {
  SnoopedPort& port = ports_.try_emplace(intf, intf).first->second;
  desired_->intfDesiredIs(intf, true);
  return port;
}

void SnoopingPamManager::vlanIs(IntfId const& intf, VlanId vlan, VlanLearning& learning) {
  portIs(intf).vlanIs(vlan, learning);
  if (auto const multiplexer = this->multiplexer(intf)) multiplexer->vlanIs(vlan, 0);
}

void SnoopingPamManager::doRxPkt(VlanId vlanId, IntfId intfId, Wirex::Pkt::PtrConst const& pkt) {
  if (SnoopedPort* const port = this->port(intfId)) port->receive(vlanId, pkt->bytes());
}

void SnoopingPamManager::doRxPktInNoVlan(IntfId intfId, Wirex::Pkt::PtrConst const& pkt) {
  if (SnoopedPort* const port = this->port(intfId)) port->receiveInNoVlan(pkt->bytes());
}

void SnoopingPamManager::hasNotificationActiveIs(bool active) {
  kelEthDevPamCol_->hasNotificationActiveIs(active);
  ethDevPamMgr_->hasNotificationActiveIs(active);
  defaultVlanSm_->hasNotificationActiveIs(active);
}

void SnoopingPamManager::kelDoZombieReactors(bool zombie) {
  kelEthDevPamCol_->kelDoZombieReactors(zombie);
  ethDevPamMgr_->kelDoZombieReactors(zombie);
  defaultVlanSm_->kelDoZombieReactors(zombie);
}

void SnoopingPamManager::handleEthDevPam(IntfId const& intf) {
  Kel::Ptr<SnoopingPamManager> const self(this);
  auto const multiplexer = Interface::bindMultiplexer(*ethDevPamCol_, *this, intf);
  SnoopedPort const* const port = this->port(intf);
  if (!multiplexer || !port) return;
  for (auto const& [vlan, learning] : port->vlan()) multiplexer->vlanIs(vlan, 0);
}

}  // namespace Bridging::IgmpSnooping
