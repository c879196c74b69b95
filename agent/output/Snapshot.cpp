#include "agent/output/Snapshot.h"

#include <algorithm>

#include "agent/text/NaturalOrder.h"

namespace Agent {

namespace {

std::vector<IgnoredInput> ignoredBy(Switch::Ports const& ports) {
  std::vector<IgnoredInput> ignored;
  for (auto const& [intf, port] : ports) {
    IgnoredInput input{std::string(intf.stringValue().view()), {}};
    auto const counters = port.counters();
    for (std::size_t i = 0; i < Igmp::ignoreReasons; ++i) {
      auto const cause = static_cast<Igmp::IgnoreReason>(i);
      if (auto const count = counters.ignoredFor(cause)) input.counts.emplace_back(cause, count);
    }
    if (!input.counts.empty()) ignored.push_back(std::move(input));
  }
  std::sort(ignored.begin(), ignored.end(), [](IgnoredInput const& a, IgnoredInput const& b) {
    return precedesNaturally(a.interface, b.interface);
  });
  return ignored;
}

}  // namespace

Snapshot snapshotOf(Switch const& snoopingSwitch) {
  return {snoopingSwitch.now(),
          hostsIn(*snoopingSwitch.entities().hosts, *snoopingSwitch.proxy().igmpHostStatusDir()),
          ignoredBy(snoopingSwitch.ports())};
}

}  // namespace Agent
