#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/Switch.h"
#include "agent/forwarding/Alarm.h"
#include "agent/forwarding/BridgeControl.h"
#include "agent/forwarding/BridgePorts.h"
#include "agent/forwarding/EntryWriter.h"
#include "agent/forwarding/ForwardedRouters.h"
#include "agent/forwarding/ForwardedVlan.h"
#include "agent/forwarding/ForwardingRemedies.h"
#include "agent/forwarding/PendingGroups.h"
#include "agent/forwarding/VlanProgress.h"
#include "platform/horix/EventLoop.h"

namespace Agent {

/// Has a kernel's bridge forward what a switch has learned. Follows memberships, router ports and
/// the bridge itself, and writes piece by piece. While entries are not whole, streams are flooded;
/// while the bridge cannot be used, it is left alone. What stands in the way is logged with its
/// remedy, and tried again. Single-threaded.
class Forwarding {
 public:
  /// Does nothing before it is configured. The loop and the switch, which remembers already what it
  /// is to, outlive it.
  /// @param goesOn whether the switch goes on where another program has just stopped.
  Forwarding(Horix::EventLoop& loop, Switch& snoopingSwitch, bool goesOn);
  Forwarding(Forwarding const&) = delete;
  Forwarding& operator=(Forwarding const&) = delete;
  ~Forwarding();

  /// Follows the switch's configuration, which is new or has changed.
  void configure();

  /// Begins to give the bridge back for good. The loop goes on with it, and who cannot wait
  /// destroys this.
  void end();
  bool isGivingBack() const { return control_ && control_->isGivingBack(); }

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

  /// The configured ports of the bridge.
  BridgePorts const& ports() const { return ports_; }
  /// The ports that lead to a router in all their VLANs: they get everything without entries.
  std::set<Wirex::IntfId> const& routers() const { return routers_; }

  /// What the ports are to get of a group by entries, by the kernel's index.
  std::vector<EntryWriter::Entry> wanted(ForwardedVlan const& vlan, Wirex::IpAddr group) const;
  bool isRouterPort(ForwardedVlan const& vlan, Wirex::IntfId const& intf) const {
    return routerPorts_.leadsToRouter(vlan, intf);
  }

  /// Null before there was anything to write.
  EntryWriter const* entries() const { return writer_.get(); }
  /// How often somebody had changed what is needed, and it was set again.
  std::uint64_t disturbances() const { return disturbances_; }

 private:
  class Hearing;

  bool connect();
  void hearEvents();
  void giveBackLeftover();
  void examine();
  void examine(std::optional<LinkInfo> const& bridge);
  void isObstructed(std::string const& why);
  void begin(LinkInfo const& bridge);
  void stop();
  std::set<Wirex::IpAddr> groupsWithoutMark() const;
  void giveBackMore();
  void correct(LinkInfo const& bridge);
  void correctSettings(LinkInfo const& bridge);
  bool followPorts(LinkInfo const& bridge);
  void putRules();

  void routersAre(std::set<Wirex::IntfId> routers, bool demote);
  std::set<Wirex::IntfId> routersWanted() const;
  bool routersAreAsSet() const;

  void handlePublication();
  ForwardedVlan const* vlanOf(EntryWriter::Key const& key) const;
  void sweepAll();
  void advance();
  void followRouters();
  void followDeletions();
  void writePiece();
  bool hasToWrite() const;
  void writeSome();
  void compareSome();
  void compare(PendingGroups::Learned const& learned);
  void makeRoom();
  void retryFailed();
  void goByEntries();
  std::string routersTextOf(ForwardedVlan const& vlan) const;
  bool runRules(std::string const& text, Bridging::VlanId vlan);
  std::string portName(std::uint32_t index) const;

  Horix::EventLoop& loop_;
  Switch& switch_;
  std::optional<ForwardingConfig> config_;
  std::unique_ptr<RequestSocket> links_;    // tells of their changes
  std::unique_ptr<BridgeControl> control_;  // null until there is something to control
  std::vector<std::unique_ptr<Hearing>> hearings_;
  std::unique_ptr<EntryWriter> writer_;
  std::unique_ptr<Alarm> examination_;
  std::unique_ptr<Alarm> continuation_;
  ForwardedRouters routerPorts_;

  bool active_ = false;
  bool lookedForLeftover_ = false;
  std::string givenBack_;  // what is being given back, in words
  std::string obstacle_;
  LinkInfo bridge_;
  std::vector<LinkInfo> members_;  // the bridge's ports, configured or not
  BridgePorts ports_;
  std::vector<ForwardedVlan> vlans_;
  VlanProgress progress_;
  StreamRules rules_;  // as put up
  std::set<Wirex::IntfId> routers_;
  ForwardedRouters::Ports routersOf_;  // as last swept for
  std::uint32_t mostGroups_ = 0;
  std::uint64_t disturbances_ = 0;

  Horix::Time pieceEnd_{};  // when a piece of work has taken long enough
  bool freeing_ = false;    // what was written to a former bridge
  PendingGroups pending_;
  Horix::Time nextRetry_{};
  Complaints complaints_;
};

}  // namespace Agent
