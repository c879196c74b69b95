#include "proxy/ProxySm.h"

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

/// What the signature of a handler begins with in its traces.
constexpr char const* handler = "void Bridging::IgmpSnooping::Proxy::";

}  // namespace

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
    if (!isZombie()) proxySm->followContext(vlan);
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
  using ReactorFor::ReactorFor;

  void onQuerierConfig(Kel::Name const& name) override {
    if (notificationActive()) owner().handleQuerierConfig(name.stringValue());
  }
};

class ProxySm::KelPamManager final
    : public Kel::ReactorFor<ProxySm, Wirex::PortVlanPamManager::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onMultiplexer(IntfId intfId) override {
    if (notificationActive()) owner().handlePam(std::move(intfId));
  }
};

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

ProxySm::ProxySm(Parameters parameters)
    : parameters_(std::move(parameters)),
      protocolConfig_(Kel::make<KelProtocolConfig>(protocolConfig(), this)),
      pVlanLib_(Kel::make<KelPVlanLib>(pVlanLib(), this)),
      querierConfigDir_(Kel::make<KelQuerierConfigDir>(querierConfigDir(), this)) {
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

Kel::Ptr<ProxySm::KelContext> ProxySm::contextIs(Kel::Ptr<IgmpContextConfig const> const& config) {
  Kel::nonNull(config, "Bridging::IgmpSnooping::Proxy::ProxySm", "context");
  return context_.watch(config->vlanId(), config, [&] { return newContext(config); });
}

Kel::Ptr<ProxySm::KelContext> ProxySm::newContext(Kel::Ptr<IgmpContextConfig const> const& config) {
  return Kel::make<KelContext>(config, this);
}

void ProxySm::followContext(VlanId vlan) {
  if (auto const config = protocolConfig()->contextConfig(vlan))
    contextIs(config);
  else
    contextDel(vlan);
}

void ProxySm::reconcileContexts() {
  context_.reconcile(protocolConfig()->contextConfig(),
                     [this](VlanId vlan) { followContext(vlan); });
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

void ProxySm::hasNotificationActiveIs(bool active) {
  Kel::Ptr<ProxySm> const self(this);
  bool const awakes = active && !protocolConfig_->hasNotificationActive();
  protocolConfig_->hasNotificationActiveIs(active);
  pVlanLib_->hasNotificationActiveIs(active);
  querierConfigDir_->hasNotificationActiveIs(active);
  kelPamManager_->hasNotificationActiveIs(active);
  context_.hasNotificationActiveIs(active);
  pamManager_->hasNotificationActiveIs(active);
  if (awakes && !protocolConfig_->isZombie()) catchUp();
  vlanSm_.hasNotificationActiveIs(active);
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
  vlanSm_.kelDoZombieReactors(zombie);
  adapterSm_.kelDoZombieReactors(zombie);
}

void ProxySm::zombieOwnReactors(bool zombie) {
  protocolConfig_->kelDoZombieReactors(zombie);
  pVlanLib_->kelDoZombieReactors(zombie);
  querierConfigDir_->kelDoZombieReactors(zombie);
  if (kelPamManager_) kelPamManager_->kelDoZombieReactors(zombie);
  context_.kelDoZombieReactors(zombie);
}

void ProxySm::handleInitialized() {
  KEL_TRACE(9, handler << "ProxySm::handleInitialized()");
  portVlanMapIs();
  pamManagerIs(bridgingConfig(), pamDesiredIntfDir(), portVlanMap(), kernelIntfStatusDir());
  igmpHostStatusDirIs("proxy");
  igmpHostDirSmIs(nullptr, igmpHostDir(), igmpHostStatusDir(), timerWheel());
  handleVlan();
  handlePam();
  initializedIs(true);
}

void ProxySm::pamManagerIs(Kel::Ptr<Bridging::Config const> const& bridgingConfig,
                           Kel::Ptr<Interface::PamDesiredIntfDir const> const& pamDesiredIntfDir,
                           Kel::Ptr<PortVlanMapping const> const& portVlanMap,
                           Kel::Ptr<DeviceIntfStatusDir const> const& kernelIntfStatusDir) {
  pamManager_ =
      proxyPamManagerFactory(bridgingConfig, pamDesiredIntfDir, portVlanMap, kernelIntfStatusDir);
  kelPamManager_ = Kel::make<KelPamManager>(pamManager_, this);
}

void ProxySm::handleVlan() {
  KEL_TRACE(9, handler << "ProxySm::handleVlan()");
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
    KEL_TRACE(9, handler << "ProxySm::handleVlan(Bridging::VlanId)(" << vlan << ')');
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
      auto const added = vlanSmIs(vlan, inputs.querierConfig, topoVlanState()->topoVlan(vlan),
                                  pamManager(), igmpHostDir(), kernelIntfStatusDir(), portVlanMap(),
                                  adapterConfig, timerWheel());
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
  KEL_TRACE(9, handler << "ProxySm::handleAdapterConfig(Bridging::VlanId)" << vlan);
  if (auto const config = adapterConfig(vlan)) {
    KEL_TRACE(9, "Creating AdapterSm for " << vlan);
    adapterSmIs(vlan, config, igmpHostDir(), coreStatusDir()->contextStatus(vlan));
  } else {
    KEL_TRACE(9, "Deleting AdapterSm for " << vlan);
    adapterSmDel(vlan);
  }
}

// A name that is no number reads as 0, which is no VLAN, and numbers count modulo 65536: the
// directory is the agent's, and a wrong name in it is for the agent to hear of.
void ProxySm::handleQuerierConfig(Kel::String name) {
  KEL_TRACE(9, handler << "ProxySm::handleQuerierConfig(Kel::String)" << name);
  constexpr int decimal = 10;
  handleVlan(VlanId::fromInteger(std::strtol(name.c_str(), nullptr, decimal)));
}

void ProxySm::handlePam() {
  KEL_TRACE(7, handler << "ProxySm::handlePam()");
  for (IntfId const& intfId : pamManager()->multiplexer().keys()) handlePam(intfId);
}

void ProxySm::handlePam(IntfId intfId) {
  KEL_TRACE(7, handler << "ProxySm::handlePam(Wirex::IntfId)" << intfId);
  Kel::Ptr<ProxySm> const self(this);
  auto const portInfo = portVlanMap_->portInfo(intfId);
  if (!portInfo) return;
  for (VlanId const vlan : portInfo->vlan().keys())
    if (auto const vlanSm = this->vlanSm(vlan)) vlanSm->handleHostPam(intfId);
}

// ---- ProxyVlanSm

namespace {

constexpr char const* topoPortHandler =
    "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::";

}  // namespace

class ProxyVlanSm::KelTopoVlan final
    : public Kel::ReactorFor<ProxyVlanSm, TopoVlan::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onTopoPort(IntfId intfId) override {
    if (isZombie()) return;
    Kel::Ptr<ProxyVlanSm> const vlanSm(&owner());
    if (notificationActive()) vlanSm->handlePort(intfId);
    if (!isZombie()) vlanSm->followTopoPort(intfId);
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
  KEL_TRACE(8, topoPortHandler << "handleTopoPortBlocked() blocked is " << notifier()->blocked());
  if (auto const portSm = this->portSm(__func__)) portSm->blockedIs(notifier()->blocked());
}

void ProxyVlanSm::KelProxyTopoPort::handleTopoPortDirection() {
  KEL_TRACE(8, topoPortHandler << "handleTopoPortDirection() port " << intfId() << " direction is "
                               << notifier()->allowedTrafficDirection());
  if (auto const portSm = this->portSm(__func__))
    portSm->directionIs(notifier()->allowedTrafficDirection());
}

/// The machine of the port. Null, and traced for the handler that asks, where there is none, and
/// where the port's watcher is another one, or none, or watches another port by now.
Kel::Ptr<ProxyPortSm> ProxyVlanSm::KelProxyTopoPort::portSm(char const* askingHandler) const {
  auto const current = owner().proxyTopoPort(intfId());
  if (!current || current->notifier() != notifier()) {
    KEL_TRACE_OF(askingHandler, 9, "Notifier is incorrect. Return early");
    return nullptr;
  }
  auto portSm = owner().portSm(intfId());
  if (!portSm)
    KEL_TRACE_OF(askingHandler, 8,
                 topoPortHandler << askingHandler << "() Port SM does not exist " << intfId());
  return portSm;
}

ProxyVlanSm::ProxyVlanSm(VlanId vlanId, Parameters parameters, ProxySm* proxySm)
    : vlanId_(vlanId),
      parameters_(std::move(parameters)),
      proxySm_(proxySm),
      topoVlan_(newTopoVlan(topoVlan())),
      kernelIntfStatusDir_(Kel::make<KelKernelIntfStatusDir>(kernelIntfStatusDir(), this)) {
  handleInitialized();
  reconcileTopoPorts();
}

ProxyVlanSm::~ProxyVlanSm() {
  ProxyVlanSm::kelDoZombieReactors(true);
  ProxyVlanSm::hasNotificationActiveIs(false);
  portSmDelAll();
}

Kel::Ptr<ProxyVlanSm::KelTopoVlan> ProxyVlanSm::newTopoVlan(
    Kel::Ptr<TopoVlan const> const& topoVlan) {
  return Kel::make<KelTopoVlan>(topoVlan, this);
}

void ProxyVlanSm::requireConstructedWith(Parameters const& asked) const {
  Kel::requireEqual("querierVlanConfig", asked.querierVlanConfig, querierVlanConfig());
  Kel::requireEqual("topoVlan", asked.topoVlan, topoVlan());
  Kel::requireEqual("pamManager", asked.pamManager, pamManager());
  Kel::requireEqual("igmpHostDir", asked.igmpHostDir, igmpHostDir());
  Kel::requireEqual("kernelIntfStatusDir", asked.kernelIntfStatusDir, kernelIntfStatusDir());
  Kel::requireEqual("portVlanMap", asked.portVlanMap, portVlanMap());
  Kel::requireEqual("adapterConfig", asked.adapterConfig, adapterConfig());
  Kel::requireEqual("timerWheel", asked.timerWheel, timerWheel());
}

// A new watcher tells the port machine whether the port is blocked, but not its direction: that
// the machine learns when it next changes, or when the watcher is re-pointed.
Kel::Ptr<ProxyVlanSm::KelProxyTopoPort> ProxyVlanSm::proxyTopoPortIs(
    Kel::Ptr<TopoPort const> const& port) {
  Kel::nonNull(port, "Bridging::IgmpSnooping::Proxy::ProxyVlanSm", "proxyTopoPort");
  bool const isNew = !proxyTopoPort(port->intfId());
  auto watcher = proxyTopoPort_.watch(port->intfId(), port, [&] { return newProxyTopoPort(port); });
  if (isNew) watcher->handleTopoPortBlocked();
  return watcher;
}

Kel::Ptr<ProxyVlanSm::KelProxyTopoPort> ProxyVlanSm::newProxyTopoPort(
    Kel::Ptr<TopoPort const> const& port) {
  return Kel::make<KelProxyTopoPort>(port, this);
}

void ProxyVlanSm::followTopoPort(IntfId const& intfId) {
  if (auto const port = topoVlan()->port(intfId))
    proxyTopoPortIs(port);
  else
    proxyTopoPortDel(intfId);
}

void ProxyVlanSm::reconcileTopoPorts() {
  Kel::Ptr<ProxyVlanSm> const self(this);
  proxyTopoPort_.reconcile(topoVlan()->port(),
                           [this](IntfId const& intfId) { followTopoPort(intfId); });
}

void ProxyVlanSm::hasNotificationActiveIs(bool active) {
  Kel::Ptr<ProxyVlanSm> const self(this);
  bool const awakes = active && !topoVlan_->hasNotificationActive();
  topoVlan_->hasNotificationActiveIs(active);
  kernelIntfStatusDir_->hasNotificationActiveIs(active);
  proxyTopoPort_.hasNotificationActiveIs(active);
  portSm_.hasNotificationActiveIs(active);
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
  portSm_.kelDoZombieReactors(zombie);
}

void ProxyVlanSm::handleInitialized() {
  KEL_TRACE(9, vlanId_ << ':' << handler << "ProxyVlanSm::handleInitialized()");
  KEL_ASSERT(topoVlan(), "topoVlan()");
  KEL_ASSERT(querierVlanConfig(), "querierVlanConfig()");
  KEL_ASSERT(querierVlanConfig()->gmpQuerierConfig(), "querierVlanConfig()->gmpQuerierConfig()");
  handlePort();
  initializedIs(true);
}

void ProxyVlanSm::handlePort() {
  KEL_TRACE(9, vlanId_ << ':' << handler << "ProxyVlanSm::handlePort()");
  Kel::Ptr<ProxyVlanSm> const self(this);
  for (IntfId const& intfId : topoVlan()->port().keys())
    if (topoVlan()->port().contains(intfId)) handlePort(intfId);
}

void ProxyVlanSm::handlePort(IntfId intfId) {
  Kel::Ptr<ProxyVlanSm> const self(this);
  // While one of its ports is being decided, the VLAN is too.
  Kel::Ptr<ProxySm> const proxySm(proxySm_);
  std::optional<Decisions<VlanId>::Hold> vlan;
  if (proxySm) vlan.emplace(proxySm->decisions_, vlanId_);
  auto const isWanted = [&] { return isMember(intfId) && isInKernel(intfId); };
  for (Decisions<IntfId>::Rounds rounds(decisions_, intfId, isWanted); rounds.next();) {
    if (topoVlan_->isZombie()) return;
    KEL_TRACE(9, vlanId_ << ':' << handler << "ProxyVlanSm::handlePort(Wirex::IntfId)");
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
  auto const port = portSmIs(intfId, vlanId_, querierVlanConfig(), igmpHostDir(),
                             kernelIntfStatusDir(), pamManager(), portVlanMap(), timerWheel());
  handleMissedHostPam(intfId);
  // The keys of a VLAN stay when it goes, so one that is about to go adds none.
  bool const goes = topoVlan_->isZombie() || (proxySm_ && proxySm_->decisions_.lapsed(vlanId_));
  if (!adapterConfig() || goes) return;
  // The machine's key shares its text with the host's name. It is another one if somebody set it.
  PortKey const key(vlanId_, intfId);
  adapterConfig()->hostKeyIs(port->portKey() == key ? port->portKey() : key, true);
}

void ProxyVlanSm::unserve(IntfId const& intfId) {
  if (adapterConfig()) adapterConfig()->hostKeyDel(PortKey(vlanId_, intfId));
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
  KEL_TRACE(9, vlanId_ << ':' << handler << "ProxyVlanSm::handleHostPam(Wirex::IntfId)");
  if (auto const portSm = this->portSm(intfId)) portSm->updateHostPam();
}

// ---- ProxyPortSm

namespace {

/// The keeper of each host, which is the machine that configured it last. It holds the host, and
/// removes its entry here when it goes.
std::unordered_map<Igmp::IgmpHost const*, ProxyPortSm const*>& keepers() {
  thread_local std::unordered_map<Igmp::IgmpHost const*, ProxyPortSm const*> ofThread;
  return ofThread;
}

ProxyPortSm const* keeperOf(Kel::Ptr<Igmp::IgmpHost> const& host) {
  auto const keeper = keepers().find(host.get());
  return keeper == keepers().end() ? nullptr : keeper->second;
}

}  // namespace

class ProxyPortSm::KelQuerierVlanConfig final
    : public Kel::ReactorFor<ProxyPortSm, Igmp::QuerierConfig::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onGmpQuerierConfig() override {
    if (!isZombie()) owner().innerQuerierConfigIs(notifier()->gmpQuerierConfig());
  }
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

ProxyPortSm::ProxyPortSm(IntfId intfId, Parameters parameters)
    : intfId_(std::move(intfId)),
      parameters_(std::move(parameters)),
      querierVlanConfig_(newQuerierVlanConfig(querierVlanConfig())),
      innerQuerierConfig_(Kel::make<KelInnerQuerierConfig>(
          querierVlanConfig() ? querierVlanConfig()->gmpQuerierConfig() : nullptr, this)) {
  handleInitialized();
}

ProxyPortSm::~ProxyPortSm() {
  handleCleanup();
  if (keeperOf(igmpHost_) == this) keepers().erase(igmpHost_.get());
  ProxyPortSm::kelDoZombieReactors(true);
  ProxyPortSm::hasNotificationActiveIs(false);
}

Kel::Ptr<ProxyPortSm::KelQuerierVlanConfig> ProxyPortSm::newQuerierVlanConfig(
    Kel::Ptr<Igmp::QuerierConfig const> config) {
  return Kel::make<KelQuerierVlanConfig>(std::move(config), this);
}

void ProxyPortSm::requireConstructedWith(Parameters const& asked) const {
  Kel::requireEqual("vlanId", asked.vlanId, vlanId());
  Kel::requireEqual("querierVlanConfig", asked.querierVlanConfig, querierVlanConfig());
  Kel::requireEqual("igmpHostDir", asked.igmpHostDir, igmpHostDir());
  Kel::requireEqual("kernelIntfStatusDir", asked.kernelIntfStatusDir, kernelIntfStatusDir());
  Kel::requireEqual("pamManager", asked.pamManager, pamManager());
  Kel::requireEqual("portVlanMap", asked.portVlanMap, portVlanMap());
  Kel::requireEqual("timerWheel", asked.timerWheel, timerWheel());
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
  KEL_TRACE(8, handler << "ProxyPortSm::handleInitialized() " << vlanId());
  KEL_ASSERT(querierVlanConfig(), "querierVlanConfig()");
  KEL_ASSERT(querierVlanConfig()->gmpQuerierConfig(), "querierVlanConfig()->gmpQuerierConfig()");
  auto const hostName = "Vlan" + querierVlanConfig()->name().stringValue() + intfId_.stringValue();
  PortKey key;
  key.handleInit(hostName);
  KEL_ASSERT(key.intfId() == intfId_, "portKey().intfId() == intfId()");
  portKeyIs(key);
  auto const* const formerKeeper = keeperOf(igmpHostDir()->igmpHost(hostName));
  // Whoever hears of a new entry may remove it while it has no VLAN.
  Kel::Ptr<PortVlanMapping::PortVlanInfo> portInfo;
  do {
    portInfo = portVlanMap()->portInfoIs(intfId_);
    portInfo->vlanIs(vlanId(), true);
  } while (portVlanMap()->portInfo(intfId_) != portInfo);
  KEL_TRACE(8, handler << "ProxyPortSm::handleInitialized() Creating querier config " << hostName);
  igmpHostIs(igmpHostDir()->igmpHostIs(key.hostName()));  // what looks it up has the same text
  // Whoever heard of the host may have started another proxy, whose machine keeps it then.
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
  write(&IgmpHost::vlanIdIs, vlanId().value());
  write(&IgmpHost::useMuxIs, false);
  write(&IgmpHost::taggedIs, false);
  write(&IgmpHost::externalPamIs, true);
  updateHostPam();
  if (auto const protocolConfig = querierVlanConfig()->gmpQuerierConfig())
    write(&IgmpHost::igmpVersionIs, protocolConfig->querierVersion());
  write(&IgmpHost::deviceNameIs,
        kernelIntfStatusDir()->intfStatusAndDeviceName(intfId_).deviceName);
  write(&IgmpHost::enabledIs, true);
  // Also when the host was there before: these tell the host library to look at it again.
  write(&IgmpHost::configVersionIs, igmpHost_->configVersion() + 1);
  write(&IgmpHost::intfConfigVersionIs, igmpHost_->intfConfigVersion() + 1);
}

void ProxyPortSm::updateHostPam() {
  Kel::Ptr<ProxyPortSm> const self(this);
  auto const always = [] { return true; };
  for (Decisions<IntfId>::Rounds rounds(pamDecisions_, intfId_, always); rounds.next();) {
    KEL_TRACE(7, handler << "ProxyPortSm::updateHostPam() " << vlanId() << ' ' << intfId_);
    if (pamManager()->multiplexer(intfId_)) {
      KEL_TRACE(7, "Creating Vlan Pam for " << portKey_);
      write(&Igmp::IgmpHost::pamIs, pamManager()->portVlanPamIs(portKey_));
    } else {
      KEL_TRACE(7, "Deleting VlanPam");
      write(&Igmp::IgmpHost::pamIs, nullptr);
    }
  }
}

bool ProxyPortSm::isHostPamInStep() const {
  auto const reachable =
      pamManager()->multiplexer(intfId_) ? pamManager()->portVlanPam(portKey_) : nullptr;
  return igmpHost_->pam() == reachable || !keeps(igmpHost_);
}

// The next two look the host up by its name: whatever host has the name is the port's.

void ProxyPortSm::handleBlocked() {
  KEL_TRACE(8, handler << "ProxyPortSm::handleBlocked() " << vlanId() << ' ' << intfId_);
  if (auto const host = igmpHostDir()->igmpHost(portKey_.hostName())) host->blockedIs(blocked_);
}

void ProxyPortSm::handleDirection() {
  KEL_TRACE(8, handler << "ProxyPortSm::handleDirection() " << vlanId() << ' ' << intfId_);
  if (auto const host = igmpHostDir()->igmpHost(portKey_.hostName())) host->directionIs(direction_);
}

// Reads through the querier's configuration, so it must not follow a protocol configuration that
// was taken away: the host then keeps its version.
void ProxyPortSm::handleIgmpVersion() {
  KEL_TRACE(9, portKey_ << ':' << handler << "ProxyPortSm::handleIgmpVersion()");
  if (igmpHost_ && querierVlanConfig() && querierVlanConfig()->gmpQuerierConfig())
    write(&Igmp::IgmpHost::igmpVersionIs,
          querierVlanConfig()->gmpQuerierConfig()->querierVersion());
}

void ProxyPortSm::handleCleanup() {
  KEL_TRACE(9, portKey_ << ':' << handler << "ProxyPortSm::handleCleanup()");
  if (!initialized()) return;
  // Who keeps the host has the rest of the port too. Each step may make that another machine.
  auto const isOwn = [this] {
    auto const host = igmpHostDir()->igmpHost(portKey_.hostName());
    return !host || keeps(host);
  };
  if (isOwn()) igmpHostDir()->igmpHostDel(portKey_.hostName());
  if (isOwn()) pamManager()->portVlanPamDel(portKey_);
  if (!isOwn()) return;
  if (auto const portInfo = portVlanMap()->portInfo(intfId_)) portInfo->vlanDel(vlanId());
  if (auto const portInfo = portVlanMap()->portInfo(intfId_); portInfo && portInfo->vlan().empty())
    portVlanMap()->portInfoDel(intfId_);
}

}  // namespace Bridging::IgmpSnooping::Proxy
