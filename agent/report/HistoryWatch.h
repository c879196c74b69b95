#pragma once

#include <map>
#include <set>
#include <tuple>

#include "agent/Switch.h"
#include "agent/report/History.h"
#include "agent/watch/MembershipWatch.h"
#include "agent/watch/RecordWatch.h"
#include "framework/kel/Reactors.h"

namespace Agent {

/// Writes down a switch's history from the beginning: who was querier, where routers were, who
/// listened to what, and what hosts had to report.
class HistoryWatch {
 public:
  /// No more changes than these are kept, so that memory has an end; later ones are counted.
  static constexpr std::size_t most = 200000;

  /// @param snoopingSwitch has learned nothing yet, keeps its VLANs, and outlives the watch; nobody
  ///        else hears of its elections.
  explicit HistoryWatch(Switch& snoopingSwitch);
  HistoryWatch(HistoryWatch const&) = delete;
  HistoryWatch& operator=(HistoryWatch const&) = delete;
  ~HistoryWatch();

  /// Until now.
  History history() const;

 private:
  class KelRouterPorts;
  using VlanId = Bridging::VlanId;
  using Key = std::tuple<HistoryRow::Kind, VlanId, Wirex::IpAddr, Wirex::IntfId, Wirex::IpAddr>;

  void publish();
  void handleQuerier(VlanId vlan);
  void handleRouters(VlanId vlan);
  /// @param text empty if it no longer holds.
  void becomes(Key const& key, std::string text);

  Switch& switch_;
  RecordWatch records_;
  MembershipWatch memberships_;
  Kel::Reactors<VlanId, KelRouterPorts> routerPorts_;
  std::set<VlanId> touchedRouters_;
  std::set<VlanId> touchedQueriers_;
  std::map<Key, std::vector<Span>> spans_;
  std::size_t kept_ = 0;
  std::size_t untold_ = 0;
};

}  // namespace Agent
