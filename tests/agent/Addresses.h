#pragma once

#include "framework/types/IpAddr.h"

/// Who and what the tests of the agent are about.
namespace Agent {

inline constexpr Wirex::IpAddr group{239, 1, 1, 1};
inline constexpr Wirex::IpAddr otherGroup{239, 2, 2, 2};
// Listeners
inline constexpr Wirex::IpAddr tv{10, 0, 0, 1};
inline constexpr Wirex::IpAddr desk{10, 0, 0, 2};
// Sources
inline constexpr Wirex::IpAddr a{192, 0, 2, 1};
inline constexpr Wirex::IpAddr b{192, 0, 2, 2};
inline constexpr Wirex::IpAddr c{192, 0, 2, 3};

}  // namespace Agent
