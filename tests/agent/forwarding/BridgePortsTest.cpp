#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/forwarding/BridgePorts.h"

namespace Agent {
namespace {

using Bridging::VlanId;
using testing::ElementsAre;
using testing::Pair;
using Wirex::IntfId;

InterfaceConfig interface(char const* name) {
  InterfaceConfig config;
  config.intfId = IntfId(name);
  return config;
}

LinkInfo link(std::uint32_t index, char const* name) {
  LinkInfo info;
  info.index = index;
  info.name = name;
  return info;
}

/// swp1 is an untagged member of VLAN 10, swp2 a tagged one; swp3 is no port of the bridge.
Configuration configuration() {
  Configuration config;
  config.forwarding = ForwardingConfig{"br0", Unregistered::routers};
  config.interfaces = {interface("swp1"), interface("swp2"), interface("swp3")};
  VlanConfig vlan;
  vlan.vlanId = VlanId(10);
  vlan.members = {{IntfId("swp1"), false}, {IntfId("swp2"), true}, {IntfId("swp3"), false}};
  config.vlans = {vlan};
  return config;
}

std::vector<LinkInfo> members() {
  return {link(5, "other"), link(4, "swp2"), link(3, "swp1")};
}

TEST(ServedPorts, AreThoseOfTheConfigurationThatTheBridgeHas) {
  EXPECT_THAT(servedPorts(configuration(), members()),
              ElementsAre(Pair(IntfId("swp1"), 3), Pair(IntfId("swp2"), 4)));
}

TEST(RulesFor, AllPortsOfTheBridgeAreMembersAndTheConfiguredOnesServed) {
  StreamRules const rules =
      rulesFor(configuration(), members(), forwardedVlans(configuration(), true));
  EXPECT_THAT(rules.members, ElementsAre(3, 4, 5));
  ASSERT_EQ(rules.ports.size(), 2);
  EXPECT_EQ(rules.unregistered, Unregistered::routers);
}

TEST(RulesFor, UntaggedFramesOfAPortAreInTheVlanOfWhichItIsAnUntaggedMember) {
  StreamRules const rules =
      rulesFor(configuration(), members(), forwardedVlans(configuration(), true));
  ASSERT_EQ(rules.ports.size(), 2);
  EXPECT_EQ(rules.ports[0].untaggedVlan, 10);
  EXPECT_EQ(rules.ports[1].untaggedVlan, std::nullopt);
}

TEST(RulesFor, VlansAreTheirOwnOnABridgeThatTellsThemApartAndElseNone) {
  auto const vlans = [](bool vlanAware) {
    return rulesFor(configuration(), members(), forwardedVlans(configuration(), vlanAware)).vlans;
  };
  EXPECT_THAT(vlans(true), ElementsAre(10));
  EXPECT_THAT(vlans(false), ElementsAre(0));
}

}  // namespace
}  // namespace Agent
