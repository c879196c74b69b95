#include "platform/snooping/VlanQuerier.h"

#include <algorithm>
#include <span>
#include <utility>
#include <vector>

#include "framework/kel/Trace.h"
#include "platform/igmp/wire/FrameWriter.h"

KEL_TRACE_MODULE("IgmpSnooping::VlanQuerier", "VlanQuerier")

namespace Bridging::IgmpSnooping {

using Igmp::IgmpVersion;
using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

/// Where so many sources of a group are asked for, more of them wait a little for each other: each
/// query names all.
constexpr std::size_t manySources = 256;
constexpr std::chrono::milliseconds together(10);

/// At how many memberships at most it is looked before a query, for somebody who wants what is
/// asked for. What comes after that is asked for as what nobody wants: whoever wants it answers.
constexpr std::size_t mostLooks = 4096;

}  // namespace

/// What is still to be asked of one group on one port: how often the group, how often which sources
/// (RFC 9776 section 6.6.3).
class VlanQuerier::Inquiry final : public Horix::Timer {
 public:
  /// In two queries: what somebody is known to want for longer than an inquiry takes, for which
  /// routers are not to lower their timers, and the rest.
  struct Sources {
    std::vector<IpAddr> wanted;
    std::vector<IpAddr> doubtful;
  };

  Inquiry(InquiryKey key, VlanQuerier& querier, AskedPort& port)
      : key_(std::move(key)), querier_(querier), port_(port) {
    ++port_.groups;
  }
  ~Inquiry() override {
    --port_.groups;
    port_.sources -= sourceCount();
  }

  bool begun() const { return begun_; }
  bool ended() const { return groupQueries_ == 0 && sourceQueries_.empty(); }

  bool isLong() const { return sourceQueries_.size() >= manySources; }

  /// Asks `times` more often for what was withdrawn. Returns whether something of it is new.
  /// @param mostSources of the port; 0 is no limit.
  bool add(QueryNeed const& withdrawal, unsigned times, std::uint32_t mostSources) {
    bool isNew = withdrawal.group && groupQueries_ == 0;
    if (withdrawal.group) groupQueries_ = times;
    std::uint32_t const before = sourceCount();
    std::uint32_t const others = port_.sources - before;
    for (IpAddr const source : withdrawal.sources)
      if (mostSources == 0 || others + sourceCount() < mostSources)
        isNew |= sourceQueries_.insert_or_assign(source, times).second;
    port_.sources = others + sourceCount();
    return isNew;
  }

  bool asksForGroup() const { return groupQueries_ != 0; }
  void groupAsked() {
    begun_ = true;
    --groupQueries_;
  }
  void groupAnswered() { groupQueries_ = 0; }

  template <class IsWanted>
  Sources sources(IsWanted isWanted) const {
    Sources sources;
    for (auto const& [source, times] : sourceQueries_)
      (isWanted(source) ? sources.wanted : sources.doubtful).push_back(source);
    return sources;
  }
  void sourcesAsked() {
    port_.sources -= sourceCount();
    for (auto& [source, times] : sourceQueries_) --times;
    std::erase_if(sourceQueries_, [](auto const& entry) { return entry.second == 0; });
    port_.sources += sourceCount();
  }

 private:
  void onExpiry() override { querier_.continueInquiry(key_); }
  std::uint32_t sourceCount() const { return static_cast<std::uint32_t>(sourceQueries_.size()); }

  InquiryKey const key_;
  VlanQuerier& querier_;
  AskedPort& port_;
  bool begun_ = false;
  unsigned groupQueries_ = 0;
  std::map<IpAddr, unsigned> sourceQueries_;
};

VlanQuerier::VlanQuerier(VlanLearning& learning, Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : learning_(learning), timerWheel_(std::move(timerWheel)), policy_(learning.policy()) {}

VlanQuerier::~VlanQuerier() = default;

void VlanQuerier::settingsIs(QuerierSettings const& settings, SnoopingPolicy const& policy) {
  bool const wasOn = settings_.sendsQueries;
  bool const wasQuerier = isQuerier();
  settings_ = settings;
  policy_ = policy;
  if (wasOn != settings_.sendsQueries)
    KEL_TRACE(4, "VLAN " << vlanId() << ": " << settings_.source
                         << (wasOn ? " is no querier any more: it is switched off"
                                   : " may be querier: it is switched on"));
  bool const wins =
      settings_.sendsQueries && otherQuerier_ && precedes(settings_.source, otherQuerier_->address);
  if (wins)
    KEL_TRACE(4, "VLAN " << vlanId() << ": " << otherQuerier_->address
                         << " is not elected any more: " << settings_.source << " precedes it");
  otherQuerierIs(wins ? std::nullopt : otherQuerier_);
  if (!isQuerier()) {
    inquiries_.clear();
    if (!otherQuerier_) cancel();
  } else if (!wasQuerier) {
    startupQueriesLeft_ = wasOn ? 0 : policy_.robustnessVariable;
    queryAll();
  } else {
    // A query may have become due earlier than it was, but not later.
    Horix::Time const latest = timerWheel_->now() + policy_.queryInterval;
    if (latest < deadline()) timerWheel_->scheduleAt(*this, latest);
  }
  if (wasQuerier != isQuerier() || wins) onElection_(*this);
}

void VlanQuerier::portIs(VlanId vlan, QueryPort& port) {
  ports_[PortVlan{port.intfId(), vlan}].port = &port;
  portIsUp(vlan, port);
}

void VlanQuerier::portDel(VlanId vlan, QueryPort const& port) {
  PortVlan const key{port.intfId(), vlan};
  std::erase_if(inquiries_, [&](auto const& inquiry) { return inquiry.first.port == key; });
  ports_.erase(key);
}

void VlanQuerier::queryHeard(QueryPort const& port, OtherQuerier const& sender,
                             Igmp::Query const& query) {
  if (query.isGeneral()) tellOtherVersion(sender);
  if (!isElected(port, sender)) return;
  bool const isOther = !otherQuerier_ || !otherQuerier_->isSame(sender);
  startupQueriesLeft_ = 0;
  inquiries_.clear();
  if (isOther)
    KEL_TRACE(4, "VLAN " << vlanId() << ": " << sender.address << " on " << sender.intfId
                         << " is elected: its query is heard");
  timerWheel_->schedule(*this, std::min(policy_.otherQuerierPresentInterval(query),
                                        policy_.otherQuerierPresentInterval()));
  otherQuerierIs(sender);
  if (isOther) onElection_(*this);
}

void VlanQuerier::restore(OtherQuerier const& elected, Horix::Time until) {
  if (settings_.sendsQueries && precedes(settings_.source, elected.address)) return;
  KEL_TRACE(4, "VLAN " << vlanId() << ": " << elected.address << " on " << elected.intfId
                       << " is elected: it was before");
  startupQueriesLeft_ = 0;
  timerWheel_->scheduleAt(*this, until);
  otherQuerierIs(elected);
  onElection_(*this);
}

std::optional<QueryCourse> VlanQuerier::course() const {
  if (!isQuerier()) return std::nullopt;
  QueryCourse course{deadline(), startupQueriesLeft_};
  for (auto const& [key, asked] : ports_)
    if (asked.port->canSend()) course.asked.push_back(key);
  return course;
}

void VlanQuerier::goOnFrom(QueryCourse const& course) {
  if (!isQuerier()) return;
  startupQueriesLeft_ = std::min(course.startupQueriesLeft, policy_.robustnessVariable);
  timerWheel_->scheduleAt(*this, std::min(course.next, timerWheel_->now() + policy_.queryInterval));
  askedBefore_ = {course.asked.begin(), course.asked.end()};
}

bool VlanQuerier::isElected(QueryPort const& port, OtherQuerier const& sender) const {
  if (otherQuerier_)
    return sender.isSame(*otherQuerier_) ||
           precedes(sender.address, sender.macAddress, otherQuerier_->address,
                    otherQuerier_->macAddress);
  return !settings_.sendsQueries ||
         precedes(sender.address, sender.macAddress, settings_.source, port.macAddress());
}

void VlanQuerier::otherQuerierIs(std::optional<OtherQuerier> const& querier) {
  otherQuerier_ = querier;
  SnoopingPolicy inForce = policy_;
  if (querier && querier->robustness != 0) inForce.robustnessVariable = querier->robustness;
  if (querier && querier->queryInterval != querier->queryInterval.zero())
    inForce.queryInterval = querier->queryInterval;
  learning_.policyIs(inForce);
}

void VlanQuerier::tellOtherVersion(OtherQuerier const& sender) {
  constexpr auto pause = std::chrono::hours(1);
  if (!settings_.sendsQueries || sender.version == settings_.version) return;
  Horix::Time const now = timerWheel_->now();
  auto const [told, isFirst] = toldUntil_.try_emplace(sender.version);
  if (!isFirst && now < told->second) return;
  told->second = now + pause;
  onOtherVersion_({vlanId(), sender.intfId, sender.address, sender.version, settings_.version});
}

void VlanQuerier::inquire(VlanId vlan, QueryPort const& port, IpAddr group,
                          QueryNeed const& withdrawal) {
  // Leaves are nothing to an IGMPv1 querier, and an IGMPv2 one cannot ask for sources
  // (RFC 9776 section 7.3.1).
  if (!isQuerier() || settings_.version == IgmpVersion::v1) return;
  QueryNeed asked = withdrawal;
  if (settings_.version == IgmpVersion::v2) asked.sources.clear();
  if (asked.empty()) return;
  InquiryKey const key{{port.intfId(), vlan}, group};
  Inquiry* const inquiry = this->inquiry(key);
  if (!inquiry) return;
  // What is being asked for already is asked for again in its turn.
  if (!inquiry->add(asked, policy_.robustnessVariable, policy_.maxInterfaceSources)) {
    if (inquiry->ended()) inquiries_.erase(key);
    return;
  }
  if (!inquiry->scheduled() || !inquiry->isLong()) return continueInquiry(key);
  Horix::Time const soon = timerWheel_->now() + together;
  if (soon < inquiry->deadline()) timerWheel_->scheduleAt(*inquiry, soon);
}

/// What is asked of a group on a port. Null if the port is not there, or is asked for as many
/// groups as it may be.
VlanQuerier::Inquiry* VlanQuerier::inquiry(InquiryKey const& key) {
  auto const port = ports_.find(key.port);
  if (port == ports_.end()) return nullptr;
  auto const known = inquiries_.find(key);
  if (known != inquiries_.end()) return known->second.get();
  if (policy_.maxInterfaceGroups != 0 && port->second.groups >= policy_.maxInterfaceGroups)
    return nullptr;
  return inquiries_.emplace(key, std::make_unique<Inquiry>(key, *this, port->second))
      .first->second.get();
}

void VlanQuerier::onExpiry() {
  bool const isElection = otherQuerier_.has_value();
  if (isElection) {
    KEL_TRACE(4, "VLAN " << vlanId() << ": " << otherQuerier_->address
                         << " is not elected any more: it is heard no longer");
    otherQuerierIs(std::nullopt);
  }
  if (settings_.sendsQueries) queryAll();
  if (isElection) onElection_(*this);
}

void VlanQuerier::portIsUp(VlanId vlan, QueryPort& port) {
  if (!isQuerier() || askedBefore_.erase({port.intfId(), vlan}) != 0) return;
  Message const message = generalQuery();
  if (sendGeneral(vlan, port, message)) tellSent(vlan, message);
}

void VlanQuerier::queryAll() {
  if (startupQueriesLeft_ > 0) --startupQueriesLeft_;
  timerWheel_->schedule(
      *this, startupQueriesLeft_ > 0 ? policy_.startupQueryInterval() : policy_.queryInterval);
  Message const message = generalQuery();
  std::set<VlanId> vlans;
  for (auto const& [key, asked] : ports_)
    if (sendGeneral(key.vlanId, *asked.port, message)) vlans.insert(key.vlanId);
  for (VlanId const vlan : vlans) tellSent(vlan, message);
}

VlanQuerier::Message VlanQuerier::generalQuery() const {
  Igmp::QueryToSend general = query();
  general.maxResponseTime = policy_.queryMaxResponseTime;
  return Igmp::queryMessage(general);
}

bool VlanQuerier::sendGeneral(VlanId vlan, QueryPort& port, Message const& message) {
  if (!port.send(vlan, settings_.source, Igmp::allSystems, message)) return false;
  ++sent_.general;
  return true;
}

/// Those who hear it are to read in it what everybody else does.
void VlanQuerier::tellSent(VlanId vlan, Message const& message) const {
  if (auto const query = Igmp::readQuery(message)) onSent_(vlan, *query);
}

Igmp::QueryToSend VlanQuerier::query() const {
  Igmp::QueryToSend query;
  query.version = settings_.version;
  query.maxResponseTime = policy_.lastMemberQueryInterval;
  query.robustness = policy_.robustnessVariable;
  query.queryInterval = policy_.queryInterval;
  return query;
}

void VlanQuerier::continueInquiry(InquiryKey const& asked) {
  InquiryKey const key = asked;  // lives in what ends here
  QueryPort& port = *ports_.at(key.port).port;
  Inquiry& inquiry = *inquiries_.at(key);
  IntfId const& intf = key.port.intfId;
  Horix::Time const end =
      timerWheel_->now() + policy_.lastMemberQueryTime() + Horix::TimerWheel::tick;

  auto const send = [&](Igmp::QueryToSend const& query, std::uint64_t& counter) {
    Message const message = Igmp::queryMessage(query);
    if (!port.send(key.port.vlanId, settings_.source, key.group, message)) return;
    ++counter;
    tellSent(key.port.vlanId, message);
  };
  Igmp::QueryToSend query = this->query();
  query.group = key.group;

  std::size_t looks = mostLooks;
  bool const groupIsWanted = learning_.wantsEverySource(intf, key.group, end, looks);
  // RFC 2236 section 3: a report ends the queries.
  if (settings_.version == IgmpVersion::v2 && inquiry.begun() && groupIsWanted)
    inquiry.groupAnswered();
  bool const asksForGroup = inquiry.asksForGroup();
  if (asksForGroup) {
    query.suppressesRouters = groupIsWanted;
    send(query, sent_.groupSpecific);
    inquiry.groupAsked();
  }

  auto const sources = inquiry.sources(
      [&](IpAddr source) { return learning_.wants(intf, key.group, source, end, looks); });
  auto const askForSources = [&](std::vector<IpAddr> const& addresses, bool suppressesRouters) {
    query.suppressesRouters = suppressesRouters;
    std::size_t const atOnce = Igmp::sourcesPerQuery(port.mtu());
    for (std::size_t i = 0; i < addresses.size(); i += atOnce) {
      query.sources = std::span(addresses).subspan(i, std::min(atOnce, addresses.size() - i));
      send(query, sent_.groupAndSourceSpecific);
    }
  };
  if (!asksForGroup) askForSources(sources.wanted, true);  // the other query asks for them too
  askForSources(sources.doubtful, false);
  inquiry.sourcesAsked();

  if (inquiry.ended())
    inquiries_.erase(key);
  else
    timerWheel_->schedule(inquiry, policy_.lastMemberQueryInterval);
}

}  // namespace Bridging::IgmpSnooping
