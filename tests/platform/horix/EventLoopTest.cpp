#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/eventfd.h>
#include <sys/time.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Attribute.h"
#include "platform/horix/EventLoop.h"

namespace {

using namespace std::chrono_literals;
using Horix::EventLoop;
using Horix::Time;
using Horix::TimerWheel;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Action = std::function<void()>;
using Journal = std::vector<std::string>;

class CallingTimer final : public Horix::Timer {
 public:
  explicit CallingTimer(Action action) : action_(std::move(action)) {}

 private:
  void onExpiry() override { action_(); }

  Action action_;
};

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {
    if (number < 0) throw std::system_error(errno, std::generic_category());
  }
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  ~Descriptor() { close(number_); }

  int number() const { return number_; }

 private:
  int number_;
};

/// Something that has input when it is told so.
class Event {
 public:
  void raise() const { eventfd_write(descriptor_.number(), 1); }
  void take() const {
    eventfd_t count = 0;
    eventfd_read(descriptor_.number(), &count);
  }
  int descriptor() const { return descriptor_.number(); }

 private:
  Descriptor descriptor_{eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
};

class Pipe {
 public:
  Pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_NONBLOCK | O_CLOEXEC) < 0) throw std::runtime_error("pipe2");
    readEnd = std::make_unique<Descriptor>(ends[0]);
    writeEnd = std::make_unique<Descriptor>(ends[1]);
  }

  void fill() const {
    std::array<char, 4096> const bytes{};
    while (write(writeEnd->number(), bytes.data(), bytes.size()) > 0) continue;
  }
  void drain() const {
    std::array<char, 4096> bytes{};
    while (read(readEnd->number(), bytes.data(), bytes.size()) > 0) continue;
  }

  std::unique_ptr<Descriptor> readEnd;
  std::unique_ptr<Descriptor> writeEnd;
};

class Watcher final : public EventLoop::Watch {
 public:
  Watcher(EventLoop& loop, int descriptor, Action action)
      : Watch(loop, descriptor), action_(std::move(action)) {}

  using Watch::waitsForOutputIs;

 private:
  void onReady() override {
    // The action may destroy this.
    auto const action = action_;
    action();
  }

  Action action_;
};

/// An attribute whose reactor hears of its changes when the activities run.
class Lamp : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Lamp const> {
   public:
    virtual void onBrightness() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  int brightness() const { return brightness_.get(); }
  void brightnessIs(int brightness) { brightness_.is(*this, brightness); }

 private:
  Kel::Value<int, &NotifieeConst::onBrightness> brightness_;
};

class LampReader final : public Lamp::NotifieeConst {
 public:
  LampReader(Kel::Ptr<Lamp const> lamp, Action action)
      : NotifieeConst(Delivery::byActivity), action_(std::move(action)) {
    watch(std::move(lamp));
  }

  Kel::ActivityConfig* kelFwkActivity() const override { return activity_.get(); }
  void onBrightness() override { action_(); }

 private:
  Action action_;
  Kel::Ptr<Kel::ActivityConfig> activity_ = Kel::make<Kel::ActivityConfig>();
};

int epollDescriptors() {
  namespace fs = std::filesystem;
  int count = 0;
  for (auto const& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the descriptor of this very walk
    count += fs::read_symlink(entry, gone) == "anon_inode:[eventpoll]";
  }
  return count;
}

class EventLoopTest : public testing::Test {
 protected:
  explicit EventLoopTest(Kel::Ptr<Horix::Clock> const& clock)
      : loop(Kel::make<TimerWheel>(clock)) {}

  CallingTimer timer(std::string const& name) {
    return CallingTimer([this, name] { journal.push_back(name); });
  }
  void schedule(Horix::Timer& timer, Time delay) { loop.timerWheel()->schedule(timer, delay); }

  /// Changes the lamp, of which the reader hears at the end of the batch.
  void change() { lamp->brightnessIs(lamp->brightness() + 1); }

  EventLoop loop;
  Journal journal;
  Kel::Ptr<Lamp> lamp = Kel::make<Lamp>();
  Kel::Ptr<LampReader> reader =
      Kel::make<LampReader>(lamp, [this] { journal.emplace_back("activity"); });
};

/// With a clock that jumps from one deadline to the next.
class VirtualLoopTest : public EventLoopTest {
 protected:
  VirtualLoopTest() : EventLoopTest(Kel::make<Horix::VirtualClock>()) {}
};

/// With a clock that goes by itself.
class LiveLoopTest : public EventLoopTest {
 protected:
  LiveLoopTest() : EventLoopTest(Kel::make<Horix::MonotonicClock>()) {}

  /// Writes its name down and takes the event away.
  Watcher watcher(Event const& watched, std::string const& name) {
    return {loop, watched.descriptor(), [this, &watched, name] {
              journal.push_back(name);
              watched.take();
            }};
  }

  /// Deals with what is there already.
  void turn() { loop.turn(loop.now()); }

  Event event;
  Event otherEvent;
};

// ---- Batches

TEST_F(VirtualLoopTest, ActivitiesRunAtTheEndOfABatch) {
  change();
  EXPECT_THAT(journal, IsEmpty());
  loop.endBatch();
  EXPECT_THAT(journal, ElementsAre("activity"));
}

TEST_F(VirtualLoopTest, ActionAfterABatchFollowsItsActivities) {
  loop.afterBatchIs([&] { journal.emplace_back("after batch"); });
  change();
  loop.endBatch();
  EXPECT_THAT(journal, ElementsAre("activity", "after batch"));
}

TEST_F(VirtualLoopTest, ActivitiesOfTheActionAfterABatchRunToo) {
  loop.afterBatchIs([&] {
    journal.emplace_back("after batch");
    change();
  });
  loop.endBatch();
  EXPECT_THAT(journal, ElementsAre("after batch", "activity"));
}

TEST_F(VirtualLoopTest, ActionAfterABatchMayBeTakenAway) {
  loop.afterBatchIs([&] { journal.emplace_back("after batch"); });
  loop.afterBatchIs(nullptr);
  loop.endBatch();
  EXPECT_THAT(journal, IsEmpty());
}

// ---- Virtual time

TEST_F(VirtualLoopTest, TimeIsTheWheels) {
  EXPECT_EQ(loop.now(), 0s);
  loop.timerWheel()->advanceTo(5s);
  EXPECT_EQ(loop.now(), 5s);
}

TEST_F(VirtualLoopTest, PassesTimeUpToWhereItIsTold) {
  auto due = timer("due");
  auto late = timer("late");
  schedule(due, 10ms);
  schedule(late, 11ms);
  loop.advanceTo(10ms);
  EXPECT_THAT(journal, ElementsAre("due"));
  EXPECT_EQ(loop.now(), 10ms);
}

TEST_F(VirtualLoopTest, PassesTimeWithoutTimers) {
  loop.advanceTo(1h);
  EXPECT_EQ(loop.now(), 1h);
}

TEST_F(VirtualLoopTest, EachDeadlineIsABatchOfItsOwn) {
  auto const changing = [&](char const* name) {
    return [this, name] {
      journal.emplace_back(name);
      change();
    };
  };
  CallingTimer first(changing("first"));
  CallingTimer sameTime(changing("same time"));
  CallingTimer second(changing("second"));
  schedule(first, 10ms);
  schedule(sameTime, 10ms);
  schedule(second, 11ms);
  loop.advanceTo(1s);
  EXPECT_THAT(journal, ElementsAre("first", "same time", "activity", "second", "activity"));
}

TEST_F(VirtualLoopTest, TimersThatABatchSchedulesAreMet) {
  auto follower = timer("follower");
  bool scheduled = false;
  loop.afterBatchIs([&] {
    if (!std::exchange(scheduled, true)) schedule(follower, 5ms);
  });
  auto first = timer("first");
  schedule(first, 10ms);
  loop.advanceTo(15ms);
  EXPECT_THAT(journal, ElementsAre("first", "follower"));
}

TEST_F(VirtualLoopTest, TurnGoesToTheNextTimer) {
  auto first = timer("first");
  auto second = timer("second");
  schedule(first, 10ms);
  schedule(second, 20ms);
  loop.turn();
  EXPECT_THAT(journal, ElementsAre("first"));
  EXPECT_EQ(loop.now(), 10ms);
}

TEST_F(VirtualLoopTest, TurnGoesNoFurtherThanItIsTold) {
  auto first = timer("first");
  schedule(first, 10ms);
  loop.turn(7ms);
  EXPECT_THAT(journal, IsEmpty());
  EXPECT_EQ(loop.now(), 7ms);
}

TEST_F(VirtualLoopTest, TurnStopsAtATimerBeforeItsEnd) {
  auto first = timer("first");
  schedule(first, 10ms);
  loop.turn(20ms);
  EXPECT_THAT(journal, ElementsAre("first"));
  EXPECT_EQ(loop.now(), 10ms);
}

TEST_F(VirtualLoopTest, TurnEndsItsBatch) {
  CallingTimer first([&] { change(); });
  schedule(first, 10ms);
  loop.turn();
  EXPECT_THAT(journal, ElementsAre("activity"));
}

TEST_F(VirtualLoopTest, RunsUntilNothingIsLeft) {
  auto first = timer("first");
  CallingTimer second([&] {
    journal.emplace_back("second");
    schedule(first, 1h);
  });
  schedule(second, 1h);
  loop.run();
  EXPECT_THAT(journal, ElementsAre("second", "first"));
  EXPECT_EQ(loop.now(), 2h);
}

TEST_F(VirtualLoopTest, RunsUntilItIsStopped) {
  int beats = 0;
  CallingTimer* self = nullptr;
  CallingTimer heartbeat([&] {
    if (++beats == 3) loop.stop();
    schedule(*self, 1s);
  });
  self = &heartbeat;
  schedule(heartbeat, 1s);
  loop.run();
  EXPECT_EQ(beats, 3);
  EXPECT_EQ(loop.now(), 3s);
}

TEST_F(VirtualLoopTest, RunsAgainAfterItWasStopped) {
  CallingTimer stopping([&] { loop.stop(); });
  auto later = timer("later");
  schedule(stopping, 1s);
  schedule(later, 2s);
  loop.run();
  EXPECT_THAT(journal, IsEmpty());
  loop.run();
  EXPECT_THAT(journal, ElementsAre("later"));
}

TEST_F(VirtualLoopTest, TurnThatIsStoppedEndsItsBatch) {
  CallingTimer stopping([&] {
    loop.stop();
    change();
  });
  schedule(stopping, 1s);
  loop.run();
  EXPECT_THAT(journal, ElementsAre("activity"));
}

TEST_F(VirtualLoopTest, TimerThatThrowsLeavesTheOthers) {
  CallingTimer failing([] { throw std::runtime_error("failed"); });
  auto next = timer("next");
  schedule(failing, 10ms);
  schedule(next, 20ms);
  EXPECT_THROW(loop.run(), std::runtime_error);
  loop.run();
  EXPECT_THAT(journal, ElementsAre("next"));
}

TEST_F(VirtualLoopTest, AsksTheKernelForNothing) {
  int const before = epollDescriptors();
  auto first = timer("first");
  schedule(first, 10ms);
  loop.turn(5ms);
  loop.advanceTo(6ms);
  loop.endBatch();
  loop.run();
  EXPECT_THAT(journal, ElementsAre("first"));
  EXPECT_EQ(epollDescriptors(), before);
}

// ---- Input

TEST_F(LiveLoopTest, HoldsOneKernelObjectHoweverManyWatch) {
  int const before = epollDescriptors();
  {
    EventLoop other(loop.timerWheel());
    Watcher const first(other, event.descriptor(), [] {});
    Watcher const second(other, otherEvent.descriptor(), [] {});
    EXPECT_EQ(epollDescriptors(), before + 1);
  }
  EXPECT_EQ(epollDescriptors(), before);
}

TEST_F(LiveLoopTest, InputIsDelivered) {
  auto const watching = watcher(event, "event");
  event.raise();
  turn();
  EXPECT_THAT(journal, ElementsAre("event"));
}

TEST_F(LiveLoopTest, WithoutInputNothingIsDelivered) {
  auto const watching = watcher(event, "event");
  turn();
  EXPECT_THAT(journal, IsEmpty());
}

TEST_F(LiveLoopTest, InputIsDeliveredToItsOwnWatch) {
  auto const first = watcher(event, "event");
  auto const second = watcher(otherEvent, "other event");
  otherEvent.raise();
  turn();
  EXPECT_THAT(journal, ElementsAre("other event"));
}

TEST_F(LiveLoopTest, InputThatIsLeftIsDeliveredAgain) {
  Watcher const watching(loop, event.descriptor(), [&] { journal.emplace_back("event"); });
  event.raise();
  turn();
  turn();
  event.take();
  turn();
  EXPECT_THAT(journal, ElementsAre("event", "event"));
}

TEST_F(LiveLoopTest, InputEndsTheWait) {
  auto const watching = watcher(event, "event");
  event.raise();
  Time const before = loop.now();
  loop.turn(before + 1h);
  EXPECT_THAT(journal, ElementsAre("event"));
  EXPECT_LT(loop.now(), before + 1h);
}

TEST_F(LiveLoopTest, WaitsUntilTheTimeItIsTold) {
  auto const watching = watcher(event, "event");
  Time const until = loop.now() + 20ms;
  loop.turn(until);
  EXPECT_GE(loop.now(), until);
}

TEST_F(LiveLoopTest, TimeThatIsPastIsNotWaitedFor) {
  auto const watching = watcher(event, "event");
  event.raise();
  loop.turn(Time::zero());
  EXPECT_THAT(journal, ElementsAre("event"));
}

TEST_F(LiveLoopTest, MoreInputThanOneTurnTakesIsAllDelivered) {
  constexpr std::size_t many = 150;
  std::vector<Event> events(many);
  std::vector<std::unique_ptr<Watcher>> watching;
  for (std::size_t i = 0; i < many; ++i) {
    Event const& each = events[i];
    watching.push_back(std::make_unique<Watcher>(loop, each.descriptor(), [this, &each, i] {
      journal.push_back(std::to_string(i));
      each.take();
    }));
    each.raise();
  }
  for (std::size_t i = 0; i < many && journal.size() < many; ++i) turn();
  std::sort(journal.begin(), journal.end());
  EXPECT_EQ(std::unique(journal.begin(), journal.end()) - journal.begin(), 150);
}

TEST_F(LiveLoopTest, EndOfInputIsDelivered) {
  Pipe pipe;
  Watcher const watching(loop, pipe.readEnd->number(), [&] { journal.emplace_back("end"); });
  turn();
  EXPECT_THAT(journal, IsEmpty());
  pipe.writeEnd = nullptr;
  turn();
  EXPECT_THAT(journal, ElementsAre("end"));
}

TEST_F(LiveLoopTest, SignalEndsTheWaitAndHarmsNothing) {
  auto const watching = watcher(event, "event");
  struct sigaction ignoring {};
  ignoring.sa_handler = [](int) {};
  struct sigaction former {};
  ASSERT_EQ(sigaction(SIGALRM, &ignoring, &former), 0);
  itimerval const soon{{0, 0}, {0, 10'000}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &soon, nullptr), 0);
  Time const until = loop.now() + 1h;
  change();
  EXPECT_NO_THROW(loop.turn(until));
  sigaction(SIGALRM, &former, nullptr);
  EXPECT_LT(loop.now(), until);
  EXPECT_THAT(journal, ElementsAre("activity"));
}

// ---- Input and timers, batches

TEST_F(LiveLoopTest, ActivitiesRunOnceAfterAllInputOfATurn) {
  auto const changing = [&](Event const& each) {
    return [this, &each] {
      journal.emplace_back("event");
      each.take();
      change();
    };
  };
  Watcher const first(loop, event.descriptor(), changing(event));
  Watcher const second(loop, otherEvent.descriptor(), changing(otherEvent));
  loop.afterBatchIs([&] { journal.emplace_back("after batch"); });
  event.raise();
  otherEvent.raise();
  turn();
  EXPECT_THAT(journal, ElementsAre("event", "event", "activity", "after batch"));
}

TEST_F(LiveLoopTest, InputComesBeforeTheTimersOfItsTurn) {
  auto const watching = watcher(event, "event");
  auto due = timer("timer");
  schedule(due, 0ms);
  while (loop.now() < due.deadline()) continue;
  event.raise();
  change();
  turn();
  EXPECT_THAT(journal, ElementsAre("event", "timer", "activity"));
}

TEST_F(LiveLoopTest, TimersAreMetWhileInputIsWaitedFor) {
  auto const watching = watcher(event, "event");
  auto due = timer("timer");
  schedule(due, 5ms);
  Time const deadline = due.deadline();
  while (due.scheduled()) loop.turn();
  EXPECT_THAT(journal, ElementsAre("timer"));
  EXPECT_GE(loop.now(), deadline);
}

TEST_F(LiveLoopTest, TimersThatInputSchedulesAreMet) {
  auto due = timer("timer");
  Watcher const watching(loop, event.descriptor(), [&] {
    event.take();
    schedule(due, 1ms);
  });
  event.raise();
  turn();
  ASSERT_TRUE(due.scheduled());
  while (due.scheduled()) loop.turn();
  EXPECT_THAT(journal, ElementsAre("timer"));
}

TEST_F(LiveLoopTest, TimersAreMetWithoutInputToWaitFor) {
  auto due = timer("timer");
  schedule(due, 5ms);
  Time const deadline = due.deadline();
  loop.run();
  EXPECT_THAT(journal, ElementsAre("timer"));
  EXPECT_GE(loop.now(), deadline);
}

TEST_F(LiveLoopTest, RunsUntilInputStopsIt) {
  Watcher const watching(loop, event.descriptor(), [&] {
    journal.emplace_back("event");
    loop.stop();
  });
  event.raise();
  loop.run();
  EXPECT_THAT(journal, ElementsAre("event"));
}

TEST_F(LiveLoopTest, RunEndsWithTheLastWatch) {
  auto watching = std::make_unique<Watcher>(loop, event.descriptor(), [] {});
  event.raise();
  CallingTimer closing([&] { watching = nullptr; });
  schedule(closing, 1ms);
  loop.run();
  EXPECT_EQ(watching, nullptr);
}

TEST_F(VirtualLoopTest, TimeJumpsAgainOnceNothingIsWatched) {
  Event const event;
  auto watching = std::make_unique<Watcher>(loop, event.descriptor(), [] {});
  watching = nullptr;
  auto due = timer("timer");
  schedule(due, 1h);
  loop.run();
  EXPECT_THAT(journal, ElementsAre("timer"));
  EXPECT_EQ(loop.now(), 1h);
}

// ---- Output

TEST_F(LiveLoopTest, OutputIsNotWaitedForUnlessAskedFor) {
  Pipe const pipe;
  Watcher const watching(loop, pipe.writeEnd->number(), [&] { journal.emplace_back("ready"); });
  turn();
  EXPECT_THAT(journal, IsEmpty());
}

TEST_F(LiveLoopTest, DescriptorThatTakesOutputIsTold) {
  Pipe const pipe;
  Watcher watching(loop, pipe.writeEnd->number(), [&] { journal.emplace_back("ready"); });
  pipe.fill();
  watching.waitsForOutputIs(true);
  turn();
  EXPECT_THAT(journal, IsEmpty()) << "it is full";
  pipe.drain();
  turn();
  EXPECT_THAT(journal, ElementsAre("ready"));
}

TEST_F(LiveLoopTest, OutputIsNoLongerWaitedForWhenItIsCalledOff) {
  Pipe const pipe;
  Watcher watching(loop, pipe.writeEnd->number(), [&] { journal.emplace_back("ready"); });
  watching.waitsForOutputIs(true);
  watching.waitsForOutputIs(false);
  turn();
  EXPECT_THAT(journal, IsEmpty());
}

TEST_F(LiveLoopTest, InputIsDeliveredWhileOutputIsWaitedFor) {
  Watcher watching(loop, event.descriptor(), [&] { journal.emplace_back("ready"); });
  eventfd_write(event.descriptor(), UINT64_MAX - 1);  // takes no more
  watching.waitsForOutputIs(true);
  turn();
  EXPECT_THAT(journal, ElementsAre("ready"));
}

// ---- Busy polling

/// What a turn until `end` takes of the processor.
Time processorTime(EventLoop& loop, Time end) {
  auto const taken = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  };
  Time const before = taken();
  loop.turn(end);
  return taken() - before;
}

TEST_F(LiveLoopTest, SleepsWithoutInput) {
  auto const watching = watcher(event, "event");
  EXPECT_LT(processorTime(loop, loop.now() + 200ms), 20ms);
}

TEST_F(LiveLoopTest, DoesNotSleepWhileItBusyPolls) {
  auto const watching = watcher(event, "event");
  loop.busyPollsIs(true);
  Time const end = loop.now() + 200ms;
  EXPECT_GT(processorTime(loop, end), 20ms) << "a busy machine leaves it less than 200 ms";
  EXPECT_GE(loop.now(), end);
  loop.busyPollsIs(false);
  EXPECT_LT(processorTime(loop, loop.now() + 200ms), 20ms);
}

TEST_F(LiveLoopTest, BusyPollingDeliversInput) {
  auto const watching = watcher(event, "event");
  loop.busyPollsIs(true);
  event.raise();
  Time const before = loop.now();
  loop.turn(before + 1h);
  EXPECT_THAT(journal, ElementsAre("event"));
  EXPECT_LT(loop.now(), before + 1h);
}

TEST_F(LiveLoopTest, BusyPollingMeetsTimers) {
  auto const watching = watcher(event, "event");
  auto due = timer("due");
  schedule(due, 10ms);
  loop.busyPollsIs(true);
  Time const deadline = due.deadline();
  while (due.scheduled()) loop.turn();
  EXPECT_THAT(journal, ElementsAre("due"));
  EXPECT_GE(loop.now(), deadline);
}

// ---- What handlers may do

TEST_F(LiveLoopTest, WatchMayDestroyItself) {
  std::unique_ptr<Watcher> watching;
  watching = std::make_unique<Watcher>(loop, event.descriptor(), [&] {
    journal.emplace_back("event");
    watching = nullptr;
  });
  event.raise();
  turn();
  turn();
  EXPECT_THAT(journal, ElementsAre("event"));
}

/// Whichever of two neighbours is called first destroys the other, whose event is there already.
TEST_F(LiveLoopTest, WatchMayDestroyItsNeighbour) {
  std::unique_ptr<Watcher> first;
  std::unique_ptr<Watcher> second;
  first = std::make_unique<Watcher>(loop, event.descriptor(), [&] {
    journal.emplace_back("event");
    second = nullptr;
  });
  second = std::make_unique<Watcher>(loop, otherEvent.descriptor(), [&] {
    journal.emplace_back("event");
    first = nullptr;
  });
  event.raise();
  otherEvent.raise();
  turn();
  EXPECT_THAT(journal, ElementsAre("event"));
  EXPECT_NE(first == nullptr, second == nullptr);
}

TEST_F(LiveLoopTest, EventOfADestroyedWatchGoesToNobodyInItsPlace) {
  std::unique_ptr<Watcher> second;
  auto const replace = [&] {
    second = nullptr;
    // A new one for a quiet descriptor may well take the same memory.
    second = std::make_unique<Watcher>(loop, otherEvent.descriptor(),
                                       [&] { journal.emplace_back("replacement"); });
  };
  Watcher const first(loop, event.descriptor(), [&] {
    journal.emplace_back("event");
    event.take();
    otherEvent.take();
    replace();
  });
  second = std::make_unique<Watcher>(loop, otherEvent.descriptor(), [] {});
  event.raise();
  otherEvent.raise();
  turn();
  EXPECT_THAT(journal, ElementsAre("event"));
  otherEvent.raise();
  turn();
  EXPECT_THAT(journal, ElementsAre("event", "replacement"));
}

TEST_F(LiveLoopTest, WatchMayAddAnother) {
  std::unique_ptr<Watcher> added;
  Watcher const first(loop, event.descriptor(), [&] {
    journal.emplace_back("event");
    event.take();
    added = std::make_unique<Watcher>(loop, otherEvent.descriptor(), [&] {
      journal.emplace_back("added");
      otherEvent.take();
    });
  });
  event.raise();
  otherEvent.raise();
  turn();
  EXPECT_THAT(journal, ElementsAre("event"));
  turn();
  EXPECT_THAT(journal, ElementsAre("event", "added"));
}

TEST_F(LiveLoopTest, TimerMayDestroyAWatchWithInput) {
  auto watching =
      std::make_unique<Watcher>(loop, event.descriptor(), [&] { journal.emplace_back("event"); });
  CallingTimer closing([&] {
    watching = nullptr;
    event.raise();
  });
  schedule(closing, 0ms);
  while (watching) loop.turn();
  turn();
  EXPECT_THAT(journal, IsEmpty());
}

TEST_F(LiveLoopTest, HandlerMayTurnTheLoop) {
  Watcher const first(loop, event.descriptor(), [&] {
    journal.emplace_back("event");
    event.take();
    turn();
  });
  auto const second = watcher(otherEvent, "other event");
  event.raise();
  otherEvent.raise();
  turn();
  EXPECT_THAT(journal, UnorderedElementsAre("event", "other event"));
}

TEST_F(LiveLoopTest, HandlerThatThrowsLeavesTheLoopUsable) {
  bool fails = true;
  auto const action = [&](Event const& each) {
    return [this, &fails, &each] {
      each.take();
      if (std::exchange(fails, false)) throw std::runtime_error("failed");
      journal.emplace_back("event");
    };
  };
  Watcher const first(loop, event.descriptor(), action(event));
  Watcher const second(loop, otherEvent.descriptor(), action(otherEvent));
  event.raise();
  otherEvent.raise();
  EXPECT_THROW(turn(), std::runtime_error);
  EXPECT_THAT(journal, IsEmpty());
  turn();
  EXPECT_THAT(journal, ElementsAre("event")) << "the other one";
}

TEST_F(LiveLoopTest, WatchesMayGoAfterAHandlerThrew) {
  std::vector<std::unique_ptr<Watcher>> watching;
  for (Event const* const each : {&event, &otherEvent}) {
    watching.push_back(std::make_unique<Watcher>(loop, each->descriptor(),
                                                 [] { throw std::runtime_error("failed"); }));
    each->raise();
  }
  EXPECT_THROW(turn(), std::runtime_error);
  watching.clear();
  EXPECT_NO_THROW(turn());
}

// ---- Descriptors that cannot be watched

int errorOf(Action const& action) {
  try {
    action();
  } catch (std::system_error const& error) {
    EXPECT_STREQ(error.code().category().name(), "generic");
    EXPECT_THAT(error.what(), testing::StartsWith("epoll_ctl: "));
    return error.code().value();
  }
  return 0;
}

TEST_F(LiveLoopTest, ClosedDescriptorIsRefused) {
  EXPECT_EQ(errorOf([&] { Watcher const watching(loop, -1, [] {}); }), EBADF);
}

TEST_F(LiveLoopTest, FileIsRefused) {
  Descriptor const file(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(errorOf([&] { Watcher const watching(loop, file.number(), [] {}); }), EPERM);
}

TEST_F(LiveLoopTest, SecondWatchOfADescriptorIsRefusedAndTheFirstStays) {
  auto const first = watcher(event, "event");
  EXPECT_EQ(errorOf([&] { Watcher const second(loop, event.descriptor(), [] {}); }), EEXIST);
  event.raise();
  turn();
  EXPECT_THAT(journal, ElementsAre("event"));
}

TEST_F(LiveLoopTest, RefusedWatchIsNotWaitedFor) {
  EXPECT_EQ(errorOf([&] { Watcher const watching(loop, -1, [] {}); }), EBADF);
  loop.run();
  EXPECT_THAT(journal, IsEmpty());
}

}  // namespace
