#include "tests/agent/config/ConfigurationTesting.h"

namespace Agent {
namespace {

using Bridging::AllowedTrafficDirection;
using testing::ElementsAre;
using Wirex::IntfId;

TEST(InterfaceConfig, DefaultsWhenOnlyNamed) {
  EXPECT_THAT(configurationIn("[[interface]]\nname = \"swp1\"").interfaces,
              ElementsAre(InterfaceConfig{IntfId("swp1"), false, AllowedTrafficDirection::both}));
}

TEST(InterfaceConfig, RangeGivesEachInterfaceTheSameSettings) {
  EXPECT_THAT(configurationIn(R"([[interface]]
name = "swp[2-3]"
blocked = true
direction = "egress"
)")
                  .interfaces,
              ElementsAre(InterfaceConfig{IntfId("swp2"), true, AllowedTrafficDirection::egress},
                          InterfaceConfig{IntfId("swp3"), true, AllowedTrafficDirection::egress}));
}

TEST(InterfaceConfig, QueriersAndRoutersAreAllowedUnlessItSaysOtherwise) {
  auto const interfaces = configurationIn(R"([[interface]]
name = "swp1"
[[interface]]
name = "swp2"
querier-allowed = false
router-allowed = false
)")
                              .interfaces;
  EXPECT_TRUE(interfaces.at(0).querierAllowed);
  EXPECT_TRUE(interfaces.at(0).routerAllowed);
  EXPECT_FALSE(interfaces.at(1).querierAllowed);
  EXPECT_FALSE(interfaces.at(1).routerAllowed);
}

TEST(InterfaceConfig, InterfacesKeepTheOrderOfTheFile) {
  EXPECT_THAT(configurationIn(R"([[interface]]
name = "swp2"
blocked = true
[[interface]]
name = "swp1"
)")
                  .interfaces,
              ElementsAre(InterfaceConfig{IntfId("swp2"), true}, InterfaceConfig{IntfId("swp1")}));
}

TEST(InterfaceConfig, EveryDirection) {
  auto const directionOf = [](std::string const& word) {
    return configurationIn("[[interface]]\nname = \"swp1\"\ndirection = \"" + word + "\"")
        .interfaces.at(0)
        .direction;
  };
  EXPECT_EQ(directionOf("both"), AllowedTrafficDirection::both);
  EXPECT_EQ(directionOf("ingress"), AllowedTrafficDirection::ingress);
  EXPECT_EQ(directionOf("egress"), AllowedTrafficDirection::egress);
  EXPECT_EQ(directionOf("none"), AllowedTrafficDirection::none);
}

TEST(InterfaceConfig, UnknownDirectionIsRefused) {
  EXPECT_THAT(errorsIn("[[interface]]\nname = \"swp1\"\ndirection = \"out\""),
              ElementsAre("test.toml:3:13: direction = \"out\" is unknown; "
                          "give \"both\", \"ingress\", \"egress\" or \"none\""));
  EXPECT_THAT(errorsIn("[[interface]]\nname = \"swp1\"\ndirection = 0"),
              ElementsAre("test.toml:3:13: direction is an integer; "
                          "give \"both\", \"ingress\", \"egress\" or \"none\""));
}

TEST(InterfaceConfig, BlockedIsTrueOrFalse) {
  EXPECT_THAT(errorsIn("[[interface]]\nname = \"swp1\"\nblocked = \"no\""),
              ElementsAre("test.toml:3:11: blocked is a text; give true or false"));
}

TEST(InterfaceConfig, NameIsRequired) {
  EXPECT_THAT(errorsIn("\n  [[interface]]\nblocked = true"),
              ElementsAre("test.toml:2:3: [[interface]] has no name; "
                          "add name = \"swp1\", or a range, name = \"swp[1-5]\""));
}

TEST(InterfaceConfig, NameIsAText) {
  EXPECT_THAT(errorsIn("[[interface]]\nname = 1"),
              ElementsAre("test.toml:2:8: interface name is an integer; "
                          "give a name in quotes, as in \"swp1\""));
}

TEST(InterfaceConfig, BadNameIsRefusedWhereItStands) {
  EXPECT_THAT(errorsIn("[[interface]]\nname = \"swp[5-1]\""),
              ElementsAre("test.toml:2:8: range \"5-1\" runs downwards; write 1-5"));
  EXPECT_THAT(errorsIn("[[interface]]\nname = \"0eth\""),
              ElementsAre("test.toml:2:8: interface name \"0eth\" begins with a digit, which makes "
                          "host names ambiguous; rename the interface to begin with a letter"));
}

TEST(InterfaceConfig, InterfaceIsDefinedOnce) {
  EXPECT_THAT(errorsIn("[[interface]]\nname = \"swp1\"\n[[interface]]\nname = \"swp1\""),
              ElementsAre("test.toml:4:8: interface swp1 is already defined in line 2; "
                          "define each interface once"));
}

TEST(InterfaceConfig, OverlappingRangesAreReportedOnce) {
  EXPECT_THAT(errorsIn("[[interface]]\nname = \"swp[1-5]\"\n[[interface]]\nname = \"swp[3-9]\""),
              ElementsAre("test.toml:4:8: interface swp3 is already defined in line 2; "
                          "define each interface once"));
  EXPECT_THAT(errorsIn("[[interface]]\nname = \"swp[1,1]\""),
              ElementsAre("test.toml:2:8: interface swp1 is already defined in line 2; "
                          "define each interface once"));
}

TEST(InterfaceConfig, UnknownKeyIsRefusedWithTheNearestKnownOne) {
  EXPECT_THAT(errorsIn("[[interface]]\nname = \"swp1\"\n block = true"),
              ElementsAre("test.toml:3:2: unknown key \"block\" in [[interface]]; "
                          "did you mean \"blocked\"?"));
}

TEST(InterfaceConfig, UnknownKeyLikeNoOtherIsRefusedWithAllKnownOnes) {
  EXPECT_THAT(errorsIn("[[interface]]\nname = \"swp1\"\nfast-leave = true"),
              ElementsAre("test.toml:3:1: unknown key \"fast-leave\" in [[interface]]; "
                          "the known keys are name, blocked, direction, querier-allowed and "
                          "router-allowed"));
}

TEST(InterfaceConfig, TablesNeedDoubleBrackets) {
  EXPECT_THAT(errorsIn("[interface]\nname = \"swp1\""),
              ElementsAre("test.toml:1:1: interface is a table; "
                          "write [[interface]] in double brackets"));
  EXPECT_THAT(errorsIn("interface = [\"swp1\"]"),
              ElementsAre("test.toml:1:14: interface is a text; "
                          "write [[interface]] in double brackets"));
}

}  // namespace
}  // namespace Agent
