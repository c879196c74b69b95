#include "agent/live/Signals.h"

#include <cerrno>
#include <csignal>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Agent {

namespace {

sigset_t handled() {
  sigset_t set;
  sigemptyset(&set);
  for (int const signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR2}) sigaddset(&set, signal);
  return set;
}

int openSignals() {
  sigset_t const set = handled();
  sigprocmask(SIG_BLOCK, &set, nullptr);
  int const descriptor = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  return descriptor;
}

}  // namespace

class Signals::Input final : public Horix::EventLoop::Watch {
 public:
  Input(Horix::EventLoop& loop, Signals& signals)
      : Watch(loop, signals.descriptor_), signals_(signals) {}

 private:
  void onReady() override { signals_.handleReady(); }

  Signals& signals_;
};

Signals::Signals(Horix::EventLoop& loop, std::function<void(int)> handle)
    : descriptor_(openSignals()),
      handle_(std::move(handle)),
      input_(std::make_unique<Input>(loop, *this)) {}

Signals::~Signals() {
  input_.reset();
  close(descriptor_);
  sigset_t const set = handled();
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

void Signals::handleReady() {
  signalfd_siginfo info;
  if (read(descriptor_, &info, sizeof info) == sizeof info)
    handle_(static_cast<int>(info.ssi_signo));
}

}  // namespace Agent
