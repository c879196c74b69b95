#pragma once

#include <deque>
#include <optional>
#include <string>
#include <sys/un.h>

#include "agent/control/Descriptor.h"
#include "platform/horix/TimerWheel.h"

namespace Agent {

/// What the service manager is told (sd_notify(3)): that the agent is ready, is reading its
/// configuration again or stops, and, if it wants to know, that the event loop turns. Everything
/// is without effect where no service manager started the agent. What it does not take at once is
/// told later: nothing waits for it. The event loop's thread.
class ServiceManager final : private Horix::Timer {
 public:
  explicit ServiceManager(Kel::Ptr<Horix::TimerWheel const> timerWheel);

  void ready(std::string const& status);
  void reloading();
  /// Until the program that takes this one's place says that it is ready.
  void restarting();
  void stopping();

 private:
  class Watchdog final : public Horix::Timer {
   public:
    explicit Watchdog(ServiceManager& manager) : manager_(manager) {}

   private:
    void onExpiry() override { manager_.beat(); }

    ServiceManager& manager_;
  };

  void onExpiry() override { tellUntold(); }
  void beat();
  void tellBusy(std::string const& status);
  void tell(std::string state);
  void tellUntold();

  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  // With the library one would have to wait while the manager's queue is full.
  std::optional<sockaddr_un> address_;  // nothing: nobody wants to know
  Descriptor socket_;
  std::deque<std::string> untold_;
  Watchdog watchdog_{*this};
  Horix::Time watchdogInterval_{};  // 0: nobody watches
};

}  // namespace Agent
