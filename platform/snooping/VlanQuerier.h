#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "framework/types/IgmpVersion.h"
#include "platform/horix/TimerWheel.h"
#include "platform/igmp/wire/Message.h"
#include "platform/igmp/wire/QueryWriter.h"
#include "platform/snooping/OtherQuerier.h"
#include "platform/snooping/QueryNeed.h"
#include "platform/snooping/QueryPort.h"
#include "platform/snooping/SnoopingPolicy.h"
#include "platform/snooping/VlanLearning.h"

namespace Bridging::IgmpSnooping {

/// How a querier is configured.
struct QuerierSettings {
  bool sendsQueries = false;  ///< whether it is switched on
  Igmp::IgmpVersion version = Igmp::IgmpVersion::v3;

  /// The source of the queries, by which queriers elect one of them. With 0.0.0.0, which a switch
  /// without an address uses, every querier that has one wins.
  Wirex::IpAddr source{};
};

/// What a querier has asked and is about to ask.
struct QueryCourse {
  /// A port in a VLAN, in an order that is the same in every run.
  struct PortVlan {
    Wirex::IntfId intfId;
    VlanId vlanId;

    friend auto operator<=>(PortVlan const&, PortVlan const&) = default;
  };

  Horix::Time next{};               ///< when the next general query is due
  unsigned startupQueriesLeft = 0;  ///< RFC 9776 section 8.7
  std::vector<PortVlan> asked{};    ///< ports that can send, and so have been asked
};

/// A querier on a link of the VLAN that speaks another version than is configured for it.
struct OtherVersion {
  VlanId vlanId;
  Wirex::IntfId intfId;
  Wirex::IpAddr querier;         ///< its address
  Igmp::IgmpVersion heard;       ///< that it speaks
  Igmp::IgmpVersion configured;  ///< that it should speak
};

/// Queries that left, each counted on each port.
struct QueriesSent {
  std::uint64_t general = 0;                 ///< for all groups
  std::uint64_t groupSpecific = 0;           ///< for one group
  std::uint64_t groupAndSourceSpecific = 0;  ///< for sources of one group
};

/// The querier of one VLAN (RFC 9776 section 6; RFC 2236 and RFC 1112 for the older versions). It
/// sends general queries on all ports, its secondary VLANs' included, and asks on a port from which
/// a withdrawal is heard whether somebody else there wants what was withdrawn. It stays silent
/// while it is switched off and while another querier is elected, whose robustness and query
/// interval learning then counts in (RFC 9776 sections 4.1.6 and 4.1.7). Memberships' times are
/// learning's alone: queries lower none of them. Single-threaded.
class KEL_EXPORT VlanQuerier : private Horix::Timer {
 public:
  /// @param learning of the VLAN; outlives the querier.
  VlanQuerier(VlanLearning& learning, Kel::Ptr<Horix::TimerWheel const> timerWheel);
  VlanQuerier(VlanQuerier const&) = delete;
  VlanQuerier& operator=(VlanQuerier const&) = delete;
  ~VlanQuerier() override;

  /// Off at first. A querier that is switched on sends its start-up queries, unless another one
  /// is elected already.
  /// @param policy as it is configured; learning gets it with the elected querier's values.
  void settingsIs(QuerierSettings const& settings, SnoopingPolicy const& policy);
  QuerierSettings const& settings() const { return settings_; }
  SnoopingPolicy const& policy() const { return policy_; }
  VlanId vlanId() const { return learning_.vlanId(); }

  /// Whether it is switched on and no other one is elected.
  bool isQuerier() const { return settings_.sendsQueries && !otherQuerier_; }

  /// The one that is elected, if that is another one. Also while this one is off.
  std::optional<OtherQuerier> const& otherQuerier() const { return otherQuerier_; }

  /// When that one is taken to be gone if it is not heard again. Meaningless if there is none.
  Horix::Time otherQuerierUntil() const { return deadline(); }

  /// Another querier was elected before, by this or a former querier of the VLAN.
  void restore(OtherQuerier const& elected, Horix::Time until);

  /// How far it has got with asking, for one that goes on in its place. Nothing where another one
  /// is elected, or it is off.
  std::optional<QueryCourse> course() const;

  /// Goes on from there, where it is the querier: who has been asked is not asked at once again
  /// when its port comes up.
  void goOnFrom(QueryCourse const& course);

  /// Ports that come up from now on are asked in any case.
  void askedBeforeDelAll() { askedBefore_.clear(); }

  /// What the elected querier speaks, or this one would.
  Igmp::IgmpVersion version() const {
    return otherQuerier_ ? otherQuerier_->version : settings_.version;
  }

  /// What it has sent so far.
  QueriesSent const& sent() const { return sent_; }

  /// Queries a port in a VLAN: this one or, of a primary, a secondary. The port stays until it is
  /// taken out.
  void portIs(VlanId vlan, QueryPort& port);
  void portDel(VlanId vlan, QueryPort const& port);

  /// The port can send from now on: whoever is there is asked soon.
  void portIsUp(VlanId vlan, QueryPort& port);

  /// A query was heard on a port. Its sender is elected or not for as long as it says, but not for
  /// longer than this VLAN's own values allow: one query must not end querying for days.
  void queryHeard(QueryPort const& port, OtherQuerier const& sender, Igmp::Query const& query);

  /// Who hears of each election with another outcome than before.
  using OnElection = std::function<void(VlanQuerier const&)>;
  void onElectionIs(OnElection action) { onElection_ = std::move(action); }

  /// Who hears of other versions, while it is switched on: of each at most once an hour (RFC 9776
  /// section 7.3.1 has such warnings rate-limited).
  using OnOtherVersion = std::function<void(OtherVersion const&)>;
  void onOtherVersionIs(OnOtherVersion action) { onOtherVersion_ = std::move(action); }

  /// Who hears what it asks: of one query on several ports of a VLAN once.
  using OnSent = std::function<void(VlanId, Igmp::Query const&)>;
  void onSentIs(OnSent action) { onSent_ = std::move(action); }

  /// Asks on a port who still wants what was withdrawn there; learning has heard of it before. A
  /// port is asked for as many groups and sources at once as it may have: what is withdrawn beyond
  /// that, while the asking lasts, is not asked for.
  void inquire(VlanId vlan, QueryPort const& port, Wirex::IpAddr group,
               QueryNeed const& withdrawal);

 private:
  class Inquiry;
  using Message = std::vector<std::uint8_t>;

  using PortVlan = QueryCourse::PortVlan;
  struct InquiryKey {
    PortVlan port;
    Wirex::IpAddr group;

    friend auto operator<=>(InquiryKey const&, InquiryKey const&) = default;
  };

  /// A port, and what it is being asked for.
  struct AskedPort {
    QueryPort* port = nullptr;
    std::uint32_t groups = 0;
    std::uint32_t sources = 0;
  };

  /// The next general query is due, or the other querier has fallen silent.
  void onExpiry() override;

  bool isElected(QueryPort const& port, OtherQuerier const& sender) const;
  void otherQuerierIs(std::optional<OtherQuerier> const& querier);
  void tellOtherVersion(OtherQuerier const& sender);
  void queryAll();
  Message generalQuery() const;
  bool sendGeneral(VlanId vlan, QueryPort& port, Message const& message);
  void tellSent(VlanId vlan, Message const& message) const;
  Inquiry* inquiry(InquiryKey const& key);
  void continueInquiry(InquiryKey const& asked);
  Igmp::QueryToSend query() const;

  VlanLearning& learning_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  QuerierSettings settings_;
  SnoopingPolicy policy_;
  unsigned startupQueriesLeft_ = 0;
  std::optional<OtherQuerier> otherQuerier_;  // timed by this timer, else the next query is
  OnOtherVersion onOtherVersion_ = [](OtherVersion const&) {};
  OnElection onElection_ = [](VlanQuerier const&) {};
  OnSent onSent_ = [](VlanId, Igmp::Query const&) {};
  std::map<Igmp::IgmpVersion, Horix::Time> toldUntil_;
  QueriesSent sent_;
  std::map<PortVlan, AskedPort> ports_;
  std::set<PortVlan> askedBefore_;
  std::map<InquiryKey, std::unique_ptr<Inquiry>> inquiries_;
};

}  // namespace Bridging::IgmpSnooping
