#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/igmp/wire/IgnoreReason.h"
#include "platform/igmp/wire/Message.h"

namespace Bridging::IgmpSnooping {

/// What was heard on a port: messages by type, in the order of Igmp::Message, PIM hellos, and what
/// was ignored by cause. Group records that were ignored count as well, though the rest of their
/// report was used.
struct ReceiveCounters {
  /// By type, in the order of Igmp::Message.
  std::array<std::uint64_t, std::variant_size_v<Igmp::Message>> received{};
  std::uint64_t pimHellos = 0;  ///< that were used
  /// By cause, in the order of Igmp::IgnoreReason.
  std::array<std::uint64_t, Igmp::ignoreReasons> ignored{};

  /// Counts a message of its type.
  void countReceived(Igmp::Message const& message) { ++received[message.index()]; }
  /// Counts a frame or a group record that is not used.
  void countIgnored(Igmp::IgnoreReason cause) { ++ignored[static_cast<std::size_t>(cause)]; }
  /// How many were ignored for this cause.
  std::uint64_t ignoredFor(Igmp::IgnoreReason cause) const {
    return ignored[static_cast<std::size_t>(cause)];
  }

  ReceiveCounters& operator+=(ReceiveCounters const& other) {
    for (std::size_t i = 0; i < received.size(); ++i) received[i] += other.received[i];
    for (std::size_t i = 0; i < ignored.size(); ++i) ignored[i] += other.ignored[i];
    pimHellos += other.pimHellos;
    return *this;
  }
};

}  // namespace Bridging::IgmpSnooping
