#pragma once

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

#include "agent/control/Descriptor.h"
#include "platform/horix/EventLoop.h"

namespace Agent {

/// A program that runs beside the agent for a moment, to see whether it can. What it complains of
/// goes to standard error. One that does not end in time is killed.
class TrialRun final : private Horix::Timer {
 public:
  /// @param outcome is told, on the loop, whether it ended with status 0; the trial may be
  /// destroyed then. Throws std::system_error.
  TrialRun(Horix::EventLoop& loop, std::string const& path,
           std::vector<std::string> const& arguments, std::function<void(bool)> outcome);
  TrialRun(TrialRun const&) = delete;
  TrialRun& operator=(TrialRun const&) = delete;
  ~TrialRun() override;

 private:
  class Ended;

  void onExpiry() override;
  void handleEnded();

  pid_t process_ = -1;
  Descriptor descriptor_;
  std::function<void(bool)> outcome_;
  std::unique_ptr<Ended> ended_;
};

}  // namespace Agent
