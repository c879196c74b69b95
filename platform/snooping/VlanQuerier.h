#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "framework/types/IgmpVersion.h"
#include "platform/horix/TimerWheel.h"
#include "platform/igmp/wire/QueryWriter.h"
#include "platform/snooping/QueryNeed.h"
#include "platform/snooping/QueryPort.h"
#include "platform/snooping/SnoopingPolicy.h"
#include "platform/snooping/VlanLearning.h"

namespace Bridging::IgmpSnooping {

struct QuerierSettings {
  bool sendsQueries = false;
  Igmp::IgmpVersion version = Igmp::IgmpVersion::v3;

  /// The source of the queries, by which queriers elect one of them. With 0.0.0.0, which a switch
  /// without an address uses, every querier that has one wins.
  Wirex::IpAddr source{};
};

/// A querier on a link of the VLAN that speaks another version than is configured for it.
struct OtherVersion {
  VlanId vlanId;
  Wirex::IntfId intfId;
  Wirex::IpAddr querier;
  Igmp::IgmpVersion heard;
  Igmp::IgmpVersion configured;
};

/// Queries that left, each counted on each port.
struct QueriesSent {
  std::uint64_t general = 0;
  std::uint64_t groupSpecific = 0;
  std::uint64_t groupAndSourceSpecific = 0;
};

/// The querier of one VLAN (RFC 9776 section 6; RFC 2236 and RFC 1112 for the older versions). It
/// sends general queries on all ports, its secondary VLANs' included, and asks on a port from which
/// a withdrawal is heard whether somebody else there wants what was withdrawn. It stays silent
/// while it is switched off and while another querier is elected. Memberships' times are learning's
/// alone: queries lower none of them. Single-threaded.
class KEL_EXPORT VlanQuerier : private Horix::Timer {
 public:
  /// @param learning of the VLAN; outlives the querier.
  VlanQuerier(VlanLearning const& learning, Kel::Ptr<Horix::TimerWheel const> timerWheel);
  VlanQuerier(VlanQuerier const&) = delete;
  VlanQuerier& operator=(VlanQuerier const&) = delete;
  ~VlanQuerier() override;

  /// Off at first. A querier that is switched on sends its start-up queries.
  void settingsIs(QuerierSettings const& settings, SnoopingPolicy const& policy);
  QuerierSettings const& settings() const { return settings_; }

  /// Whether it is switched on and no other one is elected.
  bool isQuerier() const { return settings_.sendsQueries && !givesWay_; }

  /// The one to which it has lost the election; 0.0.0.0 if to none, or to one without an address.
  Wirex::IpAddr otherQuerier() const { return otherQuerier_; }

  QueriesSent const& sent() const { return sent_; }

  /// Queries a port in a VLAN: this one or, of a primary, a secondary. The port stays until it is
  /// taken out.
  void portIs(VlanId vlan, QueryPort& port);
  void portDel(VlanId vlan, QueryPort const& port);

  /// The port can send from now on: whoever is there is asked soon.
  void portIsUp(VlanId vlan, QueryPort& port);

  /// A query was heard, whose sender is taken to be there for so long.
  /// @param precedesByMac whether the sender's MAC address is lower than that of the port on which
  /// it was heard.
  void queryHeard(Wirex::IpAddr source, Horix::Time lifetime, bool precedesByMac = false);

  /// A general query of this version was heard.
  void versionHeard(Wirex::IntfId const& intf, Wirex::IpAddr source, Igmp::IgmpVersion version);

  /// Who hears of other versions, while it is switched on: of each at most once an hour (RFC 9776
  /// section 7.3.1 has such warnings rate-limited).
  using OnOtherVersion = std::function<void(OtherVersion const&)>;
  void onOtherVersionIs(OnOtherVersion action) { onOtherVersion_ = std::move(action); }

  /// Something was withdrawn on a port, and learning knows.
  void withdrawn(VlanId vlan, QueryPort const& port, Wirex::IpAddr group,
                 QueryNeed const& withdrawal);

 private:
  class Inquiry;

  /// A port in a VLAN, in an order that is the same in every run.
  struct PortVlan {
    Wirex::IntfId intfId;
    VlanId vlanId;

    friend auto operator<=>(PortVlan const&, PortVlan const&) = default;
  };
  struct InquiryKey {
    PortVlan port;
    Wirex::IpAddr group;

    friend auto operator<=>(InquiryKey const&, InquiryKey const&) = default;
  };

  /// The next general query is due, or another querier has fallen silent.
  void onExpiry() override;

  bool wins(Wirex::IpAddr querier, bool precedesByMac) const;
  void queryAll();
  void queryGenerally(VlanId vlan, QueryPort& port);
  void continueInquiry(InquiryKey const& asked);
  Igmp::QueryToSend query() const;

  VlanLearning const& learning_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  QuerierSettings settings_;
  SnoopingPolicy policy_;
  unsigned startupQueriesLeft_ = 0;
  bool givesWay_ = false;
  Wirex::IpAddr otherQuerier_;
  OnOtherVersion onOtherVersion_ = [](OtherVersion const&) {};
  std::map<Igmp::IgmpVersion, Horix::Time> toldUntil_;
  QueriesSent sent_;
  std::map<PortVlan, QueryPort*> ports_;
  std::map<InquiryKey, std::unique_ptr<Inquiry>> inquiries_;
};

}  // namespace Bridging::IgmpSnooping
