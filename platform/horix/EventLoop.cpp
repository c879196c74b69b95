#include "platform/horix/EventLoop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <sys/epoll.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "framework/kel/Activity.h"

namespace Horix {

namespace {

[[noreturn]] void fail(char const* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

timespec toTimespec(Time time) {
  auto const whole = std::chrono::floor<std::chrono::seconds>(time);
  return {static_cast<time_t>(whole.count()), static_cast<long>((time - whole).count())};
}

}  // namespace

EventLoop::Watch::Watch(EventLoop& loop, int descriptor) : loop_(loop), descriptor_(descriptor) {
  loop_.add(*this);
}

EventLoop::Watch::~Watch() {
  loop_.remove(*this);
}

void EventLoop::Watch::waitsForOutputIs(bool waits) {
  if (waits == waitsForOutput_) return;
  waitsForOutput_ = waits;
  loop_.change(*this);
}

void EventLoop::Watch::waitsForInputIs(bool waits) {
  if (waits == waitsForInput_) return;
  waitsForInput_ = waits;
  loop_.change(*this);
}

EventLoop::EventLoop(Kel::Ptr<TimerWheel> timerWheel) : timerWheel_(std::move(timerWheel)) {}

EventLoop::~EventLoop() {
  if (epoll_ >= 0) close(epoll_);
}

void EventLoop::endBatch() {
  Kel::runActivities();
  if (!afterBatch_) return;
  afterBatch_();
  Kel::runActivities();
}

void EventLoop::advanceTo(Time time) {
  for (auto next = timerWheel_->nextExpiry(); next && *next <= time;
       next = timerWheel_->nextExpiry()) {
    timerWheel_->advanceTo(*next);
    endBatch();
  }
  timerWheel_->advanceTo(time);
}

void EventLoop::turn(std::optional<Time> until) {
  std::optional<Time> wakeUp = timerWheel_->nextExpiry();
  if (until && (!wakeUp || *until < *wakeUp)) wakeUp = until;

  if (watches_ == 0) {
    if (wakeUp)
      timerWheel_->advanceTo(*wakeUp);
    else
      stop();
    endBatch();
    return;
  }
  constexpr std::size_t mostAtOnce = 64;
  std::array<epoll_event, mostAtOnce> ready;
  int const count = waitForInput(ready, wakeUp);
  if (count < 0 && errno != EINTR) fail("epoll_pwait2");
  if (count > 0) deliver({ready.data(), static_cast<std::size_t>(count)});
  timerWheel_->advanceTo(now());
  endBatch();
}

int EventLoop::waitForInput(std::span<epoll_event> ready, std::optional<Time> wakeUp) const {
  auto const readyWithin = [&](timespec const* timeout) {
    return epoll_pwait2(epoll_, ready.data(), static_cast<int>(ready.size()), timeout, nullptr);
  };
  if (busyPolls_) {
    timespec const none{};
    int count = 0;
    while ((count = readyWithin(&none)) == 0 && (!wakeUp || now() < *wakeUp)) continue;
    return count;
  }
  if (!wakeUp) return readyWithin(nullptr);
  timespec const timeout = toTimespec(std::max(*wakeUp - now(), Time::zero()));
  return readyWithin(&timeout);
}

void EventLoop::run() {
  for (stopped_ = false; !stopped_;) turn();
}

void EventLoop::deliver(std::span<epoll_event> ready) {
  // One that is destroyed meanwhile is blanked in what is left: see remove().
  struct Undelivered {
    ~Undelivered() { events = {}; }
    std::span<epoll_event>& events;
  } const forgottenAtTheEnd{undelivered_};
  for (undelivered_ = ready; !undelivered_.empty();) {
    auto* const watch = static_cast<Watch*>(undelivered_.front().data.ptr);
    undelivered_ = undelivered_.subspan(1);
    if (watch) watch->onReady();
  }
}

void EventLoop::add(Watch& watch) {
  if (epoll_ < 0) epoll_ = epoll_create1(EPOLL_CLOEXEC);
  if (epoll_ < 0) fail("epoll_create1");
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.ptr = &watch;
  if (epoll_ctl(epoll_, EPOLL_CTL_ADD, watch.descriptor_, &event) < 0) fail("epoll_ctl");
  ++watches_;
}

void EventLoop::change(Watch& watch) {
  epoll_event event{};
  if (watch.waitsForInput_) event.events |= EPOLLIN;
  if (watch.waitsForOutput_) event.events |= EPOLLOUT;
  event.data.ptr = &watch;
  if (epoll_ctl(epoll_, EPOLL_CTL_MOD, watch.descriptor_, &event) < 0) fail("epoll_ctl");
}

void EventLoop::remove(Watch& watch) noexcept {
  --watches_;
  epoll_ctl(epoll_, EPOLL_CTL_DEL, watch.descriptor_, nullptr);
  for (epoll_event& event : undelivered_)
    if (event.data.ptr == &watch) event.data.ptr = nullptr;
}

}  // namespace Horix
