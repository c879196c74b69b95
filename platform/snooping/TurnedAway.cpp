#include "platform/snooping/TurnedAway.h"

#include <algorithm>
#include <chrono>

namespace Bridging::IgmpSnooping {

using Igmp::IgnoreReason;
using Wirex::IpAddr;

bool TurnedAway::add(Wirex::IntfId const& intf, IpAddr group, IpAddr reporter, IgnoreReason reason,
                     Horix::Time now) {
  constexpr auto pause = std::chrono::minutes(1);
  auto& [entries, quietUntil] = ports_[intf];
  auto entry = std::find_if(entries.begin(), entries.end(), [&](Entry const& known) {
    return known.group == group && known.reporter == reporter && known.reason == reason;
  });
  if (entry == entries.end()) {
    Entry const added{group, reporter, reason, now};
    if (entries.size() < perPort) {
      entry = entries.insert(entries.end(), added);
    } else {
      entry = std::min_element(entries.begin(), entries.end(),
                               [](auto const& a, auto const& b) { return a.latest < b.latest; });
      *entry = added;
    }
  }
  entry->latest = now;
  ++entry->times;

  auto const [quiet, isFirst] = quietUntil.try_emplace(reason, now + pause);
  if (isFirst) return true;
  if (now < quiet->second) return false;
  quiet->second = now + pause;
  return true;
}

}  // namespace Bridging::IgmpSnooping
