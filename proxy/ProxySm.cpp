#include "proxy/ProxySm.h"

#include <cstdlib>
#include <utility>

#include "framework/kel/Assertion.h"
#include "framework/kel/Exception.h"
#include "framework/kel/Trace.h"

KEL_TRACE_MODULE("IgmpSnooping::Proxy::ProxySm", "ProxySm")

namespace Bridging::IgmpSnooping::Proxy {

using Interface::DeviceIntfStatusDir;
using Interface::IntfStatusAndDeviceName;
using Topology::Library::Vlan::LibVlanState;
using Wirex::IntfId;

// ---- ProxyPortSm

class ProxyPortSm::KelQuerierVlanConfig final : public Igmp::QuerierConfig::NotifieeConst {
 public:
  KelQuerierVlanConfig(Kel::Ptr<Igmp::QuerierConfig const> config, ProxyPortSm* proxyPortSm)
      : proxyPortSm_(proxyPortSm) {
    watch(std::move(config));
  }

  void proxyPortSmIs(ProxyPortSm* proxyPortSm) { proxyPortSm_ = proxyPortSm; }

  // Also while notification is not active: the inner reactor must be where it belongs when it is
  // active again.
  void onGmpQuerierConfig() override {
    if (notifier() && proxyPortSm_)
      proxyPortSm_->innerQuerierConfigIs(notifier()->gmpQuerierConfig());
  }

 private:
  ProxyPortSm* proxyPortSm_;
};

class ProxyPortSm::KelInnerQuerierConfig final
    : public Kel::ReactorFor<ProxyPortSm, ProtocolConfig::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void notifierIs(Kel::Ptr<ProtocolConfig const> config) override {
    NotifieeConst::notifierIs(std::move(config));
    owner().handleIgmpVersion();
  }

  void onQuerierVersion() override {
    if (notificationActive()) owner().handleIgmpVersion();
  }
};

ProxyPortSm::ProxyPortSm(IntfId intfId, VlanId vlanId,
                         Kel::Ptr<Igmp::QuerierConfig const> querierVlanConfig,
                         Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir,
                         Kel::Ptr<DeviceIntfStatusDir const> kernelIntfStatusDir,
                         Kel::Ptr<ProxyPamManager> pamManager,
                         Kel::Ptr<PortVlanMapping> portVlanMap,
                         Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : intfId_(std::move(intfId)),
      vlanId_(vlanId),
      querierVlanConfig_(Kel::make<KelQuerierVlanConfig>(std::move(querierVlanConfig), this)),
      igmpHostDir_(std::move(igmpHostDir)),
      kernelIntfStatusDir_(std::move(kernelIntfStatusDir)),
      pamManager_(std::move(pamManager)),
      portVlanMap_(std::move(portVlanMap)),
      timerWheel_(std::move(timerWheel)),
      innerQuerierConfig_(Kel::make<KelInnerQuerierConfig>(
          this->querierVlanConfig() ? this->querierVlanConfig()->gmpQuerierConfig() : nullptr,
          this)) {
  handleInitialized();
}

ProxyPortSm::~ProxyPortSm() {
  handleCleanup();
  ProxyPortSm::kelDoZombieReactors(true);
  ProxyPortSm::hasNotificationActiveIs(false);
  querierVlanConfig_->proxyPortSmIs(nullptr);
}

void ProxyPortSm::requireConstructedWith(
    VlanId vlanId, Kel::Ptr<Igmp::QuerierConfig const> const& querierVlanConfig,
    Kel::Ptr<Igmp::IgmpHostDir> const& igmpHostDir,
    Kel::Ptr<DeviceIntfStatusDir const> const& kernelIntfStatusDir,
    Kel::Ptr<ProxyPamManager> const& pamManager, Kel::Ptr<PortVlanMapping> const& portVlanMap,
    Kel::Ptr<Horix::TimerWheel const> const& timerWheel) const {
  Kel::requireEqual("vlanId", vlanId, vlanId_);
  Kel::requireEqual("querierVlanConfig", querierVlanConfig, this->querierVlanConfig());
  Kel::requireEqual("igmpHostDir", igmpHostDir, igmpHostDir_);
  Kel::requireEqual("kernelIntfStatusDir", kernelIntfStatusDir, kernelIntfStatusDir_);
  Kel::requireEqual("pamManager", pamManager, pamManager_);
  Kel::requireEqual("portVlanMap", portVlanMap, portVlanMap_);
  Kel::requireEqual("timerWheel", timerWheel, timerWheel_);
}

Kel::Ptr<Igmp::QuerierConfig const> const& ProxyPortSm::querierVlanConfig() const {
  return querierVlanConfig_->notifier();
}

void ProxyPortSm::igmpHostIs(Kel::Ptr<Igmp::IgmpHost> const& host) {
  Kel::nonNull(host, "Bridging::IgmpSnooping::Proxy::ProxyPortSm", "igmpHost");
  igmpHost_ = host;
}

void ProxyPortSm::blockedIs(bool blocked) {
  if (blocked == blocked_) return;
  blocked_ = blocked;
  handleBlocked();
}

void ProxyPortSm::directionIs(AllowedTrafficDirection direction) {
  if (direction == direction_) return;
  direction_ = direction;
  handleDirection();
}

Kel::Ptr<ProxyPortSm::ProtocolConfig const> const& ProxyPortSm::innerQuerierConfig() const {
  return innerQuerierConfig_->notifier();
}

void ProxyPortSm::innerQuerierConfigIs(Kel::Ptr<ProtocolConfig const> const& config) {
  if (config != innerQuerierConfig()) innerQuerierConfig_->notifierIs(config);
}

void ProxyPortSm::hasNotificationActiveIs(bool active) {
  querierVlanConfig_->hasNotificationActiveIs(active);
  innerQuerierConfig_->hasNotificationActiveIs(active);
}

void ProxyPortSm::kelDoZombieReactors(bool zombie) {
  querierVlanConfig_->kelDoZombieReactors(zombie);
  innerQuerierConfig_->kelDoZombieReactors(zombie);
}

void ProxyPortSm::handleInitialized() {
  KEL_TRACE(8, "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleInitialized() " << vlanId_);
  KEL_ASSERT(querierVlanConfig(), "querierVlanConfig()");
  KEL_ASSERT(querierVlanConfig()->gmpQuerierConfig(), "querierVlanConfig()->gmpQuerierConfig()");
  auto const hostName = "Vlan" + querierVlanConfig()->name().stringValue() + intfId_.stringValue();
  PortKey key;
  key.handleInit(hostName);
  portKeyIs(key);
  auto const earlier = igmpHostDir_->igmpHost(hostName);
  std::uint32_t const earlierVersion = earlier ? earlier->configVersion() : 0;
  portVlanMap_->portInfoIs(intfId_)->vlanIs(vlanId_, true);
  KEL_TRACE(8,
            "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleInitialized() Creating "
            "querier config "
                << hostName);
  igmpHostIs(igmpHostDir_->igmpHostIs(hostName));
  configureHost();
  // Who heard of the host may have had another machine of the port made for it.
  if (igmpHost_->configVersion() != earlierVersion) return;
  // Also when the host was there before: these tell the host library to look at it again.
  configVersion_ = earlierVersion + 1;
  igmpHost_->configVersionIs(configVersion_);
  igmpHost_->intfConfigVersionIs(igmpHost_->intfConfigVersion() + 1);
  initializedIs(true);
}

void ProxyPortSm::configureHost() {
  igmpHost_->intfIdIs(intfId_);
  igmpHost_->vlanIdIs(vlanId_.value());
  igmpHost_->useMuxIs(false);
  igmpHost_->taggedIs(false);
  igmpHost_->externalPamIs(true);
  updateHostPam();
  if (auto const protocolConfig = querierVlanConfig()->gmpQuerierConfig())
    igmpHost_->igmpVersionIs(protocolConfig->querierVersion());
  igmpHost_->deviceNameIs(kernelIntfStatusDir_->intfStatusAndDeviceName(intfId_).deviceName);
  igmpHost_->enabledIs(true);
}

bool ProxyPortSm::isSuperseded() const {
  return igmpHost_->configVersion() != configVersion_;
}

void ProxyPortSm::updateHostPam() {
  KEL_TRACE(7, "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::updateHostPam() " << vlanId_ << ' '
                                                                                   << intfId_);
  if (pamManager_->multiplexer(intfId_)) {
    KEL_TRACE(7, "Creating Vlan Pam for " << portKey_);
    igmpHost_->pamIs(pamManager_->portVlanPamIs(portKey_));
  } else {
    KEL_TRACE(7, "Deleting VlanPam");
    igmpHost_->pamIs(nullptr);
  }
}

// The host is looked up by name: whatever host carries the name is the port's, and none is left
// alone.

void ProxyPortSm::handleBlocked() {
  KEL_TRACE(8, "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleBlocked() " << vlanId_ << ' '
                                                                                   << intfId_);
  if (auto const host = igmpHostDir_->igmpHost(portKey_.hostName())) host->blockedIs(blocked_);
}

void ProxyPortSm::handleDirection() {
  KEL_TRACE(8, "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleDirection() "
                   << vlanId_ << ' ' << intfId_);
  if (auto const host = igmpHostDir_->igmpHost(portKey_.hostName())) host->directionIs(direction_);
}

// Reads through the querier's configuration, so it must not follow a protocol configuration that
// was taken away: the host then keeps its version.
void ProxyPortSm::handleIgmpVersion() {
  KEL_TRACE(9, portKey_ << ":void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleIgmpVersion()");
  if (igmpHost_ && querierVlanConfig() && querierVlanConfig()->gmpQuerierConfig())
    igmpHost_->igmpVersionIs(querierVlanConfig()->gmpQuerierConfig()->querierVersion());
}

void ProxyPortSm::handleCleanup() {
  KEL_TRACE(9, portKey_ << ":void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleCleanup()");
  if (!initialized() || isSuperseded()) return;
  // Who hears of each step may put the port back. From then on all of it is another machine's.
  auto const isTakenOver = [this] {
    return igmpHostDir_->igmpHost(portKey_.hostName()) != nullptr;
  };
  igmpHostDir_->igmpHostDel(portKey_.hostName());
  if (isTakenOver()) return;
  pamManager_->portVlanPamDel(portKey_);
  if (isTakenOver()) return;
  if (auto const portInfo = portVlanMap_->portInfo(intfId_)) portInfo->vlanDel(vlanId_);
  if (auto const portInfo = portVlanMap_->portInfo(intfId_); portInfo && portInfo->vlan().empty())
    portVlanMap_->portInfoDel(intfId_);
}

// ---- ProxyVlanSm

class ProxyVlanSm::KelTopoVlan final
    : public Kel::ReactorFor<ProxyVlanSm, TopoVlan::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  // The watchers follow the topology also while notification is not active.
  void onTopoPort(IntfId intfId) override {
    if (isZombie()) return;
    Kel::Ptr<ProxyVlanSm> const vlanSm(&owner());
    if (notificationActive()) vlanSm->handlePort(intfId);
    if (isZombie()) return;
    if (auto const port = notifier()->port(intfId))
      vlanSm->proxyTopoPortIs(port);
    else
      vlanSm->proxyTopoPortDel(intfId);
  }

  // Unlike the kernel's interfaces, whose keyless callback decides for every port again.
  void onTopoPortkelImmediate() override {
    if (!isZombie()) owner().reconcileTopoPorts();
  }
};

class ProxyVlanSm::KelKernelIntfStatusDir final
    : public Kel::ReactorFor<ProxyVlanSm, DeviceIntfStatusDir::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onIntfStatusAndDeviceName(IntfId intfId) override {
    if (notificationActive()) owner().handlePort(std::move(intfId));
  }
  void onIntfStatusAndDeviceNamekelImmediate() override {
    if (notificationActive()) owner().handlePort();
  }
};

ProxyVlanSm::KelProxyTopoPort::KelProxyTopoPort(Kel::Ptr<TopoPort const> port,
                                                ProxyVlanSm* proxyVlanSm)
    : proxyVlanSm_(proxyVlanSm) {
  watch(std::move(port));
}

void ProxyVlanSm::KelProxyTopoPort::notifierIs(Kel::Ptr<TopoPort const> port) {
  NotifieeConst::notifierIs(std::move(port));
  Kel::Ptr<KelProxyTopoPort> const self(this);
  handleTopoPortBlocked();
  if (!isZombie()) handleTopoPortDirection();
}

void ProxyVlanSm::KelProxyTopoPort::onBlocked() {
  if (notificationActive()) handleTopoPortBlocked();
}

void ProxyVlanSm::KelProxyTopoPort::onAllowedTrafficDirection() {
  if (notificationActive()) handleTopoPortDirection();
}

void ProxyVlanSm::KelProxyTopoPort::handleTopoPortBlocked() {
  constexpr char const* signature =
      "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortBlocked()";
  KEL_TRACE(8, signature << " blocked is " << notifier()->blocked());
  if (isStale()) {
    KEL_TRACE(9, "Notifier is incorrect. Return early");
    return;
  }
  if (auto const portSm = proxyVlanSm_->portSm(intfId()))
    portSm->blockedIs(notifier()->blocked());
  else
    KEL_TRACE(8, signature << " Port SM does not exist " << intfId());
}

void ProxyVlanSm::KelProxyTopoPort::handleTopoPortDirection() {
  constexpr char const* signature =
      "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::"
      "handleTopoPortDirection()";
  KEL_TRACE(8, signature << " port " << intfId() << " direction is "
                         << notifier()->allowedTrafficDirection());
  if (isStale()) {
    KEL_TRACE(9, "Notifier is incorrect. Return early");
    return;
  }
  if (auto const portSm = proxyVlanSm_->portSm(intfId()))
    portSm->directionIs(notifier()->allowedTrafficDirection());
  else
    KEL_TRACE(8, signature << " Port SM does not exist " << intfId());
}

/// Whether the port's watcher is another one, or none, or watches another port by now.
bool ProxyVlanSm::KelProxyTopoPort::isStale() const {
  auto const current = proxyVlanSm_->proxyTopoPort(intfId());
  return !current || current->notifier() != notifier();
}

ProxyVlanSm::ProxyVlanSm(VlanId vlanId, Kel::Ptr<Igmp::QuerierConfig const> querierVlanConfig,
                         Kel::Ptr<TopoVlan const> topoVlan, Kel::Ptr<ProxyPamManager> pamManager,
                         Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir,
                         Kel::Ptr<DeviceIntfStatusDir const> kernelIntfStatusDir,
                         Kel::Ptr<PortVlanMapping> portVlanMap,
                         Kel::Ptr<AdapterVlanConfig> adapterConfig,
                         Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : vlanId_(vlanId),
      querierVlanConfig_(std::move(querierVlanConfig)),
      topoVlan_(Kel::make<KelTopoVlan>(std::move(topoVlan), this)),
      pamManager_(std::move(pamManager)),
      igmpHostDir_(std::move(igmpHostDir)),
      kernelIntfStatusDir_(Kel::make<KelKernelIntfStatusDir>(std::move(kernelIntfStatusDir), this)),
      portVlanMap_(std::move(portVlanMap)),
      adapterConfig_(std::move(adapterConfig)),
      timerWheel_(std::move(timerWheel)) {
  handleInitialized();
  reconcileTopoPorts();
}

ProxyVlanSm::~ProxyVlanSm() {
  ProxyVlanSm::kelDoZombieReactors(true);
  ProxyVlanSm::hasNotificationActiveIs(false);
  portSmDelAll();
}

void ProxyVlanSm::requireConstructedWith(
    Kel::Ptr<Igmp::QuerierConfig const> const& querierVlanConfig,
    Kel::Ptr<TopoVlan const> const& topoVlan, Kel::Ptr<ProxyPamManager> const& pamManager,
    Kel::Ptr<Igmp::IgmpHostDir> const& igmpHostDir,
    Kel::Ptr<DeviceIntfStatusDir const> const& kernelIntfStatusDir,
    Kel::Ptr<PortVlanMapping> const& portVlanMap, Kel::Ptr<AdapterVlanConfig> const& adapterConfig,
    Kel::Ptr<Horix::TimerWheel const> const& timerWheel) const {
  Kel::requireEqual("querierVlanConfig", querierVlanConfig, querierVlanConfig_);
  Kel::requireEqual("topoVlan", topoVlan, this->topoVlan());
  Kel::requireEqual("pamManager", pamManager, pamManager_);
  Kel::requireEqual("igmpHostDir", igmpHostDir, igmpHostDir_);
  Kel::requireEqual("kernelIntfStatusDir", kernelIntfStatusDir, this->kernelIntfStatusDir());
  Kel::requireEqual("portVlanMap", portVlanMap, portVlanMap_);
  Kel::requireEqual("adapterConfig", adapterConfig, adapterConfig_);
  Kel::requireEqual("timerWheel", timerWheel, timerWheel_);
}

Kel::Ptr<ProxyVlanSm::TopoVlan const> const& ProxyVlanSm::topoVlan() const {
  return topoVlan_->notifier();
}

Kel::Ptr<DeviceIntfStatusDir const> const& ProxyVlanSm::kernelIntfStatusDir() const {
  return kernelIntfStatusDir_->notifier();
}

Kel::Ptr<ProxyPortSm> ProxyVlanSm::portSmIs(
    IntfId const& intfId, VlanId vlanId,
    Kel::Ptr<Igmp::QuerierConfig const> const& querierVlanConfig,
    Kel::Ptr<Igmp::IgmpHostDir> const& igmpHostDir,
    Kel::Ptr<DeviceIntfStatusDir const> const& kernelIntfStatusDir,
    Kel::Ptr<ProxyPamManager> const& pamManager, Kel::Ptr<PortVlanMapping> const& portVlanMap,
    Kel::Ptr<Horix::TimerWheel const> const& timerWheel) {
  auto const newPortSm = [&] {
    return ProxyPortSm::ProxyPortSmIs(intfId, vlanId, querierVlanConfig, igmpHostDir,
                                      kernelIntfStatusDir, pamManager, portVlanMap, timerWheel);
  };
  return portSm_
      .ensure(intfId, newPortSm, vlanId, querierVlanConfig, igmpHostDir, kernelIntfStatusDir,
              pamManager, portVlanMap, timerWheel)
      .first;
}

Kel::Ptr<ProxyVlanSm::KelProxyTopoPort> ProxyVlanSm::proxyTopoPort(IntfId const& intfId) const {
  return proxyTopoPort_.get(intfId);
}

// A new watcher tells the port machine whether the port is blocked, but not its direction: that
// the machine learns when it next changes, or when the watcher is re-pointed.
Kel::Ptr<ProxyVlanSm::KelProxyTopoPort> ProxyVlanSm::proxyTopoPortIs(
    Kel::Ptr<TopoPort const> const& port) {
  Kel::nonNull(port, "Bridging::IgmpSnooping::Proxy::ProxyVlanSm", "proxyTopoPort");
  if (auto present = proxyTopoPort(port->intfId())) {
    if (present->notifier() != port) present->notifierIs(port);
    return present;
  }
  auto added = proxyTopoPort_.watch(port->intfId(), port,
                                    [&] { return Kel::make<KelProxyTopoPort>(port, this); });
  added->handleTopoPortBlocked();
  return added;
}

void ProxyVlanSm::proxyTopoPortDel(IntfId const& intfId) {
  proxyTopoPort_.del(intfId);
}

void ProxyVlanSm::proxyTopoPortDelAll() {
  proxyTopoPort_.delAll();
}

void ProxyVlanSm::reconcileTopoPorts() {
  Kel::Ptr<ProxyVlanSm> const self(this);
  proxyTopoPort_.reconcile(
      topoVlan()->port(), [this](Kel::Ptr<TopoPort const> const& port) { proxyTopoPortIs(port); },
      [this](IntfId const& intfId) { proxyTopoPortDel(intfId); });
}

void ProxyVlanSm::hasNotificationActiveIs(bool active) {
  topoVlan_->hasNotificationActiveIs(active);
  kernelIntfStatusDir_->hasNotificationActiveIs(active);
  proxyTopoPort_.hasNotificationActiveIs(active);
}

void ProxyVlanSm::kelDoZombieReactors(bool zombie) {
  topoVlan_->kelDoZombieReactors(zombie);
  kernelIntfStatusDir_->kelDoZombieReactors(zombie);
  proxyTopoPort_.kelDoZombieReactors(zombie);
}

void ProxyVlanSm::handleInitialized() {
  KEL_TRACE(9, vlanId_ << ":void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handleInitialized()");
  KEL_ASSERT(topoVlan(), "topoVlan()");
  KEL_ASSERT(querierVlanConfig(), "querierVlanConfig()");
  KEL_ASSERT(querierVlanConfig()->gmpQuerierConfig(), "querierVlanConfig()->gmpQuerierConfig()");
  handlePort();
  initializedIs(true);
}

void ProxyVlanSm::handlePort() {
  KEL_TRACE(9, vlanId_ << ":void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handlePort()");
  Kel::Ptr<ProxyVlanSm> const self(this);
  for (IntfId const& intfId : topoVlan()->port().keys()) {
    if (topoVlan_->isZombie()) return;
    if (topoVlan()->port().contains(intfId)) handlePort(intfId);
    if (initialized()) continue;
    // Who heard of the port may have had another machine of the VLAN made, to whose hosts this one
    // must do nothing.
    if (auto const portSm = this->portSm(intfId); portSm && portSm->isSuperseded()) return;
  }
}

void ProxyVlanSm::handlePort(IntfId intfId) {
  KEL_TRACE(9, vlanId_ << ":void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handlePort("
                          "Wirex::IntfId)");
  Kel::Ptr<ProxyVlanSm> const self(this);
  PortKey const key(vlanId_, intfId);
  if (!topoVlan()->port().contains(intfId)) {
    KEL_TRACE(4, "Deleting PortSm for port " << intfId);
    unserve(intfId, key);
    return;
  }
  KEL_TRACE(4, "Creating QuerierSm for port " << intfId);
  if (isServed(intfId)) {
    serve(intfId, key);
  } else {
    KEL_TRACE(4, "Deleting PortSm for port due to lack of kernel intf " << intfId);
    unserve(intfId, key);
  }
}

bool ProxyVlanSm::isServed(IntfId const& intfId) const {
  return topoVlan()->port().contains(intfId) &&
         kernelIntfStatusDir()->intfStatusAndDeviceName(intfId) != IntfStatusAndDeviceName();
}

// The packet access of a new port is set up by its machine itself, so here it matters only to one
// that is there already.
void ProxyVlanSm::serve(IntfId const& intfId, PortKey const& key) {
  handleHostPam(intfId);
  portSmIs(intfId, vlanId_, querierVlanConfig_, igmpHostDir_, kernelIntfStatusDir(), pamManager_,
           portVlanMap_, timerWheel_);
  // Who heard of the new host may have taken the port out again, or this machine.
  if (topoVlan_->isZombie()) return;
  if (!isServed(intfId)) {
    unserve(intfId, key);
    return;
  }
  if (adapterConfig_) adapterConfig_->hostKeyIs(key, true);
}

void ProxyVlanSm::unserve(IntfId const& intfId, PortKey const& key) {
  if (adapterConfig_) adapterConfig_->hostKeyDel(key);
  // Who heard of the key may have put the port back.
  if (!isServed(intfId)) portSmDel(intfId);
}

void ProxyVlanSm::handleHostPam(IntfId intfId) {
  KEL_TRACE(9, vlanId_ << ":void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handleHostPam("
                          "Wirex::IntfId)");
  if (auto const portSm = this->portSm(intfId)) portSm->updateHostPam();
}

// ---- ProxySm

class ProxySm::KelProtocolConfig final
    : public Kel::ReactorFor<ProxySm, IgmpProtocolConfig::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  // The handler comes before the reactor on the entry, which follows also while notification is
  // not active.
  void onContextConfig(VlanId vlan) override {
    if (isZombie()) return;
    Kel::Ptr<ProxySm> const proxySm(&owner());
    if (notificationActive()) proxySm->handleVlan(vlan);
    if (isZombie()) return;
    if (auto const config = notifier()->contextConfig(vlan))
      proxySm->contextIs(config);
    else
      proxySm->contextDel(vlan);
  }
};

class ProxySm::KelPVlanLib final
    : public Kel::ReactorFor<ProxySm, PrivateVlanLib::LibState::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onSecondaryVlan(VlanId vlan) override {
    if (notificationActive()) owner().handleVlan(vlan);
  }
};

class ProxySm::KelQuerierConfigDir final
    : public Kel::ReactorFor<ProxySm, Igmp::QuerierConfigDir::NotifieeConst> {
 public:
  KelQuerierConfigDir(Kel::Ptr<Igmp::QuerierConfigDir> dir, ProxySm* proxySm)
      : ReactorFor(dir, proxySm), dir_(std::move(dir)) {}

  Kel::Ptr<Igmp::QuerierConfigDir> const& dir() const { return dir_; }

  void onQuerierConfig(Kel::Name const& name) override {
    if (notificationActive()) owner().handleQuerierConfig(name.stringValue());
  }

 private:
  Kel::Ptr<Igmp::QuerierConfigDir> dir_;
};

/// Holds the manager that it watches.
class ProxySm::KelPamManager final
    : public Kel::ReactorFor<ProxySm, Wirex::PortVlanPamManager::NotifieeConst> {
 public:
  KelPamManager(Kel::Ptr<ProxyPamManager> manager, ProxySm* proxySm)
      : ReactorFor(manager, proxySm), manager_(std::move(manager)) {}

  Kel::Ptr<ProxyPamManager> const& manager() const { return manager_; }

  void onMultiplexer(IntfId intfId) override {
    if (notificationActive()) owner().handlePam(std::move(intfId));
  }

 private:
  Kel::Ptr<ProxyPamManager> manager_;
};

ProxySm::KelContext::KelContext(Kel::Ptr<IgmpContextConfig const> config, ProxySm* proxySm)
    : proxySm_(proxySm) {
  watch(std::move(config));
}

void ProxySm::KelContext::onProxyEnabled() {
  if (notificationActive()) proxySm_->handleVlan(vlanId());
}

Kel::Ptr<ProxySm> proxySmFactory(Kel::Ptr<IgmpProtocolConfig const> protocolConfig,
                                 Kel::Ptr<LibVlanState const> topoVlanState,
                                 Kel::Ptr<PrivateVlanLib::LibState const> pVlanLib,
                                 Kel::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir,
                                 Kel::Ptr<Igmp::QuerierConfigDir> querierConfigDir,
                                 Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir,
                                 Kel::Ptr<DeviceIntfStatusDir const> kernelIntfStatusDir,
                                 Kel::Ptr<Bridging::Config const> bridgingConfig,
                                 Kel::Ptr<IgmpProtocolStatus const> coreStatusDir,
                                 Kel::Ptr<Horix::TimerWheel const> timerWheel) {
  return ProxySm::ProxySmIs(std::move(protocolConfig), std::move(topoVlanState),
                            std::move(pVlanLib), std::move(pamDesiredIntfDir),
                            std::move(querierConfigDir), std::move(igmpHostDir),
                            std::move(kernelIntfStatusDir), std::move(bridgingConfig),
                            std::move(coreStatusDir), std::move(timerWheel));
}

ProxySm::ProxySm(Kel::Ptr<IgmpProtocolConfig const> protocolConfig,
                 Kel::Ptr<LibVlanState const> topoVlanState,
                 Kel::Ptr<PrivateVlanLib::LibState const> pVlanLib,
                 Kel::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir,
                 Kel::Ptr<Igmp::QuerierConfigDir> querierConfigDir,
                 Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir,
                 Kel::Ptr<DeviceIntfStatusDir const> kernelIntfStatusDir,
                 Kel::Ptr<Bridging::Config const> bridgingConfig,
                 Kel::Ptr<IgmpProtocolStatus const> coreStatusDir,
                 Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : protocolConfig_(Kel::make<KelProtocolConfig>(std::move(protocolConfig), this)),
      topoVlanState_(std::move(topoVlanState)),
      pVlanLib_(Kel::make<KelPVlanLib>(std::move(pVlanLib), this)),
      pamDesiredIntfDir_(std::move(pamDesiredIntfDir)),
      querierConfigDir_(Kel::make<KelQuerierConfigDir>(std::move(querierConfigDir), this)),
      igmpHostDir_(std::move(igmpHostDir)),
      kernelIntfStatusDir_(std::move(kernelIntfStatusDir)),
      bridgingConfig_(std::move(bridgingConfig)),
      coreStatusDir_(std::move(coreStatusDir)),
      timerWheel_(std::move(timerWheel)) {
  context_.reconcile(
      this->protocolConfig()->contextConfig(), [this](auto const& config) { contextIs(config); },
      [this](VlanId vlan) { contextDel(vlan); });
  handleInitialized();
}

// Hosts go while the machine that runs them is there, and packet access goes last.
ProxySm::~ProxySm() {
  ProxySm::kelDoZombieReactors(true);
  vlanSm_.delAll();
  adapterSm_.delAll();
}

Kel::Ptr<IgmpProtocolConfig const> const& ProxySm::protocolConfig() const {
  return protocolConfig_->notifier();
}

Kel::Ptr<PrivateVlanLib::LibState const> const& ProxySm::pVlanLib() const {
  return pVlanLib_->notifier();
}

Kel::Ptr<Igmp::QuerierConfigDir> const& ProxySm::querierConfigDir() const {
  return querierConfigDir_->dir();
}

Kel::Ptr<ProxyPamManager> const& ProxySm::pamManager() const {
  return pamManager_->manager();
}

Kel::Ptr<ProxySm::KelContext> ProxySm::context(VlanId vlan) const {
  return context_.get(vlan);
}

Kel::Ptr<ProxySm::KelContext> ProxySm::contextIs(Kel::Ptr<IgmpContextConfig const> const& config) {
  Kel::nonNull(config, "Bridging::IgmpSnooping::Proxy::ProxySm", "context");
  return context_.watch(config->vlanId(), config,
                        [&] { return Kel::make<KelContext>(config, this); });
}

void ProxySm::contextDel(VlanId vlan) {
  context_.del(vlan);
}

Kel::Ptr<ProxyVlanSm> ProxySm::vlanSmIs(
    VlanId vlan, Kel::Ptr<Igmp::QuerierConfig const> const& querierConfig,
    Kel::Ptr<Topology::Library::Vlan::TopoVlan const> const& topoVlan,
    Kel::Ptr<ProxyPamManager> const& pamManager, Kel::Ptr<Igmp::IgmpHostDir> const& igmpHostDir,
    Kel::Ptr<DeviceIntfStatusDir const> const& kernelIntfStatusDir,
    Kel::Ptr<PortVlanMapping> const& portVlanMap, Kel::Ptr<AdapterVlanConfig> const& adapterConfig,
    Kel::Ptr<Horix::TimerWheel const> const& timerWheel) {
  auto const newVlanSm = [&] {
    return ProxyVlanSm::ProxyVlanSmIs(vlan, querierConfig, topoVlan, pamManager, igmpHostDir,
                                      kernelIntfStatusDir, portVlanMap, adapterConfig, timerWheel);
  };
  return vlanSm_
      .ensure(vlan, newVlanSm, querierConfig, topoVlan, pamManager, igmpHostDir,
              kernelIntfStatusDir, portVlanMap, adapterConfig, timerWheel)
      .first;
}

Kel::Ptr<AdapterVlanConfig> ProxySm::adapterConfigIs(VlanId vlan) {
  if (auto present = adapterConfig(vlan)) return present;
  auto added =
      adapterConfig_.ensure(vlan, [&] { return Kel::make<AdapterVlanConfig>(vlan); }).first;
  handleAdapterConfig(vlan);
  return added;
}

void ProxySm::adapterConfigDel(VlanId vlan) {
  adapterConfig_.del(vlan);
  handleAdapterConfig(vlan);
}

Kel::Ptr<AdapterSm> ProxySm::adapterSmIs(VlanId vlan,
                                         Kel::Ptr<AdapterVlanConfig const> const& adapterConfig,
                                         Kel::Ptr<Igmp::IgmpHostDir> const& igmpHostDir,
                                         Kel::Ptr<IgmpContextStatus const> const& contextStatus) {
  auto const newAdapterSm = [&] {
    return AdapterSm::AdapterSmIs(vlan, adapterConfig, igmpHostDir, contextStatus);
  };
  return adapterSm_.ensure(vlan, newAdapterSm, adapterConfig, igmpHostDir, contextStatus).first;
}

void ProxySm::hasNotificationActiveIs(bool active) {
  protocolConfig_->hasNotificationActiveIs(active);
  pVlanLib_->hasNotificationActiveIs(active);
  querierConfigDir_->hasNotificationActiveIs(active);
  if (pamManager_) pamManager_->hasNotificationActiveIs(active);
  context_.hasNotificationActiveIs(active);
}

void ProxySm::kelDoZombieReactors(bool zombie) {
  protocolConfig_->kelDoZombieReactors(zombie);
  pVlanLib_->kelDoZombieReactors(zombie);
  querierConfigDir_->kelDoZombieReactors(zombie);
  if (pamManager_) pamManager_->kelDoZombieReactors(zombie);
  context_.kelDoZombieReactors(zombie);
}

void ProxySm::handleInitialized() {
  KEL_TRACE(9, "void Bridging::IgmpSnooping::Proxy::ProxySm::handleInitialized()");
  portVlanMap_ = Kel::make<PortVlanMapping>();
  pamManager_ = Kel::make<KelPamManager>(proxyPamManagerFactory(bridgingConfig_, pamDesiredIntfDir_,
                                                                portVlanMap_, kernelIntfStatusDir_),
                                         this);
  igmpHostStatusDir_ = Kel::make<Igmp::IgmpHostStatusDir>("proxy");
  igmpHostDirSm_ = Kel::make<Igmp::IgmpHostDirSm>(Kel::Ptr<Kel::ActivityConfig>(), igmpHostDir_,
                                                  igmpHostStatusDir_, timerWheel_);
  handleVlan();
  handlePam();
  initializedIs(true);
}

void ProxySm::handleVlan() {
  KEL_TRACE(9, "void Bridging::IgmpSnooping::Proxy::ProxySm::handleVlan()");
  for (VlanId const vlan : protocolConfig()->contextConfig().keys())
    if (protocolConfig()->contextConfig(vlan)) handleVlan(vlan);
  for (VlanId const secondary : pVlanLib()->secondaryVlan().keys())
    if (!vlanSm(secondary)) handleVlan(secondary);
}

void ProxySm::handleVlan(VlanId vlan) {
  KEL_TRACE(9, "void Bridging::IgmpSnooping::Proxy::ProxySm::handleVlan(Bridging::VlanId)(" << vlan
                                                                                            << ')');
  Kel::Ptr<ProxySm> const self(this);
  auto const role = pVlanLib()->secondaryVlan(vlan);
  VlanId configVlan = vlan;
  if (role == VlanTypeAndPrimaryVlan()) {
    KEL_TRACE(9, vlan << " is a normal or primary vlan");
  } else {
    configVlan = role.primaryVlan();
    KEL_TRACE(9, "Found Primary vlan " << configVlan << " for vlan " << vlan);
  }
  auto const contextConfig = protocolConfig()->contextConfig(configVlan);
  auto const querierConfig = querierConfigDir()->querierConfig(Kel::format("%d", vlan.value()));
  KEL_TRACE(9, "contextConfig : " << static_cast<bool>(contextConfig)
                                  << " querierConfig : " << static_cast<bool>(querierConfig));
  if (isProxied(vlan)) {
    // One that is there keeps the configurations that it was made with.
    if (vlanSm(vlan)) return;
    KEL_TRACE(9, "Creating VlanSm for vlan " << vlan);
    auto const adapterConfig = getOrCreateAdapterConfig(vlan);
    vlanSmIs(vlan, querierConfig, topoVlanState_->topoVlan(vlan), pamManager(), igmpHostDir_,
             kernelIntfStatusDir_, portVlanMap_, adapterConfig, timerWheel_);
    // Who heard of the first hosts may have switched the VLAN off again.
    if (!isProxied(vlan)) handleVlan(vlan);
  } else {
    KEL_TRACE(9, "Deleting VlanSm for " << vlan);
    vlanSmDel(vlan);
    // Who heard of the last hosts may have switched it on again.
    if (!vlanSm(vlan)) adapterConfigDel(vlan);
  }
}

/// Whether a VLAN has its querier, and its switch, which for a secondary VLAN is its primary's, is
/// on.
bool ProxySm::isProxied(VlanId vlan) const {
  auto const role = pVlanLib()->secondaryVlan(vlan);
  auto const contextConfig =
      protocolConfig()->contextConfig(role == VlanTypeAndPrimaryVlan() ? vlan : role.primaryVlan());
  return contextConfig && contextConfig->proxyEnabled() &&
         querierConfigDir()->querierConfig(Kel::format("%d", vlan.value()));
}

Kel::Ptr<AdapterVlanConfig> ProxySm::getOrCreateAdapterConfig(VlanId vlan) {
  KEL_TRACE(9,
            "Bridging::IgmpSnooping::Proxy::AdapterVlanConfig::Ptr "
            "Bridging::IgmpSnooping::Proxy::ProxySm::getOrCreateAdapterConfig(Bridging::VlanId)"
                << vlan);
  auto const role = pVlanLib()->secondaryVlan(vlan);
  if (role == VlanTypeAndPrimaryVlan()) {
    KEL_TRACE(9, vlan << " is a normal or primary Vlan creating adapter config");
    return adapterConfigIs(vlan);
  }
  KEL_TRACE(9, "Found PrimaryVlan :" << role.primaryVlan() << " secondaryVlan " << vlan);
  // One of the secondary's own is left to the branch of handleVlan() that deletes: until then its
  // adapter keeps the hosts that it has.
  if (adapterConfig(vlan)) KEL_TRACE(9, "Found Secondary Adapter config" << vlan << ", delete it");
  return adapterConfig(role.primaryVlan());
}

void ProxySm::handleAdapterConfig(VlanId vlan) {
  KEL_TRACE(9, "void Bridging::IgmpSnooping::Proxy::ProxySm::handleAdapterConfig(Bridging::VlanId)"
                   << vlan);
  if (auto const config = adapterConfig(vlan)) {
    KEL_TRACE(9, "Creating AdapterSm for " << vlan);
    adapterSmIs(vlan, config, igmpHostDir_, coreStatusDir_->contextStatus(vlan));
  } else {
    KEL_TRACE(9, "Deleting AdapterSm for " << vlan);
    adapterSmDel(vlan);
  }
}

// A name that is no number reads as 0, which is no VLAN, and numbers count modulo 65536: the
// directory is the agent's, and a wrong name in it is for the agent to hear of.
void ProxySm::handleQuerierConfig(Kel::String name) {
  KEL_TRACE(
      9, "void Bridging::IgmpSnooping::Proxy::ProxySm::handleQuerierConfig(Kel::String)" << name);
  constexpr int decimal = 10;
  handleVlan(VlanId::fromInteger(std::strtol(name.c_str(), nullptr, decimal)));
}

void ProxySm::handlePam() {
  KEL_TRACE(7, "void Bridging::IgmpSnooping::Proxy::ProxySm::handlePam()");
  for (IntfId const& intfId : pamManager()->multiplexer().keys()) handlePam(intfId);
}

void ProxySm::handlePam(IntfId intfId) {
  KEL_TRACE(7, "void Bridging::IgmpSnooping::Proxy::ProxySm::handlePam(Wirex::IntfId)" << intfId);
  Kel::Ptr<ProxySm> const self(this);
  auto const portInfo = portVlanMap_->portInfo(intfId);
  if (!portInfo) return;
  for (VlanId const vlan : portInfo->vlan().keys())
    if (auto const vlanSm = this->vlanSm(vlan)) vlanSm->handleHostPam(intfId);
}

}  // namespace Bridging::IgmpSnooping::Proxy
