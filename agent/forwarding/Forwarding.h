#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "agent/Switch.h"
#include "agent/forwarding/BridgeControl.h"
#include "agent/forwarding/EntryWriter.h"
#include "agent/forwarding/ForwardedVlan.h"
#include "agent/watch/MembershipWatch.h"
#include "framework/kel/Reactors.h"
#include "platform/horix/EventLoop.h"

namespace Agent {

/// Has a kernel's bridge forward what a switch has learned. Follows memberships, router ports and
/// the bridge itself, and writes piece by piece. While entries are not whole, streams are flooded;
/// while the bridge cannot be used, it is left alone. What stands in the way is logged with its
/// remedy, and tried again. Single-threaded.
class Forwarding {
 public:
  /// Does nothing before it is configured. The loop and the switch outlive it.
  Forwarding(Horix::EventLoop& loop, Switch& snoopingSwitch);
  Forwarding(Forwarding const&) = delete;
  Forwarding& operator=(Forwarding const&) = delete;
  ~Forwarding();

  /// Follows the switch's configuration, which is new or has changed.
  void configure();

  /// Gives the bridge back for good.
  void end();

  /// Nothing if none is configured.
  std::optional<ForwardingConfig> const& configuration() const { return config_; }
  bool isActive() const { return active_; }
  /// Why the bridge is left alone; empty if it is not, or if none is configured.
  std::string const& obstacle() const { return obstacle_; }
  LinkInfo const& bridge() const { return bridge_; }
  EntryKind entryKind() const { return control_->entryKind(); }

  std::vector<ForwardedVlan> const& vlans() const { return vlans_; }
  /// Whether streams of a VLAN go by entries, or still everywhere.
  bool goesByEntries(Bridging::VlanId vlan) const;

  /// The configured ports of the bridge, with the kernel's indices.
  using Ports = std::map<Wirex::IntfId, std::uint32_t>;
  Ports const& ports() const { return ports_; }
  /// The ports that lead to a router in all their VLANs: they get everything without entries.
  std::set<Wirex::IntfId> const& routers() const { return routers_; }

  /// What the ports are to get of a group by entries, by the kernel's index.
  std::vector<EntryWriter::Entry> wanted(ForwardedVlan const& vlan, Wirex::IpAddr group) const;
  bool isRouterPort(ForwardedVlan const& vlan, Wirex::IntfId const& intf) const;

  /// Null before there was anything to write.
  EntryWriter const* entries() const { return writer_.get(); }
  /// How often somebody had changed what is needed, and it was set again.
  std::uint64_t disturbances() const { return disturbances_; }

 private:
  class Alarm;
  class LinkEvents;
  class KelRouterPorts;

  /// A group in the VLAN in which it is learned.
  using Learned = std::pair<Bridging::VlanId, Wirex::IpAddr>;

  /// The router ports of each VLAN.
  using RoutersOf = std::map<Bridging::VlanId, std::set<Wirex::IntfId>>;

  /// How far a VLAN is on its way from flooding to entries.
  struct VlanState {
    Horix::Time known{};  ///< when all listeners must have answered a query
    bool queried = false;
    bool byEntries = false;
  };

  bool connect();
  void giveBackLeftover();
  void examine();
  void examine(std::optional<LinkInfo> const& bridge);
  std::string obstacleTo(std::optional<LinkInfo> const& bridge) const;
  void isObstructed(std::string const& why);
  void begin(LinkInfo const& bridge);
  void stop();
  void correct(LinkInfo const& bridge);
  void forgetStates();

  Ports servedPorts() const;
  StreamRules rulesWanted() const;
  void putRules();
  void followRouters();
  RoutersOf routersNow() const;
  std::set<Wirex::IntfId> routersWanted() const;
  void routersAre(std::set<Wirex::IntfId> routers, bool demote);

  void handlePublication();
  void sweepAll();
  void advance();
  void writeSome();
  void compare(Learned const& learned);
  void makeRoom();
  void complain(EntryWriter::Refusal const& refusal);
  void retryFailed();
  void noteQueries();
  void goByEntries();

  Horix::EventLoop& loop_;
  Switch& switch_;
  std::optional<ForwardingConfig> config_;
  std::unique_ptr<BridgeControl> control_;  // null until there is something to control
  std::unique_ptr<LinkEvents> linkEvents_;
  std::unique_ptr<EntryWriter> writer_;
  std::unique_ptr<Alarm> examination_;
  std::unique_ptr<Alarm> continuation_;
  std::unique_ptr<MembershipWatch> watch_;   // while active
  std::unique_ptr<MembershipWatch> ending_;  // a former one, which goes piece by piece
  Kel::Reactors<Bridging::VlanId, KelRouterPorts> routerPorts_;

  bool active_ = false;
  bool lookedForLeftover_ = false;
  std::string obstacle_;
  LinkInfo bridge_;
  std::vector<LinkInfo> links_;  // the bridge's ports, configured or not
  Ports ports_;
  std::vector<ForwardedVlan> vlans_;
  std::map<Bridging::VlanId, VlanState> states_;
  StreamRules rules_;  // as put up
  std::set<Wirex::IntfId> routers_;
  RoutersOf routersOf_;  // as last swept for
  bool routersChanged_ = false;
  std::uint32_t mostGroups_ = 0;
  std::uint64_t disturbances_ = 0;

  bool watching_ = false;  // what was there in the beginning is not all watched yet
  std::unordered_map<std::uint64_t, Learned> dirty_;
  std::vector<Learned> sweep_;  // all of which may be dirty, after the others
  Horix::Time nextRetry_{};
  Horix::Time nextComplaint_{};
  std::uint64_t unsaid_ = 0;
};

}  // namespace Agent
