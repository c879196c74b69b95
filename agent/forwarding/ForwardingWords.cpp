#include "agent/forwarding/ForwardingWords.h"

#include <algorithm>

#include "agent/text/NaturalOrder.h"
#include "agent/text/Wording.h"

namespace Agent {

using Bridging::VlanId;
using Gmp::Igmp::IgmpFilterMode;
using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

std::string textOf(IntfId const& intf) {
  return std::string(intf.stringValue().view());
}

ForwardedVlan const* vlanOf(Forwarding const& forwarding, VlanId id) {
  for (ForwardedVlan const& vlan : forwarding.vlans())
    if (vlan.vlanId == id) return &vlan;
  return nullptr;
}

SourceFilter const* entryOf(EntryWriter::Group const* group, std::uint32_t port) {
  if (group)
    for (auto const& [index, filter] : group->entries)
      if (index == port) return &filter;
  return nullptr;
}

std::string sourcesText(SourceFilter const& filter) {
  std::vector<std::string> sources;
  for (IpAddr const source : filter.sources) sources.push_back(message(source));
  bool const includes = filter.mode == IgmpFilterMode::include;
  if (sources.empty()) return includes ? "no source" : "every source";
  return message(includes ? "" : "every source but ", enumerated(sources, "and"));
}

std::string whyOfUnjoined(Forwarding const& forwarding, ForwardedVlan const& vlan,
                          IntfId const& intf, IpAddr group) {
  std::string const port = textOf(intf);
  if (forwarding.configuration()->unregistered == Unregistered::flood)
    return message(port, " gets the streams of ", group,
                   ", because nobody has joined it and unregistered = \"flood\".");
  if (forwarding.isRouterPort(vlan, intf))
    return message(port, " gets the streams of ", group,
                   ", because nobody has joined it, and it leads to a router of the VLAN.");
  return message(port, " gets no stream of ", group,
                 ", because nobody has joined it and unregistered = \"routers\".");
}

}  // namespace

std::optional<Destinations> destinationsOf(Forwarding const& forwarding, VlanId vlan,
                                           IpAddr group) {
  ForwardedVlan const* const forwarded = vlanOf(forwarding, vlan);
  if (!forwarding.isActive() || !forwarded) return std::nullopt;
  auto const* const written = forwarding.entries()->group({forwarded->entryVlan, group});
  bool const joined = written && written->joined;
  Destinations destinations;
  destinations.everywhere =
      !forwarding.goesByEntries(vlan) || (written && written->failed) ||
      (!joined && forwarding.configuration()->unregistered == Unregistered::flood);
  for (auto const& [intf, port] : forwarding.ports())
    if (forwarded->receivers.contains(intf) &&
        (destinations.everywhere || forwarding.routers().contains(intf) || entryOf(written, port) ||
         (!joined && forwarding.isRouterPort(*forwarded, intf))))
      destinations.ports.push_back(textOf(intf));
  std::sort(destinations.ports.begin(), destinations.ports.end(), precedesNaturally);
  return destinations;
}

std::string whyForwarded(Forwarding const& forwarding, VlanId vlan, IntfId const& intf,
                         IpAddr group) {
  if (!forwarding.configuration()) return {};
  std::string const& bridge = forwarding.configuration()->bridge;
  std::string const port = textOf(intf);
  if (!forwarding.isActive())
    return message(bridge, " is left alone, and streams go as they would without the agent: ",
                   forwarding.obstacle(), '.');
  ForwardedVlan const* const forwarded = vlanOf(forwarding, vlan);
  if (!forwarded) return {};
  auto const index = forwarding.ports().find(intf);
  if (index == forwarding.ports().end())
    return message(port, " gets no streams, because it is no port of ", bridge, ": ip link set ",
                   port, " master ", bridge, '.');
  if (!forwarded->receivers.contains(intf))
    return message(port, " gets no streams of VLAN ", vlan,
                   ", because it is not a member, is blocked, or its direction lets nothing out.");
  if (group.isLinkLocalMulticast())
    return message(port, " gets ", group, ", as every port does: it is of the segment alone.");
  if (!forwarding.goesByEntries(vlan))
    return message(port, " gets every stream of VLAN ", vlan,
                   ", because not all listeners are known yet.");
  auto const* const written = forwarding.entries()->group({forwarded->entryVlan, group});
  if (written && written->failed)
    return message(port, " gets the streams of ", group,
                   ", because the kernel refused one of its entries and so it is flooded.");
  if (forwarding.routers().contains(intf))
    return message(port, " gets every stream, because it leads to a router.");
  if (!written || !written->joined) return whyOfUnjoined(forwarding, *forwarded, intf, group);
  SourceFilter const* const entry = entryOf(written, index->second);
  if (!entry)
    return message(port, " gets no stream of ", group,
                   ", because nobody there has joined it and it leads to no router.");
  return message(port, " gets the streams of ", group, " from ", sourcesText(*entry), ", because ",
                 forwarding.isRouterPort(*forwarded, intf) ? "it leads to a router of the VLAN."
                                                           : "listeners there ask for them.");
}

}  // namespace Agent
