#include "agent/guess/Evidence.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "agent/replay/CaptureMerge.h"
#include "agent/replay/LookAhead.h"
#include "platform/igmp/wire/FrameReader.h"
#include "platform/igmp/wire/Pim.h"

namespace Agent {

namespace {

using Igmp::IgmpVersion;

std::vector<std::string> namesOf(std::vector<PortCapture> const& captures) {
  std::vector<std::string> names;
  names.reserve(captures.size());
  for (PortCapture const& capture : captures) names.push_back(capture.fileName);
  return names;
}

/// Of several queriers the one with the lowest address is elected (RFC 9776 section 6.6.2), and its
/// general queries tell most.
void noteQuery(std::optional<SightedQuery>& known, SightedQuery query) {
  if (!known || query.source < known->source ||
      (query.source == known->source && known->maxResponseTime == Igmp::Deciseconds::zero()))
    known = std::move(query);
}

SightedQuery sighted(Sighting const& sighting, Igmp::Query const& query) {
  SightedQuery result{sighting, query.version, query.robustness, query.queryInterval, {}};
  if (query.isGeneral()) result.maxResponseTime = query.maxResponseTime;
  return result;
}

void noteReport(VlanEvidence& vlan, IgmpVersion version) {
  vlan.newestReport = std::max(vlan.newestReport.value_or(version), version);
}

}  // namespace

Evidence::Evidence(std::vector<PortCapture> const& captures) : frames_(captures.size()) {
  CaptureMerge packets(namesOf(captures));
  OwnFrames ownFrames{Configuration()};
  LookAhead ahead(packets, [&](MergedPacket const& packet) {
    ownFrames.foresee(captures[packet.capture].port, packet.time, packet.frame, packet.outgoing);
  });
  while (auto const packet = ahead.next()) {
    ++frames_[packet->capture];
    duration_ = packet->time;
    auto const frame = Igmp::parseEthernet(packet->frame);
    if (!frame || frame->etherType != Igmp::etherTypeIpv4) continue;
    auto const& [port, fileName] = captures[packet->capture];
    bool const sent = ownFrames.recognise(port, packet->time, packet->frame, packet->outgoing);
    note(port, {fileName, packet->number, {}}, *frame, sent, packet->outgoing);
  }
}

void Evidence::note(Wirex::IntfId const& port, Sighting sighting, Igmp::EthernetFrame const& frame,
                    bool sentBySwitch, bool outgoing) {
  VlanEvidence& vlan = vlans_[frame.vlan];
  SightedMember& member =
      vlan.members.try_emplace(port, SightedMember{frame.vlan.has_value(), sighting, {}, {}})
          .first->second;
  if (auto const hello = Igmp::parsePimHello(frame); hello && !sentBySwitch && !member.pimHello) {
    sighting.source = hello->source;
    member.pimHello = std::move(sighting);
    return;
  }
  auto const datagram = Igmp::parseDatagram(frame);
  if (!datagram) return;
  auto const message = Igmp::parseMessage(datagram->payload);
  if (!message) return;
  sighting.source = datagram->source;
  if (auto const* const query = std::get_if<Igmp::Query>(&*message)) {
    if (!Igmp::isUnicast(sighting.source)) return;  // a switch's, which is no querier
    if (outgoing) noteQuery(vlan.ownQuery, sighted(sighting, *query));
    if (!sentBySwitch) noteQuery(member.query, sighted(sighting, *query));
  } else if (!sentBySwitch && std::holds_alternative<Igmp::ReportV1>(*message)) {
    noteReport(vlan, IgmpVersion::v1);
  } else if (!sentBySwitch && std::holds_alternative<Igmp::ReportV2>(*message)) {
    noteReport(vlan, IgmpVersion::v2);
  } else if (!sentBySwitch && std::holds_alternative<Igmp::ReportV3>(*message)) {
    noteReport(vlan, IgmpVersion::v3);
  }
}

}  // namespace Agent
