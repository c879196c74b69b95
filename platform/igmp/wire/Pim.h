#pragma once

#include <chrono>

#include "framework/kel/Export.h"
#include "framework/types/IpAddr.h"
#include "platform/igmp/wire/FrameReader.h"
#include "platform/igmp/wire/Parsed.h"

namespace Igmp {

inline constexpr Wirex::IpAddr allPimRouters(224, 0, 0, 13);

/// What a PIM router says of itself every now and then (RFC 7761 section 4.9.2).
struct PimHello {
  static constexpr std::chrono::seconds defaultHoldtime{105};  // 3.5 * Hello_Period
  static constexpr std::chrono::seconds forever{0xffff};

  Wirex::IpAddr source;
  std::chrono::seconds holdtime = defaultHoldtime;  ///< zero from a router that is about to go
};

/// Reads a PIM hello. Refuses whatever else it is with `notIgmp`, other PIM messages included, and
/// a hello that is damaged, not of this link, or not meant for all routers, with its own cause.
KEL_EXPORT Parsed<PimHello> parsePimHello(EthernetFrame const& frame);

}  // namespace Igmp
