#pragma once

#include <chrono>

#include "framework/kel/Export.h"
#include "framework/types/IpAddr.h"
#include "platform/igmp/wire/FrameReader.h"
#include "platform/igmp/wire/Parsed.h"

namespace Igmp {

/// Where PIM hellos go (RFC 7761 section 4.3.1).
inline constexpr Wirex::IpAddr allPimRouters(224, 0, 0, 13);

/// What a PIM router says of itself every now and then (RFC 7761 section 4.9.2).
struct PimHello {
  /// What a hello without a holdtime stands for (RFC 7761 section 4.11).
  static constexpr std::chrono::seconds defaultHoldtime{105};  // 3.5 * Hello_Period
  /// The holdtime of a router that never times out (RFC 7761 section 4.9.2).
  static constexpr std::chrono::seconds forever{0xffff};

  Wirex::IpAddr source;
  std::chrono::seconds holdtime = defaultHoldtime;  ///< zero from a router that is about to go
};

/// Reads a PIM hello. Refuses whatever else it is with `notIgmp`, other PIM messages included, and
/// a hello that is damaged, not of this link, or not meant for all routers, with its own cause.
KEL_EXPORT Parsed<PimHello> parsePimHello(EthernetFrame const& frame);

}  // namespace Igmp
