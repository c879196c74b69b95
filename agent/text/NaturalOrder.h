#pragma once

#include <string_view>

namespace Agent {

/// Whether `a` comes before `b` where people sort: swp2 before swp10. Numbers in names count by
/// their value; names that differ in leading zeros only, by their characters.
bool precedesNaturally(std::string_view a, std::string_view b);

}  // namespace Agent
