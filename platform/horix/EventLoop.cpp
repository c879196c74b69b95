#include "platform/horix/EventLoop.h"

#include <algorithm>
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

void EventLoop::Watch::tookInput(std::size_t pieces, std::size_t most) {
  if (std::exchange(round_, loop_.round_) != loop_.round_) {
    takenInRound_ = 0;
    leavesInput_ = false;
  }
  takenInRound_ += pieces;
  bool const left = takenInRound_ < most;
  if (left == leavesInput_) return;
  leavesInput_ = left;
  left ? ++loop_.leaving_ : --loop_.leaving_;
}

bool EventLoop::Watch::leavesInput() const {
  return leavesInput_ && round_ == loop_.round_;
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
  if (undelivered_.empty()) lookForInput(wakeUp);
  Time const begin = now();
  deliver();
  if (undelivered_.empty() && leaving_ == 0) heedTimers();
  endBatch();
  ++turns_.count;
  turns_.longest = std::max(turns_.longest, now() - begin);
}

void EventLoop::lookForInput(std::optional<Time> wakeUp) {
  ready_.resize(watches_);
  Time const before = now();
  int const count = waitForInput(wakeUp);
  if (count < 0) {
    if (errno != EINTR) fail("epoll_pwait2");
    return;
  }
  undelivered_ = std::span(ready_).first(static_cast<std::size_t>(count));
  // Each time is one at which, or after which, it was seen what waits: however long the process
  // stands still before it goes on here, no timer is heeded that ran out then.
  if (count == 0)
    beginRound(std::max(before, wakeUp.value_or(before)));
  else if (leaving_ == 0)
    beginRound(before);
}

int EventLoop::waitForInput(std::optional<Time> wakeUp) {
  auto const readyWithin = [&](timespec const* timeout) {
    return epoll_pwait2(epoll_, ready_.data(), static_cast<int>(ready_.size()), timeout, nullptr);
  };
  if (busyPolls_) {
    timespec const none{};
    for (;;) {
      bool const last = wakeUp && now() >= *wakeUp;
      if (int const count = readyWithin(&none); count != 0 || last) return count;
    }
  }
  if (!wakeUp) return readyWithin(nullptr);
  timespec const timeout = toTimespec(std::max(*wakeUp - now(), Time::zero()));
  return readyWithin(&timeout);
}

void EventLoop::beginRound(Time heeded) {
  ++round_;
  leaving_ = 0;
  heeded_ = heeded;
}

/// Those that are not reached keep their place, so that none waits for ever.
void EventLoop::deliver() {
  Time current = now();
  Time const end = current + inputBudget;
  while (!undelivered_.empty() && current < end) {
    shareEnd_ = current + (end - current) / static_cast<Time::rep>(undelivered_.size());
    auto* const watch = static_cast<Watch*>(undelivered_.front().data.ptr);
    // One that is destroyed meanwhile is blanked in what is left: see remove().
    undelivered_ = undelivered_.subspan(1);
    if (watch) watch->onReady();
    if (!undelivered_.empty()) current = now();
  }
}

void EventLoop::heedTimers() {
  Time current = now();
  Time const end = current + timerBudget;
  while (!timerWheel_->advanceTo(heeded_, current + timerBatch)) {
    endBatch();
    current = now();
    if (current >= end) break;
  }
}

void EventLoop::run() {
  for (stopped_ = false; !stopped_;) turn();
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
  if (watch.leavesInput()) --leaving_;
  epoll_ctl(epoll_, EPOLL_CTL_DEL, watch.descriptor_, nullptr);
  for (epoll_event& event : undelivered_)
    if (event.data.ptr == &watch) event.data.ptr = nullptr;
}

}  // namespace Horix
