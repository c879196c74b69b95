#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/wirex/Ethernet.h"

/// Captures that Linux has "cooked", as tcpdump -i any takes them: in place of the Ethernet header
/// stands one that tells the direction, and in its second version the interface by its number
/// (LINKTYPE_LINUX_SLL, LINKTYPE_LINUX_SLL2).
namespace Agent {

inline constexpr int linkTypeCooked = 113;
inline constexpr int linkTypeCooked2 = 276;

struct CookedFrame {
  bool outgoing = false;
  std::uint32_t interface = 0;  ///< 0 in the first version
};

/// What the header says. Nothing of a packet that has not all of it.
/// @param ethernet becomes the frame as on Ethernet, to a destination that is not told.
std::optional<CookedFrame> uncook(Wirex::Bytes packet, int linkType,
                                  std::vector<std::uint8_t>& ethernet);

}  // namespace Agent
