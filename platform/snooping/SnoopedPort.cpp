#include "platform/snooping/SnoopedPort.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "platform/igmp/wire/FrameWriter.h"

namespace Bridging::IgmpSnooping {

using Wirex::IpAddr;

namespace {

template <class... Visitors>
struct Overloaded : Visitors... {
  using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

}  // namespace

SnoopedPort::~SnoopedPort() {
  for (auto const [vlan, snooped] : vlans_) snooped.querier->portDel(vlan, *this);
}

void SnoopedPort::vlanIs(VlanId vlan, SnoopedVlan const& snooped) {
  if (SnoopedVlan* const present = vlans_.find(vlan)) {
    if (present->querier != snooped.querier) present->querier->portDel(vlan, *this);
    if (present->learning != snooped.learning) present->learning->portDel(intfId_);
    *present = snooped;
  } else {
    vlans_.add(vlan, snooped);
    if (!counters_.contains(vlan)) counters_.add(vlan, std::make_unique<ReceiveCounters>());
  }
  snooped.learning->portIs(intfId_);
  snooped.querier->portIs(vlan, *this);
}

ReceiveCounters SnoopedPort::counters() const {
  ReceiveCounters sum = countersInNoVlan_;
  for (auto const [vlan, counters] : counters_) sum += *counters;
  return sum;
}

ReceiveCounters const* SnoopedPort::counters(VlanId vlan) const {
  auto const* const counters = counters_.find(vlan);
  return counters ? counters->get() : nullptr;
}

void SnoopedPort::vlanDel(VlanId vlan) {
  std::uint32_t const at = vlans_.position(vlan);
  if (at == Vlans::absent) return;
  SnoopedVlan const left = vlans_.takeAt(at);
  left.querier->portDel(vlan, *this);
  left.routers->portIsGone(intfId_);
  // A primary VLAN's learning does not tell in which of its VLANs the port heard a reporter.
  bool isElsewhere = false;
  for (auto const [other, snooped] : vlans_) isElsewhere |= snooped.learning == left.learning;
  if (isElsewhere) return;
  left.learning->forgetPort(intfId_);
  left.learning->portDel(intfId_);
}

void SnoopedPort::forget() {
  for (auto const [vlan, snooped] : vlans_) {
    snooped.learning->forgetPort(intfId_);
    snooped.routers->portIsGone(intfId_);
  }
}

void SnoopedPort::routerAllowedIs(bool allowed) {
  if (allowed == routerAllowed_) return;
  routerAllowed_ = allowed;
  if (allowed) return;
  for (auto const [vlan, snooped] : vlans_) snooped.routers->portIsGone(intfId_);
}

void SnoopedPort::sendsIs(bool sends) {
  change([&] { sends_ = sends; });
}

void SnoopedPort::macAddressIs(Wirex::MacAddress const& macAddress) {
  change([&] { macAddress_ = macAddress; });
}

void SnoopedPort::multiplexerIs(Kel::Ptr<Wirex::Multiplexer> multiplexer) {
  change([&] { multiplexer_ = std::move(multiplexer); });
}

bool SnoopedPort::canSend() const {
  constexpr Wirex::MacAddress unknown{};
  return sends_ && macAddress_ != unknown && multiplexer_;
}

template <class Change>
void SnoopedPort::change(Change change) {
  bool const could = canSend();
  change();
  if (could || !canSend()) return;
  for (auto const [vlan, snooped] : vlans_) snooped.querier->portIsUp(vlan, *this);
}

bool SnoopedPort::send(VlanId vlan, IpAddr source, IpAddr destination, Wirex::Bytes message) {
  if (!canSend()) return false;
  multiplexer_->outputPktIs(vlan, Igmp::igmpFrame({macAddress_, source}, destination, message));
  return true;
}

void SnoopedPort::receive(VlanId vlan, Igmp::Bytes frame) {
  auto const* const counters = counters_.find(vlan);
  counting_ = counters ? counters->get() : &countersInNoVlan_;
  countIfIgnored(learnFrom(vlan, frame));
}

void SnoopedPort::receiveInNoVlan(Igmp::Bytes frame) {
  auto const causeOf = [&] {
    if (!receives_) return Igmp::IgnoreReason::portBlocked;
    auto const ethernet = Igmp::parseEthernet(frame);
    if (!ethernet) return ethernet.reason();
    auto const datagram = Igmp::parseDatagram(*ethernet);
    return datagram ? Igmp::IgnoreReason::notInVlan : datagram.reason();
  };
  countersInNoVlan_.countIgnored(causeOf());
}

std::optional<Igmp::IgnoreReason> SnoopedPort::learnFrom(VlanId vlan, Igmp::Bytes bytes) {
  if (!receives_) return Igmp::IgnoreReason::portBlocked;
  auto const frame = Igmp::parseEthernet(bytes);
  if (!frame) return frame.reason();
  SnoopedVlan const* const found = vlans_.find(vlan);
  if (!found) return Igmp::IgnoreReason::notInVlan;
  SnoopedVlan const snooped = *found;
  if (Igmp::ipProtocolOf(*frame) == Igmp::ipProtocolPim) return hearPim(snooped, *frame);
  auto const packet = Igmp::parsePacket(*frame, snooped.learning->policy().receive);
  if (!packet) return packet.reason();
  if (!querierAllowed_ && std::holds_alternative<Igmp::Query>(packet->message))
    return Igmp::IgnoreReason::querierNotAllowed;
  counting_->countReceived(packet->message);
  hear(vlan, snooped, *frame, *packet);
  return std::nullopt;
}

std::optional<Igmp::IgnoreReason> SnoopedPort::hearPim(SnoopedVlan const& vlan,
                                                       Igmp::EthernetFrame const& frame) {
  auto const hello = Igmp::parsePimHello(frame);
  if (!hello) return hello.reason();
  if (!routerAllowed_) return Igmp::IgnoreReason::routerNotAllowed;
  ++counting_->pimHellos;
  vlan.routers->helloHeard(intfId_, *hello);
  return std::nullopt;
}

void SnoopedPort::hear(VlanId vlan, SnoopedVlan const& snooped, Igmp::EthernetFrame const& frame,
                       Igmp::Packet const& packet) {
  auto const report = [&](auto const& message) {
    countIfIgnored(snooped.learning->report(intfId_, packet.source, message.group));
  };
  std::visit(Overloaded{
                 [&](Igmp::Query const& query) { hear(snooped, frame.source, packet, query); },
                 [&](Igmp::ReportV1 const& message) { report(message); },
                 [&](Igmp::ReportV2 const& message) { report(message); },
                 [&](Igmp::ReportV3 const& message) {
                   for (Igmp::GroupRecord const& record : message.records)
                     hear(vlan, snooped, packet.source, record);
                 },
                 [&](Igmp::Leave const& leave) { hear(vlan, snooped, packet.source, leave); },
             },
             packet.message);
}

void SnoopedPort::hear(SnoopedVlan const& snooped, Wirex::Bytes sourceMac,
                       Igmp::Packet const& packet, Igmp::Query const& query) {
  OtherQuerier sender{packet.source,      {}, intfId_, query.version, query.robustness,
                      query.queryInterval};
  std::copy(sourceMac.begin(), sourceMac.end(), sender.macAddress.begin());
  snooped.querier->queryHeard(*this, sender, query);
  if (routerAllowed_)
    snooped.routers->querierHeard(intfId_, packet.source,
                                  snooped.querier->policy().otherQuerierPresentInterval(query));
  if (!Igmp::isMisdirected(query, packet.destination))
    snooped.routers->queries()->heard({intfId_, packet.source, query});
}

void SnoopedPort::hear(VlanId vlan, SnoopedVlan const& snooped, IpAddr reporter,
                       Igmp::GroupRecord const& record) {
  VlanLearning& learning = *snooped.learning;
  if (auto const problem = record.problem()) {
    counting_->countIgnored(*problem);
    learning.noteTurnedAway(intfId_, reporter, record.group, *problem);
    return;
  }
  QueryNeed withdrawal;
  if (snooped.querier->isQuerier())
    withdrawal = queryNeededBy(record, learning.membership(intfId_, reporter, record.group));
  auto const cause = learning.record(intfId_, reporter, record);
  countIfIgnored(cause);
  // A limit refuses what a record adds, not what it withdraws.
  if (!withdrawal.empty() && (!cause || isLimit(*cause)))
    inquire(vlan, snooped, record.group, withdrawal);
}

void SnoopedPort::hear(VlanId vlan, SnoopedVlan const& snooped, IpAddr reporter,
                       Igmp::Leave const& leave) {
  // Where hosts speak IGMPv1 nobody answers for a group of its own (RFC 9776 section 7.3.2).
  if (snooped.querier->version() == Igmp::IgmpVersion::v1) return;
  // Somebody whose report another one's made unnecessary is no known member, but may leave.
  bool const hasMembers = snooped.learning->hasMembers(intfId_, leave.group);
  snooped.learning->leave(intfId_, reporter, leave.group);
  if (hasMembers) inquire(vlan, snooped, leave.group, {.group = true, .sources = {}});
}

/// Where leaves are fast, the last one needs no confirmation.
void SnoopedPort::inquire(VlanId vlan, SnoopedVlan const& snooped, IpAddr group,
                          QueryNeed const& withdrawal) {
  VlanLearning const& learning = *snooped.learning;
  if (learning.policy().fastLeave && !learning.hasMembers(intfId_, group)) return;
  snooped.querier->inquire(vlan, *this, group, withdrawal);
}

void SnoopedPort::countIfIgnored(std::optional<Igmp::IgnoreReason> cause) {
  if (cause) counting_->countIgnored(*cause);
}

}  // namespace Bridging::IgmpSnooping
