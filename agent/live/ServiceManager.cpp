#include "agent/live/ServiceManager.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>
#include <utility>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// A name that begins with '@' is none of the file system (sd_notify(3)).
std::optional<sockaddr_un> managersAddress() {
  char const* const name = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (!name || std::strlen(name) >= sizeof address.sun_path) return std::nullopt;
  std::memcpy(address.sun_path, name, std::strlen(name));
  if (name[0] == '@') address.sun_path[0] = '\0';
  return address;
}

socklen_t sizeOf(sockaddr_un const& address) {
  // The first byte of a name that is none of the file system is a zero and belongs to it.
  std::size_t const length = 1 + std::strlen(address.sun_path + 1);
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
}

}  // namespace

ServiceManager::ServiceManager(Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : timerWheel_(std::move(timerWheel)), address_(managersAddress()) {
  if (address_) socket_ = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  std::uint64_t limit = 0;
  if (sd_watchdog_enabled(0, &limit) <= 0) return;
  // Half of it, so that one beat may be late.
  watchdogInterval_ = std::chrono::microseconds(limit / 2);
  timerWheel_->schedule(watchdog_, watchdogInterval_);
}

void ServiceManager::ready(std::string const& status) {
  tell("READY=1\nSTATUS=" + status);
}

void ServiceManager::reloading() {
  tellBusy("Reading the configuration again");
}

void ServiceManager::restarting() {
  tellBusy("Starting the program anew");
}

void ServiceManager::tellBusy(std::string const& status) {
  auto const now = std::chrono::floor<std::chrono::microseconds>(timerWheel_->now());
  tell(message("RELOADING=1\nMONOTONIC_USEC=", now.count(), "\nSTATUS=", status));
}

void ServiceManager::stopping() {
  tell("STOPPING=1\nSTATUS=Leaving the groups");
}

/// Beats that a manager did not take are of no use later.
void ServiceManager::beat() {
  if (untold_.empty()) tell("WATCHDOG=1");
  timerWheel_->schedule(watchdog_, watchdogInterval_);
}

void ServiceManager::tell(std::string state) {
  constexpr std::size_t mostUntold = 64;
  if (socket_.value() < 0 || untold_.size() == mostUntold) return;
  untold_.push_back(std::move(state));
  tellUntold();
}

void ServiceManager::tellUntold() {
  constexpr auto pause = std::chrono::milliseconds(20);
  for (; !untold_.empty(); untold_.pop_front()) {
    std::string const& state = untold_.front();
    bool const told = sendto(socket_.value(), state.data(), state.size(), MSG_NOSIGNAL,
                             reinterpret_cast<sockaddr const*>(&*address_), sizeOf(*address_)) >= 0;
    // Of other errors there is nothing to expect: to run on is more than to be heard.
    if (told || (errno != EAGAIN && errno != ENOBUFS && errno != EINTR)) continue;
    timerWheel_->schedule(*this, pause);
    return;
  }
}

}  // namespace Agent
