#include <map>
#include <string>

#include <gtest/gtest.h>

#include "agent/control/GroupWalk.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/SwitchTesting.h"

namespace Agent {
namespace {

using Bridging::VlanId;
using IgmpTest::FrameBuilder;
using Wirex::IpAddr;

std::string twoVlans() {
  return "[[interface]]\nname = \"swp[1-3]\"\n"
         "[[vlan]]\nid = \"10-11\"\ntagged-interfaces = [\"swp[1-3]\"]\n";
}

class GroupWalkTest : public testing::Test {
 protected:
  static constexpr std::uint8_t groups = 20;

  /// Each group of both VLANs has listeners on two ports.
  GroupWalkTest() {
    for (VlanId const vlan : {VlanId(10), VlanId(11)})
      for (std::uint8_t i = 0; i < groups; ++i)
        for (char const* const port : {"swp1", "swp2"})
          test.hear(port, FrameBuilder::reportV2(IpAddr(239, 1, 1, i)).vlan(vlan.value()));
  }

  using Counts = std::map<VlanId, std::size_t>;
  void advance(GroupWalk& walk, std::size_t ports) {
    walk.advance(ports, [this](VlanId vlan, GroupWalk::Group const& group) {
      counts[vlan] += group.intf().size();
    });
  }

  TestSwitch test{twoVlans()};
  Counts counts;
};

TEST_F(GroupWalkTest, VisitsEachGroupOnceInPieces) {
  GroupWalk walk(test.snooping);
  int pieces = 0;
  for (; !walk.atEnd(); ++pieces) advance(walk, 10);
  EXPECT_EQ(counts, (Counts{{VlanId(10), 2 * groups}, {VlanId(11), 2 * groups}}));
  EXPECT_GT(pieces, 5);
}

TEST_F(GroupWalkTest, VisitsOneVlan) {
  GroupWalk walk(test.snooping, VlanId(11));
  advance(walk, 1000);
  EXPECT_TRUE(walk.atEnd());
  EXPECT_EQ(counts, (Counts{{VlanId(11), 2 * groups}}));
}

TEST_F(GroupWalkTest, PassesOverGroupsThatGoMeanwhile) {
  GroupWalk walk(test.snooping, VlanId(10));
  advance(walk, 10);
  std::size_t const visited = counts[VlanId(10)];
  for (std::uint8_t i = 0; i < groups; ++i)
    test.snooping.learning(VlanId(10))->forgetGroup(IpAddr(239, 1, 1, i));
  test.loop.endBatch();
  advance(walk, 1000);
  EXPECT_TRUE(walk.atEnd());
  EXPECT_GT(visited, 0U);
  EXPECT_EQ(counts[VlanId(10)], visited);
}

TEST_F(GroupWalkTest, EndsWhereAVlanGoesMeanwhile) {
  GroupWalk walk(test.snooping);
  advance(walk, 10);
  test.snooping.configurationIs(configurationIn("[[interface]]\nname = \"swp[1-3]\"\n"));
  advance(walk, 1000);
  EXPECT_TRUE(walk.atEnd());
}

}  // namespace
}  // namespace Agent
