#pragma once

#include <cstdint>
#include <type_traits>
#include <utility>

#include "framework/entities/AdapterVlanConfig.h"
#include "framework/entities/BridgingConfig.h"
#include "framework/entities/DeviceIntfStatus.h"
#include "framework/entities/IgmpContextStatus.h"
#include "framework/entities/IgmpProtocolConfig.h"
#include "framework/entities/LibVlanState.h"
#include "framework/entities/PortVlanMapping.h"
#include "framework/entities/PrivateVlanState.h"
#include "framework/entities/QuerierConfig.h"
#include "framework/kel/Reactors.h"
#include "platform/horix/TimerWheel.h"
#include "platform/igmp/IgmpHost.h"
#include "platform/igmp/IgmpHostDirSm.h"
#include "proxy/Decisions.h"
#include "proxy/ProxyAdapterSm.h"
#include "proxy/ProxyPam.h"

/// Proxy control. The proxy decides per VLAN, the VLAN machine per port, and the port machine keeps
/// the port's host:
///
///     ProxySm ──┬── ProxyVlanSm per proxied VLAN ── ProxyPortSm per served port ── IgmpHost
///               └── AdapterVlanConfig and AdapterSm per proxied VLAN that is no secondary one
///
/// All three are driven by the entities they watch, inside the call that changes those.
namespace Bridging::IgmpSnooping::Proxy {

class ProxySm;

/// Owns the IGMP host of one port in one VLAN: makes and configures it, keeps its version in step
/// with the VLAN's querier, and takes it away, with its packet access and its place in the port's
/// VLANs, when it goes. If another machine has taken the host over, it leaves all of that alone: a
/// proxy that is started over a living one configures the hosts that it finds.
class KEL_EXPORT ProxyPortSm : public Kel::PtrInterface {
 public:
  using ProtocolConfig = Gmp::Igmp::QuerierConfig;

  /// What it is made with beside its port.
  struct Parameters {
    VlanId vlanId;
    Kel::Ptr<Igmp::QuerierConfig const> querierVlanConfig;
    Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir;
    Kel::Ptr<Interface::DeviceIntfStatusDir const> kernelIntfStatusDir;
    Kel::Ptr<ProxyPamManager> pamManager;
    Kel::Ptr<PortVlanMapping> portVlanMap;
    Kel::Ptr<Horix::TimerWheel const> timerWheel;
  };

  /// Makes one, of its port and of the parameters in their order.
  template <class... Arguments>
  static Kel::Ptr<ProxyPortSm> ProxyPortSmIs(Wirex::IntfId const& intfId,
                                             Arguments const&... arguments) {
    return Kel::make<ProxyPortSm>(intfId, Parameters{arguments...});
  }

  ProxyPortSm(Wirex::IntfId intfId, Parameters parameters);
  ~ProxyPortSm() override;

  /// For find-or-create: throws Kel::NameInUseException where an argument differs.
  void requireConstructedWith(Parameters const& asked) const;

  Wirex::IntfId const& intfId() const { return intfId_; }
  VlanId vlanId() const { return parameters_.vlanId; }
  auto const& querierVlanConfig() const { return parameters_.querierVlanConfig; }
  auto const& igmpHostDir() const { return parameters_.igmpHostDir; }
  auto const& kernelIntfStatusDir() const { return parameters_.kernelIntfStatusDir; }
  auto const& pamManager() const { return parameters_.pamManager; }
  auto const& portVlanMap() const { return parameters_.portVlanMap; }
  auto const& timerWheel() const { return parameters_.timerWheel; }

  /// The host's key, whose text is the host's name.
  PortKey const& portKey() const { return portKey_; }
  void portKeyIs(PortKey const& key) { portKey_ = key; }

  Kel::Ptr<Igmp::IgmpHost> const& igmpHost() const { return igmpHost_; }
  void igmpHostIs(Kel::Ptr<Igmp::IgmpHost> const& host);

  bool blocked() const { return blocked_; }
  void blockedIs(bool blocked);

  AllowedTrafficDirection direction() const { return direction_; }
  void directionIs(AllowedTrafficDirection direction);

  /// The querier's protocol configuration; may be null.
  Kel::Ptr<ProtocolConfig const> const& innerQuerierConfig() const;
  void innerQuerierConfigIs(Kel::Ptr<ProtocolConfig const> const& config);

  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  void handleInitialized();
  /// Connects the host with its packet access, or disconnects it while the port has no multiplexer.
  void updateHostPam();
  bool isHostPamInStep() const;
  void handleBlocked();
  void handleDirection();
  void handleIgmpVersion();
  void handleCleanup();

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  class KelQuerierVlanConfig;
  class KelInnerQuerierConfig;

  Kel::Ptr<KelQuerierVlanConfig> newQuerierVlanConfig(Kel::Ptr<Igmp::QuerierConfig const> config);

  bool keeps(Kel::Ptr<Igmp::IgmpHost> const& host) const;
  /// Writes to the host while it is this machine's.
  template <class Value>
  void write(void (Igmp::IgmpHost::*mutator)(Value), std::type_identity_t<Value> value);
  void configureHost();

  Wirex::IntfId intfId_;
  Parameters const parameters_;
  bool blocked_ = false;
  bool initialized_ = false;
  AllowedTrafficDirection direction_{};
  Kel::Ptr<KelQuerierVlanConfig> querierVlanConfig_;
  PortKey portKey_;
  Decisions<Wirex::IntfId> pamDecisions_;
  Kel::Ptr<Igmp::IgmpHost> igmpHost_;
  Kel::Ptr<KelInnerQuerierConfig> innerQuerierConfig_;
};

/// Decides which ports of a proxied VLAN have a host: those that are members of its topology and
/// that the kernel has. Publishes their keys to the adapter, and relays to each port machine what
/// the topology says of its port.
class KEL_EXPORT ProxyVlanSm : public Kel::PtrInterface {
 public:
  using TopoVlan = Topology::Library::Vlan::TopoVlan;
  using TopoPort = Topology::Library::Vlan::Port;
  class KelProxyTopoPort;

  /// What it is made with beside its VLAN.
  struct Parameters {
    Kel::Ptr<Igmp::QuerierConfig const> querierVlanConfig;
    Kel::Ptr<TopoVlan const> topoVlan;
    Kel::Ptr<ProxyPamManager> pamManager;
    Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir;
    Kel::Ptr<Interface::DeviceIntfStatusDir const> kernelIntfStatusDir;
    Kel::Ptr<PortVlanMapping> portVlanMap;
    /// Null for a secondary VLAN whose primary is not proxied: its hosts then have no adapter.
    Kel::Ptr<AdapterVlanConfig> adapterConfig;
    Kel::Ptr<Horix::TimerWheel const> timerWheel;
  };

  /// Makes one, of its VLAN and of the parameters in their order.
  template <class... Arguments>
  static Kel::Ptr<ProxyVlanSm> ProxyVlanSmIs(VlanId vlanId, Arguments const&... arguments) {
    return Kel::make<ProxyVlanSm>(vlanId, Parameters{arguments...});
  }

  /// @param proxySm the owner, if there is one.
  ProxyVlanSm(VlanId vlanId, Parameters parameters, ProxySm* proxySm = nullptr);
  /// The keys of the hosts stay in the adapter configuration.
  ~ProxyVlanSm() override;

  /// For find-or-create: throws Kel::NameInUseException where an argument differs.
  void requireConstructedWith(Parameters const& asked) const;

  VlanId vlanId() const { return vlanId_; }
  auto const& querierVlanConfig() const { return parameters_.querierVlanConfig; }
  auto const& topoVlan() const { return parameters_.topoVlan; }
  auto const& pamManager() const { return parameters_.pamManager; }
  auto const& igmpHostDir() const { return parameters_.igmpHostDir; }
  auto const& kernelIntfStatusDir() const { return parameters_.kernelIntfStatusDir; }
  auto const& portVlanMap() const { return parameters_.portVlanMap; }
  auto const& adapterConfig() const { return parameters_.adapterConfig; }
  auto const& timerWheel() const { return parameters_.timerWheel; }

  /// One machine per served port.
  Kel::OwnedMembers<Wirex::IntfId, ProxyPortSm> const& portSm() const { return portSm_; }
  Kel::Ptr<ProxyPortSm> portSm(Wirex::IntfId const& intfId) const { return portSm_.get(intfId); }
  /// The arguments are ProxyPortSm's parameters in their order.
  template <class... Arguments>
  Kel::Ptr<ProxyPortSm> newPortSm(Wirex::IntfId const& intfId, Arguments const&... arguments) {
    return ProxyPortSm::ProxyPortSmIs(intfId, arguments...);
  }
  template <class... Arguments>
  Kel::Ptr<ProxyPortSm> portSmIs(Wirex::IntfId const& intfId, Arguments const&... arguments) {
    auto const added = [&] { return newPortSm(intfId, arguments...); };
    return portSm_.ensure(intfId, added, ProxyPortSm::Parameters{arguments...}).first;
  }
  void portSmDel(Wirex::IntfId const& intfId) { portSm_.del(intfId); }
  void portSmDelAll() { portSm_.delAll(); }

  /// One watcher per member port of the topology, served or not.
  Kel::Reactors<Wirex::IntfId, KelProxyTopoPort> const& proxyTopoPort() const {
    return proxyTopoPort_;
  }
  Kel::Ptr<KelProxyTopoPort> proxyTopoPort(Wirex::IntfId const& intfId) const {
    return proxyTopoPort_.get(intfId);
  }
  Kel::Ptr<KelProxyTopoPort> newProxyTopoPort(Kel::Ptr<TopoPort const> const& port);
  Kel::Ptr<KelProxyTopoPort> proxyTopoPortIs(Kel::Ptr<TopoPort const> const& port);
  void proxyTopoPortDel(Wirex::IntfId const& intfId) { proxyTopoPort_.del(intfId); }
  void proxyTopoPortDelAll() { proxyTopoPort_.delAll(); }

  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  void handleInitialized();
  /// Decides for every member port.
  void handlePort();
  /// Decides whether a port has a host.
  void handlePort(Wirex::IntfId intfId);
  /// Handles the multiplexers that came or went while the machine of their port, or this one, was
  /// in the making.
  void handleMissedHostPams();
  /// The port's multiplexer came or went.
  void handleHostPam(Wirex::IntfId intfId);

  void proxySmIs(ProxySm* proxySm) { proxySm_ = proxySm; }

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  class KelTopoVlan;
  class KelKernelIntfStatusDir;

  Kel::Ptr<KelTopoVlan> newTopoVlan(Kel::Ptr<TopoVlan const> const& topoVlan);

  bool isMember(Wirex::IntfId const& intfId) const;
  bool isInKernel(Wirex::IntfId const& intfId) const;
  void serve(Wirex::IntfId const& intfId);
  void handleMissedHostPam(Wirex::IntfId const& intfId);
  void unserve(Wirex::IntfId const& intfId);
  void followTopoPort(Wirex::IntfId const& intfId);
  void reconcileTopoPorts();

  VlanId vlanId_;
  Parameters const parameters_;
  bool initialized_ = false;
  ProxySm* proxySm_;
  Decisions<Wirex::IntfId> decisions_;
  Kel::Ptr<KelTopoVlan> topoVlan_;
  Kel::Ptr<KelKernelIntfStatusDir> kernelIntfStatusDir_;
  Kel::OwnedMembers<Wirex::IntfId, ProxyPortSm> portSm_;
  Kel::Reactors<Wirex::IntfId, KelProxyTopoPort> proxyTopoPort_;
};

/// Watches a member port of the topology for the port's machine, if it has one.
class KEL_EXPORT ProxyVlanSm::KelProxyTopoPort final
    : public Kel::ReactorFor<ProxyVlanSm, TopoPort::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  Wirex::IntfId const& intfId() const { return notifier()->intfId(); }
  Wirex::IntfId const& fwkKey() const { return intfId(); }

  void proxyVlanSmIs(ProxyVlanSm* proxyVlanSm) { ownerIs(proxyVlanSm); }

  void notifierIs(Kel::Ptr<TopoPort const> port) override;
  void hasNotificationActiveIs(bool active) override;
  void onBlocked() override;
  void onAllowedTrafficDirection() override;

  void handleTopoPortBlocked();
  void handleTopoPortDirection();

 private:
  Kel::Ptr<ProxyPortSm> portSm(char const* handler) const;

  std::pair<bool, TopoPort::Direction> lastHeard_{};  // when it was last active
};

/// The proxy: decides VLAN by VLAN, from the snooping configuration, the queriers and the private
/// VLANs, whether the VLAN is proxied, and owns everything that proxying it needs. The agent makes
/// one, through `proxySmFactory`, and drops it to stop.
class KEL_EXPORT ProxySm : public Kel::PtrInterface {
 public:
  /// What it is made with: see proxySmFactory.
  struct Parameters {
    Kel::Ptr<IgmpProtocolConfig const> protocolConfig;
    Kel::Ptr<Topology::Library::Vlan::LibVlanState const> topoVlanState;
    Kel::Ptr<PrivateVlanLib::LibState const> pVlanLib;
    Kel::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir;
    Kel::Ptr<Igmp::QuerierConfigDir> querierConfigDir;
    Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir;
    Kel::Ptr<Interface::DeviceIntfStatusDir const> kernelIntfStatusDir;
    Kel::Ptr<Bridging::Config const> bridgingConfig;
    Kel::Ptr<IgmpProtocolStatus const> coreStatusDir;
    Kel::Ptr<Horix::TimerWheel const> timerWheel;
  };

  /// Makes one of the parameters in their order.
  template <class... Arguments>
  static Kel::Ptr<ProxySm> ProxySmIs(Arguments&&... arguments) {
    return Kel::make<ProxySm>(Parameters{std::forward<Arguments>(arguments)...});
  }

  explicit ProxySm(Parameters parameters);
  ~ProxySm() override;

  auto const& protocolConfig() const { return parameters_.protocolConfig; }
  auto const& topoVlanState() const { return parameters_.topoVlanState; }
  auto const& pVlanLib() const { return parameters_.pVlanLib; }
  auto const& pamDesiredIntfDir() const { return parameters_.pamDesiredIntfDir; }
  auto const& querierConfigDir() const { return parameters_.querierConfigDir; }
  auto const& igmpHostDir() const { return parameters_.igmpHostDir; }
  auto const& kernelIntfStatusDir() const { return parameters_.kernelIntfStatusDir; }
  auto const& bridgingConfig() const { return parameters_.bridgingConfig; }
  auto const& coreStatusDir() const { return parameters_.coreStatusDir; }
  auto const& timerWheel() const { return parameters_.timerWheel; }

  class KelContext;

  /// The reactor on a VLAN's configuration entry, or null.
  Kel::Ptr<KelContext> context(VlanId vlan) const { return context_.get(vlan); }
  Kel::Ptr<KelContext> newContext(Kel::Ptr<IgmpContextConfig const> const& config);
  Kel::Ptr<KelContext> contextIs(Kel::Ptr<IgmpContextConfig const> const& config);
  void contextDel(VlanId vlan) { context_.del(vlan); }
  void contextDelAll() { context_.delAll(); }

  /// One machine per proxied VLAN, secondary ones included.
  Kel::OwnedMembers<VlanId, ProxyVlanSm> const& vlanSm() const { return vlanSm_; }
  Kel::Ptr<ProxyVlanSm> vlanSm(VlanId vlan) const { return vlanSm_.get(vlan); }
  /// The arguments are ProxyVlanSm's parameters in their order.
  template <class... Arguments>
  Kel::Ptr<ProxyVlanSm> newVlanSm(VlanId vlan, Arguments const&... arguments) {
    return Kel::make<ProxyVlanSm>(vlan, ProxyVlanSm::Parameters{arguments...}, this);
  }
  template <class... Arguments>
  Kel::Ptr<ProxyVlanSm> vlanSmIs(VlanId vlan, Arguments const&... arguments) {
    auto const added = [&] { return newVlanSm(vlan, arguments...); };
    return vlanSm_.ensure(vlan, added, ProxyVlanSm::Parameters{arguments...}).first;
  }
  void vlanSmDel(VlanId vlan);
  void vlanSmDelAll();

  /// One per proxied VLAN that is no secondary one.
  Kel::OwnedMembers<VlanId, AdapterVlanConfig> const& adapterConfig() const {
    return adapterConfig_;
  }
  Kel::Ptr<AdapterVlanConfig> adapterConfig(VlanId vlan) const { return adapterConfig_.get(vlan); }
  /// A new one gets its adapter with it.
  Kel::Ptr<AdapterVlanConfig> adapterConfigIs(VlanId vlan);
  void adapterConfigDel(VlanId vlan);

  /// One for each adapter configuration.
  Kel::OwnedMembers<VlanId, AdapterSm> const& adapterSm() const { return adapterSm_; }
  Kel::Ptr<AdapterSm> adapterSm(VlanId vlan) const { return adapterSm_.get(vlan); }
  /// The arguments are those of AdapterSm's constructor.
  template <class... Arguments>
  Kel::Ptr<AdapterSm> adapterSmIs(VlanId vlan, Arguments const&... arguments) {
    auto const added = [&] { return AdapterSm::AdapterSmIs(vlan, arguments...); };
    return adapterSm_.ensure(vlan, added, arguments...).first;
  }
  void adapterSmDel(VlanId vlan) { adapterSm_.del(vlan); }

  Kel::Ptr<PortVlanMapping> const& portVlanMap() const { return portVlanMap_; }
  void portVlanMapIs() { portVlanMap_ = Kel::make<PortVlanMapping>(); }
  Kel::Ptr<ProxyPamManager> const& pamManager() const { return pamManager_; }
  void pamManagerIs(Kel::Ptr<Bridging::Config const> const& bridgingConfig,
                    Kel::Ptr<Interface::PamDesiredIntfDir const> const& pamDesiredIntfDir,
                    Kel::Ptr<PortVlanMapping const> const& portVlanMap,
                    Kel::Ptr<Interface::DeviceIntfStatusDir const> const& kernelIntfStatusDir);
  Kel::Ptr<Igmp::IgmpHostStatusDir> const& igmpHostStatusDir() const { return igmpHostStatusDir_; }
  void igmpHostStatusDirIs(Kel::Name const& name) {
    igmpHostStatusDir_ = Kel::make<Igmp::IgmpHostStatusDir>(name);
  }
  Kel::Ptr<Igmp::IgmpHostDirSm> const& igmpHostDirSm() const { return igmpHostDirSm_; }
  /// The arguments are those of IgmpHostDirSm's constructor.
  template <class... Arguments>
  void igmpHostDirSmIs(Arguments const&... arguments) {
    igmpHostDirSm_ = Kel::make<Igmp::IgmpHostDirSm>(arguments...);
  }

  /// Of the hosts' reports, in bytes. It is only kept here: hosts use that of their own port
  /// (HostSettings::mtu).
  static constexpr std::uint32_t mtuDefault = 1500;
  std::uint32_t mtu() const { return mtu_; }
  void mtuIs(std::uint32_t mtu) { mtu_ = mtu; }

  /// For the owner's use; the proxy neither reads nor writes it.
  Kel::String const& vlanName() const { return vlanName_; }
  void vlanNameIs(Kel::String const& name) { vlanName_ = name; }

  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  void handleInitialized();
  void handleVlan();
  /// Decides whether a VLAN is proxied.
  void handleVlan(VlanId vlan);
  /// The adapter configuration that serves a VLAN's hosts: its own, made if need be, or for a
  /// secondary VLAN its primary's, which may be null.
  Kel::Ptr<AdapterVlanConfig> getOrCreateAdapterConfig(VlanId vlan);
  void handleAdapterConfig(VlanId vlan);
  void handleQuerierConfig(Kel::String name);
  void handlePam();
  /// A port's multiplexer came or went.
  void handlePam(Wirex::IntfId intfId);

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  class KelProtocolConfig;
  class KelPVlanLib;
  class KelQuerierConfigDir;
  class KelPamManager;

  friend class ProxyVlanSm;

  /// What decides whether a VLAN is proxied: its querier, and the configuration that has its
  /// switch, which for a secondary VLAN is its primary's.
  struct VlanInputs {
    bool areThere() const {
      return contextConfig && contextConfig->proxyEnabled() && querierConfig;
    }

    bool isSecondary;
    VlanId configVlan;
    Kel::Ptr<IgmpContextConfig const> contextConfig;
    Kel::Ptr<Igmp::QuerierConfig const> querierConfig;
  };
  VlanInputs inputsOf(VlanId vlan) const;

  void followContext(VlanId vlan);
  void reconcileContexts();
  void catchUp();
  void zombieOwnReactors(bool zombie);

  Parameters const parameters_;
  Decisions<VlanId> decisions_;
  bool initialized_ = false;
  std::uint32_t mtu_ = mtuDefault;
  Kel::String vlanName_;
  Kel::Ptr<KelProtocolConfig> protocolConfig_;
  Kel::Ptr<KelPVlanLib> pVlanLib_;
  Kel::Ptr<KelQuerierConfigDir> querierConfigDir_;
  Kel::Reactors<VlanId, KelContext> context_;
  Kel::OwnedMembers<VlanId, ProxyVlanSm> vlanSm_;
  Kel::OwnedMembers<VlanId, AdapterVlanConfig> adapterConfig_;
  Kel::OwnedMembers<VlanId, AdapterSm> adapterSm_;
  Kel::Ptr<PortVlanMapping> portVlanMap_;
  Kel::Ptr<ProxyPamManager> pamManager_;
  Kel::Ptr<KelPamManager> kelPamManager_;
  Kel::Ptr<Igmp::IgmpHostStatusDir> igmpHostStatusDir_;
  Kel::Ptr<Igmp::IgmpHostDirSm> igmpHostDirSm_;
};

/// Follows the switch of one VLAN.
class KEL_EXPORT ProxySm::KelContext final
    : public Kel::ReactorFor<ProxySm, IgmpContextConfig::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  VlanId vlanId() const { return notifier()->vlanId(); }
  void proxySmIs(ProxySm* proxySm) { ownerIs(proxySm); }

  void onProxyEnabled() override {
    if (notificationActive()) owner().handleVlan(vlanId());
  }
};

/// Makes the proxy. Packets are received through the thread's Interface::EthDevPams.
///
/// What it needs, of a VLAN while the VLAN's switch is on and its querier is there, and what
/// happens otherwise:
/// - The topology and the snooping status of the VLAN, and the protocol configuration of its
///   querier, before the later one of switch and querier comes. Otherwise the process aborts, with
///   the assertion "topoVlan()", "coreStatus()" or "querierVlanConfig()->gmpQuerierConfig()".
/// - The snooping status stays the same object. Otherwise the next look at the VLAN's adapter
///   throws Kel::NameInUseException.
/// - Names of queriers are VLAN numbers in decimal. Another name throws Kel::RangeException out of
///   the change that brought it.
/// - Names of interfaces do not begin with a digit, since a host's name is the VLAN's number and
///   the interface's name without anything between them. With such a name the process may abort
///   with the assertion "portKey().intfId() == intfId()", namely where the digits together are the
///   number of another VLAN: VLAN 10 with "1/1", but not VLAN 410.
/// - No argument but timerWheel is null. All changes come from one thread, that of the activities.
///
/// @param protocolConfig on which VLANs proxying is enabled
/// @param topoVlanState the ports of each VLAN. A proxied VLAN must have its topology
/// @param pVlanLib the private VLANs
/// @param pamDesiredIntfDir on which interfaces the system desires packet access
/// @param querierConfigDir the queriers, named by VLAN number; each with its protocol configuration
/// @param igmpHostDir where the proxy keeps its hosts
/// @param kernelIntfStatusDir the interfaces that the kernel has
/// @param bridgingConfig which frames leave tagged, and the VLAN of those without a tag
/// @param coreStatusDir what snooping has learned. A proxied VLAN must have its status
/// @param timerWheel for the hosts
KEL_EXPORT Kel::Ptr<ProxySm> proxySmFactory(
    Kel::Ptr<IgmpProtocolConfig const> protocolConfig,
    Kel::Ptr<Topology::Library::Vlan::LibVlanState const> topoVlanState,
    Kel::Ptr<PrivateVlanLib::LibState const> pVlanLib,
    Kel::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir,
    Kel::Ptr<Igmp::QuerierConfigDir> querierConfigDir, Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir,
    Kel::Ptr<Interface::DeviceIntfStatusDir const> kernelIntfStatusDir,
    Kel::Ptr<Bridging::Config const> bridgingConfig,
    Kel::Ptr<IgmpProtocolStatus const> coreStatusDir, Kel::Ptr<Horix::TimerWheel const> timerWheel);

}  // namespace Bridging::IgmpSnooping::Proxy
