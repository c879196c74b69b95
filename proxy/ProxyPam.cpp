#include "proxy/ProxyPam.h"

#include <array>
#include <utility>

#include "framework/kel/Assertion.h"
#include "framework/kel/Exception.h"
#include "framework/kel/Reactors.h"
#include "framework/kel/Trace.h"
#include "platform/interface/MultiplexerBinding.h"
#include "platform/wirex/PktManager.h"
#include "proxy/ReceiveFilter.h"

KEL_TRACE_MODULE("IgmpSnooping::Proxy::Pam", "ProxyPam")

namespace Bridging::IgmpSnooping::Proxy {

using Wirex::IntfId;

Kel::Ptr<ProxyPamManager> proxyPamManagerFactory(
    Kel::Ptr<Bridging::Config const> bridgingConfig,
    Kel::Ptr<Interface::PamDesiredIntfDir const> pamDesiredIntfDir,
    Kel::Ptr<PortVlanMapping const> portVlanMap,
    Kel::Ptr<Interface::DeviceIntfStatusDir const> kernelIntfStatusDir) {
  return ProxyPamManager::ProxyPamManagerIs(std::move(bridgingConfig), std::move(pamDesiredIntfDir),
                                            std::move(portVlanMap), std::move(kernelIntfStatusDir));
}

// ---- ProxyIntfFilter

class ProxyIntfFilter::KelPamDir final
    : public Kel::ReactorFor<ProxyIntfFilter, Interface::PamDesiredIntfDir::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onIntfDesired(IntfId intfId) override {
    if (notificationActive()) owner().handlePort(std::move(intfId));
  }
};

class ProxyIntfFilter::KelPortVlanMap final
    : public Kel::ReactorFor<ProxyIntfFilter, PortVlanMapping::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onPortInfo(IntfId intfId) override {
    if (notificationActive()) owner().handlePort(std::move(intfId));
  }
};

ProxyIntfFilter::ProxyIntfFilter(Kel::Ptr<Interface::PamDesiredIntfDir const> pamDir,
                                 Kel::Ptr<PortVlanMapping const> portVlanMap,
                                 Kel::Ptr<Interface::PamDesiredIntfDir> desiredIntfDir)
    : pamDir_(std::move(pamDir)),
      portVlanMap_(std::move(portVlanMap)),
      desiredIntfDir_(std::move(desiredIntfDir)),
      kelPamDir_(Kel::make<KelPamDir>(pamDir_, this)),
      kelPortVlanMap_(Kel::make<KelPortVlanMap>(portVlanMap_, this)) {
  handlePort();
  initializedIs(true);
}

ProxyIntfFilter::~ProxyIntfFilter() {
  ProxyIntfFilter::kelDoZombieReactors(true);
}

void ProxyIntfFilter::hasNotificationActiveIs(bool active) {
  bool const awakes = active && !kelPamDir_->hasNotificationActive();
  kelPamDir_->hasNotificationActiveIs(active);
  kelPortVlanMap_->hasNotificationActiveIs(active);
  if (!awakes || kelPamDir_->isZombie()) return;
  Kel::Ptr<ProxyIntfFilter> const self(this);
  for (IntfId const& intfId : desiredIntfDir_->intfDesired().keys()) handlePort(intfId);
  handlePort();
}

void ProxyIntfFilter::kelDoZombieReactors(bool zombie) {
  kelPamDir_->kelDoZombieReactors(zombie);
  kelPortVlanMap_->kelDoZombieReactors(zombie);
}

void ProxyIntfFilter::handlePort() {
  KEL_ASSERT(pamDir(), "pamDir()");
  KEL_ASSERT(portVlanMap(), "portVlanMap()");
  KEL_TRACE(8, "void Bridging::IgmpSnooping::Proxy::ProxyIntfFilter::handlePort()");
  Kel::Ptr<ProxyIntfFilter> const self(this);
  for (IntfId const& intfId : pamDir()->intfDesired().keys()) handlePort(intfId);
  for (IntfId const& intfId : portVlanMap()->portInfo().keys()) handlePort(intfId);
}

void ProxyIntfFilter::handlePort(IntfId intfId) {
  KEL_TRACE(8, "void Bridging::IgmpSnooping::Proxy::ProxyIntfFilter::handlePort(Wirex::IntfId)("
                   << intfId << ')');
  if (pamDir()->intfDesired(intfId) && portVlanMap()->portInfo(intfId)) {
    KEL_TRACE(7, "Desired Intf " << intfId);
    desiredIntfDir_->intfDesiredIs(intfId, true);
  } else {
    KEL_TRACE(7, "Not a Desired Intf " << intfId);
    desiredIntfDir_->intfDesiredDel(intfId);
  }
}

// ---- EthDevPamSm

class EthDevPamSm::KelEthDevPamCol final
    : public Kel::ReactorFor<EthDevPamSm, Interface::EthDevPamCollection::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onIntfPam(IntfId intfId) override {
    if (notificationActive()) owner().handleEthDevPam(std::move(intfId));
  }
};

EthDevPamSm::EthDevPamSm(Kel::Ptr<Interface::EthDevPamCollection const> ethDevPamCol,
                         Wirex::PortVlanPamManager* parent)
    : parent_(parent), ethDevPamCol_(std::move(ethDevPamCol)) {
  Kel::nonNull(ethDevPamCol_, "Bridging::IgmpSnooping::Proxy::EthDevPamSm", "ethDevPamCol");
  kelEthDevPamCol_ = Kel::make<KelEthDevPamCol>(ethDevPamCol_, this);
  handleEthDevPam();
}

EthDevPamSm::~EthDevPamSm() {
  EthDevPamSm::kelDoZombieReactors(true);
}

void EthDevPamSm::hasNotificationActiveIs(bool active) {
  bool const awakes = active && !kelEthDevPamCol_->hasNotificationActive();
  kelEthDevPamCol_->hasNotificationActiveIs(active);
  if (!awakes || kelEthDevPamCol_->isZombie()) return;
  Kel::Ptr<EthDevPamSm> const self(this);
  Kel::Ptr<Wirex::PortVlanPamManager> const parent(parent_);
  for (IntfId const& intfId : parent->multiplexer().keys())
    if (!ethDevPamCol()->intfPam(intfId)) handleEthDevPam(intfId);
  handleEthDevPam();
}

void EthDevPamSm::kelDoZombieReactors(bool zombie) {
  kelEthDevPamCol_->kelDoZombieReactors(zombie);
}

void EthDevPamSm::handleEthDevPam() {
  KEL_TRACE(8, "void Bridging::IgmpSnooping::Proxy::EthDevPamSm::handleEthDevPam()");
  Kel::Ptr<EthDevPamSm> const self(this);
  Kel::Ptr<Wirex::PortVlanPamManager> const parent(parent_);
  for (IntfId const& intfId : ethDevPamCol()->intfPam().keys()) handleEthDevPam(intfId);
}

void EthDevPamSm::handleEthDevPam(IntfId intfId) {
  KEL_TRACE(8, "void Bridging::IgmpSnooping::Proxy::EthDevPamSm::handleEthDevPam(Wirex::IntfId)("
                   << intfId << ')');
  Interface::bindMultiplexer(*ethDevPamCol(), *parent_, intfId);
}

// ---- ProxyPamManager

ProxyPamManager::ProxyPamManager(Parameters parameters)
    : PortVlanPamManager("ProxyPamManager"),
      parameters_(std::move(parameters)),
      pamCol_(Kel::make<PamCol>()) {
  handleInitialized();
}

ProxyPamManager::~ProxyPamManager() {
  handleCleanup();
  ProxyPamManager::kelDoZombieReactors(true);
}

void ProxyPamManager::handleInitialized() {
  KEL_TRACE(8, "void Bridging::IgmpSnooping::Proxy::ProxyPamManager::handleInitialized()");
  proxyPamDesired_ = Kel::make<Interface::PamDesiredIntfDir>("ProxyPamManager");
  ethDevPamCol_ = Kel::make<Interface::EthDevPamCollection>("ProxyEthDevPamCol");
  ethDevPamSm_ = EthDevPamSm::EthDevPamSmIs(ethDevPamCol_, this);
  proxyIntfFilter_ =
      ProxyIntfFilter::ProxyIntfFilterIs(pamDesiredIntfDir(), portVlanMap(), proxyPamDesired_);
  ethDevPamMgr_ = Kel::make<Interface::EthDevPamManager>(proxyPamDesired_, ethDevPamCol_,
                                                         kernelIntfStatusDir());
  configureReception();
  defaultVlanSm_ = Kel::make<DefaultVlanSm>(bridgingConfig(), this);
  ethDevPamMgr_->enabledIs(true);
  initializedIs(true);
}

void ProxyPamManager::configureReception() {
  constexpr std::size_t bufferSize = 10004;   // a jumbo frame and what goes before it
  constexpr std::uint16_t everyProtocol = 3;  // ETH_P_ALL: tagged frames are no ETH_P_IP
  Wirex::PktManager::instance().bufferSizeIs(bufferSize);
  ethDevPamMgr_->bufferSizeIs(bufferSize);
  ethDevPamMgr_->protocolIs(everyProtocol);
  ethDevPamMgr_->filterIs(receiveFilter.size(), receiveFilter.data());
}

void ProxyPamManager::handleCleanup() {
  KEL_TRACE(8, "void Bridging::IgmpSnooping::Proxy::ProxyPamManager::handleCleanup()");
  ethDevPamMgr_->enabledIs(false);
}

// What hears of another's writes is activated before that one.
void ProxyPamManager::hasNotificationActiveIs(bool active) {
  Kel::Ptr<ProxyPamManager> const self(this);
  defaultVlanSm_->hasNotificationActiveIs(active);
  ethDevPamSm_->hasNotificationActiveIs(active);
  ethDevPamMgr_->hasNotificationActiveIs(active);
  proxyIntfFilter_->hasNotificationActiveIs(active);
}

void ProxyPamManager::kelDoZombieReactors(bool zombie) {
  ethDevPamSm_->kelDoZombieReactors(zombie);
  proxyIntfFilter_->kelDoZombieReactors(zombie);
  ethDevPamMgr_->kelDoZombieReactors(zombie);
  defaultVlanSm_->kelDoZombieReactors(zombie);
}

void ProxyPamManager::pamColIs(PortKey const& key, Wirex::VlanPam::Ptr const& pam) {
  Kel::nonNull(pam, "Bridging::IgmpSnooping::Proxy::ProxyPamManager", "pamCol");
  PortVlan const port{key.intfId(), key.vlanId()};
  if (Wirex::VlanPam** const present = receivers_.find(port))
    *present = pam.get();
  else
    receivers_.add(port, pam.get());
  pamCol_->entries_.put(*pamCol_, key, pam);
}

void ProxyPamManager::pamColDel(PortKey const& key) {
  std::uint32_t const at = receivers_.position({key.intfId(), key.vlanId()});
  if (at == decltype(receivers_)::absent) return;
  receivers_.takeAt(at);
  pamCol_->entries_.del(*pamCol_, key);
}

void ProxyPamManager::pamColDelAll() {
  Kel::Ptr<ProxyPamManager> const self(this);
  for (PortKey const& key : pamCol_->entries_.keys()) pamColDel(key);
}

Wirex::VlanPam::Ptr ProxyPamManager::portVlanPamIs(PortKey const& key) {
  KEL_TRACE(8,
            "Wirex::VlanPam::Ptr Bridging::IgmpSnooping::Proxy::ProxyPamManager::portVlanPamIs("
            "const Bridging::IgmpSnooping::Proxy::PortKey&) "
                << key);
  if (auto present = pamCol(key)) return present;
  KEL_TRACE(5, "Creating VlanPam ");
  auto const plex = multiplexer(key.intfId());
  KEL_ASSERT(plex, "plex");
  Kel::Ptr<ProxyPamManager> const self(this);
  auto pam = Kel::make<Wirex::VlanPam>(Kel::format("%d", key.vlanId().value()), plex);
  plex->vlanIs(key.vlanId(), 0);
  pamColIs(key, pam);
  return pam;
}

void ProxyPamManager::doRxPkt(VlanId vlanId, IntfId intfId, Wirex::Pkt::PtrConst const& pkt) {
  KEL_TRACE(8,
            "virtual void Bridging::IgmpSnooping::Proxy::ProxyPamManager::doRxPkt("
            "Bridging::VlanId, Wirex::IntfId, const Ptr&) "
                << vlanId << ' ' << intfId);
  if (Wirex::VlanPam* const* const pam = receivers_.find({std::move(intfId), vlanId}))
    Wirex::VlanPam::Ptr(*pam)->inputPktIs(pkt);
}

bool ProxyPamManager::tagOnEgress(VlanId vlanId, IntfId intfId) const {
  auto const* const vlan = bridgingConfig()->vlanConfig().find(vlanId);
  auto const* const intf = vlan ? vlan->intfConfig().find(intfId) : nullptr;
  return intf && intf->tagged();
}

char const* ProxyPamManager::attributeString(std::uint32_t attributeId) const {
  constexpr std::array names{
      "bridgingConfig",      "pamDesiredIntfDir", "portVlanMap",
      "kernelIntfStatusDir", "ethDevPamCol",      "pamCol",
      "proxyPamDesired",     "ethDevPamSm",       "proxyIntfFilter",
      "ethDevPamMgr",        "defaultVlanSm",     "initialized",
      "portVlanPam",         "portVlanPamIs",     "portVlanPamDel",
      "handleInitialized",   "handleCleanup",
  };
  if (attributeId < attributes) return PortVlanPamManager::attributeString(attributeId);
  std::uint32_t const own = attributeId - attributes;
  return own < names.size() ? names[own] : "unknown";
}

}  // namespace Bridging::IgmpSnooping::Proxy
