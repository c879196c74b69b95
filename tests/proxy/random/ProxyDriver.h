#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "platform/interface/CaptureEthDevPams.h"
#include "proxy/ProxySm.h"
#include "tests/proxy/random/Change.h"
#include "tests/proxy/random/Inputs.h"
#include "tests/proxy/random/ProxyModel.h"

namespace Bridging::IgmpSnooping::Proxy::Random {

/// Applies changes to the entities around a real proxy and to their plain counterparts around the
/// model, and compares what became of both. It does what the proxy asks of its agent: a VLAN's
/// topology and status are there before its entry and its querier and go after them, and reports
/// are published in turns.
class ProxyDriver {
 public:
  /// Begins without a proxy, and with empty inputs.
  explicit ProxyDriver(Perturbation perturbation);
  ~ProxyDriver();

  /// Returns false, and does nothing, if there is nothing that the change could apply to.
  bool apply(Change const& change);

  /// How proxy and model differ after the latest change, and what a proxy that was dropped has
  /// left behind; empty where they agree.
  std::string difference();

  // For the choice of the next change, and for the tally.
  bool hasProxy() const { return model_ != nullptr; }
  Igmp::IgmpHostDir const& hostDir() const { return *igmpHostDir_; }
  Inputs const& inputs() const { return inputs_; }
  std::size_t machinesMade() const;
  void count(std::size_t& hosts, std::size_t& records) const;

 private:
  using RealPort = Topology::Library::Vlan::Port;
  using RealProtocol = Gmp::Igmp::QuerierConfig;

  struct RemovedPort {
    Kel::Ptr<RealPort> real;
    std::shared_ptr<TopoPort> twin;
  };

  struct Listener {
    Kel::Ptr<IgmpMembership> real;
    std::shared_ptr<Model::Membership> twin;
  };

  bool applyToVlan(Change const& change);
  bool applyToQuerier(Change const& change);
  bool applyToTopoPort(Change const& change);
  bool applyToPort(Change const& change);

  bool prepareVlan(int vlan);
  bool forgetVlan(int vlan);
  bool raiseVlan(int vlan);
  bool addQuerier(Change const& change);
  bool removeQuerier(int vlan);
  bool replaceProtocol(Change const& change);
  bool setRole(Change const& change);
  bool removeRole(int vlan);

  bool isPrepared(int vlan) const { return inputs_.topologies.contains(vlan); }
  Kel::Ptr<RealPort> topoPort(Change const& change) const;
  std::shared_ptr<TopoPort> topoPortTwin(Change const& change) const;
  bool putTopoPort(Change const& change, RemovedPort const& put);
  bool removeTopoPort(Change const& change);
  void keepRemoved(Change const& change);
  void topoPortWasChanged(Change const& change);
  bool setTopoPort(Change const& change);

  bool setDevice(Change const& change);
  bool setTagged(Change const& change);
  bool removeTagged(Change const& change);

  bool listenerReports(Change const& change);
  bool listenerLeaves(Change const& change);
  Listener listener(Change const& change);
  void raiseReport(int vlan);
  void runActivities();

  bool makeProxy();
  bool dropProxy();
  std::string leftovers() const;

  int newSerial(Kel::PtrInterface const& real);
  int serialOf(Kel::PtrInterface const* real) const;

  ProxyPicture observed() const;
  void observeMachines(ProxyPicture& picture) const;
  void observePacketAccess(ProxyPicture& picture) const;
  HostPicture observedHost(Igmp::IgmpHost const& host) const;
  bool sends(Igmp::IgmpHost const& host, PortKey const& key) const;
  KeysPicture keysOf(AdapterVlanConfig const& config) const;

  Perturbation perturbation_;

  Interface::CaptureEthDevPams devices_;
  Kel::Ptr<IgmpProtocolConfig> protocolConfig_;
  Kel::Ptr<Topology::Library::Vlan::LibVlanState> topoVlanState_;
  Kel::Ptr<PrivateVlanLib::LibState> pVlanLib_;
  Kel::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir_;
  Kel::Ptr<Igmp::QuerierConfigDir> querierConfigDir_;
  Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir_;
  Kel::Ptr<Interface::DeviceIntfStatusDir> kernelIntfStatusDir_;
  Kel::Ptr<Bridging::Config> bridgingConfig_;
  Kel::Ptr<IgmpProtocolStatus> coreStatusDir_;
  Kel::Ptr<Horix::TimerWheel> timerWheel_;

  Inputs inputs_;
  std::map<int, Kel::Ptr<RealProtocol>> protocols_;
  std::map<int, Kel::Ptr<RealProtocol>> formerProtocols_;
  std::map<HostKey, RemovedPort> removedPorts_;  // the last one of each place
  std::map<void const*, int> serials_;
  int lastSerial_ = 0;

  Kel::Ptr<ProxySm> proxy_;
  std::unique_ptr<ProxyModel> model_;
  std::size_t machinesMadeBefore_ = 0;
  std::string latestDifference_;
};

}  // namespace Bridging::IgmpSnooping::Proxy::Random
