#pragma once

#include <chrono>
#include <functional>
#include <ostream>
#include <utility>

#include "agent/replay/CaptureMerge.h"

namespace Agent {

/// Tells on one line of a terminal how far captures have been read, once that takes longer than a
/// second. The line goes with the object.
class ProgressLine {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  /// @param terminal must outlive this.
  explicit ProgressLine(std::ostream& terminal, Clock clock = std::chrono::steady_clock::now)
      : terminal_(terminal), clock_(std::move(clock)), due_(clock_() + std::chrono::seconds(1)) {}
  ProgressLine(ProgressLine const&) = delete;
  ProgressLine& operator=(ProgressLine const&) = delete;
  ~ProgressLine() { clear(); }

  /// To be called often: most calls only look at the clock.
  void show(CaptureMerge const& packets);

 private:
  void clear();

  std::ostream& terminal_;
  Clock clock_;
  std::chrono::steady_clock::time_point due_;
  bool shown_ = false;
};

}  // namespace Agent
