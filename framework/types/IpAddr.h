#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string_view>

#include "framework/kel/Export.h"

namespace Wirex {

/// An IPv4 address: of a group, a source or a reporter.
class KEL_EXPORT IpAddr {
 public:
  constexpr IpAddr() noexcept = default;

  /// @param value the address in host byte order: 0xe0000001 is 224.0.0.1.
  constexpr explicit IpAddr(std::uint32_t value) noexcept : value_(value) {}

  constexpr IpAddr(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) noexcept
      : value_(std::uint32_t{a} << 24 | std::uint32_t{b} << 16 | std::uint32_t{c} << 8 | d) {}

  /// Reads dotted decimal; anything else, leading zeros included, gives nothing.
  static std::optional<IpAddr> fromText(std::string_view text);

  constexpr std::uint32_t value() const noexcept { return value_; }
  constexpr std::uint32_t hash() const noexcept { return value_; }

  constexpr bool isMulticast() const noexcept { return (value_ >> 28) == 0xe; }

  /// 224.0.0.0/24, which a switch never prunes (RFC 4541 section 2.1.2).
  constexpr bool isLinkLocalMulticast() const noexcept { return (value_ >> 8) == 0xe00000; }

  friend constexpr auto operator<=>(IpAddr, IpAddr) noexcept = default;

 private:
  std::uint32_t value_ = 0;
};

KEL_EXPORT std::ostream& operator<<(std::ostream& out, IpAddr address);

}  // namespace Wirex
