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

  bool failed() const noexcept { return failed_; }
  Bytes rest() const noexcept { return rest_; }

  std::uint8_t u8() noexcept { return static_cast<std::uint8_t>(number(1)); }
  std::uint16_t u16() noexcept { return static_cast<std::uint16_t>(number(2)); }
  std::uint32_t u32() noexcept { return number(4); }
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
