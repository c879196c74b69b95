#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "tests/agent/soak/Allocations.h"
#include "tests/agent/soak/Soak.h"
#include "tests/proxy/PassingWatchers.h"

namespace Agent::Soak {
namespace {

// Optimised code lives through more in the same time.
#ifdef NDEBUG
constexpr unsigned long usualDays = 30;
#else
constexpr unsigned long usualDays = 3;
#endif

/// IGMPSNOOP_SOAK_DAYS asks for a longer or shorter life.
unsigned long days() {
  char const* const asked = std::getenv("IGMPSNOOP_SOAK_DAYS");
  return asked ? std::strtoul(asked, nullptr, 10) : usualDays;
}

/// The parameter is the seed.
class LongLife : public testing::TestWithParam<std::uint64_t> {};

/// At night nobody is there, but tables keep their room, VLANs remember older queriers, and ports
/// what was turned away there: the most of a few nights is what the others are held against.
constexpr long long allocationsThatVary = 64;
constexpr unsigned long firstNights = 5;

TEST_P(LongLife, IsAsTheModelAtEveryRestAndLeavesNothingAtNight) {
  Soak soak(GetParam());
  long long afterFirstDays = 0;
  long long firstSum = 0;
  long long lastSum = 0;
  for (unsigned long day = 1; day <= days(); ++day) {
    ASSERT_TRUE(soak.liveThroughDay()) << soak.failure();
    if (day <= firstNights) firstSum += liveAllocations();
    if (day + firstNights > days()) lastSum += liveAllocations();
    if (day <= firstNights)
      afterFirstDays = std::max(afterFirstDays, liveAllocations());
    else
      ASSERT_LE(liveAllocations(), afterFirstDays + allocationsThatVary)
          << "in the night of day " << day;
  }
  // What varies evens out over nights; what leaks does not.
  if (days() >= 2 * firstNights) {
    EXPECT_LE(lastSum, firstSum + static_cast<long long>(firstNights) * allocationsThatVary / 2);
  }

  Soak::Figures const& figures = soak.figures();
  EXPECT_GT(figures.rests, 20 * days());
  EXPECT_GT(figures.memberships, 10 * figures.rests);
  EXPECT_GT(figures.records, 10 * figures.rests);
  EXPECT_GT(figures.beliefs, 5 * figures.rests);
  EXPECT_GT(figures.framesLost, 100 * days());
  EXPECT_EQ(figures.eventsByKind.size(), Soak::kindsOfEvents());
  for (auto const& [kind, count] : figures.eventsByKind) EXPECT_GT(count, days()) << kind;

  RecordProperty("days", std::to_string(days()));
  RecordProperty("events", std::to_string(figures.events));
  RecordProperty("rests", std::to_string(figures.rests));
  RecordProperty("memberships", std::to_string(figures.memberships));
  RecordProperty("records", std::to_string(figures.records));
  RecordProperty("groups that routers believed", std::to_string(figures.beliefs));
  RecordProperty("frames heard", std::to_string(figures.framesHeard));
  RecordProperty("frames sent", std::to_string(figures.framesSent));
  RecordProperty("frames lost", std::to_string(figures.framesLost));
}

INSTANTIATE_TEST_SUITE_P(Soak, LongLife, testing::Values(1, 2, 3));

TEST(Soak, GoesTheSameWhileRecordsAreWatchedAndTracedNowAndThen) {
  // One life after the other: they would share the thread's activities.
  auto const figuresOf = [](std::function<void(Switch const&)> onlooker) {
    Soak soak(4);
    soak.onlookerIs(std::move(onlooker));
    for (unsigned long day = 1; day <= (days() + 9) / 10; ++day)
      EXPECT_TRUE(soak.liveThroughDay()) << soak.failure();
    return soak.figures();
  };
  Bridging::IgmpSnooping::Proxy::Testing::PassingWatchers watchers(4);
  auto const watched =
      figuresOf([&](Switch const& agent) { watchers.moveOn(*agent.entities().hosts); });
  watchers.leave();

  EXPECT_EQ(watched, figuresOf([](Switch const&) {}));
  EXPECT_EQ(watchers.outOfStep(), 0u);
  EXPECT_GT(watchers.watched(), 100u);
  EXPECT_GT(watchers.messages(), 100u);
}

TEST(Soak, LeavesNoMemoryBehindWhenTheSwitchGoes) {
  auto const liveBriefly = [](std::uint64_t seed) {
    Soak soak(seed);
    EXPECT_TRUE(soak.liveThroughDay()) << soak.failure();
  };
  liveBriefly(1);  // what is made once in a program is there from now on
  long long const before = liveAllocations();
  liveBriefly(2);
  EXPECT_EQ(liveAllocations(), before);
}

}  // namespace
}  // namespace Agent::Soak
