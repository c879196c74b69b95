#include "agent/watch/HostRecords.h"

#include <algorithm>
#include <utility>

#include "agent/text/NaturalOrder.h"

namespace Agent {

namespace {

std::string textOf(Kel::String8 const& text) {
  return std::string(text.view());
}

std::vector<Wirex::IpAddr> sorted(std::vector<Wirex::IpAddr> addresses) {
  std::sort(addresses.begin(), addresses.end());
  return addresses;
}

HostRecords recordsOf(Igmp::IgmpHost const& host, Igmp::IgmpHostStatusDir const& statuses) {
  HostRecords records = attributesOf(host, statuses);
  for (Wirex::IpAddr const group : host.v3group().keys())
    records.groups.push_back({group, filterOf(*host.v3group().peek(group))});
  std::sort(records.groups.begin(), records.groups.end(),
            [](GroupRecord const& a, GroupRecord const& b) { return a.address < b.address; });
  return records;
}

}  // namespace

SourceFilter filterOf(Igmp::IgmpV3GroupRecord const& record) {
  SourceFilter filter;
  if (record.filterMode() == Wirex::IgmpV3GroupRecordType::modeIsExclude)
    filter.mode = Gmp::Igmp::IgmpFilterMode::exclude;
  if (auto const& list = record.source())
    for (auto const& [source, value] : list->sourceIp()) filter.sources.push_back(source);
  filter.sources = sorted(std::move(filter.sources));
  return filter;
}

SourceFilter filterOf(Bridging::IgmpSnooping::IgmpMembership const& membership) {
  return {membership.filterMode(),
          sorted({membership.source().begin(), membership.source().end()})};
}

HostRecords attributesOf(Igmp::IgmpHost const& host, Igmp::IgmpHostStatusDir const& statuses) {
  HostRecords records;
  records.name = textOf(host.name().stringValue());
  records.vlan = host.vlanId();
  records.interface = textOf(host.intfId().stringValue());
  records.igmpVersion = records.spokenVersion = host.igmpVersion();
  if (auto const status = statuses.igmpHostStatus(host.name()))
    records.spokenVersion = status->compatibilityMode();
  records.blocked = host.blocked();
  records.direction = host.direction();
  records.sourceAddress = host.settings().sourceAddress;
  return records;
}

bool precedes(HostRecords const& a, HostRecords const& b) {
  if (a.vlan != b.vlan) return a.vlan < b.vlan;
  return precedesNaturally(a.interface, b.interface);
}

std::vector<HostRecords> hostsIn(Igmp::IgmpHostDir const& directory,
                                 Igmp::IgmpHostStatusDir const& statuses) {
  std::vector<HostRecords> hosts;
  for (auto const& [name, host] : directory.igmpHost()) hosts.push_back(recordsOf(*host, statuses));
  std::sort(hosts.begin(), hosts.end(), precedes);
  return hosts;
}

}  // namespace Agent
