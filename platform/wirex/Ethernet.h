#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

/// Ethernet (IEEE 802.3) and VLAN tags (IEEE 802.1Q) on the wire.
namespace Wirex {

/// Bytes as they stand on the wire. They belong to somebody else.
using Bytes = std::span<std::uint8_t const>;
using WritableBytes = std::span<std::uint8_t>;

inline constexpr std::size_t macAddressSize = 6;

/// All zero where it is not known.
using MacAddress = std::array<std::uint8_t, macAddressSize>;

inline constexpr std::size_t etherTypeOffset = 2 * macAddressSize;
inline constexpr std::size_t ethernetHeaderSize = etherTypeOffset + 2;
inline constexpr std::size_t vlanTagSize = 2 + 2;

inline constexpr std::uint16_t etherTypeIpv4 = 0x0800;
inline constexpr std::uint16_t etherTypeVlan = 0x8100;

inline constexpr std::uint16_t vlanIdMask = 0x0fff;
inline constexpr unsigned priorityShift = 13;
inline constexpr std::uint8_t highestPriority = 7;

inline std::uint16_t bigEndian16(std::uint8_t const* bytes) noexcept {
  return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}
inline void putBigEndian16(std::uint8_t* bytes, std::uint16_t value) noexcept {
  bytes[0] = static_cast<std::uint8_t>(value >> 8);
  bytes[1] = static_cast<std::uint8_t>(value);
}

}  // namespace Wirex
