#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "tests/proxy/PassingWatchers.h"
#include "tests/proxy/random/ChangeSequence.h"
#include "tests/proxy/random/ProxyDriver.h"

namespace Bridging::IgmpSnooping::Proxy::Random {
namespace {

using Kind = ChangeGenerator::Kind;
using What = Change::What;

// Optimised code plays more in the same time.
#ifdef NDEBUG
constexpr std::size_t thoroughness = 8;
#else
constexpr std::size_t thoroughness = 1;
#endif

/// IGMPSNOOP_RANDOM_CHANGES asks for more changes per test than these, never for fewer.
std::size_t atLeast(std::size_t changes) {
  char const* const asked = std::getenv("IGMPSNOOP_RANDOM_CHANGES");
  return std::max<std::size_t>(thoroughness * changes,
                               asked ? std::strtoull(asked, nullptr, 10) : 0);
}

void playSequences(Kind kind, std::uint64_t firstSeed, std::size_t changes,
                   std::size_t leastMachines) {
  Tally tally;
  std::uint64_t seed = firstSeed;
  for (; tally.changes < changes; ++seed) {
    auto const failure = explore(seed, kind, Perturbation::none, tally);
    if (!failure) continue;
    Failure const shortest = shrunk(*failure, Perturbation::none);
    FAIL() << "Seed " << seed << ", " << failure->events.size() << " changes, shrunk to "
           << shortest.events.size() << ":\n"
           << shortest.story();
  }
  EXPECT_GT(tally.machines, thoroughness * leastMachines);
  testing::Test::RecordProperty("changes", std::to_string(tally.changes));
  testing::Test::RecordProperty("sequences", std::to_string(seed - firstSeed));
  testing::Test::RecordProperty("VLAN machines", std::to_string(tally.machines));
  testing::Test::RecordProperty("hosts", std::to_string(tally.hosts / tally.changes));
  testing::Test::RecordProperty("records", std::to_string(tally.records / tally.changes));
}

TEST(RandomProxy, DoesAsTheModelWithFewVlans) {
  playSequences(Kind::few, 1, atLeast(40'000), 1'500);
}

TEST(RandomProxy, DoesAsTheModelWithManyVlans) {
  playSequences(Kind::many, 1'000'001, atLeast(5'000), 250);
}

TEST(RandomProxy, DoesAsTheModelWhileRecordsAreWatchedAndTracedNowAndThen) {
  Testing::PassingWatchers watchers(1);
  Tally tally;
  for (std::uint64_t seed = 2'000'001; tally.changes < atLeast(10'000); ++seed) {
    auto const failure =
        explore(seed, Kind::few, Perturbation::none, tally,
                [&](ProxyDriver const& driver) { watchers.moveOn(driver.hostDir()); });
    watchers.leave();
    ASSERT_FALSE(failure) << "Seed " << seed << ":\n" << failure->story();
  }
  EXPECT_EQ(watchers.outOfStep(), 0u);
  EXPECT_GT(watchers.watched(), thoroughness * 200u);
  EXPECT_GT(watchers.messages(), thoroughness * 200u);
}

TEST(RandomProxy, EveryKindOfChangeOccursOften) {
  std::map<What, int> occurrences;
  for (std::uint64_t seed = 1; seed <= 200; ++seed) {
    ChangeGenerator generator(seed, Kind::few);
    ProxyDriver driver(Perturbation::none);
    for (int left = generator.length(); left > 0; --left) {
      Change const change = generator.next(driver.inputs(), driver.hasProxy());
      if (driver.apply(change)) ++occurrences[change.what];
    }
  }
  for (int what = 0; what <= static_cast<int>(Change::last); ++what)
    EXPECT_GE(occurrences[static_cast<What>(what)], 40) << "kind " << what;
}

struct Departure {
  Perturbation perturbation;
  char const* name;
};

/// A model that departs in one point must be told from the proxy soon, and by a short story.
class DepartingProxyModel : public testing::TestWithParam<Departure> {};

TEST_P(DepartingProxyModel, IsToldFromTheProxyByAShortStory) {
  constexpr std::size_t soon = 20'000;
  constexpr std::size_t fewChanges = 20;
  Perturbation const perturbation = GetParam().perturbation;
  Tally tally;
  std::optional<Failure> failure;
  for (std::uint64_t seed = 1; !failure && tally.changes < soon; ++seed)
    failure = explore(seed, Kind::few, perturbation, tally);
  ASSERT_TRUE(failure) << "no difference in " << tally.changes << " changes";

  Failure const shortest = shrunk(*failure, perturbation);
  EXPECT_LE(shortest.events.size(), fewChanges) << shortest.story();
  EXPECT_TRUE(replay(shortest.events, perturbation)) << "the story does not repeat the difference";
  EXPECT_FALSE(replay(shortest.events, Perturbation::none)) << "the proxy itself is at odds";
}

INSTANTIATE_TEST_SUITE_P(
    RandomProxy, DepartingProxyModel,
    testing::Values(
        Departure{Perturbation::newPortMachineLearnsDirection,
                  "WhereANewPortMachineLearnsTheDirection"},
        Departure{Perturbation::lateDeviceLearnsBlocked,
                  "WhereALateDeviceLearnsWhetherItIsBlocked"},
        Departure{Perturbation::lateDeviceLearnsDirection, "WhereALateDeviceLearnsTheDirection"},
        Departure{Perturbation::rePointedWatcherKeepsDirection,
                  "WhereARePointedWatcherKeepsTheDirection"},
        Departure{Perturbation::hostFollowsDeviceName, "WhereAHostFollowsItsDeviceName"},
        Departure{Perturbation::hostFollowsFormerProtocol, "WhereAHostFollowsAFormerProtocol"},
        Departure{Perturbation::machineFollowsRole, "WhereAMachineFollowsItsRole"},
        Departure{Perturbation::normalTypeIsNeverSecondary, "WhereANormalTypeIsNeverSecondary"},
        Departure{Perturbation::primaryReexaminesSecondaries,
                  "WhereAPrimaryReexaminesItsSecondaries"},
        Departure{Perturbation::secondaryUsesPrimarysQuerier,
                  "WhereASecondaryUsesItsPrimarysQuerier"},
        Departure{Perturbation::secondaryGoesOverToLaterPrimary,
                  "WhereASecondaryGoesOverToALaterPrimary"},
        Departure{Perturbation::secondaryMakesPrimarysConfig,
                  "WhereASecondaryMakesItsPrimarysConfiguration"},
        Departure{Perturbation::goingMachineTakesItsHostKeys, "WhereAGoingMachineTakesItsHostKeys"},
        Departure{Perturbation::unchangedHostKeyIsRaised, "WhereAnUnchangedHostKeyIsRaised"},
        Departure{Perturbation::packetAccessGoesWithDevice, "WherePacketAccessGoesWithItsDevice"},
        Departure{Perturbation::devicesNeedNoHost, "WhereDevicesNeedNoHost"},
        Departure{Perturbation::undesiredDeviceIsOpen, "WhereAnUndesiredDeviceIsOpen"},
        Departure{Perturbation::emptyKernelRecordIsADevice, "WhereAnEmptyKernelRecordIsADevice"},
        Departure{Perturbation::highestUntaggedVlanIsDefault,
                  "WhereTheHighestUntaggedVlanIsTheDefault"},
        Departure{Perturbation::clearingPassesMissingHosts, "WhereClearingPassesMissingHosts"}),
    [](auto const& instance) { return instance.param.name; });

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Random
