#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "bench/live/Reports.h"

namespace Bench {

/// What a load puts on the wires.
struct LoadOptions {
  std::vector<std::string> interfaces;  ///< one per port with listeners
  Listeners listeners;                  ///< of each port
  bool changes = false;                 ///< join and leave in turn instead of repeating
  double rate = 0;                      ///< frames a second on all ports; 0: as many as can be
  double seconds = 1;
  std::uint64_t frames = 0;  ///< instead of seconds
};

struct LoadResult {
  std::uint64_t sent = 0;
  double seconds = 0;
};

/// Sends the reports of many listeners, port after port in small batches. Changes end with
/// everybody having joined.
LoadResult load(LoadOptions const& options);

struct LatencyOptions {
  std::string from;  ///< the listener's interface
  std::string to;    ///< the router's
  unsigned samples = 4000;
  std::chrono::microseconds pause{2000};
};

struct LatencyResult {
  std::vector<std::chrono::nanoseconds> latencies;  ///< ascending
  unsigned lost = 0;                                ///< not heard of within a second
};

/// One change at a time: from the moment before it is sent to the kernel's time of the first report
/// at the router that speaks of it.
LatencyResult latency(LatencyOptions const& options);

}  // namespace Bench
