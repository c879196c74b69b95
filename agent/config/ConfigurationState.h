#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace Agent {

/// What became of a running agent's configuration file, for those who ask: a file that was refused
/// when it was read again changes nothing, so that what is in use is not what stands in it.
struct ConfigurationState {
  using Clock = std::chrono::system_clock;

  /// It has just been taken.
  explicit ConfigurationState(std::string file) : fileName(std::move(file)) {}

  std::string fileName;
  Clock::time_point inUseSince = Clock::now();
  std::optional<Clock::time_point> refused;  ///< the last time, if nothing was taken since
  std::string problem;                       ///< the first one of the refused file
  std::uint64_t refusals = 0;                ///< since the start

  void taken() {
    inUseSince = Clock::now();
    refused.reset();
    problem.clear();
  }
  void wasRefused(std::string firstProblem) {
    refused = Clock::now();
    problem = std::move(firstProblem);
    ++refusals;
  }
};

}  // namespace Agent
