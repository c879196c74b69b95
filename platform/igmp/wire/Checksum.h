#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/igmp/wire/ByteReader.h"

namespace Igmp {

/// The Internet checksum (RFC 1071) of `bytes`: zero over data that carries its right checksum,
/// and what is to be written into data whose checksum field is zero.
inline std::uint16_t checksum(Bytes bytes) noexcept {
  std::uint64_t sum = 0;
  std::size_t i = 0;
  // Four bytes at once: 65536 of the first two is 1 of the last two when the carries are folded in.
  for (; i + 3 < bytes.size(); i += 4)
    sum += std::uint32_t{bytes[i]} << 24 | std::uint32_t{bytes[i + 1]} << 16 |
           std::uint32_t{bytes[i + 2]} << 8 | std::uint32_t{bytes[i + 3]};
  for (; i + 1 < bytes.size(); i += 2) sum += static_cast<unsigned>(bytes[i] << 8 | bytes[i + 1]);
  if (i < bytes.size()) sum += static_cast<unsigned>(bytes[i] << 8);
  while (sum > 0xffff) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<std::uint16_t>(~sum);
}

}  // namespace Igmp
