#include <gtest/gtest.h>

#include "agent/config/ConfigurationChange.h"
#include "tests/agent/config/ConfigurationTesting.h"

namespace Agent {
namespace {

std::string change(char const* before, char const* after) {
  return describeChange(configurationIn(before), configurationIn(after));
}

TEST(ConfigurationChange, SameConfigurationHasNone) {
  EXPECT_EQ(change("[[vlan]]\nid = 1", "[[vlan]]\nid = 1\nproxy = true"), "nothing changed");
}

TEST(ConfigurationChange, IsToldByNumberAndName) {
  EXPECT_EQ(change("[[vlan]]\nid = \"1-3\"\n[[interface]]\nname = \"swp1\"",
                   "[[vlan]]\nid = \"2-3\"\nproxy = false\n[[vlan]]\nid = 4"),
            "VLANs 2 and 3 changed; VLAN 4 added; VLAN 1 removed; interface swp1 removed");
}

TEST(ConfigurationChange, OfDefaultsIsOneOfTheVlans) {
  EXPECT_EQ(change("[[vlan]]\nid = 1", "[defaults]\nfast-leave = true\n[[vlan]]\nid = 1"),
            "VLAN 1 changed");
}

TEST(ConfigurationChange, OfForwardingIsTold) {
  EXPECT_EQ(change("", "[forwarding]\nbridge = \"br0\""), "forwarding added");
  EXPECT_EQ(change("[forwarding]\nbridge = \"br0\"", "[forwarding]\nbridge = \"br1\""),
            "forwarding changed");
  EXPECT_EQ(change("[forwarding]\nbridge = \"br0\"", ""), "forwarding removed");
}

TEST(ConfigurationChange, OfManyIsCounted) {
  EXPECT_EQ(change("", "[[vlan]]\nid = \"1-9\""), "9 VLANs added");
}

}  // namespace
}  // namespace Agent
