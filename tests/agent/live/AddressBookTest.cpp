#include <gtest/gtest.h>

#include "agent/live/AddressBook.h"

/// What "auto" finds on a switch with swp1 (2) in br0 (3), above which stand swp1.10 (4) and
/// br0.10 (5).
namespace Agent {
namespace {

using Bridging::VlanId;
using Wirex::IntfId;
using Wirex::IpAddr;

constexpr IpAddr first{192, 0, 2, 1};
constexpr IpAddr second{192, 0, 2, 2};

class AddressBookTest : public testing::Test {
 protected:
  AddressBookTest() {
    book.linkIs(2, {.name = "swp1", .bridge = 3}, 1);
    book.linkIs(3, {.name = "br0"}, 1);
    book.linkIs(4, {.name = "swp1.10", .below = 2, .vlan = 10}, 1);
    book.linkIs(5, {.name = "br0.10", .below = 3, .vlan = 10}, 1);
  }
  IpAddr found(std::uint16_t vlan = 10) const {
    return book.addressFor(VlanId(vlan), IntfId("swp1"));
  }

  AddressBook book;
};

TEST_F(AddressBookTest, NothingIsFoundWithoutAddressesOrWithoutTheInterface) {
  EXPECT_EQ(found(), IpAddr());
  EXPECT_EQ(book.addressFor(VlanId(10), IntfId("swp9")), IpAddr());
}

TEST_F(AddressBookTest, NearerAddressesComeFirst) {
  IpAddr const onBridge(10, 0, 0, 3);
  IpAddr const onInterface(10, 0, 0, 2);
  IpAddr const aboveBridge(10, 0, 0, 5);
  IpAddr const aboveInterface(10, 0, 0, 4);
  book.addressIs(3, onBridge, 1);
  EXPECT_EQ(found(), onBridge);
  book.addressIs(2, onInterface, 1);
  EXPECT_EQ(found(), onInterface);
  book.addressIs(5, aboveBridge, 1);
  EXPECT_EQ(found(), aboveBridge);
  book.addressIs(4, aboveInterface, 1);
  EXPECT_EQ(found(), aboveInterface);
  EXPECT_EQ(found(20), onInterface) << "another VLAN's devices do not count";
}

TEST_F(AddressBookTest, FirstAddressOfADeviceIsTakenWhileItHasIt) {
  EXPECT_TRUE(book.addressIs(5, first, 1));
  EXPECT_TRUE(book.addressIs(5, second, 1));
  EXPECT_FALSE(book.addressIs(5, first, 1));
  EXPECT_EQ(found(), first);
  EXPECT_TRUE(book.addressDel(5, first));
  EXPECT_FALSE(book.addressDel(5, first));
  EXPECT_EQ(found(), second);
}

TEST_F(AddressBookTest, InterfaceThatLeavesItsBridgeLosesTheBridgesAddress) {
  book.addressIs(3, first, 1);
  EXPECT_TRUE(book.linkIs(2, {.name = "swp1"}, 1));
  EXPECT_FALSE(book.linkIs(2, {.name = "swp1"}, 1));
  EXPECT_EQ(found(), IpAddr());
}

TEST_F(AddressBookTest, InterfaceThatIsRenamedOrGoneIsNotFound) {
  book.addressIs(2, first, 1);
  book.linkIs(2, {.name = "swp7"}, 1);
  EXPECT_EQ(found(), IpAddr());
  book.linkIs(2, {.name = "swp1"}, 1);
  EXPECT_EQ(found(), first);
  EXPECT_TRUE(book.linkDel(2));
  EXPECT_EQ(found(), IpAddr());
}

TEST_F(AddressBookTest, NameThatAnotherInterfaceHasTakenStaysWithThatOne) {
  book.addressIs(6, first, 1);
  book.linkIs(6, {.name = "swp1"}, 1);
  book.linkDel(2);
  EXPECT_EQ(found(), first);
}

TEST_F(AddressBookTest, WhatAnAnswerLacksIsGone) {
  book.addressIs(5, first, 1);
  book.addressIs(3, second, 2);
  EXPECT_TRUE(book.addressesAre(2));
  EXPECT_FALSE(book.addressesAre(2));
  EXPECT_EQ(found(), second);
  book.linkIs(2, {.name = "swp1", .bridge = 3}, 2);
  EXPECT_TRUE(book.linksAre(2));
  EXPECT_EQ(found(), second) << "the interface is still there, and knows its bridge";
  EXPECT_FALSE(book.linksAre(2));
}

}  // namespace
}  // namespace Agent
