#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/config/MemoryBound.h"
#include "agent/state/StateKeeper.h"
#include "tests/agent/SwitchTesting.h"
#include "tests/agent/soak/Allocations.h"

/// Ports that do all they can against what the switch takes of memory, and what is stated of it.
namespace Agent {
namespace {

using namespace IgmpTest;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// ---- What is stated

/// Four ports in one VLAN.
std::string fourPorts(std::string const& defaults = "", std::string const& ofVlan = "") {
  return "[defaults]\n" + defaults + R"(
[[interface]]
name = "swp[1-4]"
[[vlan]]
id = 10
querier = { igmp-version = 3 }
interfaces = ["swp[1-4]"]
)" + ofVlan;
}

MemoryBound boundOf(std::string const& configuration) {
  return memoryBound(configurationIn(configuration));
}

TEST(MemoryBoundTest, DefaultLimitsKeepWhatFourPortsSayBelow64Megabytes) {
  EXPECT_LE(boundOf(fourPorts()).learned, std::uint64_t{64} << 20);
}

TEST(MemoryBoundTest, FollowsTheLimits) {
  EXPECT_LT(boundOf(fourPorts("max-interface-memberships = 1000")).total,
            boundOf(fourPorts()).total);
  EXPECT_LT(boundOf(fourPorts("max-interface-sources = 1000")).total, boundOf(fourPorts()).total);
  EXPECT_LT(boundOf(fourPorts("max-groups = 100")).total, boundOf(fourPorts()).total);
}

TEST(MemoryBoundTest, EachVlanAddsToIt) {
  std::string const second = "[[vlan]]\nid = 11\ntagged-interfaces = [\"swp[1-4]\"]\n";
  EXPECT_GT(boundOf(fourPorts("", second)).learned, 2 * boundOf(fourPorts()).learned - 1);
}

TEST(MemoryBoundTest, ThereIsNoneWithoutALimitOfMemberships) {
  EXPECT_THAT(boundOf(fourPorts("max-interface-memberships = 0")).unlimited,
              ElementsAre("max-interface-memberships of VLAN 10"));
}

TEST(MemoryBoundTest, OneLimitOfGroupsIsEnough) {
  EXPECT_THAT(boundOf(fourPorts("max-groups = 0")).unlimited, IsEmpty());
  EXPECT_THAT(boundOf(fourPorts("max-interface-groups = 0")).unlimited, IsEmpty());
  EXPECT_THAT(boundOf(fourPorts("max-groups = 0\nmax-interface-groups = 0")).unlimited,
              ElementsAre("max-groups of VLAN 10", "max-interface-groups of VLAN 10"));
}

TEST(MemoryBoundTest, OneLimitOfSourcesIsEnough) {
  EXPECT_THAT(boundOf(fourPorts("max-interface-sources = 0")).unlimited, IsEmpty());
  EXPECT_THAT(boundOf(fourPorts("max-group-sources = 0")).unlimited, IsEmpty());
  EXPECT_THAT(boundOf(fourPorts("max-group-sources = 0\nmax-interface-sources = 0")).unlimited,
              ElementsAre("max-interface-sources of VLAN 10"));
}

TEST(MemoryBoundTest, WordsSayHowMuchOrWhyNot) {
  EXPECT_EQ(words({0, std::uint64_t{41} << 20, {}}), "at most 42 MB of memory");
  EXPECT_THAT(words(boundOf(fourPorts("max-interface-memberships = 0"))),
              HasSubstr("no bound on memory, for want of max-interface-memberships of VLAN 10"));
}

// ---- What is taken

constexpr std::array<char const*, 4> ports{"swp1", "swp2", "swp3", "swp4"};
constexpr unsigned portCount = ports.size();

// The default limits of a port.
constexpr unsigned groups = 2048;
constexpr unsigned memberships = 16384;
constexpr unsigned sourcesOfPort = 16384;
constexpr unsigned sourcesOfReporter = 512;

IpAddr group(unsigned number) {
  return IpAddr(IpAddr(239, 1, 0, 0).value() + number);
}
IpAddr reporter(unsigned number) {
  return IpAddr(IpAddr(10, 1, 0, 0).value() + number);
}
std::vector<IpAddr> sources(unsigned first, unsigned count) {
  std::vector<IpAddr> result;
  for (unsigned i = first; i < first + count; ++i)
    result.emplace_back(IpAddr(193, 0, 0, 0).value() + i);
  return result;
}

using MakeRecord = Record (*)(IpAddr, std::vector<IpAddr>);

/// A switch that is its VLAN's querier and reports on all ports.
class Attacked : public TestSwitch {
 public:
  Attacked() : TestSwitch(configuration) {}

  void say(unsigned port, IpAddr from, std::vector<Record> const& records) {
    hearOnly(ports.at(port), FrameBuilder::reportV3(records).from(from));
  }

  /// Each port: as many reporters as it may have, in as many groups, with a source of each.
  void reporters(MakeRecord make, unsigned groupCount, unsigned sourcesOfEach = 1) {
    constexpr unsigned atOnce = 64;
    for (unsigned port = 0; port < portCount; ++port)
      for (unsigned number = 0; number < memberships; number += atOnce) {
        std::vector<Record> records;
        unsigned const of = number / groupCount;
        for (unsigned i = number; i < number + atOnce; ++i) {
          records.push_back(
              make(group(i % groupCount), sources(port * sourcesOfPort + i, sourcesOfEach)));
          if (groupCount < atOnce) {
            say(port, reporter(i), records);
            records.clear();
          }
        }
        if (!records.empty()) say(port, reporter(of), records);
      }
    loop.endBatch();
  }

  /// One reporter with as many sources as it may have.
  void manySources(MakeRecord make) {
    constexpr unsigned atOnce = 256;
    for (unsigned port = 0; port < portCount; ++port)
      for (unsigned first = 0; first < sourcesOfPort; first += atOnce)
        say(port, reporter(0),
            {make(group(first / sourcesOfReporter),
                  sources(port * sourcesOfPort + first, atOnce))});
    loop.endBatch();
  }

  /// Joins and leaves groups after groups.
  void zap(unsigned rounds) {
    constexpr unsigned atOnce = 64;
    for (unsigned number = 0; number < rounds * groups; number += atOnce)
      for (unsigned port = 0; port < portCount; ++port) {
        std::vector<Record> records;
        for (unsigned i = number; i < number + atOnce; ++i) records.push_back(toEx(group(i)));
        say(port, reporter(0), records);
        for (Record& each : records) each = toIn(each.group);
        say(port, reporter(0), records);
      }
    loop.endBatch();
  }

  /// Whatever comes: records of all kinds, from some reporters, of some groups.
  void chance(unsigned frames) {
    std::mt19937 generator(7);  // NOLINT(cert-msc51-cpp): the same in every run
    auto const below = [&](unsigned end) { return static_cast<unsigned>(generator() % end); };
    for (unsigned i = 0; i < frames; ++i) {
      std::vector<Record> records;
      for (unsigned left = 1 + below(20); left > 0; --left)
        records.push_back({1 + below(6), group(below(4500)), sources(below(200000), below(12))});
      say(below(portCount), reporter(below(64)), records);
      if (i % 64 == 0) loop.endBatch();
      if (i % 4096 == 0) advance(1s);
    }
    loop.endBatch();
  }

  /// Every port's host is asked for all, which takes memory for the answers.
  void askAll() {
    for (char const* const port : ports)
      hearOnly(port, FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 1)));
    loop.endBatch();
    advance(500ms);
  }

  /// What is kept for the next start.
  void keep() { EXPECT_FALSE(sealedState(snooping).empty()); }

  inline static std::string const configuration =
      fourPorts("report-on = \"all\"\nsend-query = true\nquerier-source = \"10.0.0.9\"\n");
};

struct Attack {
  char const* name;
  std::function<void(Attacked&)> run;
};

class MemoryAttackTest : public testing::TestWithParam<Attack> {};

TEST_P(MemoryAttackTest, TakesNoMoreThanIsStated) {
  MemoryBound const bound = boundOf(Attacked::configuration);
  long long const before = Soak::liveBytes();
  {
    Attacked attacked;
    Soak::mostBytesAreLive();
    GetParam().run(attacked);
    attacked.askAll();
    attacked.keep();
    long long const taken = Soak::mostBytes() - before;
    EXPECT_LE(taken, static_cast<long long>(bound.learned));
    RecordProperty("taken", std::to_string(taken));
  }
}

INSTANTIATE_TEST_SUITE_P(
    OnePortAfterTheOther, MemoryAttackTest,
    testing::Values(Attack{"ReportersInOneGroup",
                           [](Attacked& attacked) { attacked.reporters(isIn, 1); }},
                    Attack{"ReportersInManyGroups",
                           [](Attacked& attacked) { attacked.reporters(isIn, groups); }},
                    Attack{"ReportersWhoExcludeInManyGroups",
                           [](Attacked& attacked) { attacked.reporters(isEx, groups); }},
                    Attack{"ReportersWhoRequestBesides",
                           [](Attacked& attacked) {
                             attacked.reporters(toEx, groups, 0);
                             attacked.advance(1s);
                             attacked.reporters(allow, groups);
                           }},
                    Attack{"Sources", [](Attacked& attacked) { attacked.manySources(allow); }},
                    Attack{"SourcesTakenBackAndNamedAgain",
                           [](Attacked& attacked) {
                             for (int i = 0; i < 3; ++i) {
                               attacked.manySources(allow);
                               attacked.advance(100ms);
                               attacked.manySources(block);
                             }
                           }},
                    Attack{"GroupsJoinedAndLeft", [](Attacked& attacked) { attacked.zap(40); }},
                    Attack{"Chance", [](Attacked& attacked) { attacked.chance(8000); }},
                    Attack{"OneAfterTheOther",
                           [](Attacked& attacked) {
                             attacked.reporters(isIn, 1);
                             attacked.zap(5);
                             attacked.manySources(allow);
                             attacked.chance(5000);
                             attacked.reporters(isEx, groups);
                           }}),
    [](auto const& attack) { return std::string(attack.param.name); });

}  // namespace
}  // namespace Agent
