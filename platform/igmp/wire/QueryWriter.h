#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "framework/kel/Export.h"
#include "framework/types/IgmpVersion.h"
#include "framework/types/IpAddr.h"

namespace Igmp {

/// A query as a querier means it; what its version cannot say is not sent.
struct QueryToSend {
  IgmpVersion version = IgmpVersion::v3;
  Wirex::IpAddr group;  ///< 0.0.0.0 asks for all groups
  /// Within which answers are asked for (RFC 9776 section 4.1.1).
  std::chrono::milliseconds maxResponseTime{};
  bool suppressesRouters = false;  ///< the S flag
  unsigned robustness = 0;
  /// How often the querier sends general queries (RFC 9776 section 4.1.7).
  std::chrono::milliseconds queryInterval{};
  std::span<Wirex::IpAddr const> sources{};
};

/// The code of the greatest number, not beyond `value`, that codeValue() gives; 0 for less.
KEL_EXPORT std::uint8_t codeFor(std::int64_t value) noexcept;

/// The message, its checksum not yet computed.
KEL_EXPORT std::vector<std::uint8_t> queryMessage(QueryToSend const& query);

/// How many sources a query can have where an IP datagram may have `mtu` bytes.
KEL_EXPORT std::size_t sourcesPerQuery(std::size_t mtu) noexcept;

}  // namespace Igmp
