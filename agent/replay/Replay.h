#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/Switch.h"
#include "agent/replay/CaptureMerge.h"
#include "agent/replay/GroupSendings.h"
#include "agent/replay/LookAhead.h"
#include "agent/replay/OwnFrames.h"
#include "agent/replay/PortCapture.h"
#include "agent/replay/ReplayEvent.h"
#include "agent/replay/SentCaptures.h"
#include "agent/report/HistoryWatch.h"
#include "agent/watch/MembershipWatch.h"
#include "agent/watch/RecordWatch.h"
#include "platform/horix/EventLoop.h"
#include "platform/interface/CaptureEthDevPams.h"

namespace Agent {

/// Drives a switch with captures under a virtual clock, which reads the time since the first packet
/// of all captures. Timers that are due come before the packets of the same time. Packets of one
/// time make one batch of input, however many captures they come from. Every configured port is
/// there, with carrier, and has a MAC address of its own.
class Replay {
 public:
  /// Throws CaptureError; and std::invalid_argument, see requireConfiguredPorts().
  Replay(Configuration const& configuration, std::vector<PortCapture> const& captures);

  Replay(Replay const&) = delete;
  Replay& operator=(Replay const&) = delete;
  ~Replay();

  /// What comes from this address the switch itself has sent: it is left out.
  void ownAddressIs(StationAddress const& address) { ownFrames_.ownAddressIs(address); }

  /// So is all that comes from these, who turned out to be the switch in another replay of the
  /// same.
  void ownStationsAre(std::set<OwnStations::Station> stations) {
    ownFrames_.stations().knownAre(std::move(stations));
  }

  /// Stores what hosts send from now on in a directory, whole at the end of run(). Throws
  /// CaptureError, also if that would replace one of the captures.
  void writeSent(std::string const& directory);

  /// Who hears of the changes of the hosts' records from now on, of those of one time at once.
  void onEventsAre(std::function<void(std::vector<ReplayEvent>)> action);

  /// Writes down from now on what history() tells.
  void watchHistory() { historyWatch_ = std::make_unique<HistoryWatch>(switch_); }

  /// Writes down from now on what groupSendings() tells: what the host of a port sends for a group.
  void watchSendings(Bridging::VlanId vlan, Wirex::IntfId const& interface, Wirex::IpAddr group) {
    groupSendings_.emplace(switch_.configuration(), vlan, interface, group);
  }
  std::optional<GroupSendings> const& groupSendings() const { return groupSendings_; }

  /// Who hears every few packets how far the captures have been read.
  void onProgressIs(std::function<void(CaptureMerge const&)> action) {
    onProgress_ = std::move(action);
  }

  /// Feeds the captures to their end, and ends at the last packet's time; or ends at `until`, which
  /// may lie before the last packet or after it. Throws CaptureError, also if nothing is heard for
  /// longer than a month: every query that would be sent meanwhile costs time.
  void run(std::optional<Horix::Time> until);

  Switch const& result() const { return switch_; }
  /// Of the first packet, since the epoch.
  Horix::Time start() const { return packets_.start(); }
  History history() const { return historyWatch_->history(); }

  /// What of the captures the switch itself had sent, and was left out.
  OwnFrames const& ownFrames() const { return ownFrames_; }

 private:
  void letTimePass(Horix::Time to);
  void noteFrame(Wirex::IntfId const& port, MergedPacket const& packet);
  void tellEvents();

  Horix::EventLoop loop_;
  Interface::CaptureEthDevPams devices_;
  Switch switch_;
  std::vector<Wirex::IntfId> ports_;    // by capture
  std::vector<std::string> fileNames_;  // of the captures
  CaptureMerge packets_;
  OwnFrames ownFrames_;
  LookAhead ahead_;
  std::unique_ptr<SentCaptures> sent_;
  std::optional<GroupSendings> groupSendings_;

  std::function<void(CaptureMerge const&)> onProgress_;
  std::function<void(std::vector<ReplayEvent>)> onEvents_;
  std::unique_ptr<RecordWatch> records_;
  std::unique_ptr<MembershipWatch> memberships_;
  // The latest since events were told, of each reporter.
  std::map<std::pair<Wirex::IntfId, Wirex::IpAddr>, std::uint64_t> frames_;
  std::unique_ptr<HistoryWatch> historyWatch_;
};

}  // namespace Agent
