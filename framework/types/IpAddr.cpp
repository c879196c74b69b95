#include "framework/types/IpAddr.h"

#include <charconv>
#include <ostream>

namespace Wirex {

std::optional<IpAddr> IpAddr::fromText(std::string_view text) {
  std::uint32_t value = 0;
  char const* next = text.data();
  char const* const end = next + text.size();
  for (int octetNumber = 0; octetNumber < 4; ++octetNumber) {
    if (octetNumber > 0 && (next == end || *next++ != '.')) return std::nullopt;
    std::uint8_t octet = 0;
    auto const [stop, error] = std::from_chars(next, end, octet);
    bool const leadingZero = stop - next > 1 && *next == '0';
    if (error != std::errc{} || leadingZero) return std::nullopt;
    value = value << 8 | octet;
    next = stop;
  }
  if (next != end) return std::nullopt;
  return IpAddr(value);
}

std::ostream& operator<<(std::ostream& out, IpAddr address) {
  std::uint32_t const value = address.value();
  return out << (value >> 24) << '.' << (value >> 16 & 0xff) << '.' << (value >> 8 & 0xff) << '.'
             << (value & 0xff);
}

}  // namespace Wirex
