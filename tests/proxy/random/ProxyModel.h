#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <set>

#include "tests/proxy/random/Inputs.h"
#include "tests/proxy/random/ProxyPicture.h"

namespace Bridging::IgmpSnooping::Proxy::Random {

/// Deliberate departures, by which the comparison is shown to notice what it should.
enum class Perturbation {
  none,
  newPortMachineLearnsDirection,
  lateDeviceLearnsBlocked,
  lateDeviceLearnsDirection,
  rePointedWatcherKeepsDirection,
  hostFollowsDeviceName,
  hostFollowsFormerProtocol,
  machineFollowsRole,
  normalTypeIsNeverSecondary,
  primaryReexaminesSecondaries,
  secondaryUsesPrimarysQuerier,
  secondaryGoesOverToLaterPrimary,
  secondaryMakesPrimarysConfig,
  goingMachineTakesItsHostKeys,
  unchangedHostKeyIsRaised,
  packetAccessGoesWithDevice,
  devicesNeedNoHost,
  undesiredDeviceIsOpen,
  emptyKernelRecordIsADevice,
  highestUntaggedVlanIsDefault,
  clearingPassesMissingHosts,
};

/// What the proxy is to make of its inputs. It is told of each change after it was made, reads the
/// inputs again, and keeps only what depends on the order of changes.
class ProxyModel {
 public:
  ProxyModel(Inputs const& inputs, Perturbation perturbation);

  void contextChanged(int vlan) { decide(vlan); }
  void roleChanged(int vlan) { decide(vlan); }
  void querierChanged(int vlan) { decide(vlan); }
  void protocolChanged(int vlan);
  void formerProtocolChanged(int vlan, int version);
  void topoPortChanged(int vlan, int port);
  void topoPortBlockedChanged(TopoPort const& port);
  void topoPortDirectionChanged(TopoPort const& port);
  void deviceChanged(int port);

  /// The model of a VLAN's adapter, or null.
  Model::AdapterModel* adapter(int vlan);
  /// Returns how many notifications were delivered.
  std::size_t runActivities();

  /// To be called after each change, when everybody has heard of it.
  void settle();

  /// The host keys of a VLAN's adapter configuration; to be told the real one's order.
  std::map<int, Model::HostKeys*> hostKeys();

  std::size_t machinesMade() const { return machinesMade_; }
  ProxyPicture picture() const;

 private:
  struct Config {
    int vlan = 0;
    Model::HostKeys hostKeys;
  };

  /// The configuration stays as long as the adapter that reads it.
  struct Adapter {
    std::shared_ptr<Config> config;
    std::unique_ptr<Model::AdapterModel> model;
  };

  struct PortMachine {
    int version = 0;
    std::string deviceName;
    bool blocked = false;
    int direction = 0;
  };

  struct Machine {
    std::shared_ptr<Querier const> querier;
    std::shared_ptr<VlanTopology const> topology;
    std::shared_ptr<Config> config;  // may be null
    std::map<int, PortMachine> ports;
    std::map<int, std::shared_ptr<TopoPort const>> watched;
  };

  bool perturbed(Perturbation perturbation) const { return perturbation_ == perturbation; }
  Role roleOf(int vlan) const;
  bool hasDevice(int port) const;
  std::set<int> hostPorts() const;
  std::set<int> wantedPorts() const;
  std::set<int> openPorts() const;

  void start();
  void decide(int vlan);
  void makeMachine(int vlan, std::shared_ptr<Querier const> const& querier,
                   std::shared_ptr<Config> const& config);
  void removeMachine(int vlan);
  std::shared_ptr<Config> configOf(int vlan) const;
  std::shared_ptr<Config> configIs(int vlan);

  void decidePort(int vlan, Machine& machine, int port);
  void watch(Machine& machine, int port);
  void hostKeyIs(Config& config, HostKey const& key);
  void hostKeyDel(Config& config, HostKey const& key);
  void keyHeard(Config const& config, HostKey const& key);

  Inputs const& inputs_;
  Perturbation perturbation_;
  Model::Hosts records_;
  std::map<int, Machine> machines_;
  std::map<int, std::shared_ptr<Config>> configs_;
  std::map<int, Adapter> adapters_;
  std::set<HostKey> packetAccess_;
  std::size_t machinesMade_ = 0;
};

}  // namespace Bridging::IgmpSnooping::Proxy::Random
