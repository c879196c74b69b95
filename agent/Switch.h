#pragma once

#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "agent/InterfaceState.h"
#include "agent/SwitchEntities.h"
#include "agent/config/Configuration.h"
#include "agent/watch/HostWatch.h"
#include "platform/horix/EventLoop.h"
#include "platform/snooping/SnoopingPamManager.h"
#include "platform/snooping/VlanLearning.h"
#include "platform/snooping/VlanQuerier.h"
#include "platform/snooping/VlanRouters.h"
#include "proxy/ProxySm.h"

namespace Agent {

/// Everything between the frames that come in and those that hosts send: the same for a live switch
/// and for a replay, which differ in where frames come from and go to and in the clock.
///
///     device -> SnoopedPort -> VlanLearning -> status entities -> AdapterSm -> IgmpHost -> device
///
/// Frames come through the thread's Interface::EthDevPams, which must be there before. The loop
/// ends each batch of input and each expiry of timers with a publication. Single-threaded.
class Switch {
 public:
  using Ports = Bridging::IgmpSnooping::SnoopingPamManager::Ports;
  using InterfaceStates = std::map<Wirex::IntfId, InterfaceState>;
  using VlanLearning = Bridging::IgmpSnooping::VlanLearning;
  using VlanQuerier = Bridging::IgmpSnooping::VlanQuerier;
  using LimitReached = Bridging::IgmpSnooping::LimitReached;
  using OtherVersion = Bridging::IgmpSnooping::OtherVersion;
  using VlanRouters = Bridging::IgmpSnooping::VlanRouters;
  using RouterPorts = Bridging::IgmpSnooping::RouterPorts;

  /// Interfaces exist from the time that interfaceStateIs() tells their state.
  /// @param loop outlives the switch.
  Switch(Configuration configuration, Horix::EventLoop& loop);
  Switch(Switch const&) = delete;
  Switch& operator=(Switch const&) = delete;
  ~Switch();

  Configuration const& configuration() const { return configuration_; }
  /// Changes what is different and nothing else; what was learned where nothing changes stays.
  void configurationIs(Configuration configuration);

  /// The interfaces that exist, configured or not.
  InterfaceStates const& interfaceState() const { return interfaceState_; }
  /// The default state if the interface does not exist.
  InterfaceState interfaceState(Wirex::IntfId const& intf) const;
  void interfaceStateIs(Wirex::IntfId const& intf, InterfaceState const& state);

  /// Forgets what is known of ports that hear nothing: state that was kept from before the start,
  /// of ports that turn out to be down.
  void forgetDeafPorts();

  /// Hosts and queriers that have not gone on from what was handed over, because their ports are
  /// down, begin as new when these come up.
  void endTakingOver();

  /// Has all hosts leave their groups, and send nothing any more.
  void leave();

  SwitchEntities const& entities() const { return entities_; }
  Bridging::IgmpSnooping::Proxy::ProxySm const& proxy() const { return *proxy_; }
  Bridging::IgmpSnooping::SnoopingPamManager const& snooping() const { return *snooping_; }
  Ports const& ports() const { return snooping_->port(); }

  /// Where the memberships of a VLAN are learned, for a secondary VLAN its primary's. This and what
  /// follows is null if the VLAN is not configured.
  VlanLearning* learning(Bridging::VlanId vlan);
  VlanLearning const* learning(Bridging::VlanId vlan) const;
  /// The VLAN's querier, for a secondary VLAN its primary's.
  VlanQuerier const* querier(Bridging::VlanId vlan) const;
  VlanQuerier* querier(Bridging::VlanId vlan);
  RouterPorts const* routerPorts(Bridging::VlanId vlan) const;
  VlanRouters* routers(Bridging::VlanId vlan);

  /// Finds the switch's own address in a VLAN on an interface; 0.0.0.0 if it has none.
  using OwnAddress = std::function<Wirex::IpAddr(Bridging::VlanId, Wirex::IntfId const&)>;

  /// Finds the addresses that are not configured. To be set again whenever an address may have
  /// changed; until it is set, there are none.
  void ownAddressesAre(OwnAddress ownAddress);
  Wirex::IpAddr ownAddress(Bridging::VlanId vlan, Wirex::IntfId const& intf) const {
    return ownAddress_(vlan, intf);
  }

  /// Called for queriers of other versions where the switch sends queries.
  void onOtherVersionIs(VlanQuerier::OnOtherVersion action) { onOtherVersion_ = std::move(action); }

  /// Called when a port reaches a limit, at most once a minute for each limit.
  void onLimitIs(VlanLearning::OnLimit action) { onLimit_ = std::move(action); }

  /// Called when the election of a VLAN's querier has another outcome than before.
  void onElectionIs(VlanQuerier::OnElection action) { onElection_ = std::move(action); }

  /// Called for each group whose memberships change, before they have settled.
  void onGroupIs(Bridging::IgmpSnooping::ReportBatch::OnGroup action) {
    batch_.onGroupIs(std::move(action));
  }

  Horix::Time now() const { return loop_.now(); }

  /// The turns of the loop that it runs on.
  Horix::EventLoop::Turns const& turns() const { return loop_.turns(); }

  /// Does `action` at the end of each publication, when the records have settled, until `who` sets
  /// a null one.
  void afterPublishIs(void const* who, std::function<void()> action);

 private:
  /// Learning and querying of a VLAN and its secondary ones.
  struct Learning {
    Learning(Kel::Ptr<Bridging::IgmpSnooping::IgmpContextStatus> const& status,
             VlanConfig const& vlan, Horix::EventLoop const& loop,
             Bridging::IgmpSnooping::ReportBatch& batch);

    VlanLearning learning;
    VlanQuerier querier;
  };

  using Adapters = std::map<Bridging::VlanId, Kel::Ptr<Bridging::IgmpSnooping::Proxy::AdapterSm>>;

  Adapters adapters() const;
  void tellNewAdapters(Adapters const& former);
  std::optional<Bridging::VlanId> learnedIn(Bridging::VlanId vlan) const;
  void removePorts();
  void removeVlans();
  void addVlans();
  void addPorts();
  void handleInterface(InterfaceConfig const& interface);
  void tellTopology(InterfaceConfig const& interface);
  Bridging::IgmpSnooping::QuerierSettings querierSettings(VlanConfig const& vlan) const;
  void configureHost(Igmp::IgmpHost& host);
  void publish();

  bool blocked(InterfaceConfig const& interface) const;
  bool receives(InterfaceConfig const& interface) const;
  bool sends(InterfaceConfig const& interface) const;
  bool hears(Bridging::IgmpSnooping::SnoopedPort const& port, Bridging::VlanId vlan) const;
  /// The default state if the interface is none.
  Bridging::IgmpSnooping::RouterPort routerPort(Bridging::VlanId vlan,
                                                Wirex::IntfId const& intf) const;

  Configuration configuration_;
  std::map<Wirex::IntfId, InterfaceConfig const*> interfaces_;
  std::map<Bridging::VlanId, VlanConfig const*> vlans_;
  InterfaceStates interfaceState_;

  SwitchEntities entities_;
  Horix::EventLoop& loop_;
  Kel::Ptr<Bridging::IgmpSnooping::Proxy::ProxySm> proxy_;
  Bridging::IgmpSnooping::ReportBatch batch_;
  std::map<Bridging::VlanId, Learning> learning_;  // of VLANs that are not secondary
  std::map<Bridging::VlanId, Bridging::IgmpSnooping::VlanRouters> routers_;
  Kel::Ptr<Bridging::IgmpSnooping::SnoopingPamManager> snooping_;
  Kel::Ptr<HostWatch> hostWatch_;
  std::map<void const*, std::function<void()>> afterPublish_;
  VlanLearning::OnLimit onLimit_ = [](LimitReached const&) {};
  OwnAddress ownAddress_ = [](Bridging::VlanId, Wirex::IntfId const&) { return Wirex::IpAddr(); };
  VlanQuerier::OnElection onElection_ = [](VlanQuerier const&) {};
  VlanQuerier::OnOtherVersion onOtherVersion_ = [](OtherVersion const&) {};
};

}  // namespace Agent
