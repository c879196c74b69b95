#include "agent/live/ServiceManager.h"

#include <chrono>
#include <cstdint>
#include <systemd/sd-daemon.h>
#include <utility>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

void tell(std::string const& state) {
  constexpr int keepEnvironment = 0;
  sd_notify(keepEnvironment, state.c_str());  // to run on is more than to be heard
}

}  // namespace

ServiceManager::ServiceManager(Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : timerWheel_(std::move(timerWheel)) {
  std::uint64_t limit = 0;
  if (sd_watchdog_enabled(0, &limit) <= 0) return;
  // Half of it, so that one beat may be late.
  watchdogInterval_ = std::chrono::microseconds(limit / 2);
  timerWheel_->schedule(*this, watchdogInterval_);
}

void ServiceManager::ready(std::string const& status) {
  tell("READY=1\nSTATUS=" + status);
}

void ServiceManager::reloading() {
  auto const now = std::chrono::floor<std::chrono::microseconds>(timerWheel_->now());
  tell(message("RELOADING=1\nMONOTONIC_USEC=", now.count(),
               "\nSTATUS=Reading the configuration again"));
}

void ServiceManager::stopping() {
  tell("STOPPING=1\nSTATUS=Leaving the groups");
}

void ServiceManager::onExpiry() {
  tell("WATCHDOG=1");
  timerWheel_->schedule(*this, watchdogInterval_);
}

}  // namespace Agent
