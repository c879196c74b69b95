#include "agent/replay/CookedFrame.h"

#include <algorithm>

namespace Agent {

namespace {

constexpr std::uint8_t sentByUs = 4;

/// Where the fields of a version stand.
struct Layout {
  std::size_t protocol;
  std::size_t type;  // its last byte
  std::size_t addressLength;
  std::size_t address;
  std::size_t size;
};

constexpr Layout first{14, 1, 5, 6, 16};
constexpr Layout second{0, 10, 11, 12, 20};
constexpr std::size_t interfaceOffset = 4;  // in the second

}  // namespace

std::optional<CookedFrame> uncook(Wirex::Bytes packet, int linkType,
                                  std::vector<std::uint8_t>& ethernet) {
  using Wirex::macAddressSize;
  Layout const& layout = linkType == linkTypeCooked2 ? second : first;
  if (packet.size() < layout.size) return std::nullopt;
  CookedFrame cooked;
  cooked.outgoing = packet[layout.type] == sentByUs;
  if (linkType == linkTypeCooked2)
    cooked.interface = static_cast<std::uint32_t>(Wirex::bigEndian16(&packet[interfaceOffset]))
                           << 16 |
                       Wirex::bigEndian16(&packet[interfaceOffset + 2]);
  ethernet.assign(Wirex::ethernetHeaderSize, 0);
  if (packet[layout.addressLength] == macAddressSize)
    std::copy_n(packet.begin() + static_cast<std::ptrdiff_t>(layout.address), macAddressSize,
                ethernet.begin() + macAddressSize);
  std::copy_n(packet.begin() + static_cast<std::ptrdiff_t>(layout.protocol), 2,
              ethernet.begin() + Wirex::etherTypeOffset);
  ethernet.insert(ethernet.end(), packet.begin() + static_cast<std::ptrdiff_t>(layout.size),
                  packet.end());
  return cooked;
}

}  // namespace Agent
