#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace Agent {

/// So many names or VLANs one text may stand for: as many as there are VLANs.
inline constexpr std::size_t maxExpansion = 4094;

/// Reads a list of numbers and ascending ranges: "7", "10-19", "1,3-5". Numbers keep the order in
/// which they are written and may come twice. Throws std::invalid_argument, with a text of the
/// form "what is wrong; what to do".
std::vector<std::uint32_t> expandNumberRanges(std::string_view ranges);

}  // namespace Agent
