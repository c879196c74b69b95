#pragma once

#include <string>

namespace Bench {

/// Sends what comes in on one interface out of another, and does nothing else: what a sleeping
/// process owes to the kernel alone between a frame in and a frame out. Never returns; throws
/// std::system_error.
[[noreturn]] void relay(std::string const& from, std::string const& to);

}  // namespace Bench
