#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/replay/GroupSendings.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/config/ConfigurationTesting.h"
#include "tests/platform/igmp/FrameBuilder.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;

/// What is sent on swp2, which is tagged in VLAN 10.
class GroupSendingsTest : public testing::Test {
 protected:
  void send(Horix::Time time, FrameBuilder frame, char const* port = "swp2", unsigned vlan = 10) {
    sendings.sent(Wirex::IntfId(port), time, frame.from(tv).vlan(vlan).bytes());
  }

  GroupSendings sendings{configurationIn(R"(
                           [[interface]]
                           name = "swp[1-2]"
                           [[vlan]]
                           id = 10
                           tagged-interfaces = ["swp[1-2]"]
                           [[vlan]]
                           id = 20
                           tagged-interfaces = ["swp2"]
                         )"),
                         Bridging::VlanId(10), Wirex::IntfId("swp2"), group};
};

TEST_F(GroupSendingsTest, EachVersionIsCountedAndTheLatestIsTold) {
  send(1s, FrameBuilder::reportV3({toEx(group), toIn(otherGroup, {a})}));
  send(2s, FrameBuilder::reportV2(group));
  send(3s, FrameBuilder::reportV1(group));
  send(4s, FrameBuilder::leave(group));
  EXPECT_EQ(sendings.explained(10s).latest, "leave");
  send(5s, FrameBuilder::reportV3({toIn(group, {a, b})}));

  auto const explained = sendings.explained(10s);
  ASSERT_TRUE(explained.counts);
  EXPECT_EQ(explained.counts->recordsV3, 2u);
  EXPECT_EQ(explained.counts->reportsV2, 1u);
  EXPECT_EQ(explained.counts->reportsV1, 1u);
  EXPECT_EQ(explained.counts->leaves, 1u);
  EXPECT_EQ(explained.latest, "v3 TO_IN 192.0.2.1, 192.0.2.2");
  EXPECT_EQ(explained.sinceLatest, 5s);
}

TEST_F(GroupSendingsTest, OtherGroupsPortsAndVlansDoNotCount) {
  send(1s, FrameBuilder::reportV2(otherGroup));
  send(1s, FrameBuilder::reportV2(group), "swp1");
  send(1s, FrameBuilder::reportV2(group), "swp2", 20);
  EXPECT_EQ(sendings.explained(2s).latest, "");
  EXPECT_EQ(sendings.explained(2s).counts->reportsV2, 0u);
}

}  // namespace
}  // namespace Agent
