#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/agent/switch/SwitchTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::SizeIs;

constexpr char const* twoPorts = R"(
  [[interface]]
  name = "swp[1-2]"
  [[vlan]]
  id = 10
  querier = { igmp-version = 3 }
  interfaces = ["swp[1-2]"]
  static-bridge-mrouter-interface = ["swp2"]
)";

/// What a switch hears in one batch it tells its router in one report, not in one for each group.
class ReportPackingTest : public testing::Test {
 protected:
  ReportPackingTest() {
    under.works({"swp1", "swp2"});
    under.hear("swp1", FrameBuilder::reportV3(recordsOf(toEx)));
  }

  static std::vector<Record> recordsOf(Record (*record)(IpAddr, std::vector<IpAddr>)) {
    std::vector<Record> records;
    for (std::uint8_t i = 0; i < groups; ++i) records.push_back(record(IpAddr(239, 1, 1, i), {}));
    return records;
  }

  /// Since the constructor or the last takeRecords() one report was sent, of all groups.
  void expectOneReport() {
    EXPECT_EQ(under.framesSent("swp2"), 1u);
    EXPECT_THAT(under.takeRecords("swp2"), SizeIs(groups));
  }

  static constexpr std::uint8_t groups = 50;
  SwitchUnderTest under{configurationIn(twoPorts)};
};

TEST_F(ReportPackingTest, GroupsThatAreJoinedTogether) {
  expectOneReport();
}

TEST_F(ReportPackingTest, GroupsThatAreLeftTogether) {
  under.pass(10s);
  under.takeRecords("swp2");
  under.hear("swp1", FrameBuilder::reportV3(recordsOf(toIn)));
  expectOneReport();
}

TEST_F(ReportPackingTest, GroupsWhoseMembershipsEndTogether) {
  under.pass(269s);
  under.takeRecords("swp2");
  under.pass(1s);
  expectOneReport();
}

TEST_F(ReportPackingTest, GroupsOfAPortThatGoesDown) {
  under.pass(10s);
  under.takeRecords("swp2");
  InterfaceState state = SwitchUnderTest::workingState();
  state.carrier = false;
  under.state("swp1", state);
  expectOneReport();
}

}  // namespace
}  // namespace Agent
