#include "tests/proxy/random/ProxyDriver.h"

#include <charconv>
#include <sstream>
#include <string_view>
#include <utility>

namespace Bridging::IgmpSnooping::Proxy::Random {

namespace {

using What = Change::What;
using FilterMode = Gmp::Igmp::IgmpFilterMode;

// --- Numbers and what they stand for

VlanId vlanId(int vlan) {
  return VlanId(static_cast<std::uint16_t>(vlan));
}
Kel::Name querierName(int vlan) {
  return Kel::format("%d", vlan);
}
Wirex::IntfId interface(int port) {
  return Wirex::IntfId(Kel::format("swp%d", port));
}
Wirex::IpAddr address(std::uint8_t network, int number) {
  return {network, 1, 1, static_cast<std::uint8_t>(number)};
}
Wirex::IpAddr groupAddress(int group) {
  return address(239, group);
}
Wirex::IpAddr reporterAddress(int reporter) {
  return address(10, reporter);
}
Wirex::IpAddr sourceAddress(int source) {
  return address(192, source);
}
Igmp::IgmpVersion version(int number) {
  return static_cast<Igmp::IgmpVersion>(number);
}
AllowedTrafficDirection direction(int number) {
  return static_cast<AllowedTrafficDirection>(number);
}
VlanTypeAndPrimaryVlan privateVlan(Role const& role) {
  return {static_cast<VlanType>(role.type), vlanId(role.primary)};
}
FilterMode filterMode(bool excludes) {
  return excludes ? FilterMode::exclude : FilterMode::include;
}

/// Two ports may have each other's device names, one after the other.
Device device(int port, int number) {
  if (number == 0) return {};
  return {"eth" + std::to_string(port + number), static_cast<std::uint32_t>(100 * port + number)};
}

int number(VlanId vlan) {
  return vlan.value();
}
int number(Wirex::IpAddr const& address) {
  return static_cast<int>(address.value() & 0xff);
}
int number(Wirex::IntfId const& intf) {
  std::string_view const digits = intf.stringValue().view().substr(3);
  int port = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), port);
  return port;
}
HostKey number(PortKey const& key) {
  return {number(key.vlanId()), number(key.intfId())};
}

template <class Collection, class Key>
void readOrder(Collection const& collection, std::vector<Key>& order) {
  order.clear();
  for (auto const& entry : collection) order.push_back(number(entry.key));
}

Model::HostPicture records(Igmp::IgmpHost const& host) {
  Model::HostPicture records;
  for (auto const& [group, record] : host.v3group()) {
    auto& picture = records[number(group)];
    picture.type = static_cast<int>(record->filterMode());
    if (!record->source()) continue;
    picture.sources.emplace();
    for (auto const [source, value] : record->source()->sourceIp())
      picture.sources->emplace(number(source), value);
  }
  return records;
}

Model::Place place(Change const& change) {
  return {change.group, change.port, change.reporter};
}

}  // namespace

ProxyDriver::ProxyDriver(Perturbation perturbation)
    : perturbation_(perturbation),
      protocolConfig_(Kel::make<IgmpProtocolConfig>()),
      topoVlanState_(Kel::make<Topology::Library::Vlan::LibVlanState>()),
      pVlanLib_(Kel::make<PrivateVlanLib::LibState>()),
      pamDesiredIntfDir_(Kel::make<Interface::PamDesiredIntfDir>("system")),
      querierConfigDir_(Kel::make<Igmp::QuerierConfigDir>()),
      igmpHostDir_(Kel::make<Igmp::IgmpHostDir>()),
      kernelIntfStatusDir_(Kel::make<Interface::DeviceIntfStatusDir>()),
      bridgingConfig_(Kel::make<Bridging::Config>()),
      coreStatusDir_(Kel::make<IgmpProtocolStatus>()),
      timerWheel_(Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>())) {}

ProxyDriver::~ProxyDriver() = default;

bool ProxyDriver::apply(Change const& change) {
  latestDifference_.clear();
  switch (change.what) {
    case What::vlanPrepared:
    case What::vlanForgotten:
    case What::contextAdded:
    case What::contextRemoved:
    case What::proxyingSet:
    case What::roleSet:
    case What::roleRemoved:
    case What::vlanRaised:
      return applyToVlan(change);
    case What::querierAdded:
    case What::querierRemoved:
    case What::querierVersionSet:
    case What::querierProtocolReplaced:
    case What::formerProtocolChanged:
      return applyToQuerier(change);
    case What::portJoined:
    case What::portLeft:
    case What::portReplaced:
    case What::portPutBack:
    case What::portBlocked:
    case What::portDirected:
    case What::removedPortChanged:
    case What::portRaised:
      return isPrepared(change.vlan) && applyToTopoPort(change);
    case What::deviceSet:
    case What::deviceRemoved:
    case What::deviceRaised:
    case What::desiredSet:
    case What::desiredRemoved:
    case What::taggedSet:
    case What::taggedRemoved:
      return applyToPort(change);
    case What::listenerReports:
      return listenerReports(change);
    case What::listenerLeaves:
      return listenerLeaves(change);
    case What::reportRaised:
      if (isPrepared(change.vlan)) raiseReport(change.vlan);
      return isPrepared(change.vlan);
    case What::proxyDropped:
      return dropProxy();
    case What::proxyMade:
      return makeProxy();
  }
  return false;
}

// --- VLANs

bool ProxyDriver::applyToVlan(Change const& change) {
  int const vlan = change.vlan;
  auto& contexts = inputs_.contexts;
  auto const context = protocolConfig_->contextConfig(vlanId(vlan));
  switch (change.what) {
    case What::vlanPrepared:
      return prepareVlan(vlan);
    case What::vlanForgotten:
      return forgetVlan(vlan);
    case What::contextAdded:
      if (context || !isPrepared(vlan)) return false;
      protocolConfig_->contextConfigIs(vlanId(vlan));
      contexts.at[vlan] = false;
      break;
    case What::contextRemoved:
      if (!context) return false;
      protocolConfig_->contextConfigDel(vlanId(vlan));
      contexts.at.erase(vlan);
      break;
    case What::proxyingSet:
      if (!context || contexts.at[vlan] == change.on) return false;
      context->proxyEnabledIs(change.on);
      contexts.at[vlan] = change.on;
      break;
    case What::roleSet:
      return setRole(change);
    case What::roleRemoved:
      return removeRole(vlan);
    default:
      return raiseVlan(vlan);
  }
  readOrder(protocolConfig_->contextConfig(), contexts.order);
  if (model_) model_->contextChanged(vlan);
  return true;
}

bool ProxyDriver::prepareVlan(int vlan) {
  if (isPrepared(vlan)) return false;
  auto const topology = topoVlanState_->topoVlanIs(vlanId(vlan));
  coreStatusDir_->contextStatusIs(vlanId(vlan));
  inputs_.topologies[vlan] = std::make_shared<VlanTopology>();
  inputs_.topologies[vlan]->serial = newSerial(*topology);
  inputs_.statuses[vlan] = std::make_shared<Model::Status>();
  return true;
}

bool ProxyDriver::forgetVlan(int vlan) {
  if (!isPrepared(vlan) || inputs_.contexts.at.contains(vlan) || inputs_.queriers.contains(vlan))
    return false;
  topoVlanState_->topoVlanDel(vlanId(vlan));
  coreStatusDir_->contextStatusDel(vlanId(vlan));
  inputs_.topologies.erase(vlan);
  inputs_.statuses.erase(vlan);
  return true;
}

bool ProxyDriver::setRole(Change const& change) {
  Role const set{change.type, change.primary};
  auto const present = inputs_.roles.at.find(change.vlan);
  if (present != inputs_.roles.at.end() && present->second == set) return false;
  pVlanLib_->secondaryVlanIs(vlanId(change.vlan), privateVlan(set));
  inputs_.roles.at[change.vlan] = set;
  readOrder(pVlanLib_->secondaryVlan(), inputs_.roles.order);
  if (model_) model_->roleChanged(change.vlan);
  return true;
}

bool ProxyDriver::removeRole(int vlan) {
  if (inputs_.roles.at.erase(vlan) == 0) return false;
  pVlanLib_->secondaryVlanDel(vlanId(vlan));
  readOrder(pVlanLib_->secondaryVlan(), inputs_.roles.order);
  if (model_) model_->roleChanged(vlan);
  return true;
}

bool ProxyDriver::raiseVlan(int vlan) {
  if (inputs_.queriers.contains(vlan) && !isPrepared(vlan)) return false;
  protocolConfig_->contextConfigNotify(vlanId(vlan));
  if (model_) model_->contextChanged(vlan);
  pVlanLib_->secondaryVlanNotify(vlanId(vlan));
  if (model_) model_->roleChanged(vlan);
  querierConfigDir_->querierConfigNotify(querierName(vlan));
  if (model_) model_->querierChanged(vlan);
  return true;
}

// --- Queriers

bool ProxyDriver::applyToQuerier(Change const& change) {
  int const vlan = change.vlan;
  switch (change.what) {
    case What::querierAdded:
      return addQuerier(change);
    case What::querierRemoved:
      return removeQuerier(vlan);
    case What::querierProtocolReplaced:
      return replaceProtocol(change);
    case What::querierVersionSet:
      if (!inputs_.queriers.contains(vlan)) return false;
      protocols_.at(vlan)->querierVersionIs(version(change.version));
      inputs_.queriers[vlan]->protocol->version = change.version;
      if (model_) model_->protocolChanged(vlan);
      return true;
    default:
      if (!formerProtocols_.contains(vlan)) return false;
      formerProtocols_.at(vlan)->querierVersionIs(version(change.version));
      if (model_) model_->formerProtocolChanged(vlan, change.version);
      return true;
  }
}

bool ProxyDriver::addQuerier(Change const& change) {
  int const vlan = change.vlan;
  if (!isPrepared(vlan) || inputs_.queriers.contains(vlan)) return false;
  auto const protocol = Kel::make<RealProtocol>();
  protocol->querierVersionIs(version(change.version));
  protocols_[vlan] = protocol;
  auto const twin = std::make_shared<Querier>();
  twin->protocol = std::make_shared<Protocol>();
  twin->protocol->version = change.version;
  inputs_.queriers[vlan] = twin;
  querierConfigDir_->querierConfigIs(querierName(vlan), protocol);
  twin->serial = newSerial(*querierConfigDir_->querierConfig(querierName(vlan)));
  if (model_) model_->querierChanged(vlan);
  return true;
}

bool ProxyDriver::removeQuerier(int vlan) {
  if (inputs_.queriers.erase(vlan) == 0) return false;
  querierConfigDir_->querierConfigDel(querierName(vlan));
  protocols_.erase(vlan);
  if (model_) model_->querierChanged(vlan);
  return true;
}

bool ProxyDriver::replaceProtocol(Change const& change) {
  int const vlan = change.vlan;
  if (!inputs_.queriers.contains(vlan)) return false;
  auto const protocol = Kel::make<RealProtocol>();
  protocol->querierVersionIs(version(change.version));
  auto const querier = querierConfigDir_->querierConfig(querierName(vlan));
  if (change.on) {
    querier->gmpQuerierConfigIs(nullptr);
    if (model_) latestDifference_ = difference();  // the hosts keep their version
  }
  querier->gmpQuerierConfigIs(protocol);
  formerProtocols_[vlan] = std::exchange(protocols_[vlan], protocol);
  inputs_.queriers[vlan]->protocol = std::make_shared<Protocol>();
  inputs_.queriers[vlan]->protocol->version = change.version;
  if (model_) model_->protocolChanged(vlan);
  return true;
}

// --- Ports of the topology

bool ProxyDriver::applyToTopoPort(Change const& change) {
  HostKey const key{change.vlan, change.port};
  auto const topology = topoVlanState_->topoVlan(vlanId(change.vlan));
  switch (change.what) {
    case What::portJoined: {
      if (topoPort(change)) return false;
      auto const twin = std::make_shared<TopoPort>();
      inputs_.topologies[change.vlan]->ports.at[change.port] = twin;
      twin->serial = newSerial(*topology->portIs(interface(change.port)));
      topoPortWasChanged(change);
      return true;
    }
    case What::portLeft:
      return removeTopoPort(change);
    case What::portReplaced: {
      auto const port = Kel::make<RealPort>(interface(change.port));
      port->blockedIs(change.on);
      port->allowedTrafficDirectionIs(direction(change.direction));
      auto const twin = std::make_shared<TopoPort>();
      *twin = {newSerial(*port), change.on, change.direction};
      return putTopoPort(change, {port, twin});
    }
    case What::portPutBack: {
      auto const removed = removedPorts_.find(key);
      if (removed == removedPorts_.end()) return false;
      RemovedPort const put = removed->second;
      removedPorts_.erase(removed);
      return putTopoPort(change, put);
    }
    case What::portBlocked:
    case What::portDirected:
      return setTopoPort(change);
    case What::removedPortChanged: {
      auto const removed = removedPorts_.find(key);
      if (removed == removedPorts_.end()) return false;
      removed->second.real->blockedIs(change.on);
      removed->second.real->allowedTrafficDirectionIs(direction(change.direction));
      removed->second.twin->blocked = change.on;
      removed->second.twin->direction = change.direction;
      return true;
    }
    default:
      if (change.on)
        topology->portNotify();
      else
        topology->portNotify(interface(change.port));
      if (model_ && !change.on) model_->topoPortChanged(change.vlan, change.port);
      return true;
  }
}

Kel::Ptr<ProxyDriver::RealPort> ProxyDriver::topoPort(Change const& change) const {
  return topoVlanState_->topoVlan(vlanId(change.vlan))->port(interface(change.port));
}

std::shared_ptr<TopoPort> ProxyDriver::topoPortTwin(Change const& change) const {
  return inputs_.topologies.at(change.vlan)->ports.find(change.port);
}

void ProxyDriver::keepRemoved(Change const& change) {
  if (auto const port = topoPort(change))
    removedPorts_[{change.vlan, change.port}] = {port, topoPortTwin(change)};
}

bool ProxyDriver::putTopoPort(Change const& change, RemovedPort const& put) {
  keepRemoved(change);
  topoVlanState_->topoVlan(vlanId(change.vlan))->portIs(put.real);
  inputs_.topologies[change.vlan]->ports.at[change.port] = put.twin;
  topoPortWasChanged(change);
  return true;
}

bool ProxyDriver::removeTopoPort(Change const& change) {
  if (!topoPort(change)) return false;
  keepRemoved(change);
  topoVlanState_->topoVlan(vlanId(change.vlan))->portDel(interface(change.port));
  inputs_.topologies[change.vlan]->ports.at.erase(change.port);
  topoPortWasChanged(change);
  return true;
}

void ProxyDriver::topoPortWasChanged(Change const& change) {
  if (model_) model_->topoPortChanged(change.vlan, change.port);
}

bool ProxyDriver::setTopoPort(Change const& change) {
  auto const port = topoPort(change);
  if (!port) return false;
  auto const twin = topoPortTwin(change);
  if (change.what == What::portBlocked) {
    if (twin->blocked == change.on) return false;
    port->blockedIs(change.on);
    twin->blocked = change.on;
    if (model_) model_->topoPortBlockedChanged(*twin);
  } else {
    if (twin->direction == change.direction) return false;
    port->allowedTrafficDirectionIs(direction(change.direction));
    twin->direction = change.direction;
    if (model_) model_->topoPortDirectionChanged(*twin);
  }
  return true;
}

// --- Interfaces of the system

bool ProxyDriver::applyToPort(Change const& change) {
  auto const intf = interface(change.port);
  switch (change.what) {
    case What::deviceSet:
      return setDevice(change);
    case What::deviceRemoved:
      if (inputs_.devices.erase(change.port) == 0) return false;
      kernelIntfStatusDir_->intfStatusAndDeviceNameDel(intf);
      if (model_) model_->deviceChanged(change.port);
      return true;
    case What::deviceRaised:
      if (change.on)
        kernelIntfStatusDir_->intfStatusAndDeviceNameNotify();
      else
        kernelIntfStatusDir_->intfStatusAndDeviceNameNotify(intf);
      if (model_ && !change.on) model_->deviceChanged(change.port);
      return true;
    case What::desiredSet:
      pamDesiredIntfDir_->intfDesiredIs(intf, change.on);
      inputs_.desired[change.port] = change.on;
      return true;
    case What::desiredRemoved:
      pamDesiredIntfDir_->intfDesiredDel(intf);
      return inputs_.desired.erase(change.port) != 0;
    case What::taggedSet:
      return setTagged(change);
    default:
      return removeTagged(change);
  }
}

bool ProxyDriver::setDevice(Change const& change) {
  Device const set = device(change.port, change.device);
  auto const present = inputs_.devices.find(change.port);
  if (present != inputs_.devices.end() && present->second == set) return false;
  kernelIntfStatusDir_->intfStatusAndDeviceNameIs(interface(change.port),
                                                  {set.name.c_str(), set.index});
  inputs_.devices[change.port] = set;
  if (model_) model_->deviceChanged(change.port);
  return true;
}

bool ProxyDriver::setTagged(Change const& change) {
  auto const vlan = bridgingConfig_->vlanConfigIs(vlanId(change.vlan));
  vlan->intfConfigIs(interface(change.port))->taggedIs(change.on);
  inputs_.tagged[{change.vlan, change.port}] = change.on;
  return true;
}

bool ProxyDriver::removeTagged(Change const& change) {
  if (inputs_.tagged.erase({change.vlan, change.port}) == 0) return false;
  auto const vlan = bridgingConfig_->vlanConfig(vlanId(change.vlan));
  if (vlan->intfConfig().size() == 1)
    bridgingConfig_->vlanConfigDel(vlanId(change.vlan));
  else
    vlan->intfConfigDel(interface(change.port));
  return true;
}

// --- Listeners

/// What is missing is made from the top down, and adapters hear of it, before it says anything.
ProxyDriver::Listener ProxyDriver::listener(Change const& change) {
  auto const status = coreStatusDir_->contextStatus(vlanId(change.vlan));
  auto const statusTwin = inputs_.statuses.at(change.vlan);
  auto* const adapter = model_ ? model_->adapter(change.vlan) : nullptr;

  auto const group = status->groupIs(groupAddress(change.group));
  auto& groupTwin = statusTwin->groups.at[change.group];
  if (!groupTwin) {
    groupTwin = std::make_shared<Model::Group>();
    readOrder(status->group(), statusTwin->groups.order);
    if (adapter) adapter->groupChanged(*statusTwin, change.group);
  }
  auto const port = group->intfIs(interface(change.port));
  auto& portTwin = groupTwin->ports.at[change.port];
  if (!portTwin) {
    portTwin = std::make_shared<Model::Port>();
    readOrder(group->intf(), groupTwin->ports.order);
    if (adapter) adapter->portChanged({change.group}, *groupTwin, change.port);
  }
  auto const membership = port->membershipIs(reporterAddress(change.reporter));
  auto& twin = portTwin->memberships.at[change.reporter];
  if (!twin) {
    twin = std::make_shared<Model::Membership>();
    readOrder(port->membership(), portTwin->memberships.order);
    if (adapter) adapter->reporterChanged({change.group, change.port}, *portTwin, change.reporter);
  }
  runActivities();
  return {membership, twin};
}

bool ProxyDriver::listenerReports(Change const& change) {
  if (!isPrepared(change.vlan)) return false;
  Listener const listener = this->listener(change);
  auto* const adapter = model_ ? model_->adapter(change.vlan) : nullptr;
  if (listener.twin->excludes != change.excludes) {
    listener.real->filterModeIs(filterMode(change.excludes));
    listener.twin->excludes = change.excludes;
    if (adapter) adapter->modeChanged(place(change), *listener.twin);
  }
  std::set<int> const reported(change.sources.begin(), change.sources.end());
  std::set<int> either = reported;
  either.insert(listener.twin->sources.begin(), listener.twin->sources.end());
  for (int const source : either) {
    if (reported.contains(source) == listener.twin->sources.contains(source)) continue;
    if (reported.contains(source)) {
      listener.real->sourceIs(sourceAddress(source));
      listener.twin->sources.insert(source);
    } else {
      listener.real->sourceDel(sourceAddress(source));
      listener.twin->sources.erase(source);
    }
    if (adapter) adapter->sourceChanged(place(change), *listener.twin, source);
  }
  runActivities();
  if (change.on) raiseReport(change.vlan);
  return true;
}

/// Withdraws what it said before it goes; the reporters that stay are looked at again.
bool ProxyDriver::listenerLeaves(Change const& change) {
  if (!isPrepared(change.vlan)) return false;
  auto const statusTwin = inputs_.statuses.at(change.vlan);
  auto const groupTwin = statusTwin->groups.find(change.group);
  auto const portTwin = groupTwin ? groupTwin->ports.find(change.port) : nullptr;
  if (!portTwin || !portTwin->memberships.find(change.reporter)) return false;

  Change withdrawal = change;
  withdrawal.excludes = false;
  withdrawal.sources.clear();
  withdrawal.on = false;
  listenerReports(withdrawal);

  auto const status = coreStatusDir_->contextStatus(vlanId(change.vlan));
  auto const group = status->group(groupAddress(change.group));
  auto const port = group->intf(interface(change.port));
  auto* const adapter = model_ ? model_->adapter(change.vlan) : nullptr;
  port->membershipDel(reporterAddress(change.reporter));
  portTwin->memberships.at.erase(change.reporter);
  readOrder(port->membership(), portTwin->memberships.order);
  if (adapter) adapter->reporterChanged({change.group, change.port}, *portTwin, change.reporter);
  if (port->membership().empty()) {
    group->intfDel(interface(change.port));
    groupTwin->ports.at.erase(change.port);
    readOrder(group->intf(), groupTwin->ports.order);
    if (adapter) adapter->portChanged({change.group}, *groupTwin, change.port);
  }
  if (group->intf().empty()) {
    status->groupDel(groupAddress(change.group));
    statusTwin->groups.at.erase(change.group);
    readOrder(status->group(), statusTwin->groups.order);
    if (adapter) adapter->groupChanged(*statusTwin, change.group);
  }
  runActivities();
  if (!port->membership().empty()) {
    int const first = portTwin->memberships.order.front();
    port->membership(reporterAddress(first))->filterModeNotify();
    if (adapter)
      adapter->modeChanged({change.group, change.port, first}, *portTwin->memberships.find(first));
    runActivities();
  }
  if (change.on) raiseReport(change.vlan);
  return true;
}

void ProxyDriver::raiseReport(int vlan) {
  coreStatusDir_->contextStatus(vlanId(vlan))->newIgmpReportNotify();
  auto* const adapter = model_ ? model_->adapter(vlan) : nullptr;
  if (adapter) adapter->reportRaised(*inputs_.statuses.at(vlan));
}

void ProxyDriver::runActivities() {
  std::size_t const delivered = Kel::runActivities();
  std::size_t const expected = model_ ? model_->runActivities() : 0;
  if (delivered != expected)
    latestDifference_ += "notifications delivered\n  proxy: " + std::to_string(delivered) +
                         "\n  model: " + std::to_string(expected) + '\n';
}

// --- The proxy

bool ProxyDriver::makeProxy() {
  if (model_) return false;
  proxy_ = proxySmFactory(protocolConfig_, topoVlanState_, pVlanLib_, pamDesiredIntfDir_,
                          querierConfigDir_, igmpHostDir_, kernelIntfStatusDir_, bridgingConfig_,
                          coreStatusDir_, timerWheel_);
  model_ = std::make_unique<ProxyModel>(inputs_, perturbation_);
  return true;
}

bool ProxyDriver::dropProxy() {
  if (!model_) return false;
  machinesMadeBefore_ = machinesMade();
  proxy_ = nullptr;
  model_.reset();
  return true;
}

std::size_t ProxyDriver::machinesMade() const {
  return machinesMadeBefore_ + (model_ ? model_->machinesMade() : 0);
}

void ProxyDriver::count(std::size_t& hosts, std::size_t& records) const {
  hosts += igmpHostDir_->igmpHost().size();
  for (auto const& [name, host] : igmpHostDir_->igmpHost()) records += host->v3group().size();
}

/// A proxy that is gone holds and watches nothing any more: the inputs are only where the driver
/// has them.
std::string ProxyDriver::leftovers() const {
  std::ostringstream leftovers;
  auto const mustBeFree = [&](auto const& what, auto const& entity, std::uint32_t references) {
    if (entity.references() != references)
      leftovers << what << " has " << entity.references() << " references instead of " << references
                << '\n';
    if constexpr (requires { entity.watched(); })
      if (entity.watched()) leftovers << what << " is still watched\n";
  };
  mustBeFree("the snooping configuration", *protocolConfig_, 1);
  mustBeFree("the topology", *topoVlanState_, 1);
  mustBeFree("the private VLANs", *pVlanLib_, 1);
  mustBeFree("the desired interfaces", *pamDesiredIntfDir_, 1);
  mustBeFree("the querier directory", *querierConfigDir_, 1);
  mustBeFree("the host directory", *igmpHostDir_, 1);
  mustBeFree("the kernel's interfaces", *kernelIntfStatusDir_, 1);
  mustBeFree("the bridging configuration", *bridgingConfig_, 1);
  mustBeFree("the snooping status", *coreStatusDir_, 1);
  mustBeFree("the timer wheel", *timerWheel_, 1);
  for (auto const& [vlan, entry] : protocolConfig_->contextConfig())
    mustBeFree("an entry", *entry, 1);
  for (auto const& [name, querier] : querierConfigDir_->querierConfig())
    mustBeFree("a querier", *querier, 1);
  for (auto const& [vlan, protocol] : protocols_) mustBeFree("a protocol", *protocol, 2);
  for (auto const& [vlan, protocol] : formerProtocols_)
    mustBeFree("a former protocol", *protocol, 1);
  for (auto const& [vlan, topology] : topoVlanState_->topoVlan()) {
    mustBeFree("a VLAN's topology", *topology, 1);
    for (auto const& [intf, port] : topology->port()) mustBeFree("a port", *port, 1);
  }
  for (auto const& [key, removed] : removedPorts_) mustBeFree("a removed port", *removed.real, 1);
  for (auto const& [vlan, config] : bridgingConfig_->vlanConfig()) {
    mustBeFree("a VLAN's bridging configuration", *config, 1);
    for (auto const& [intf, intfConfig] : config->intfConfig())
      mustBeFree("a port's bridging configuration", *intfConfig, 1);
  }
  for (auto const& [vlan, status] : coreStatusDir_->contextStatus()) {
    mustBeFree("a VLAN's snooping status", *status, 1);
    for (auto const& [address, group] : status->group()) {
      mustBeFree("a group", *group, 1);
      for (auto const& [intf, port] : group->intf()) {
        mustBeFree("a member port", *port, 1);
        for (auto const& [reporter, membership] : port->membership())
          mustBeFree("a membership", *membership, 1);
      }
    }
  }
  for (auto const& [name, host] : igmpHostDir_->igmpHost())
    leftovers << "host " << name << " is still there\n";
  return leftovers.str();
}

// --- Comparison

int ProxyDriver::newSerial(Kel::PtrInterface const& real) {
  return serials_[&real] = ++lastSerial_;
}

int ProxyDriver::serialOf(Kel::PtrInterface const* real) const {
  auto const serial = serials_.find(real);
  return serial == serials_.end() ? 0 : serial->second;
}

KeysPicture ProxyDriver::keysOf(AdapterVlanConfig const& config) const {
  KeysPicture keys;
  for (auto const [key, value] : config.hostKey()) keys.emplace(number(key), value);
  return keys;
}

bool ProxyDriver::sends(Igmp::IgmpHost const& host, PortKey const& key) const {
  auto const& manager = *proxy_->pamManager();
  auto const multiplexer = manager.multiplexer(key.intfId());
  return host.pam() && host.pam() == manager.portVlanPam(key) &&
         host.pam()->vlanId() == key.vlanId() && multiplexer &&
         host.pam()->multiplexer() == multiplexer && multiplexer->vlan().contains(key.vlanId()) &&
         multiplexer->devicePam();
}

HostPicture ProxyDriver::observedHost(Igmp::IgmpHost const& host) const {
  HostPicture picture;
  VlanId const vlan(host.vlanId());
  PortKey const key(vlan, host.intfId());
  auto const machine = proxy_->vlanSm(vlan);
  auto const portMachine = machine ? machine->portSm(host.intfId()) : nullptr;
  picture.isConfigured = host.name() == key.hostName() && portMachine &&
                         portMachine->igmpHost().get() == &host && portMachine->portKey() == key &&
                         host.enabled() && host.externalPam() && !host.useMux() && !host.tagged() &&
                         host.configVersion() == host.intfConfigVersion();
  picture.configVersions = host.configVersion();
  picture.sends = sends(host, key);
  picture.version = static_cast<int>(host.igmpVersion());
  picture.deviceName = host.deviceName().view();
  picture.blocked = host.blocked();
  picture.direction = static_cast<int>(host.direction());
  picture.records = records(host);
  return picture;
}

void ProxyDriver::observeMachines(ProxyPicture& picture) const {
  for (auto const& [vlan, config] : proxy_->adapterConfig())
    picture.adapterConfigs[number(vlan)] = keysOf(*config);
  for (auto const& [vlan, adapter] : proxy_->adapterSm())
    if (adapter->adapterConfig() == proxy_->adapterConfig(vlan) && adapter->adapterConfig() &&
        adapter->coreStatus() == coreStatusDir_->contextStatus(vlan))
      picture.adapters.insert(number(vlan));
    else
      picture.adapters.insert(-number(vlan));
  for (auto const& [vlan, machine] : proxy_->vlanSm()) {
    MachinePicture& view = picture.machines[number(vlan)];
    view.querier = serialOf(machine->querierVlanConfig().get());
    view.topology = serialOf(machine->topoVlan().get());
    if (auto const& config = machine->adapterConfig())
      view.config = {number(config->vlanId()), config == proxy_->adapterConfig(config->vlanId()),
                     keysOf(*config)};
    for (auto const& [intf, watcher] : machine->proxyTopoPort())
      view.watched[number(intf)] = serialOf(watcher->notifier().get());
    for (auto const& [intf, port] : machine->portSm()) view.served.insert(number(intf));
  }
}

void ProxyDriver::observePacketAccess(ProxyPicture& picture) const {
  auto const& manager = *proxy_->pamManager();
  for (auto const& [key, pam] : manager.pamCol()->entries())
    picture.packetAccess.insert(number(key));
  for (auto const [intf, wanted] : manager.proxyPamDesired()->intfDesired())
    picture.wantedDevices[number(intf)] = wanted;
  for (auto const& [intf, pam] : manager.ethDevPamCol()->intfPam())
    picture.openDevices[number(intf)] = {std::string(pam->device().deviceName.view()),
                                         pam->device().deviceIndex};
  for (auto const& [intf, multiplexer] : manager.multiplexer()) {
    bool const isBound = multiplexer->devicePam() == manager.ethDevPamCol()->intfPam(intf);
    picture.multiplexers.insert(isBound ? number(intf) : -number(intf));
  }
  for (auto const& [key, tagged] : inputs_.tagged) {
    auto const intf = interface(key.port);
    if (manager.tagOnEgress(vlanId(key.vlan), intf)) picture.taggedOnEgress.insert(key);
    if (auto const vlan = manager.defaultVlan(intf)) picture.defaultVlans[key.port] = number(*vlan);
  }
}

ProxyPicture ProxyDriver::observed() const {
  ProxyPicture picture;
  for (auto const& [vlan, topology] : inputs_.topologies) {
    auto const watcher = proxy_->context(vlanId(vlan));
    if (!watcher) continue;
    bool const isRight = watcher->notifier() == protocolConfig_->contextConfig(vlanId(vlan));
    picture.contexts.insert(isRight ? vlan : -vlan);
  }
  observeMachines(picture);
  observePacketAccess(picture);
  for (auto const& [name, host] : igmpHostDir_->igmpHost())
    picture.hosts[{host->vlanId(), number(host->intfId())}] = observedHost(*host);
  for (auto const& [intf, info] : proxy_->portVlanMap()->portInfo()) {
    auto& vlans = picture.vlansOfPorts[number(intf)];
    for (auto const [vlan, value] : info->vlan()) vlans.insert(value ? number(vlan) : 0);
  }
  return picture;
}

std::string ProxyDriver::difference() {
  if (!model_) return latestDifference_ + leftovers();
  model_->settle();
  for (auto const& [vlan, keys] : model_->hostKeys())
    if (auto const config = proxy_->adapterConfig(vlanId(vlan)))
      readOrder(config->hostKey(), keys->order);
  return latestDifference_ + Random::difference(observed(), model_->picture());
}

}  // namespace Bridging::IgmpSnooping::Proxy::Random
