#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/live/TrialRun.h"
#include "platform/horix/EventLoop.h"

namespace Agent {

/// Starts the program anew in its own process: the one that is at its path now, which after an
/// upgrade is the new one. First that program, as a process of its own, has to find the
/// configuration usable, so that one that cannot run does not get the place of one that does.
class Restart final : private Horix::Timer {
 public:
  /// Called once: with nothing if the restart is about to happen, else with what prevents it.
  using Told = std::function<void(std::string const& problem)>;

  /// @param arguments with which the program was started, its name first.
  /// @param replace does it, now or soon.
  Restart(Horix::EventLoop& loop, std::vector<std::string> arguments,
          std::function<void(std::string const& path)> replace);

  /// @param configuration the file that the new program is to find usable.
  void begin(std::string const& configuration, Told told);

 private:
  void handleTried(bool succeeded);
  void onExpiry() override;
  void tell(std::string const& problem);

  Horix::EventLoop& loop_;
  std::string const path_;
  std::vector<std::string> const arguments_;
  std::function<void(std::string const&)> replace_;
  Told told_;
  std::unique_ptr<TrialRun> trial_;
};

}  // namespace Agent
