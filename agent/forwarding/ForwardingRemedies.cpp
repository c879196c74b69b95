#include "agent/forwarding/ForwardingRemedies.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "agent/Log.h"
#include "agent/forwarding/BridgeControl.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

std::string remedyFor(int error) {
  switch (error) {
    case EPERM:
    case EACCES:
      return "give the agent CAP_NET_ADMIN and start it again";
    case E2BIG:
    case ENOSPC:
      return "raise the bridge's mcast_hash_max and the port's mcast_max_groups";
    case ENOMEM:
    case ENOBUFS:
      return "give the machine more memory";
    default:
      return "see that the bridge is up and that the interface is its port";
  }
}

bool hasTaggedMembers(Configuration const& configuration) {
  auto const& vlans = configuration.vlans;
  return std::any_of(vlans.begin(), vlans.end(), [](VlanConfig const& vlan) {
    return std::any_of(vlan.members.begin(), vlan.members.end(),
                       [](VlanMember const& member) { return member.tagged; });
  });
}

}  // namespace

std::string obstacleTo(Configuration const& configuration, std::optional<LinkInfo> const& bridge) {
  std::string const& name = configuration.forwarding->bridge;
  if (!bridge)
    return message("there is no interface ", name, "; make it with: ip link add ", name,
                   " type bridge");
  if (!bridge->isBridge)
    return message(name, " is no bridge; name one in [forwarding] of the configuration");
  if (!bridge->up) return message(name, " is down; take it up with: ip link set ", name, " up");
  std::size_t const vlans = configuration.vlans.size();
  if (!bridge->tellsVlansApart && vlans > 1)
    return message(name, " does not tell ", vlans, " VLANs apart; have it do so with: ip link set ",
                   name, " type bridge vlan_filtering 1, or configure one VLAN");
  if (hasTaggedMembers(configuration) && !BridgeControl::floodsTagged())
    return "to flood frames with a VLAN tag takes Linux 6.8 or later; configure untagged members "
           "alone, or a newer kernel";
  return {};
}

bool Complaints::Pace::isDue(Horix::Time now) {
  constexpr auto pause = std::chrono::seconds(60);
  if (now < next_) {
    ++unsaid_;
    return false;
  }
  next_ = now + pause;
  return true;
}

std::string Complaints::Pace::others(char const* what) {
  std::uint64_t const unsaid = std::exchange(unsaid_, 0);
  return unsaid > 0 ? message(" (", unsaid, " more were ", what, ')') : "";
}

void Complaints::refused(EntryWriter::Refusal const& refusal, std::string const& port,
                         Horix::Time now) {
  if (!refusals_.isDue(now)) return;
  log(Severity::warning, "forwarding: the kernel refuses the entry of ", refusal.key.second,
      " for ", port, ": ", refusal.text,
      "; the group is flooded and the entry tried again every few seconds; ",
      remedyFor(refusal.error), refusals_.others("refused"));
}

void Complaints::deleted(Wirex::IpAddr group, Horix::Time now) {
  if (!deletions_.isDue(now)) return;
  log(Severity::warning, "forwarding: somebody has deleted entries of ", group,
      ", which are written again; have it leave those with protocol 143 alone",
      deletions_.others("deleted"));
}

}  // namespace Agent
