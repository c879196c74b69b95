#include <functional>
#include <optional>

#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "platform/snooping/DefaultVlanSm.h"
#include "tests/platform/wirex/Wiring.h"

namespace {

using Bridging::VlanId;
using Bridging::IgmpSnooping::DefaultVlanSm;
using Wirex::IntfId;

class DefaultVlanSmTest : public testing::Test {
 protected:
  void start() { sm = Kel::make<DefaultVlanSm>(config, manager.get()); }

  Kel::Ptr<Bridging::VlanConfig> vlan(std::uint16_t number) {
    return config->vlanConfigIs(VlanId(number));
  }
  void untagged(std::uint16_t number, char const* intf) {
    vlan(number)->intfConfigIs(IntfId(intf))->taggedIs(false);
  }
  void tagged(std::uint16_t number, char const* intf) {
    vlan(number)->intfConfigIs(IntfId(intf))->taggedIs(true);
  }

  /// 0 if there is none.
  unsigned defaultVlan(char const* intf) const {
    auto const number = manager->defaultVlan(IntfId(intf));
    return number ? number->value() : 0u;
  }

  Kel::Ptr<Bridging::Config> config = Kel::make<Bridging::Config>();
  Kel::Ptr<WirexTest::Manager> manager = Kel::make<WirexTest::Manager>();
  Kel::Ptr<DefaultVlanSm> sm;
};

TEST_F(DefaultVlanSmTest, KnowsItsConfiguration) {
  start();
  EXPECT_EQ(sm->bridgingConfig(), config);
}

TEST_F(DefaultVlanSmTest, RefusesToDoWithoutAConfiguration) {
  EXPECT_EQ(WirexTest::refusalOf<Kel::RangeException>(
                [&] { Kel::make<DefaultVlanSm>(nullptr, manager.get()); }),
            "null _bridgingConfig parameter to mutator for "
            "Bridging::IgmpSnooping::DefaultVlanSm::bridgingConfig not allowed\"");
}

TEST_F(DefaultVlanSmTest, VlanInWhichAnInterfaceIsUntaggedIsItsDefault) {
  start();
  untagged(10, "swp1");
  untagged(20, "swp2");
  EXPECT_EQ(defaultVlan("swp1"), 10u);
  EXPECT_EQ(defaultVlan("swp2"), 20u);
  EXPECT_EQ(defaultVlan("swp3"), 0u);
}

TEST_F(DefaultVlanSmTest, ConfigurationThatIsThereBeforeItHolds) {
  untagged(10, "swp1");
  tagged(20, "swp1");
  start();
  EXPECT_EQ(defaultVlan("swp1"), 10u);
}

TEST_F(DefaultVlanSmTest, InterfaceThatIsTaggedEverywhereHasNone) {
  start();
  tagged(10, "swp1");
  tagged(20, "swp1");
  EXPECT_EQ(defaultVlan("swp1"), 0u);
}

TEST_F(DefaultVlanSmTest, LowestOfSeveralHoldsWhateverCameFirst) {
  start();
  untagged(20, "swp1");
  EXPECT_EQ(defaultVlan("swp1"), 20u);
  untagged(10, "swp1");
  EXPECT_EQ(defaultVlan("swp1"), 10u);
  untagged(30, "swp1");
  EXPECT_EQ(defaultVlan("swp1"), 10u);
}

TEST_F(DefaultVlanSmTest, NextOneHoldsWhenTheLowestGoes) {
  start();
  untagged(10, "swp1");
  untagged(20, "swp1");
  vlan(10)->intfConfigDel(IntfId("swp1"));
  EXPECT_EQ(defaultVlan("swp1"), 20u);
  vlan(20)->intfConfigDel(IntfId("swp1"));
  EXPECT_EQ(defaultVlan("swp1"), 0u);
}

TEST_F(DefaultVlanSmTest, FollowsTheTaggedFlag) {
  start();
  untagged(10, "swp1");
  tagged(10, "swp1");
  EXPECT_EQ(defaultVlan("swp1"), 0u);
  untagged(10, "swp1");
  EXPECT_EQ(defaultVlan("swp1"), 10u);
}

TEST_F(DefaultVlanSmTest, GoesWithItsVlan) {
  start();
  untagged(10, "swp1");
  untagged(10, "swp2");
  untagged(20, "swp2");
  config->vlanConfigDel(VlanId(10));
  EXPECT_EQ(defaultVlan("swp1"), 0u);
  EXPECT_EQ(defaultVlan("swp2"), 20u);
}

TEST_F(DefaultVlanSmTest, GoesWithTheWholeConfiguration) {
  start();
  untagged(10, "swp1");
  untagged(20, "swp2");
  config->vlanConfigDelAll();
  EXPECT_EQ(defaultVlan("swp1"), 0u);
  EXPECT_EQ(defaultVlan("swp2"), 0u);
}

TEST_F(DefaultVlanSmTest, GoesWithTheInterfacesOfItsVlan) {
  start();
  untagged(10, "swp1");
  untagged(10, "swp2");
  vlan(10)->intfConfigDelAll();
  EXPECT_EQ(defaultVlan("swp1"), 0u);
  EXPECT_EQ(defaultVlan("swp2"), 0u);
}

TEST_F(DefaultVlanSmTest, VlanThatIsMadeAgainIsFollowedAndTheFormerOneIsNot) {
  start();
  untagged(10, "swp1");
  auto const former = vlan(10);
  config->vlanConfigDel(VlanId(10));
  former->intfConfigIs(IntfId("swp2"));
  former->intfConfig(IntfId("swp1"))->taggedIs(true);
  former->intfConfig(IntfId("swp1"))->taggedIs(false);
  EXPECT_EQ(defaultVlan("swp1"), 0u);
  EXPECT_EQ(defaultVlan("swp2"), 0u);
  untagged(10, "swp3");
  EXPECT_EQ(defaultVlan("swp3"), 10u);
}

TEST_F(DefaultVlanSmTest, InterfaceThatIsMadeAgainIsFollowedAndTheFormerOneIsNot) {
  start();
  tagged(10, "swp1");
  auto const former = vlan(10)->intfConfig(IntfId("swp1"));
  vlan(10)->intfConfigDel(IntfId("swp1"));
  former->taggedIs(false);
  EXPECT_EQ(defaultVlan("swp1"), 0u);
  untagged(10, "swp1");
  former->taggedIs(true);
  EXPECT_EQ(defaultVlan("swp1"), 10u);
}

TEST_F(DefaultVlanSmTest, ReachesTheInterfacesMultiplexer) {
  auto const multiplexer = manager->multiplexerIs(IntfId("swp1"), manager.get());
  auto const device = Kel::make<WirexTest::Device>();
  multiplexer->devicePamIs(device);
  multiplexer->vlanIs(VlanId(10), 0);
  start();
  device->hears(WirexTest::untaggedFrame());
  untagged(10, "swp1");
  device->hears(WirexTest::untaggedFrame());
  EXPECT_EQ(manager->takeVlans(), (std::vector<unsigned>{0, 10}));
}

// ---- Notifications

TEST_F(DefaultVlanSmTest, KeylessNotificationsCatchUp) {
  start();
  untagged(10, "swp1");
  manager->defaultVlanIs(IntfId("swp1"), std::nullopt);
  vlan(10)->intfConfigNotify();
  EXPECT_EQ(defaultVlan("swp1"), 10u);
  config->vlanConfigNotify();
  EXPECT_EQ(defaultVlan("swp1"), 10u);
}

TEST_F(DefaultVlanSmTest, ZombieFollowsNothing) {
  start();
  untagged(10, "swp1");
  tagged(20, "swp2");
  sm->kelDoZombieReactors(true);
  tagged(10, "swp1");
  untagged(10, "swp3");
  untagged(20, "swp2");
  untagged(30, "swp4");
  config->vlanConfigNotify();
  vlan(10)->intfConfigNotify();
  EXPECT_EQ(defaultVlan("swp1"), 10u);
  for (char const* const intf : {"swp2", "swp3", "swp4"}) EXPECT_EQ(defaultVlan(intf), 0u);
}

TEST_F(DefaultVlanSmTest, InactiveFollowsNothingAndCatchesUpWhenItIsActiveAgain) {
  start();
  untagged(10, "swp1");
  tagged(20, "swp2");
  sm->hasNotificationActiveIs(false);
  tagged(10, "swp1");
  untagged(20, "swp2");
  untagged(30, "swp4");
  EXPECT_EQ(defaultVlan("swp1"), 10u);
  EXPECT_EQ(defaultVlan("swp2"), 0u);
  EXPECT_EQ(defaultVlan("swp4"), 0u);
  sm->hasNotificationActiveIs(true);
  EXPECT_EQ(defaultVlan("swp1"), 0u);
  EXPECT_EQ(defaultVlan("swp2"), 20u);
  EXPECT_EQ(defaultVlan("swp4"), 30u);
}

TEST_F(DefaultVlanSmTest, FollowsNothingOnceItIsGone) {
  start();
  untagged(10, "swp1");
  auto const kept = vlan(10);
  EXPECT_EQ(sm->references(), 1u);
  sm = nullptr;
  EXPECT_EQ(config->references(), 1u);
  tagged(10, "swp1");
  EXPECT_EQ(defaultVlan("swp1"), 10u);
  EXPECT_FALSE(kept->watched());
}

}  // namespace
