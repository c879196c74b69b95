#pragma once

#include <cstdint>
#include <ostream>
#include <utility>
#include <vector>

#include "platform/igmp/wire/PacketReader.h"
#include "platform/snooping/SnoopedVlan.h"
#include "platform/wirex/Ethernet.h"

/// What the tests of snooped ports say VLANs and queries in.
namespace SnoopingTest {

/// All that a VLAN's ports hand what they hear to.
struct Vlan {
  Vlan(std::uint16_t number, Bridging::IgmpSnooping::SnoopingPolicy const& policy,
       Bridging::IgmpSnooping::ReportBatch& reports,
       Kel::Ptr<Horix::TimerWheel const> const& wheel =
           Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>()))
      : vlanId(number),
        batch(reports),
        status(Kel::make<Bridging::IgmpSnooping::IgmpContextStatus>(vlanId)),
        learning(status, policy, wheel, reports),
        routerPorts(Kel::make<Bridging::IgmpSnooping::RouterPorts>(vlanId)),
        routers(routerPorts, wheel),
        querier(learning, wheel) {}

  Bridging::IgmpSnooping::SnoopedVlan snooped() { return {&learning, &routers, &querier}; }
  /// Whether somebody wants the group once the batch has ended.
  bool has(Wirex::IpAddr address) {
    batch.publish();
    return status->group(address) != nullptr;
  }

  Bridging::VlanId vlanId;
  Bridging::IgmpSnooping::ReportBatch& batch;
  Kel::Ptr<Bridging::IgmpSnooping::IgmpContextStatus> status;
  Bridging::IgmpSnooping::VlanLearning learning;
  Kel::Ptr<Bridging::IgmpSnooping::RouterPorts> routerPorts;
  Bridging::IgmpSnooping::VlanRouters routers;
  Bridging::IgmpSnooping::VlanQuerier querier;
};

/// A query that was sent, by what tests tell queries apart.
struct SentQuery {
  Wirex::IpAddr group;
  std::vector<Wirex::IpAddr> sources{};
  bool suppressesRouters = false;

  friend bool operator==(SentQuery const&, SentQuery const&) = default;
  friend std::ostream& operator<<(std::ostream& out, SentQuery const& query) {
    out << "Q(" << query.group;
    for (Wirex::IpAddr const source : query.sources) out << ' ' << source;
    return out << (query.suppressesRouters ? ") S" : ")");
  }
};

inline SentQuery const generalQuery{};

inline SentQuery sentQuery(Igmp::Query const& query) {
  return {query.group, {query.sources.begin(), query.sources.end()}, query.suppressesRouters};
}

}  // namespace SnoopingTest
