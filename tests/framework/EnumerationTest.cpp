#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "framework/kel/Hash.h"
#include "framework/kel/Table.h"
#include "framework/types/AllowedTrafficDirection.h"
#include "framework/types/IgmpFilterMode.h"
#include "framework/types/IgmpV3GroupRecordType.h"
#include "framework/types/IgmpVersion.h"
#include "framework/types/VlanTypeAndPrimaryVlan.h"

namespace {

using Bridging::AllowedTrafficDirection;
using Bridging::VlanId;
using Bridging::VlanType;
using Bridging::VlanTypeAndPrimaryVlan;
using Gmp::Igmp::IgmpFilterMode;
using Igmp::IgmpVersion;
using Wirex::IgmpV3GroupRecordType;

template <class T>
std::string text(T value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

// So that each can be the key of a collection.
TEST(EnumerationTest, HashIsTheNumber) {
  EXPECT_EQ(Kel::hash(AllowedTrafficDirection::egress), 2u);
  EXPECT_EQ(Kel::hash(IgmpFilterMode::include), 1u);
  EXPECT_EQ(Kel::hash(IgmpVersion::v3), 3u);
  EXPECT_EQ(Kel::hash(IgmpV3GroupRecordType::blockOldSources), 6u);
  EXPECT_EQ(Kel::hash(VlanType::community), 2u);
}

TEST(EnumerationTest, MayBeAKey) {
  Kel::Table<IgmpVersion, int> routers;
  routers.add(IgmpVersion::v2, 5);
  EXPECT_EQ(routers.find(IgmpVersion::v3), nullptr);
  EXPECT_EQ(*routers.find(IgmpVersion::v2), 5);
}

TEST(AllowedTrafficDirectionTest, DefaultIsBoth) {
  EXPECT_EQ(AllowedTrafficDirection(), AllowedTrafficDirection::both);
}

TEST(AllowedTrafficDirectionTest, PrintsItsName) {
  EXPECT_EQ(text(AllowedTrafficDirection::both), "both");
  EXPECT_EQ(text(AllowedTrafficDirection::ingress), "ingress");
  EXPECT_EQ(text(AllowedTrafficDirection::egress), "egress");
  EXPECT_EQ(text(AllowedTrafficDirection::none), "none");
  EXPECT_EQ(text(AllowedTrafficDirection(9)), "9");
}

TEST(IgmpFilterModeTest, ZeroIsExcludeAndOneIsInclude) {
  EXPECT_EQ(static_cast<int>(IgmpFilterMode::exclude), 0);
  EXPECT_EQ(static_cast<int>(IgmpFilterMode::include), 1);
}

TEST(IgmpFilterModeTest, PrintsEveryValueButZeroAsInclude) {
  EXPECT_EQ(text(IgmpFilterMode::exclude), "exclude");
  EXPECT_EQ(text(IgmpFilterMode::include), "include");
  EXPECT_EQ(text(IgmpFilterMode(2)), "include");
}

TEST(IgmpVersionTest, IsItsNumber) {
  EXPECT_EQ(static_cast<int>(IgmpVersion::v1), 1);
  EXPECT_EQ(static_cast<int>(IgmpVersion::v2), 2);
  EXPECT_EQ(static_cast<int>(IgmpVersion::v3), 3);
  EXPECT_EQ(text(IgmpVersion::v1), "1");
  EXPECT_EQ(text(IgmpVersion::v2), "2");
  EXPECT_EQ(text(IgmpVersion::v3), "3");
}

TEST(IgmpV3GroupRecordTypeTest, NumbersAreThoseOfRfc9776) {
  EXPECT_EQ(static_cast<int>(IgmpV3GroupRecordType::modeIsInclude), 1);
  EXPECT_EQ(static_cast<int>(IgmpV3GroupRecordType::modeIsExclude), 2);
  EXPECT_EQ(static_cast<int>(IgmpV3GroupRecordType::changeToIncludeMode), 3);
  EXPECT_EQ(static_cast<int>(IgmpV3GroupRecordType::changeToExcludeMode), 4);
  EXPECT_EQ(static_cast<int>(IgmpV3GroupRecordType::allowNewSources), 5);
  EXPECT_EQ(static_cast<int>(IgmpV3GroupRecordType::blockOldSources), 6);
}

TEST(IgmpV3GroupRecordTypeTest, PrintsTheNamesOfRfc9776) {
  EXPECT_EQ(text(IgmpV3GroupRecordType::modeIsInclude), "MODE_IS_INCLUDE");
  EXPECT_EQ(text(IgmpV3GroupRecordType::modeIsExclude), "MODE_IS_EXCLUDE");
  EXPECT_EQ(text(IgmpV3GroupRecordType::changeToIncludeMode), "CHANGE_TO_INCLUDE_MODE");
  EXPECT_EQ(text(IgmpV3GroupRecordType::changeToExcludeMode), "CHANGE_TO_EXCLUDE_MODE");
  EXPECT_EQ(text(IgmpV3GroupRecordType::allowNewSources), "ALLOW_NEW_SOURCES");
  EXPECT_EQ(text(IgmpV3GroupRecordType::blockOldSources), "BLOCK_OLD_SOURCES");
  EXPECT_EQ(text(IgmpV3GroupRecordType(7)), "record type 7");
}

TEST(VlanTypeAndPrimaryVlanTest, DefaultIsANormalVlan) {
  EXPECT_EQ(VlanTypeAndPrimaryVlan().type(), VlanType::normal);
  EXPECT_EQ(static_cast<int>(VlanType::normal), 0);
}

TEST(VlanTypeAndPrimaryVlanTest, SecondaryVlanNamesItsPrimary) {
  VlanTypeAndPrimaryVlan const role(VlanType::isolated, VlanId(10));
  EXPECT_EQ(role.type(), VlanType::isolated);
  EXPECT_EQ(role.primaryVlan(), VlanId(10));
  EXPECT_NE(role, VlanTypeAndPrimaryVlan());
}

TEST(VlanTypeAndPrimaryVlanTest, SecondaryOfVlanOneIsNotTheDefault) {
  EXPECT_NE(VlanTypeAndPrimaryVlan(VlanType::isolated, VlanId(1)), VlanTypeAndPrimaryVlan());
}

TEST(VlanTypeAndPrimaryVlanTest, ComparesAndHashesByBothParts) {
  VlanTypeAndPrimaryVlan const role(VlanType::community, VlanId(10));
  EXPECT_EQ(role, VlanTypeAndPrimaryVlan(VlanType::community, VlanId(10)));
  EXPECT_EQ(role.hash(), VlanTypeAndPrimaryVlan(VlanType::community, VlanId(10)).hash());
  for (auto const other : {VlanTypeAndPrimaryVlan(VlanType::community, VlanId(11)),
                           VlanTypeAndPrimaryVlan(VlanType::isolated, VlanId(10))}) {
    EXPECT_NE(role, other);
    EXPECT_NE(role.hash(), other.hash());
  }
}

TEST(VlanTypeAndPrimaryVlanTest, PrintsTypeAndPrimaryVlan) {
  EXPECT_EQ(text(VlanTypeAndPrimaryVlan()), "normal");
  EXPECT_EQ(text(VlanTypeAndPrimaryVlan(VlanType::isolated, VlanId(10))), "isolated 10");
  EXPECT_EQ(text(VlanTypeAndPrimaryVlan(VlanType::community, VlanId(20))), "community 20");
  EXPECT_EQ(text(VlanType(9)), "9");
}

}  // namespace
