#include "agent/replay/GroupSendings.h"

#include <utility>
#include <variant>

#include "agent/text/Wording.h"
#include "platform/igmp/wire/PacketReader.h"

namespace Agent {

namespace {

/// "TO_IN 192.0.2.1", with the type's name in RFC 9776 section 4.2.12.
std::string wordsFor(Igmp::GroupRecord const& record) {
  using Type = Wirex::IgmpV3GroupRecordType;
  std::string words;
  switch (record.type) {
    case Type::modeIsInclude:
      words = "IS_IN";
      break;
    case Type::modeIsExclude:
      words = "IS_EX";
      break;
    case Type::changeToIncludeMode:
      words = "TO_IN";
      break;
    case Type::changeToExcludeMode:
      words = "TO_EX";
      break;
    case Type::allowNewSources:
      words = "ALLOW";
      break;
    case Type::blockOldSources:
      words = "BLOCK";
      break;
  }
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
    latest_ = time;
    sendings_.latest = std::move(words);
  };
  if (auto const* const reportV1 = std::get_if<Igmp::ReportV1>(&message)) {
    if (reportV1->group == group_) count(sendings_.reportsV1, "v1 report");
  } else if (auto const* const reportV2 = std::get_if<Igmp::ReportV2>(&message)) {
    if (reportV2->group == group_) count(sendings_.reportsV2, "v2 report");
  } else if (auto const* const leave = std::get_if<Igmp::Leave>(&message)) {
    if (leave->group == group_) count(sendings_.leaves, "leave");
  } else if (auto const* const reportV3 = std::get_if<Igmp::ReportV3>(&message)) {
    for (Igmp::GroupRecord const& record : reportV3->records)
      if (record.group == group_) count(sendings_.recordsV3, "v3 " + wordsFor(record));
  }
}

ExplainedGroupSendings GroupSendings::explained(Horix::Time now) const {
  ExplainedGroupSendings sendings = sendings_;
  sendings.sinceLatest = now - latest_;
  return sendings;
}

}  // namespace Agent
