#include "platform/igmp/wire/QueryWriter.h"

#include <algorithm>
#include <bit>

#include "platform/igmp/wire/FrameWriter.h"
#include "platform/igmp/wire/Message.h"

namespace Igmp {

namespace {

constexpr std::uint8_t queryType = 0x11;

/// A v2 querier says tenths of a second as they are; 0 would make it a v1 querier.
std::uint8_t maxResponseCode(QueryToSend const& query) {
  auto const tenths =
      std::max<std::int64_t>(std::chrono::floor<Deciseconds>(query.maxResponseTime).count(), 1);
  if (query.version == IgmpVersion::v1) return 0;
  if (query.version == IgmpVersion::v2)
    return static_cast<std::uint8_t>(std::min<std::int64_t>(tenths, UINT8_MAX));
  return codeFor(tenths);
}

/// Zero stands for what the field cannot hold (RFC 9776 section 4.1.6).
std::uint8_t flagsAndRobustness(QueryToSend const& query) {
  constexpr unsigned suppress = 0x08;
  constexpr unsigned highest = 7;
  unsigned const robustness = query.robustness > highest ? 0 : query.robustness;
  return static_cast<std::uint8_t>((query.suppressesRouters ? suppress : 0) | robustness);
}

void append(std::vector<std::uint8_t>& message, Wirex::IpAddr address) {
  for (int shift = 24; shift >= 0; shift -= 8)
    message.push_back(static_cast<std::uint8_t>(address.value() >> shift));
}

}  // namespace

std::uint8_t codeFor(std::int64_t value) noexcept {
  constexpr std::int64_t firstFloating = 0x80;
  if (value < firstFloating) return static_cast<std::uint8_t>(std::max<std::int64_t>(value, 0));
  auto const greatest = std::int64_t{codeValue(0xff)};
  auto const number = static_cast<std::uint32_t>(std::min(value, greatest));
  // (mantissa | 0x10) << (exponent + 3): five significant bits
  unsigned const shift = static_cast<unsigned>(std::bit_width(number)) - 5;
  return static_cast<std::uint8_t>(0x80 | (shift - 3) << 4 | (number >> shift & 0x0f));
}

std::vector<std::uint8_t> queryMessage(QueryToSend const& query) {
  std::vector<std::uint8_t> message{queryType, maxResponseCode(query), 0, 0};
  message.reserve(queryV3HeaderSize + query.sources.size() * addressSize);
  append(message, query.group);
  if (query.version != IgmpVersion::v3) return message;
  message.push_back(flagsAndRobustness(query));
  message.push_back(codeFor(std::chrono::floor<std::chrono::seconds>(query.queryInterval).count()));
  auto const count = static_cast<std::uint16_t>(query.sources.size());
  message.push_back(static_cast<std::uint8_t>(count >> 8));
  message.push_back(static_cast<std::uint8_t>(count));
  for (Wirex::IpAddr const source : query.sources) append(message, source);
  return message;
}

std::size_t sourcesPerQuery(std::size_t mtu) noexcept {
  return (greatestMessageSize(mtu) - queryV3HeaderSize) / addressSize;
}

}  // namespace Igmp
