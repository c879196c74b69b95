#include "tests/agent/config/ConfigurationTesting.h"

namespace Agent {
namespace {

using testing::ElementsAre;

TEST(ForwardingConfig, IsAbsentUnlessGiven) {
  EXPECT_EQ(configurationIn("[[vlan]]\nid = 1").forwarding, std::nullopt);
}

TEST(ForwardingConfig, FloodsUnregisteredGroupsUnlessToldOtherwise) {
  EXPECT_EQ(configurationIn("[forwarding]\nbridge = \"br0\"").forwarding,
            (ForwardingConfig{"br0", Unregistered::flood}));
  EXPECT_EQ(
      configurationIn("[forwarding]\nbridge = \"br-lan\"\nunregistered = \"routers\"").forwarding,
      (ForwardingConfig{"br-lan", Unregistered::routers}));
}

TEST(ForwardingConfig, NeedsOneBridge) {
  EXPECT_THAT(errorsIn("[forwarding]"),
              ElementsAre("test.toml:1:1: [forwarding] has no bridge; add bridge = \"br0\", the "
                          "bridge whose ports the interfaces are"));
  EXPECT_THAT(errorsIn("[forwarding]\nbridge = \"br[0-1]\""),
              ElementsAre("test.toml:2:10: bridge stands for 2 interfaces; name one bridge"));
}

TEST(ForwardingConfig, UnknownWordsAreRefused) {
  EXPECT_THAT(errorsIn("[forwarding]\nbridge = \"br0\"\nunregistered = \"drop\""),
              ElementsAre("test.toml:3:16: unregistered = \"drop\" is unknown; give \"flood\" or "
                          "\"routers\""));
}

}  // namespace
}  // namespace Agent
