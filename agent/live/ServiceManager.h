#pragma once

#include <string>

#include "platform/horix/TimerWheel.h"

namespace Agent {

/// What the service manager is told (sd_notify(3)): that the agent is ready, is reading its
/// configuration again or stops, and, if it wants to know, that the event loop turns. Everything
/// is without effect where no service manager started the agent. The event loop's thread.
class ServiceManager final : private Horix::Timer {
 public:
  explicit ServiceManager(Kel::Ptr<Horix::TimerWheel const> timerWheel);

  void ready(std::string const& status);
  void reloading();
  void stopping();

 private:
  void onExpiry() override;

  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  Horix::Time watchdogInterval_{};  // 0: nobody watches
};

}  // namespace Agent
