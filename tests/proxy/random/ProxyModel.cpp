#include "tests/proxy/random/ProxyModel.h"

#include <utility>

namespace Bridging::IgmpSnooping::Proxy::Random {

ProxyModel::ProxyModel(Inputs const& inputs, Perturbation perturbation)
    : inputs_(inputs), perturbation_(perturbation) {
  start();
}

// --- Which VLANs have a machine

/// Secondary VLANs that come before their primary in the collection find it without configuration.
void ProxyModel::start() {
  for (int const vlan : inputs_.contexts.order) decide(vlan);
  for (int const vlan : inputs_.roles.order)
    if (!machines_.contains(vlan)) decide(vlan);
  settle();
}

void ProxyModel::decide(int vlan) {
  Role const role = roleOf(vlan);
  bool const isSecondary = !(role == Role());
  int const configVlan = isSecondary ? role.primary : vlan;
  auto const querier = inputs_.queriers.find(
      perturbed(Perturbation::secondaryUsesPrimarysQuerier) ? configVlan : vlan);

  if (!inputs_.contexts.find(configVlan) || querier == inputs_.queriers.end()) {
    removeMachine(vlan);
    adapters_.erase(vlan);
    configs_.erase(vlan);
  } else {
    auto const machine = machines_.find(vlan);
    bool const isOfAnotherRole =
        machine != machines_.end() &&
        machine->second.config != (isSecondary ? configOf(configVlan) : configOf(vlan));
    if (perturbed(Perturbation::machineFollowsRole) && isOfAnotherRole) removeMachine(vlan);
    if (machines_.contains(vlan)) return;
    bool const makesConfig = !isSecondary || perturbed(Perturbation::secondaryMakesPrimarysConfig);
    makeMachine(vlan, querier->second, makesConfig ? configIs(configVlan) : configOf(configVlan));
  }

  bool const tellsSecondaries = perturbed(Perturbation::primaryReexaminesSecondaries);
  for (auto const& [secondary, itsRole] : inputs_.roles.at)
    if (tellsSecondaries && itsRole.primary == vlan && secondary != vlan && !(itsRole == Role()) &&
        !inputs_.roles.at.contains(vlan))
      decide(secondary);
}

Role ProxyModel::roleOf(int vlan) const {
  Role const role = inputs_.roles.find(vlan);
  return perturbed(Perturbation::normalTypeIsNeverSecondary) && role.type == 0 ? Role() : role;
}

void ProxyModel::makeMachine(int vlan, std::shared_ptr<Querier const> const& querier,
                             std::shared_ptr<Config> const& config) {
  Machine& machine = machines_[vlan];
  machine = {querier, inputs_.topologies.at(vlan), config, {}, {}};
  ++machinesMade_;
  for (auto const& [port, topoPort] : machine.topology->ports.at) decidePort(vlan, machine, port);
  for (auto const& [port, topoPort] : machine.topology->ports.at) watch(machine, port);
}

/// The keys of its hosts stay in the adapter configuration.
void ProxyModel::removeMachine(int vlan) {
  auto const machine = machines_.find(vlan);
  if (machine == machines_.end()) return;
  for (auto const& [port, portMachine] : machine->second.ports) {
    HostKey const key{vlan, port};
    if (perturbed(Perturbation::goingMachineTakesItsHostKeys) && machine->second.config)
      hostKeyDel(*machine->second.config, key);
    records_.erase(key);
    packetAccess_.erase(key);
  }
  machines_.erase(machine);
}

std::shared_ptr<ProxyModel::Config> ProxyModel::configOf(int vlan) const {
  auto const config = configs_.find(vlan);
  return config == configs_.end() ? nullptr : config->second;
}

std::shared_ptr<ProxyModel::Config> ProxyModel::configIs(int vlan) {
  if (auto const present = configOf(vlan)) return present;
  auto const config = std::make_shared<Config>();
  config->vlan = vlan;
  configs_.emplace(vlan, config);
  auto const ofAdapter = perturbed(Perturbation::clearingPassesMissingHosts)
                             ? Model::Perturbation::clearingPassesMissingHosts
                             : Model::Perturbation::none;
  adapters_[vlan] = {config, std::make_unique<Model::AdapterModel>(
                                 config->hostKeys, records_, inputs_.statuses.at(vlan), ofAdapter)};
  if (perturbed(Perturbation::secondaryGoesOverToLaterPrimary))
    for (auto& [secondary, machine] : machines_)
      if (!machine.config && inputs_.roles.find(secondary).primary == vlan) machine.config = config;
  return config;
}

// --- Which ports have a machine

bool ProxyModel::hasDevice(int port) const {
  if (perturbed(Perturbation::emptyKernelRecordIsADevice)) return inputs_.devices.contains(port);
  return !(inputs_.device(port) == Device());
}

void ProxyModel::decidePort(int vlan, Machine& machine, int port) {
  HostKey const key{vlan, port};
  auto const topoPort = machine.topology->ports.find(port);
  if (topoPort && hasDevice(port)) {
    auto const [portMachine, isNew] = machine.ports.try_emplace(port);
    if (isNew) {
      bool const isLate = machine.watched.contains(port);
      portMachine->second = {
          machine.querier->protocol->version, inputs_.device(port).name,
          isLate && perturbed(Perturbation::lateDeviceLearnsBlocked) && topoPort->blocked, 0};
      if (perturbed(isLate ? Perturbation::lateDeviceLearnsDirection
                           : Perturbation::newPortMachineLearnsDirection))
        portMachine->second.direction = topoPort->direction;
      records_[key];
    }
    if (perturbed(Perturbation::hostFollowsDeviceName))
      portMachine->second.deviceName = inputs_.device(port).name;
    if (machine.config) hostKeyIs(*machine.config, key);
  } else {
    if (machine.config) hostKeyDel(*machine.config, key);
    machine.ports.erase(port);
    records_.erase(key);
    packetAccess_.erase(key);
  }
}

/// A new watcher tells the port machine whether the port is blocked; one that goes over to another
/// object tells it the direction too.
void ProxyModel::watch(Machine& machine, int port) {
  auto const topoPort = machine.topology->ports.find(port);
  if (!topoPort) {
    machine.watched.erase(port);
    return;
  }
  auto const [watched, isNew] = machine.watched.try_emplace(port, topoPort);
  if (!isNew && watched->second == topoPort) return;
  watched->second = topoPort;
  auto const portMachine = machine.ports.find(port);
  if (portMachine == machine.ports.end()) return;
  portMachine->second.blocked = topoPort->blocked;
  if (!isNew && !perturbed(Perturbation::rePointedWatcherKeepsDirection))
    portMachine->second.direction = topoPort->direction;
}

void ProxyModel::topoPortChanged(int vlan, int port) {
  auto const machine = machines_.find(vlan);
  if (machine == machines_.end()) return;
  decidePort(vlan, machine->second, port);
  watch(machine->second, port);
}

void ProxyModel::topoPortBlockedChanged(TopoPort const& port) {
  for (auto& [vlan, machine] : machines_)
    for (auto const& [number, watched] : machine.watched)
      if (watched.get() == &port && machine.ports.contains(number))
        machine.ports[number].blocked = port.blocked;
}

void ProxyModel::topoPortDirectionChanged(TopoPort const& port) {
  for (auto& [vlan, machine] : machines_)
    for (auto const& [number, watched] : machine.watched)
      if (watched.get() == &port && machine.ports.contains(number))
        machine.ports[number].direction = port.direction;
}

void ProxyModel::deviceChanged(int port) {
  for (auto& [vlan, machine] : machines_) decidePort(vlan, machine, port);
}

void ProxyModel::protocolChanged(int vlan) {
  auto const machine = machines_.find(vlan);
  if (machine == machines_.end()) return;
  for (auto& [port, portMachine] : machine->second.ports)
    portMachine.version = machine->second.querier->protocol->version;
}

void ProxyModel::formerProtocolChanged(int vlan, int version) {
  auto const machine = machines_.find(vlan);
  if (machine == machines_.end() || !perturbed(Perturbation::hostFollowsFormerProtocol)) return;
  for (auto& [port, portMachine] : machine->second.ports) portMachine.version = version;
}

// --- Adapters

/// One that is there with the same value already is nobody's news.
void ProxyModel::hostKeyIs(Config& config, HostKey const& key) {
  bool const isNews = config.hostKeys.at.try_emplace(key, true).second;
  if (isNews || perturbed(Perturbation::unchangedHostKeyIsRaised)) keyHeard(config, key);
}

void ProxyModel::hostKeyDel(Config& config, HostKey const& key) {
  if (config.hostKeys.at.erase(key) != 0) keyHeard(config, key);
}

void ProxyModel::keyHeard(Config const& config, HostKey const& key) {
  auto const adapter = adapters_.find(config.vlan);
  if (adapter != adapters_.end() && adapter->second.config.get() == &config)
    adapter->second.model->hostKeyChanged(key);
}

Model::AdapterModel* ProxyModel::adapter(int vlan) {
  auto const adapter = adapters_.find(vlan);
  return adapter == adapters_.end() ? nullptr : adapter->second.model.get();
}

std::size_t ProxyModel::runActivities() {
  std::size_t delivered = 0;
  for (auto& [vlan, adapter] : adapters_) delivered += adapter.model->runActivities();
  return delivered;
}

std::map<int, Model::HostKeys*> ProxyModel::hostKeys() {
  std::map<int, Model::HostKeys*> hostKeys;
  for (auto const& [vlan, config] : configs_) hostKeys[vlan] = &config->hostKeys;
  return hostKeys;
}

// --- Packet access

std::set<int> ProxyModel::hostPorts() const {
  std::set<int> ports;
  for (auto const& [vlan, machine] : machines_)
    for (auto const& [port, portMachine] : machine.ports) ports.insert(port);
  return ports;
}

std::set<int> ProxyModel::wantedPorts() const {
  std::set<int> const hosting = hostPorts();
  std::set<int> ports;
  for (auto const& [port, desired] : inputs_.desired)
    if ((desired || perturbed(Perturbation::undesiredDeviceIsOpen)) &&
        (hosting.contains(port) || perturbed(Perturbation::devicesNeedNoHost)))
      ports.insert(port);
  return ports;
}

std::set<int> ProxyModel::openPorts() const {
  std::set<int> ports = wantedPorts();
  std::erase_if(ports, [this](int port) { return !hasDevice(port); });
  return ports;
}

/// Once made, a host's packet access stays for as long as its port machine.
void ProxyModel::settle() {
  std::set<int> const open = openPorts();
  for (auto const& [vlan, machine] : machines_)
    for (auto const& [port, portMachine] : machine.ports) {
      if (open.contains(port))
        packetAccess_.insert({vlan, port});
      else if (perturbed(Perturbation::packetAccessGoesWithDevice))
        packetAccess_.erase({vlan, port});
    }
}

// --- The picture

ProxyPicture ProxyModel::picture() const {
  std::set<int> const open = openPorts();
  ProxyPicture picture;
  for (auto const& [vlan, enabled] : inputs_.contexts.at) picture.contexts.insert(vlan);
  for (auto const& [vlan, machine] : machines_) {
    MachinePicture& view = picture.machines[vlan];
    view.querier = machine.querier->serial;
    view.topology = machine.topology->serial;
    if (machine.config)
      view.config = {machine.config->vlan, configOf(machine.config->vlan) == machine.config,
                     machine.config->hostKeys.at};
    for (auto const& [port, watched] : machine.watched) view.watched[port] = watched->serial;
    for (auto const& [port, portMachine] : machine.ports) {
      view.served.insert(port);
      picture.vlansOfPorts[port].insert(vlan);
      HostKey const key{vlan, port};
      picture.hosts[key] = {true,
                            1,
                            open.contains(port),
                            portMachine.version,
                            portMachine.deviceName,
                            portMachine.blocked,
                            portMachine.direction,
                            records_.at(key)};
    }
  }
  for (auto const& [vlan, config] : configs_) picture.adapterConfigs[vlan] = config->hostKeys.at;
  for (auto const& [vlan, adapter] : adapters_) picture.adapters.insert(vlan);
  picture.packetAccess = packetAccess_;
  for (int const port : wantedPorts()) picture.wantedDevices[port] = true;
  for (int const port : open) picture.openDevices[port] = inputs_.device(port);
  picture.multiplexers = open;
  for (auto const& [key, tagged] : inputs_.tagged) {
    if (tagged)
      picture.taggedOnEgress.insert(key);
    else if (perturbed(Perturbation::highestUntaggedVlanIsDefault))
      picture.defaultVlans[key.port] = key.vlan;
    else
      picture.defaultVlans.try_emplace(key.port, key.vlan);
  }
  return picture;
}

}  // namespace Bridging::IgmpSnooping::Proxy::Random
