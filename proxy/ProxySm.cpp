#include "proxy/ProxySm.h"

#include <array>
#include <cstdlib>
#include <optional>
#include <unordered_map>
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

namespace {

/// Kel::requireEqual for each of several parameters, whose names are in the same order.
template <class... T>
void requireEqual(std::array<char const*, sizeof...(T)> const& attributes,
                  std::tuple<T...> const& newValues, std::tuple<T...> const& currentValues) {
  auto const each = [&]<std::size_t... i>(std::index_sequence<i...>) {
    (Kel::requireEqual(attributes[i], std::get<i>(newValues), std::get<i>(currentValues)), ...);
  };
  each(std::index_sequence_for<T...>());
}

/// The machine that configured each host last, whose the host is. It holds the host, and takes its
/// entry out when it goes.
std::unordered_map<Igmp::IgmpHost const*, ProxyPortSm const*>& keepers() {
  thread_local std::unordered_map<Igmp::IgmpHost const*, ProxyPortSm const*> ofThread;
  return ofThread;
}

ProxyPortSm const* keeperOf(Kel::Ptr<Igmp::IgmpHost> const& host) {
  auto const keeper = keepers().find(host.get());
  return keeper == keepers().end() ? nullptr : keeper->second;
}

}  // namespace

// ---- ProxyPortSm

class ProxyPortSm::KelQuerierVlanConfig final : public Igmp::QuerierConfig::NotifieeConst {
 public:
  KelQuerierVlanConfig(Kel::Ptr<Igmp::QuerierConfig const> config, ProxyPortSm* proxyPortSm)
      : proxyPortSm_(proxyPortSm) {
    watch(std::move(config));
  }

  void proxyPortSmIs(ProxyPortSm* proxyPortSm) { proxyPortSm_ = proxyPortSm; }

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
      querierVlanConfig_(newQuerierVlanConfig(std::move(querierVlanConfig))),
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
  if (keeperOf(igmpHost_) == this) keepers().erase(igmpHost_.get());
  ProxyPortSm::kelDoZombieReactors(true);
  ProxyPortSm::hasNotificationActiveIs(false);
  querierVlanConfig_->proxyPortSmIs(nullptr);
}

Kel::Ptr<ProxyPortSm::KelQuerierVlanConfig> ProxyPortSm::newQuerierVlanConfig(
    Kel::Ptr<Igmp::QuerierConfig const> config) {
  return Kel::make<KelQuerierVlanConfig>(std::move(config), this);
}

void ProxyPortSm::requireConstructedWith(Parameters const& asked) const {
  requireEqual({"vlanId", "querierVlanConfig", "igmpHostDir", "kernelIntfStatusDir", "pamManager",
                "portVlanMap", "timerWheel"},
               asked,
               Parameters(vlanId_, querierVlanConfig(), igmpHostDir_, kernelIntfStatusDir_,
                          pamManager_, portVlanMap_, timerWheel_));
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

// A reactor that is not active hears of nothing, so one that is active again looks at all.
void ProxyPortSm::hasNotificationActiveIs(bool active) {
  bool const awakes = active && !querierVlanConfig_->hasNotificationActive();
  querierVlanConfig_->hasNotificationActiveIs(active);
  innerQuerierConfig_->hasNotificationActiveIs(active);
  if (!awakes || querierVlanConfig_->isZombie()) return;
  innerQuerierConfigIs(querierVlanConfig()->gmpQuerierConfig());
  handleIgmpVersion();
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
  KEL_ASSERT(key.intfId() == intfId_, "portKey().intfId() == intfId()");
  portKeyIs(key);
  auto const* const formerKeeper = keeperOf(igmpHostDir_->igmpHost(hostName));
  // An entry without VLANs may be taken away by who hears that it has come.
  Kel::Ptr<PortVlanMapping::PortVlanInfo> portInfo;
  do {
    portInfo = portVlanMap_->portInfoIs(intfId_);
    portInfo->vlanIs(vlanId_, true);
  } while (portVlanMap_->portInfo(intfId_) != portInfo);
  KEL_TRACE(8,
            "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleInitialized() Creating "
            "querier config "
                << hostName);
  igmpHostIs(igmpHostDir_->igmpHostIs(hostName));
  // Who heard of the host may have started another proxy, whose machine has it then.
  if (keeperOf(igmpHost_) == formerKeeper) keepers()[igmpHost_.get()] = this;
  configureHost();
  initializedIs(true);
}

bool ProxyPortSm::keeps(Kel::Ptr<Igmp::IgmpHost> const& host) const {
  auto const* const keeper = keeperOf(host);
  return !keeper || keeper == this;
}

template <class Value>
void ProxyPortSm::write(void (Igmp::IgmpHost::*mutator)(Value), std::type_identity_t<Value> value) {
  if (keeps(igmpHost_)) (igmpHost_.get()->*mutator)(value);
}

void ProxyPortSm::configureHost() {
  using Igmp::IgmpHost;
  write(&IgmpHost::intfIdIs, intfId_);
  write(&IgmpHost::vlanIdIs, vlanId_.value());
  write(&IgmpHost::useMuxIs, false);
  write(&IgmpHost::taggedIs, false);
  write(&IgmpHost::externalPamIs, true);
  updateHostPam();
  if (auto const protocolConfig = querierVlanConfig()->gmpQuerierConfig())
    write(&IgmpHost::igmpVersionIs, protocolConfig->querierVersion());
  write(&IgmpHost::deviceNameIs, kernelIntfStatusDir_->intfStatusAndDeviceName(intfId_).deviceName);
  write(&IgmpHost::enabledIs, true);
  // Also when the host was there before: these tell the host library to look at it again.
  write(&IgmpHost::configVersionIs, igmpHost_->configVersion() + 1);
  write(&IgmpHost::intfConfigVersionIs, igmpHost_->intfConfigVersion() + 1);
}

void ProxyPortSm::updateHostPam() {
  Kel::Ptr<ProxyPortSm> const self(this);
  auto const always = [] { return true; };
  for (Decisions<IntfId>::Rounds rounds(pamDecisions_, intfId_, always); rounds.next();) {
    KEL_TRACE(7, "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::updateHostPam() "
                     << vlanId_ << ' ' << intfId_);
    if (pamManager_->multiplexer(intfId_)) {
      KEL_TRACE(7, "Creating Vlan Pam for " << portKey_);
      write(&Igmp::IgmpHost::pamIs, pamManager_->portVlanPamIs(portKey_));
    } else {
      KEL_TRACE(7, "Deleting VlanPam");
      write(&Igmp::IgmpHost::pamIs, nullptr);
    }
  }
}

bool ProxyPortSm::isHostPamInStep() const {
  auto const reachable =
      pamManager_->multiplexer(intfId_) ? pamManager_->portVlanPam(portKey_) : nullptr;
  return igmpHost_->pam() == reachable || !keeps(igmpHost_);
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
    write(&Igmp::IgmpHost::igmpVersionIs,
          querierVlanConfig()->gmpQuerierConfig()->querierVersion());
}

void ProxyPortSm::handleCleanup() {
  KEL_TRACE(9, portKey_ << ":void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleCleanup()");
  if (!initialized()) return;
  // With the host, all that is the port's is another machine's. It may become so at each step.
  auto const isOwn = [this] {
    auto const host = igmpHostDir_->igmpHost(portKey_.hostName());
    return !host || keeps(host);
  };
  if (isOwn()) igmpHostDir_->igmpHostDel(portKey_.hostName());
  if (isOwn()) pamManager_->portVlanPamDel(portKey_);
  if (!isOwn()) return;
  if (auto const portInfo = portVlanMap_->portInfo(intfId_)) portInfo->vlanDel(vlanId_);
  if (auto const portInfo = portVlanMap_->portInfo(intfId_); portInfo && portInfo->vlan().empty())
    portVlanMap_->portInfoDel(intfId_);
}

// ---- ProxyVlanSm

class ProxyVlanSm::KelTopoVlan final
    : public Kel::ReactorFor<ProxyVlanSm, TopoVlan::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

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

// What has changed while the watcher was not active is told when it is active again, and nothing
// else is: see proxyTopoPortIs().
void ProxyVlanSm::KelProxyTopoPort::hasNotificationActiveIs(bool active) {
  if (active == hasNotificationActive()) return;
  NotifieeConst::hasNotificationActiveIs(active);
  if (!active) {
    lastHeard_ = {notifier()->blocked(), notifier()->allowedTrafficDirection()};
    return;
  }
  Kel::Ptr<KelProxyTopoPort> const self(this);
  auto const [blocked, direction] = lastHeard_;
  if (!isZombie() && notifier()->blocked() != blocked) handleTopoPortBlocked();
  if (!isZombie() && notifier()->allowedTrafficDirection() != direction) handleTopoPortDirection();
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
                         Kel::Ptr<Horix::TimerWheel const> timerWheel, ProxySm* proxySm)
    : vlanId_(vlanId),
      proxySm_(proxySm),
      querierVlanConfig_(std::move(querierVlanConfig)),
      topoVlan_(newTopoVlan(std::move(topoVlan))),
      pamManager_(std::move(pamManager)),
      igmpHostDir_(std::move(igmpHostDir)),
      kernelIntfStatusDir_(newKernelIntfStatusDir(std::move(kernelIntfStatusDir))),
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

Kel::Ptr<ProxyVlanSm::KelTopoVlan> ProxyVlanSm::newTopoVlan(Kel::Ptr<TopoVlan const> topoVlan) {
  return Kel::make<KelTopoVlan>(std::move(topoVlan), this);
}

Kel::Ptr<ProxyVlanSm::KelKernelIntfStatusDir> ProxyVlanSm::newKernelIntfStatusDir(
    Kel::Ptr<DeviceIntfStatusDir const> dir) {
  return Kel::make<KelKernelIntfStatusDir>(std::move(dir), this);
}

void ProxyVlanSm::requireConstructedWith(Parameters const& asked) const {
  requireEqual({"querierVlanConfig", "topoVlan", "pamManager", "igmpHostDir", "kernelIntfStatusDir",
                "portVlanMap", "adapterConfig", "timerWheel"},
               asked,
               Parameters(querierVlanConfig_, topoVlan(), pamManager_, igmpHostDir_,
                          kernelIntfStatusDir(), portVlanMap_, adapterConfig_, timerWheel_));
}

Kel::Ptr<ProxyVlanSm::TopoVlan const> const& ProxyVlanSm::topoVlan() const {
  return topoVlan_->notifier();
}

Kel::Ptr<DeviceIntfStatusDir const> const& ProxyVlanSm::kernelIntfStatusDir() const {
  return kernelIntfStatusDir_->notifier();
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
  auto added = proxyTopoPort_.watch(port->intfId(), port, [&] { return newProxyTopoPort(port); });
  added->handleTopoPortBlocked();
  return added;
}

Kel::Ptr<ProxyVlanSm::KelProxyTopoPort> ProxyVlanSm::newProxyTopoPort(
    Kel::Ptr<TopoPort const> const& port) {
  return Kel::make<KelProxyTopoPort>(port, this);
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
  Kel::Ptr<ProxyVlanSm> const self(this);
  bool const awakes = active && !topoVlan_->hasNotificationActive();
  topoVlan_->hasNotificationActiveIs(active);
  kernelIntfStatusDir_->hasNotificationActiveIs(active);
  proxyTopoPort_.hasNotificationActiveIs(active);
  for (IntfId const& intfId : portSm_.keys())
    if (auto const portSm = this->portSm(intfId)) portSm->hasNotificationActiveIs(active);
  if (!awakes || topoVlan_->isZombie()) return;
  for (IntfId const& intfId : portSm_.keys())
    if (!topoVlan()->port().contains(intfId)) handlePort(intfId);
  handlePort();
  reconcileTopoPorts();
}

void ProxyVlanSm::kelDoZombieReactors(bool zombie) {
  topoVlan_->kelDoZombieReactors(zombie);
  kernelIntfStatusDir_->kelDoZombieReactors(zombie);
  proxyTopoPort_.kelDoZombieReactors(zombie);
  for (IntfId const& intfId : portSm_.keys())
    if (auto const portSm = this->portSm(intfId)) portSm->kelDoZombieReactors(zombie);
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
  for (IntfId const& intfId : topoVlan()->port().keys())
    if (topoVlan()->port().contains(intfId)) handlePort(intfId);
}

void ProxyVlanSm::handlePort(IntfId intfId) {
  Kel::Ptr<ProxyVlanSm> const self(this);
  // While a port of it is being decided, the VLAN is.
  Kel::Ptr<ProxySm> const proxySm(proxySm_);
  std::optional<Decisions<VlanId>::Hold> vlan;
  if (proxySm) vlan.emplace(proxySm->decisions_, vlanId_);
  auto const isWanted = [&] { return isMember(intfId) && isInKernel(intfId); };
  for (Decisions<IntfId>::Rounds rounds(decisions_, intfId, isWanted); rounds.next();) {
    if (topoVlan_->isZombie()) return;
    KEL_TRACE(9, vlanId_ << ":void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::handlePort("
                            "Wirex::IntfId)");
    if (!isMember(intfId) || rounds.lapsed()) {
      KEL_TRACE(4, "Deleting PortSm for port " << intfId);
      unserve(intfId);
      continue;
    }
    KEL_TRACE(4, "Creating QuerierSm for port " << intfId);
    if (isInKernel(intfId)) {
      serve(intfId);
      auto const watcher = proxyTopoPort(intfId);
      if (watcher && rounds.repeated()) watcher->handleTopoPortBlocked();
    } else {
      KEL_TRACE(4, "Deleting PortSm for port due to lack of kernel intf " << intfId);
      unserve(intfId);
    }
  }
  if (vlan && vlan->release()) proxySm->handleVlan(vlanId_);
}

bool ProxyVlanSm::isMember(IntfId const& intfId) const {
  return topoVlan()->port().contains(intfId);
}

bool ProxyVlanSm::isInKernel(IntfId const& intfId) const {
  return kernelIntfStatusDir()->intfStatusAndDeviceName(intfId) != IntfStatusAndDeviceName();
}

// The packet access of a new port is set up by its machine itself, so here it matters only to one
// that is there already.
void ProxyVlanSm::serve(IntfId const& intfId) {
  handleHostPam(intfId);
  portSmIs(intfId, vlanId_, querierVlanConfig_, igmpHostDir_, kernelIntfStatusDir(), pamManager_,
           portVlanMap_, timerWheel_);
  handleMissedHostPam(intfId);
  // The keys of a VLAN stay when it goes, so one that is about to go adds none.
  bool const goes = topoVlan_->isZombie() || (proxySm_ && proxySm_->decisions_.lapsed(vlanId_));
  if (adapterConfig_ && !goes) adapterConfig_->hostKeyIs(PortKey(vlanId_, intfId), true);
}

void ProxyVlanSm::unserve(IntfId const& intfId) {
  if (adapterConfig_) adapterConfig_->hostKeyDel(PortKey(vlanId_, intfId));
  portSmDel(intfId);
}

void ProxyVlanSm::handleMissedHostPams() {
  for (IntfId const& intfId : portSm_.keys()) handleMissedHostPam(intfId);
}

void ProxyVlanSm::handleMissedHostPam(IntfId const& intfId) {
  auto const portSm = this->portSm(intfId);
  if (portSm && !portSm->isHostPamInStep()) handleHostPam(intfId);
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

  // The handler comes before the reactor on the entry.
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
  reconcileContexts();
  handleInitialized();
}

// Hosts go while the machine that runs them is there, with the records that they have, and packet
// access goes last.
ProxySm::~ProxySm() {
  zombieOwnReactors(true);
  vlanSmDelAll();
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
  return context_.watch(config->vlanId(), config, [&] { return newContext(config); });
}

Kel::Ptr<ProxySm::KelContext> ProxySm::newContext(Kel::Ptr<IgmpContextConfig const> const& config) {
  return Kel::make<KelContext>(config, this);
}

void ProxySm::contextDel(VlanId vlan) {
  context_.del(vlan);
}

void ProxySm::contextDelAll() {
  context_.delAll();
}

void ProxySm::reconcileContexts() {
  context_.reconcile(
      protocolConfig()->contextConfig(), [this](auto const& config) { contextIs(config); },
      [this](VlanId vlan) { contextDel(vlan); });
}

void ProxySm::vlanSmDel(VlanId vlan) {
  if (auto const machine = vlanSm(vlan)) machine->proxySmIs(nullptr);
  vlanSm_.del(vlan);
}

void ProxySm::vlanSmDelAll() {
  for (VlanId const vlan : vlanSm_.keys()) vlanSmDel(vlan);
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
  Kel::Ptr<ProxySm> const self(this);
  bool const awakes = active && !protocolConfig_->hasNotificationActive();
  protocolConfig_->hasNotificationActiveIs(active);
  pVlanLib_->hasNotificationActiveIs(active);
  querierConfigDir_->hasNotificationActiveIs(active);
  pamManager_->hasNotificationActiveIs(active);
  context_.hasNotificationActiveIs(active);
  pamManager()->hasNotificationActiveIs(active);
  if (awakes && !protocolConfig_->isZombie()) catchUp();
  for (VlanId const vlan : vlanSm_.keys())
    if (auto const vlanSm = this->vlanSm(vlan)) vlanSm->hasNotificationActiveIs(active);
}

/// Decides again for every VLAN, of which nothing was heard for a time.
void ProxySm::catchUp() {
  reconcileContexts();
  for (VlanId const vlan : vlanSm_.keys()) handleVlan(vlan);
  handleVlan();
  for (IntfId const& intfId : portVlanMap_->portInfo().keys()) handlePam(intfId);
}

void ProxySm::kelDoZombieReactors(bool zombie) {
  zombieOwnReactors(zombie);
  for (VlanId const vlan : vlanSm_.keys())
    if (auto const vlanSm = this->vlanSm(vlan)) vlanSm->kelDoZombieReactors(zombie);
  for (VlanId const vlan : adapterSm_.keys())
    if (auto const adapterSm = this->adapterSm(vlan)) adapterSm->kelDoZombieReactors(zombie);
}

void ProxySm::zombieOwnReactors(bool zombie) {
  protocolConfig_->kelDoZombieReactors(zombie);
  pVlanLib_->kelDoZombieReactors(zombie);
  querierConfigDir_->kelDoZombieReactors(zombie);
  if (pamManager_) pamManager_->kelDoZombieReactors(zombie);
  context_.kelDoZombieReactors(zombie);
}

void ProxySm::handleInitialized() {
  KEL_TRACE(9, "void Bridging::IgmpSnooping::Proxy::ProxySm::handleInitialized()");
  portVlanMapIs();
  pamManagerIs(bridgingConfig_, pamDesiredIntfDir_, portVlanMap_, kernelIntfStatusDir_);
  igmpHostStatusDirIs("proxy");
  igmpHostDirSmIs(nullptr, igmpHostDir_, igmpHostStatusDir_, timerWheel_);
  handleVlan();
  handlePam();
  initializedIs(true);
}

void ProxySm::portVlanMapIs() {
  portVlanMap_ = Kel::make<PortVlanMapping>();
}

void ProxySm::pamManagerIs(Kel::Ptr<Bridging::Config const> const& bridgingConfig,
                           Kel::Ptr<Interface::PamDesiredIntfDir const> const& pamDesiredIntfDir,
                           Kel::Ptr<PortVlanMapping const> const& portVlanMap,
                           Kel::Ptr<DeviceIntfStatusDir const> const& kernelIntfStatusDir) {
  pamManager_ = Kel::make<KelPamManager>(
      proxyPamManagerFactory(bridgingConfig, pamDesiredIntfDir, portVlanMap, kernelIntfStatusDir),
      this);
}

void ProxySm::igmpHostStatusDirIs(Kel::Name const& name) {
  igmpHostStatusDir_ = Kel::make<Igmp::IgmpHostStatusDir>(name);
}

void ProxySm::igmpHostDirSmIs(Kel::Ptr<Kel::ActivityConfig> const& activity,
                              Kel::Ptr<Igmp::IgmpHostDir> const& igmpHostDir,
                              Kel::Ptr<Igmp::IgmpHostStatusDir> const& igmpHostStatusDir,
                              Kel::Ptr<Horix::TimerWheel const> const& timerWheel) {
  igmpHostDirSm_ =
      Kel::make<Igmp::IgmpHostDirSm>(activity, igmpHostDir, igmpHostStatusDir, timerWheel);
}

void ProxySm::handleVlan() {
  KEL_TRACE(9, "void Bridging::IgmpSnooping::Proxy::ProxySm::handleVlan()");
  for (VlanId const vlan : protocolConfig()->contextConfig().keys())
    if (protocolConfig()->contextConfig(vlan)) handleVlan(vlan);
  for (VlanId const secondary : pVlanLib()->secondaryVlan().keys())
    if (!vlanSm(secondary)) handleVlan(secondary);
}

void ProxySm::handleVlan(VlanId vlan) {
  Kel::Ptr<ProxySm> const self(this);
  auto const isWanted = [&] { return inputsOf(vlan).areThere(); };
  for (Decisions<VlanId>::Rounds rounds(decisions_, vlan, isWanted); rounds.next();) {
    if (protocolConfig_->isZombie()) return;
    KEL_TRACE(9, "void Bridging::IgmpSnooping::Proxy::ProxySm::handleVlan(Bridging::VlanId)("
                     << vlan << ')');
    VlanInputs const inputs = inputsOf(vlan);
    if (inputs.isSecondary)
      KEL_TRACE(9, "Found Primary vlan " << inputs.configVlan << " for vlan " << vlan);
    else
      KEL_TRACE(9, vlan << " is a normal or primary vlan");
    KEL_TRACE(9,
              "contextConfig : " << static_cast<bool>(inputs.contextConfig)
                                 << " querierConfig : " << static_cast<bool>(inputs.querierConfig));
    if (inputs.areThere() && !rounds.lapsed()) {
      // One that is there keeps the configurations that it was made with.
      if (vlanSm(vlan)) continue;
      KEL_TRACE(9, "Creating VlanSm for vlan " << vlan);
      auto const adapterConfig = getOrCreateAdapterConfig(vlan);
      auto const added =
          vlanSmIs(vlan, inputs.querierConfig, topoVlanState_->topoVlan(vlan), pamManager(),
                   igmpHostDir_, kernelIntfStatusDir_, portVlanMap_, adapterConfig, timerWheel_);
      added->handleMissedHostPams();
    } else {
      KEL_TRACE(9, "Deleting VlanSm for " << vlan);
      vlanSmDel(vlan);
      adapterConfigDel(vlan);
    }
  }
}

ProxySm::VlanInputs ProxySm::inputsOf(VlanId vlan) const {
  auto const role = pVlanLib()->secondaryVlan(vlan);
  bool const isSecondary = role != VlanTypeAndPrimaryVlan();
  VlanId const configVlan = isSecondary ? role.primaryVlan() : vlan;
  return {isSecondary, configVlan, protocolConfig()->contextConfig(configVlan),
          querierConfigDir()->querierConfig(Kel::format("%d", vlan.value()))};
}

Kel::Ptr<AdapterVlanConfig> ProxySm::getOrCreateAdapterConfig(VlanId vlan) {
  KEL_TRACE(9,
            "Bridging::IgmpSnooping::Proxy::AdapterVlanConfig::Ptr "
            "Bridging::IgmpSnooping::Proxy::ProxySm::getOrCreateAdapterConfig(Bridging::VlanId)"
                << vlan);
  VlanInputs const inputs = inputsOf(vlan);
  if (!inputs.isSecondary) {
    KEL_TRACE(9, vlan << " is a normal or primary Vlan creating adapter config");
    return adapterConfigIs(vlan);
  }
  KEL_TRACE(9, "Found PrimaryVlan :" << inputs.configVlan << " secondaryVlan " << vlan);
  // One of the secondary's own is left to the branch of handleVlan() that deletes: until then its
  // adapter keeps the hosts that it has.
  if (adapterConfig(vlan)) KEL_TRACE(9, "Found Secondary Adapter config" << vlan << ", delete it");
  return adapterConfig(inputs.configVlan);
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
