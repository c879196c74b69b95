#include "agent/Switch.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "agent/Reconfiguration.h"
#include "framework/kel/Activity.h"
#include "framework/types/PortKey.h"

namespace Agent {

using Bridging::VlanId;
using Bridging::IgmpSnooping::QuerierSettings;
using Bridging::IgmpSnooping::RouterPort;
using Bridging::IgmpSnooping::RouterPorts;
using Bridging::IgmpSnooping::SnoopedPort;
using Bridging::IgmpSnooping::SnoopedVlan;
using Bridging::IgmpSnooping::SnoopingPamManager;
using Bridging::IgmpSnooping::SnoopingPolicy;
using Bridging::IgmpSnooping::Proxy::PortKey;
using Bridging::IgmpSnooping::Proxy::ProxySm;
using Wirex::IntfId;

namespace {

SnoopingPolicy policyOf(SnoopingSettings const& settings) {
  SnoopingPolicy policy;
  policy.robustnessVariable = settings.robustnessVariable;
  policy.queryInterval = settings.queryInterval;
  policy.queryMaxResponseTime = settings.queryMaxResponseTime;
  policy.lastMemberQueryInterval = settings.lastMemberQueryInterval;
  policy.fastLeave = settings.fastLeave;
  policy.receive.requireRouterAlert = settings.requireRouterAlert;
  policy.ssmRange = settings.ssmRange;
  policy.maxGroups = settings.maxGroups;
  policy.maxInterfaceGroups = settings.maxInterfaceGroups;
  policy.maxInterfaceMemberships = settings.maxInterfaceMemberships;
  policy.maxGroupSources = settings.maxGroupSources;
  policy.maxInterfaceSources = settings.maxInterfaceSources;
  return policy;
}

/// The port's VLANs as they are now, for loops that change them.
Kel::KeySnapshot<VlanId> vlansOf(SnoopedPort const& port) {
  return Kel::KeySnapshot<VlanId>(port.vlan());
}

Kel::Ptr<ProxySm> proxyOf(SwitchEntities const& entities,
                          Kel::Ptr<Horix::TimerWheel> const& timerWheel) {
  return Bridging::IgmpSnooping::Proxy::proxySmFactory(
      entities.snoopingConfig, entities.topology, entities.privateVlans, entities.desiredIntfs,
      entities.queriers, entities.hosts, entities.kernelIntfs, entities.bridging,
      entities.snoopingStatus, timerWheel);
}

}  // namespace

Switch::Switch(Configuration configuration, Horix::EventLoop& loop)
    : loop_(loop),
      proxy_(proxyOf(entities_, loop.timerWheel())),
      // With the proxy's own settings, so that each device is opened once for both.
      snooping_(Kel::make<SnoopingPamManager>(entities_.bridging, entities_.kernelIntfs,
                                              proxy_->pamManager()->ethDevPamMgr()->settings())),
      hostWatch_(Kel::make<HostWatch>(entities_.hosts,
                                      [this](Igmp::IgmpHost& host) { configureHost(host); })) {
  configurationIs(std::move(configuration));
  loop_.afterBatchIs([this] { publish(); });
}

Switch::~Switch() {
  loop_.afterBatchIs(nullptr);
}

void Switch::configurationIs(Configuration configuration) {
  // Adapters that stay hear in the middle what is written so far, and cannot be told again of what
  // ports exclude once that has changed.
  batch_.settle();
  configuration_ = std::move(configuration);
  interfaces_.clear();
  for (InterfaceConfig const& interface : configuration_.interfaces)
    interfaces_.emplace(interface.intfId, &interface);
  vlans_.clear();
  for (VlanConfig const& vlan : configuration_.vlans) vlans_.emplace(vlan.vlanId, &vlan);

  Adapters const former = adapters();
  Reconfiguration change(entities_, configuration_);
  change.stopProxying();
  removePorts();
  removeVlans();
  change.removeVlansAndPorts();
  change.addVlansAndPorts();
  addVlans();
  addPorts();
  change.startProxying();
  tellNewAdapters(former);
  for (InterfaceConfig const& interface : configuration_.interfaces) handleInterface(interface);
}

InterfaceState Switch::interfaceState(IntfId const& intf) const {
  auto const known = interfaceState_.find(intf);
  return known == interfaceState_.end() ? InterfaceState() : known->second;
}

void Switch::interfaceStateIs(IntfId const& intf, InterfaceState const& state) {
  if (state == interfaceState(intf)) return;
  if (state.present)
    interfaceState_[intf] = state;
  else
    interfaceState_.erase(intf);
  auto const interface = interfaces_.find(intf);
  if (interface != interfaces_.end()) handleInterface(*interface->second);
}

void Switch::forgetDeafPorts() {
  for (auto const& [intf, config] : interfaces_)
    if (auto& port = *snooping_->port(intf); !port.receives()) port.forget();
}

void Switch::endTakingOver() {
  loop_.endBatch();
  proxy_->igmpHostDirSm()->memoryDelAll();
  for (auto& [vlan, learning] : learning_) learning.querier.askedBeforeDelAll();
}

void Switch::leave() {
  // Without it, a host that the proxy still makes gets no MAC address, and so sends nothing.
  hostWatch_ = nullptr;
  for (Kel::Name const& name : entities_.hosts->igmpHost().keys())
    if (auto const host = entities_.hosts->igmpHost(name)) host->enabledIs(false);
}

bool Switch::blocked(InterfaceConfig const& interface) const {
  return interface.blocked || !interfaceState(interface.intfId).operational();
}

bool Switch::receives(InterfaceConfig const& interface) const {
  return !blocked(interface) && allowsIngress(interface.direction);
}

bool Switch::sends(InterfaceConfig const& interface) const {
  return !blocked(interface) && allowsEgress(interface.direction);
}

RouterPort Switch::routerPort(VlanId vlan, IntfId const& intf) const {
  RouterPorts const* const ports = routerPorts(vlan);
  return ports ? ports->routerPort().get(intf) : RouterPort();
}

std::optional<VlanId> Switch::learnedIn(VlanId vlan) const {
  auto const config = vlans_.find(vlan);
  return config == vlans_.end() ? std::nullopt : std::optional(config->second->learningVlan());
}

Switch::VlanLearning* Switch::learning(VlanId vlan) {
  auto const primary = learnedIn(vlan);
  return primary ? &learning_.at(*primary).learning : nullptr;
}

Switch::VlanLearning const* Switch::learning(VlanId vlan) const {
  auto const primary = learnedIn(vlan);
  return primary ? &learning_.at(*primary).learning : nullptr;
}

Switch::VlanQuerier const* Switch::querier(VlanId vlan) const {
  auto const primary = learnedIn(vlan);
  return primary ? &learning_.at(*primary).querier : nullptr;
}

Switch::VlanQuerier* Switch::querier(VlanId vlan) {
  auto const primary = learnedIn(vlan);
  return primary ? &learning_.at(*primary).querier : nullptr;
}

RouterPorts const* Switch::routerPorts(VlanId vlan) const {
  auto const found = routers_.find(vlan);
  return found == routers_.end() ? nullptr : found->second.routerPorts().get();
}

Switch::VlanRouters* Switch::routers(VlanId vlan) {
  auto const found = routers_.find(vlan);
  return found == routers_.end() ? nullptr : &found->second;
}

Switch::Learning::Learning(Kel::Ptr<Bridging::IgmpSnooping::IgmpContextStatus> const& status,
                           VlanConfig const& vlan, Horix::EventLoop const& loop,
                           Bridging::IgmpSnooping::ReportBatch& batch)
    : learning(status, policyOf(vlan.settings), loop.timerWheel(), batch),
      querier(learning, loop.timerWheel()) {}

/// Whether the port is to be in a VLAN as it is now: learning goes with the primary VLAN.
bool Switch::hears(SnoopedPort const& port, VlanId vlan) const {
  auto const config = vlans_.find(vlan);
  if (config == vlans_.end()) return false;
  return config->second->member(port.intfId()) &&
         port.vlan().find(vlan)->learning->vlanId() == learnedIn(vlan);
}

void Switch::removePorts() {
  std::vector<IntfId> gone;
  for (auto const& [intf, port] : snooping_->port()) {
    for (VlanId const vlan : vlansOf(port)) {
      if (hears(port, vlan)) continue;
      routers_.at(vlan).configuredIs(intf, false);
      snooping_->vlanDel(intf, vlan);
    }
    if (!interfaces_.contains(intf)) gone.push_back(intf);
  }
  for (IntfId const& intf : gone) snooping_->portDel(intf);
}

void Switch::removeVlans() {
  std::erase_if(learning_, [this](auto const& each) {
    auto const vlan = vlans_.find(each.first);
    return vlan == vlans_.end() || vlan->second->isSecondary();
  });
  for (auto routers = routers_.begin(); routers != routers_.end();) {
    VlanId const vlan = routers->first;
    if (vlans_.contains(vlan)) {
      ++routers;
      continue;
    }
    hostWatch_->routerPortsDel(vlan);
    routers = routers_.erase(routers);
  }
}

void Switch::addVlans() {
  for (VlanConfig const& vlan : configuration_.vlans) {
    auto const [routers, isNew] =
        routers_.try_emplace(vlan.vlanId, Kel::make<RouterPorts>(vlan.vlanId), loop_.timerWheel());
    if (isNew) hostWatch_->routerPortsIs(routers->second.routerPorts());
    for (VlanMember const& member : vlan.members)
      routers->second.configuredIs(member.intfId, member.staticMrouter);
    if (vlan.isSecondary()) continue;
    Learning& learning =
        learning_
            .try_emplace(vlan.vlanId, entities_.snoopingStatus->contextStatus(vlan.vlanId), vlan,
                         loop_, batch_)
            .first->second;
    learning.learning.onLimitIs([this](LimitReached const& limit) { onLimit_(limit); });
    learning.querier.onOtherVersionIs(
        [this](OtherVersion const& other) { onOtherVersion_(other); });
    learning.querier.onElectionIs([this](VlanQuerier const& querier) { onElection_(querier); });
    learning.querier.onSentIs(
        [this](VlanId in, Igmp::Query const& query) { routers_.at(in).queries()->sent(query); });
    learning.querier.settingsIs(querierSettings(vlan), policyOf(vlan.settings));
  }
}

QuerierSettings Switch::querierSettings(VlanConfig const& vlan) const {
  QuerierSettings settings;
  settings.sendsQueries = vlan.settings.sendQuery;
  settings.version = vlan.querierVersion.value_or(settings.version);
  // The querier has one address on all ports: that of the first member that has one.
  for (VlanMember const& member : vlan.members)
    if (settings.source == Wirex::IpAddr())
      settings.source = ownAddress_(vlan.vlanId, member.intfId);
  settings.source = vlan.settings.querierSource.value_or(settings.source);
  return settings;
}

void Switch::ownAddressesAre(OwnAddress ownAddress) {
  ownAddress_ = std::move(ownAddress);
  for (VlanConfig const& vlan : configuration_.vlans)
    if (!vlan.isSecondary())
      learning_.at(vlan.vlanId).querier.settingsIs(querierSettings(vlan), policyOf(vlan.settings));
  for (Kel::Name const& name : entities_.hosts->igmpHost().keys())
    if (auto const host = entities_.hosts->igmpHost(name)) configureHost(*host);
}

void Switch::addPorts() {
  for (InterfaceConfig const& interface : configuration_.interfaces)
    snooping_->portIs(interface.intfId);
  for (VlanConfig const& vlan : configuration_.vlans) {
    Learning& learning = learning_.at(vlan.learningVlan());
    SnoopedVlan const snooped{&learning.learning, &routers_.at(vlan.vlanId), &learning.querier};
    for (VlanMember const& member : vlan.members)
      if (!snooping_->port(member.intfId)->vlan().contains(vlan.vlanId))
        snooping_->vlanIs(member.intfId, vlan.vlanId, snooped);
  }
}

Switch::Adapters Switch::adapters() const {
  Adapters adapters;
  for (auto const& [vlan, learning] : learning_) adapters.emplace(vlan, proxy_->adapterSm(vlan));
  return adapters;
}

/// A new adapter takes each reporter for one that wants every source until that reporter changes.
/// So all that is known is told once more.
void Switch::tellNewAdapters(Adapters const& former) {
  Kel::runActivities();
  for (auto const& [vlan, adapter] : adapters()) {
    auto const known = former.find(vlan);
    if (!adapter || (known != former.end() && known->second == adapter)) continue;
    learning_.at(vlan).learning.repeat();
  }
  Kel::runActivities();
}

/// Passes on what is known of an interface and what is configured of it.
void Switch::handleInterface(InterfaceConfig const& interface) {
  IntfId const& intf = interface.intfId;
  InterfaceState const state = interfaceState(intf);
  auto& port = *snooping_->port(intf);
  bool const goesDeaf = port.receives() && !receives(interface);
  port.receivesIs(receives(interface));
  port.querierAllowedIs(interface.querierAllowed);
  port.routerAllowedIs(interface.routerAllowed);
  // A port stops sending before anything else of it changes, and begins to send last, because it
  // sends a query at once.
  if (!sends(interface)) port.sendsIs(false);
  port.macAddressIs(state.macAddress);
  port.mtuIs(state.mtu);
  port.sendsIs(sends(interface));
  // A blocked port is told first, so that its host goes without sending leaves.
  if (blocked(interface)) tellTopology(interface);
  if (state.present)
    entities_.kernelIntfs->intfStatusAndDeviceNameIs(intf, {intf.stringValue(), state.kernelIndex});
  else
    entities_.kernelIntfs->intfStatusAndDeviceNameDel(intf);
  // The proxy makes a port's host when the kernel has the interface, so this comes after it.
  tellTopology(interface);
  if (goesDeaf) port.forget();
}

void Switch::tellTopology(InterfaceConfig const& interface) {
  IntfId const& intf = interface.intfId;
  for (VlanId const vlan : vlansOf(*snooping_->port(intf))) {
    auto const topoPort = entities_.topology->topoVlan(vlan)->port(intf);
    topoPort->blockedIs(blocked(interface));
    topoPort->allowedTrafficDirectionIs(interface.direction);
    if (auto const host = entities_.hosts->igmpHost(PortKey(vlan, intf).hostName()))
      configureHost(*host);
  }
}

void Switch::configureHost(Igmp::IgmpHost& host) {
  if (!hostWatch_) return;  // leaving
  auto const vlan = vlans_.find(VlanId(host.vlanId()));
  if (vlan == vlans_.end()) return;
  IntfId const& intf = host.intfId();

  // A port's machine hears of changes only: a new one does not know these two yet.
  auto const interface = interfaces_.find(intf);
  auto const vlanSm = proxy_->vlanSm(vlan->first);
  auto const portSm = vlanSm ? vlanSm->portSm(intf) : nullptr;
  if (portSm && interface != interfaces_.end()) {
    portSm->blockedIs(blocked(*interface->second));
    portSm->directionIs(interface->second->direction);
  }

  SnoopingSettings const& configured = vlan->second->settings;
  InterfaceState const state = interfaceState(intf);
  Igmp::HostSettings settings;
  settings.macAddress = state.macAddress;
  settings.mtu = state.mtu;
  settings.sourceAddress = configured.senderSourceAddress ? *configured.senderSourceAddress
                                                          : ownAddress_(vlan->first, intf);
  settings.robustnessVariable = static_cast<std::uint8_t>(configured.robustnessVariable);
  settings.requireRouterAlert = configured.requireRouterAlert;
  if (interface != interfaces_.end()) settings.hearsQueries = interface->second->querierAllowed;
  bool const reportsOnAll = configured.reportOn == ReportOn::all;
  RouterPort const routerPort = this->routerPort(vlan->first, intf);
  bool const isRouterPort = routerPort != RouterPort();
  settings.reportsUnasked = reportsOnAll || isRouterPort;
  settings.reportsSinceQuery = !reportsOnAll && routerPort.isByQuery();
  host.vlanQueriesIs(isRouterPort ? routers_.at(vlan->first).queries() : nullptr);
  host.settingsIs(settings);
}

void Switch::publish() {
  batch_.publish();
  // An action may remove itself.
  for (auto next = afterPublish_.begin(); next != afterPublish_.end();) {
    auto const action = (next++)->second;
    action();
  }
}

void Switch::afterPublishIs(void const* who, std::function<void()> action) {
  if (action)
    afterPublish_.insert_or_assign(who, std::move(action));
  else
    afterPublish_.erase(who);
}

}  // namespace Agent
