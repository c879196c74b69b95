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
      bridgingConfig_(std::move(bridgingConfig)),
      desired_(Kel::make<Interface::PamDesiredIntfDir>("SnoopingPamManager")),
      ethDevPamCol_(Kel::make<Interface::EthDevPamCollection>("SnoopingEthDevPamCol")),
      kelEthDevPamCol_(Kel::make<KelEthDevPamCol>(ethDevPamCol_, this)),
      ethDevPamMgr_(Kel::make<Interface::EthDevPamManager>(desired_, ethDevPamCol_,
                                                           std::move(kernelIntfStatusDir))),
      defaultVlanSm_(Kel::make<DefaultVlanSm>(bridgingConfig_, this)) {
  ethDevPamMgr_->bufferSizeIs(settings.bufferSize);
  ethDevPamMgr_->protocolIs(settings.protocol);
  ethDevPamMgr_->filterIs(settings.filter.size(), settings.filter.data());
  ethDevPamMgr_->enabledIs(true);
}

SnoopingPamManager::~SnoopingPamManager() {
  SnoopingPamManager::kelDoZombieReactors(true);
}

SnoopedPort* SnoopingPamManager::port(IntfId const& intf) {
  SnoopedPort* const* const port = portByIntf_.find(intf);
  return port ? *port : nullptr;
}

SnoopedPort& SnoopingPamManager::portIs(IntfId const& intf) {
  auto const [port, isNew] = ports_.try_emplace(intf, intf);
  if (isNew) portByIntf_.add(intf, &port->second);
  desired_->intfDesiredIs(intf, true);
  return port->second;
}

void SnoopingPamManager::portDel(IntfId const& intf) {
  auto const port = ports_.find(intf);
  if (port == ports_.end()) return;
  IntfId const gone = port->first;  // the key that was given may live in it
  desired_->intfDesiredDel(gone);
  while (!port->second.vlan().empty()) vlanDel(gone, port->second.vlan().keyAt(0));
  portByIntf_.takeAt(portByIntf_.position(gone));
  ports_.erase(port);
}

void SnoopingPamManager::vlanIs(IntfId const& intf, VlanId vlan, SnoopedVlan const& snooped) {
  SnoopedPort& port = portIs(intf);
  if (auto const multiplexer = this->multiplexer(intf)) multiplexer->vlanIs(vlan, 0);
  port.vlanIs(vlan, snooped);
}

void SnoopingPamManager::vlanDel(IntfId const& intf, VlanId vlan) {
  if (auto const multiplexer = this->multiplexer(intf)) multiplexer->vlanDel(vlan);
  if (SnoopedPort* const port = this->port(intf)) port->vlanDel(vlan);
}

void SnoopingPamManager::doRxPkt(VlanId vlanId, IntfId intfId, Wirex::Pkt::PtrConst const& pkt) {
  if (SnoopedPort* const port = this->port(intfId)) port->receive(vlanId, pkt->bytes());
}

void SnoopingPamManager::doRxPktInNoVlan(IntfId intfId, Wirex::Pkt::PtrConst const& pkt) {
  if (SnoopedPort* const port = this->port(intfId)) port->receiveInNoVlan(pkt->bytes());
}

bool SnoopingPamManager::tagOnEgress(VlanId vlanId, IntfId intfId) const {
  auto const* const vlan = bridgingConfig_->vlanConfig().find(vlanId);
  auto const* const intf = vlan ? vlan->intfConfig().find(intfId) : nullptr;
  return intf && intf->tagged();
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
  SnoopedPort* const port = this->port(intf);
  if (!port) return;
  if (multiplexer)
    for (auto const [vlan, snooped] : port->vlan()) multiplexer->vlanIs(vlan, 0);
  port->multiplexerIs(this->multiplexer(intf));  // hearing of it may have taken it away
}

}  // namespace Bridging::IgmpSnooping
