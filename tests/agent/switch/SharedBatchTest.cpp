#include <string>

#include <gtest/gtest.h>

#include "tests/agent/switch/SwitchTesting.h"

namespace Agent {
namespace {

using namespace IgmpTest;
using Wirex::IpAddr;

constexpr IpAddr group(239, 1, 1, 1);
constexpr IpAddr otherGroup(239, 2, 2, 2);
constexpr IpAddr source(192, 0, 2, 1);
constexpr IpAddr otherSource(192, 0, 2, 2);
constexpr IpAddr excluder(10, 0, 0, 1);
constexpr IpAddr includer(10, 0, 0, 2);

/// VLAN 10 has room for one group, VLAN 20 for all.
constexpr char const* crowdedBesideRoomy = R"(
  [[interface]]
  name = "swp[1-3]"
  [[vlan]]
  id = 10
  querier = { igmp-version = 3 }
  interfaces = ["swp[1-3]"]
  max-groups = 1
  [[vlan]]
  id = 20
  querier = { igmp-version = 3 }
  tagged-interfaces = ["swp[1-3]"]
)";

/// What the ports of several VLANs say in one batch.
class SharedBatchTest : public testing::Test {
 protected:
  SharedBatchTest() { under.works({"swp1", "swp2", "swp3"}); }

  static FrameBuilder said(IpAddr reporter, Record const& record) {
    return FrameBuilder::reportV3({record}).from(reporter);
  }
  static FrameBuilder saidIn20(IpAddr reporter, Record const& record) {
    return said(reporter, record).vlan(20);
  }

  SwitchUnderTest under{configurationIn(crowdedBesideRoomy)};
};

// To make room, VLAN 10 has everybody hear what is written so far, and with it the source that the
// includer wants for no longer than half a batch.
TEST_F(SharedBatchTest, RoomThatAVlanMakesCostsAnotherOneNoExclusion) {
  under.hear("swp1", saidIn20(excluder, toEx(group, {})));
  under.hear("swp1", saidIn20(includer, toIn(group, {otherSource})));
  under.hear("swp2", saidIn20(excluder, toEx(group, {source})));
  under.hear("swp1", said(excluder, toEx(group, {})));

  under.hearOnly("swp1", saidIn20(includer, allow(group, {source})));
  under.hearOnly("swp1", said(excluder, toIn(group, {})));
  under.hearOnly("swp1", said(excluder, toEx(otherGroup, {})));
  under.hear("swp1", saidIn20(includer, block(group, {source})));
  ASSERT_EQ(under.record("Vlan10swp3", otherGroup), "exclude");

  under.hear("swp1", saidIn20(excluder, toIn(group, {})));
  under.hear("swp1", saidIn20(includer, toIn(group, {})));
  EXPECT_EQ(under.record("Vlan20swp3", group), "exclude 192.0.2.1");
}

// A configuration has adapters hear what is written so far, before it has the port forget it.
TEST_F(SharedBatchTest, ReconfigurationThatSilencesAPortCostsAnotherOneNoExclusion) {
  under.hear("swp2", saidIn20(excluder, toEx(group, {source})));
  under.hear("swp1", saidIn20(includer, toIn(group, {source})));
  under.hear("swp1", saidIn20(excluder, toIn(group, {source})));
  under.hearOnly("swp1", saidIn20(excluder, toEx(group, {source})));

  std::string silencing = crowdedBesideRoomy;
  silencing.replace(silencing.find("swp[1-3]"), 8, "swp[2-3]");
  under.configure(configurationIn(silencing + R"(
  [[interface]]
  name = "swp1"
  direction = "egress"
)"));
  EXPECT_EQ(under.record("Vlan20swp3", group), "exclude 192.0.2.1");
}

}  // namespace
}  // namespace Agent
