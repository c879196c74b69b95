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

/// Returns whether it was not open yet.
bool open(int& epoll) {
  if (epoll >= 0) return false;
  epoll = epoll_create1(EPOLL_CLOEXEC);
  if (epoll < 0) fail("epoll_create1");
  return true;
}

void control(int epoll, int operation, int descriptor, std::uint32_t events, void* data) {
  epoll_event event{};
  event.events = events;
  event.data.ptr = data;
  if (epoll_ctl(epoll, operation, descriptor, &event) < 0) fail("epoll_ctl");
}

timespec toTimespec(Time time) {
  auto const whole = std::chrono::floor<std::chrono::seconds>(time);
  return {static_cast<time_t>(whole.count()), static_cast<long>((time - whole).count())};
}

}  // namespace

EventLoop::Watch::Watch(EventLoop& loop, int descriptor, Order order)
    : loop_(loop), descriptor_(descriptor), order_(order) {
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
  for (int const epoll : {epoll_, firstEpoll_})
    if (epoll >= 0) close(epoll);
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
  bool const goesOn = timersAreNext_ || !undelivered_.empty();
  if (!goesOn) lookForInput(wakeUp);
  Time const begin = now();
  if (goesOn && firstEpoll_ >= 0) deliverFirst();
  bool const timeIsLeft = deliver();
  bool const roundIsOver = undelivered_.empty() && leaving_ == 0;
  timersAreNext_ = roundIsOver && !timeIsLeft;
  if (roundIsOver && timeIsLeft) heedTimers();
  endBatch();
  ++turns_.count;
  turns_.longest = std::max(turns_.longest, now() - begin);
}

void EventLoop::lookForInput(std::optional<Time> wakeUp) {
  ready_.resize(watches_ + 1);  // those that come first are one
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

/// Those that are not reached keep their place, so that none waits for ever. Returns whether that
/// took less time than it may.
bool EventLoop::deliver() {
  Time current = now();
  Time const end = current + inputBudget;
  Time batchEnd = current + inputBatch;
  while (!undelivered_.empty() && current < end) {
    Time const share = (end - current) / static_cast<Time::rep>(undelivered_.size());
    shareEnd_ = std::min(current + share, batchEnd);
    void* const ready = undelivered_.front().data.ptr;
    // One that is destroyed meanwhile is blanked in what is left: see remove().
    undelivered_ = undelivered_.subspan(1);
    if (ready == this)
      deliverFirst();
    else if (ready)
      static_cast<Watch*>(ready)->onReady();
    current = now();
    if (current < batchEnd) continue;
    endBatch();
    current = now();
    batchEnd = current + inputBatch;
  }
  return current < end;
}

/// One at a time, which the kernel puts behind the others: what is not reached comes first in the
/// next turn.
void EventLoop::deliverFirst() {
  Time const end = now() + firstBudget;
  std::uint64_t const thisTurn = turns_.count + 1;
  do {
    epoll_event ready{};
    if (epoll_wait(firstEpoll_, &ready, 1, 0) <= 0) break;
    auto& watch = *static_cast<Watch*>(ready.data.ptr);
    if (std::exchange(watch.calledIn_, thisTurn) == thisTurn) break;
    watch.onReady();
  } while (now() < end);
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

int EventLoop::epollOf(Watch const& watch) const {
  return watch.order_ == Watch::Order::first ? firstEpoll_ : epoll_;
}

void EventLoop::add(Watch& watch) {
  open(epoll_);
  if (watch.order_ == Watch::Order::first && open(firstEpoll_))
    control(epoll_, EPOLL_CTL_ADD, firstEpoll_, EPOLLIN, this);
  control(epollOf(watch), EPOLL_CTL_ADD, watch.descriptor_, EPOLLIN, &watch);
  ++watches_;
}

void EventLoop::change(Watch& watch) {
  std::uint32_t events = 0;
  if (watch.waitsForInput_) events |= EPOLLIN;
  if (watch.waitsForOutput_) events |= EPOLLOUT;
  control(epollOf(watch), EPOLL_CTL_MOD, watch.descriptor_, events, &watch);
}

void EventLoop::remove(Watch& watch) noexcept {
  --watches_;
  if (watch.leavesInput()) --leaving_;
  epoll_ctl(epollOf(watch), EPOLL_CTL_DEL, watch.descriptor_, nullptr);
  for (epoll_event& event : undelivered_)
    if (event.data.ptr == &watch) event.data.ptr = nullptr;
}

}  // namespace Horix
