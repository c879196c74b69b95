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

inline constexpr std::size_t macAddressSize = 6;  ///< bytes

/// All zero where it is not known.
using MacAddress = std::array<std::uint8_t, macAddressSize>;

inline constexpr std::size_t etherTypeOffset = 2 * macAddressSize;      ///< bytes before it
inline constexpr std::size_t ethernetHeaderSize = etherTypeOffset + 2;  ///< bytes, without tag
inline constexpr std::size_t vlanTagSize = 2 + 2;                       ///< bytes

inline constexpr std::uint16_t etherTypeIpv4 = 0x0800;  ///< RFC 894
inline constexpr std::uint16_t etherTypeVlan = 0x8100;  ///< of a tag (IEEE 802.1Q)

inline constexpr std::uint16_t vlanIdMask = 0x0fff;  ///< the VLAN in a tag's last two bytes
inline constexpr unsigned priorityShift = 13;        ///< bits below the priority in these two bytes
inline constexpr std::uint8_t highestPriority = 7;   ///< 0 is the lowest (IEEE 802.1Q)

/// Reads two bytes as they stand on the wire.
inline std::uint16_t bigEndian16(std::uint8_t const* bytes) noexcept {
  return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}
/// Writes two bytes as they stand on the wire.
inline void putBigEndian16(std::uint8_t* bytes, std::uint16_t value) noexcept {
  bytes[0] = static_cast<std::uint8_t>(value >> 8);
  bytes[1] = static_cast<std::uint8_t>(value);
}

}  // namespace Wirex
