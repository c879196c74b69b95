#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "framework/types/IntfId.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"
#include "platform/horix/Clock.h"
#include "platform/igmp/wire/IgnoreReason.h"

namespace Bridging::IgmpSnooping {

/// A limit that a port of a VLAN has reached.
struct LimitReached {
  VlanId vlanId;
  Wirex::IntfId intfId;
  Igmp::IgnoreReason limit;  ///< which one
  Wirex::IpAddr group;
  Wirex::IpAddr reporter;
};

/// What a VLAN's learning has turned away, for those who ask why: the latest of each port, so that
/// one that floods does not have another one's forgotten.
class KEL_EXPORT TurnedAway {
 public:
  /// What was turned away, and why.
  struct Entry {
    Wirex::IpAddr group;
    Wirex::IpAddr reporter;
    Igmp::IgnoreReason reason;  ///< why
    Horix::Time latest;         ///< when last, by the clock of the timer wheel
    std::uint64_t times = 0;    ///< how often while it was remembered
  };
  /// How many are remembered for each port.
  static constexpr std::size_t perPort = 16;

  /// Returns whether the port's log is to hear of it: at most once a minute of each reason.
  bool add(Wirex::IntfId const& intf, Wirex::IpAddr group, Wirex::IpAddr reporter,
           Igmp::IgnoreReason reason, Horix::Time now);

  /// The port has left the VLAN.
  void forget(Wirex::IntfId const& intf) { ports_.erase(intf); }

  /// Calls the action with each port and each of its entries of the group.
  template <class Action>  // (IntfId const&, Entry const&)
  void forEach(Wirex::IpAddr group, Action action) const {
    for (auto const& [intf, port] : ports_)
      for (Entry const& entry : port.entries)
        if (entry.group == group) action(intf, entry);
  }

 private:
  struct Port {
    std::vector<Entry> entries;
    std::map<Igmp::IgnoreReason, Horix::Time> quietUntil;
  };

  std::map<Wirex::IntfId, Port> ports_;
};

}  // namespace Bridging::IgmpSnooping
