#pragma once

#include <chrono>

#include "agent/output/Snapshot.h"
#include "agent/watch/RecordWatch.h"

namespace Agent {

inline SourceFilter include(std::vector<Wirex::IpAddr> sources) {
  return {Gmp::Igmp::IgmpFilterMode::include, std::move(sources)};
}
inline SourceFilter exclude(std::vector<Wirex::IpAddr> sources) {
  return {Gmp::Igmp::IgmpFilterMode::exclude, std::move(sources)};
}

inline HostRecords hostOn(unsigned vlan, std::string const& interface,
                          std::vector<GroupRecord> groups = {}) {
  HostRecords host;
  host.name = "Vlan" + std::to_string(vlan) + interface;
  host.vlan = vlan;
  host.interface = interface;
  host.groups = std::move(groups);
  return host;
}

inline RecordEvent event(Horix::Time time, char const* host, Wirex::IpAddr address,
                         std::optional<SourceFilter> before, std::optional<SourceFilter> after) {
  RecordEvent event{time, {{}, address, std::move(before), std::move(after)}};
  event.change.host.handleInit(host);
  return event;
}

}  // namespace Agent
