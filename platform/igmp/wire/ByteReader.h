#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/types/IpAddr.h"
#include "platform/wirex/Ethernet.h"

namespace Igmp {

using Wirex::Bytes;

/// Reads big-endian fields one after the other and never beyond the end: what is missing there
/// reads as zero and makes the reader fail for good, so a parser reads a whole header first and
/// asks once.
class ByteReader {
 public:
  explicit ByteReader(Bytes bytes) noexcept : rest_(bytes) {}

  /// Whether more was read than was there.
  bool failed() const noexcept { return failed_; }
  /// What was not read yet.
  Bytes rest() const noexcept { return rest_; }

  /// The next byte.
  std::uint8_t u8() noexcept { return static_cast<std::uint8_t>(number(1)); }
  /// The next two bytes.
  std::uint16_t u16() noexcept { return static_cast<std::uint16_t>(number(2)); }
  /// The next four bytes.
  std::uint32_t u32() noexcept { return number(4); }
  /// The next four bytes as an IPv4 address.
  Wirex::IpAddr ipAddr() noexcept { return Wirex::IpAddr(number(4)); }

  /// The next `count` bytes, or none if there are not so many.
  Bytes take(std::size_t count) noexcept {
    if (count > rest_.size()) {
      failed_ = true;
      rest_ = {};
      return {};
    }
    Bytes const taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }

  /// Passes over so many bytes.
  void skip(std::size_t count) noexcept { take(count); }

 private:
  std::uint32_t number(std::size_t size) noexcept {
    std::uint32_t value = 0;
    for (std::uint8_t const byte : take(size)) value = value << 8 | byte;
    return value;
  }

  Bytes rest_;
  bool failed_ = false;
};

}  // namespace Igmp
