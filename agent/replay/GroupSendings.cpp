#include "agent/replay/GroupSendings.h"

#include <utility>
#include <variant>

#include "agent/text/Wording.h"
#include "platform/igmp/RecordNames.h"
#include "platform/igmp/wire/PacketReader.h"

namespace Agent {

namespace {

/// "TO_IN 192.0.2.1"
std::string wordsFor(Igmp::GroupRecord const& record) {
  std::string words = Igmp::nameOf(record.type);
  char const* gap = " ";
  for (Wirex::IpAddr const source : record.sources)
    words += message(std::exchange(gap, ", "), source);
  return words + (record.sources.empty() ? " of no source" : "");
}

}  // namespace

GroupSendings::GroupSendings(Configuration const& configuration, Bridging::VlanId vlan,
                             Wirex::IntfId const& interface, Wirex::IpAddr group)
    : vlan_(vlan), interface_(interface), group_(group) {
  VlanConfig const* const configured = configuration.vlanFrom(vlan.value());
  if (!configured || configured->vlanId != vlan) return;
  for (VlanMember const& member : configured->members)
    if (member.intfId == interface) tagged_ = member.tagged;
}

void GroupSendings::sent(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes bytes) {
  if (port != interface_) return;
  auto const frame = Igmp::parseEthernet(bytes);
  if (!frame || frame->vlan != (tagged_ ? std::optional(vlan_) : std::nullopt)) return;
  if (auto const packet = Igmp::parsePacket(*frame, {})) note(time, packet->message);
}

void GroupSendings::note(Horix::Time time, Igmp::Message const& message) {
  auto const count = [&](std::uint64_t& counter, std::string words) {
    ++counter;
    at_ = time;
    latest_ = std::move(words);
  };
  if (auto const* const reportV1 = std::get_if<Igmp::ReportV1>(&message)) {
    if (reportV1->group == group_) count(counts_.reportsV1, "v1 report");
  } else if (auto const* const reportV2 = std::get_if<Igmp::ReportV2>(&message)) {
    if (reportV2->group == group_) count(counts_.reportsV2, "v2 report");
  } else if (auto const* const leave = std::get_if<Igmp::Leave>(&message)) {
    if (leave->group == group_) count(counts_.leaves, "leave");
  } else if (auto const* const reportV3 = std::get_if<Igmp::ReportV3>(&message)) {
    for (Igmp::GroupRecord const& record : reportV3->records)
      if (record.group == group_) count(counts_.recordsV3, "v3 " + wordsFor(record));
  }
}

ExplainedGroupSendings GroupSendings::explained(Horix::Time now) const {
  return {counts_, latest_, now - at_};
}

}  // namespace Agent
