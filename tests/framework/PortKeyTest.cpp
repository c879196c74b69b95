#include <sstream>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "framework/types/PortKey.h"

namespace {

using Bridging::VlanId;
using Bridging::IgmpSnooping::Proxy::PortKey;
using testing::ThrowsMessage;
using Wirex::IntfId;

PortKey fromText(Kel::String8 const& text) {
  PortKey key;
  key.handleInit(text);
  return key;
}

TEST(PortKeyTest, TextIsVlanNumberAndNameWithoutSeparators) {
  EXPECT_EQ(PortKey(VlanId(10), IntfId("eth0")).stringvalue(), "Vlan10eth0");
  EXPECT_EQ(PortKey(VlanId(4094), IntfId("Ethernet1/2")).stringvalue(), "Vlan4094Ethernet1/2");
}

TEST(PortKeyTest, DefaultIsVlanOneWithoutAName) {
  EXPECT_EQ(PortKey(), PortKey(VlanId(1), IntfId()));
  EXPECT_EQ(PortKey().stringvalue(), "Vlan1");
}

TEST(PortKeyTest, IsReadFromItsText) {
  PortKey const key = fromText("Vlan10eth0");
  EXPECT_EQ(key.vlanId(), VlanId(10));
  EXPECT_EQ(key.intfId(), IntfId("eth0"));
}

TEST(PortKeyTest, GoesThroughItsTextForEveryVlan) {
  for (char const* const name : {"eth0", "e", "Ethernet1/2", "Port-Channel10", "br-lan.10",
                                 "Vlan10", "Vlan10eth0", "-1", "+1", " 1", ".1", "\xc3\xbc\x31", "",
                                 "a name far longer than the kernel allows for an interface"}) {
    for (std::uint16_t vlan = VlanId::min; vlan <= VlanId::max; ++vlan) {
      PortKey const key{VlanId(vlan), IntfId(name)};
      PortKey const read = fromText(key.stringvalue());
      ASSERT_EQ(read, key) << key;
      ASSERT_EQ(read.stringvalue(), key.stringvalue());
      ASSERT_EQ(read.hash(), key.hash());
    }
  }
}

TEST(PortKeyTest, KeysThatDifferInOnePartAreDifferentKeysWithDifferentTexts) {
  PortKey const key(VlanId(10), IntfId("eth0"));
  for (PortKey const& other :
       {PortKey(VlanId(11), IntfId("eth0")), PortKey(VlanId(10), IntfId("eth1"))}) {
    EXPECT_NE(other, key);
    EXPECT_NE(other.stringvalue(), key.stringvalue());
    EXPECT_NE(other.hash(), key.hash());
  }
}

/// Which is why such names have to be refused where they are configured.
TEST(PortKeyTest, NameThatBeginsWithADigitMakesTheTextAmbiguous) {
  PortKey const written(VlanId(1), IntfId("0eth"));
  EXPECT_EQ(written.stringvalue(), PortKey(VlanId(10), IntfId("eth")).stringvalue());
  EXPECT_NE(written, PortKey(VlanId(10), IntfId("eth")));
  EXPECT_EQ(fromText(written.stringvalue()), PortKey(VlanId(10), IntfId("eth")));
}

class PortKeyRefusalTest : public testing::TestWithParam<char const*> {};

TEST_P(PortKeyRefusalTest, ThrowsAndLeavesTheKeyAsItWas) {
  PortKey key(VlanId(10), IntfId("eth0"));
  EXPECT_THROW(key.handleInit(GetParam()), Kel::RangeException);
  EXPECT_EQ(key, PortKey(VlanId(10), IntfId("eth0")));
  EXPECT_EQ(key.stringvalue(), "Vlan10eth0");
}

INSTANTIATE_TEST_SUITE_P(TextsOfNoKey, PortKeyRefusalTest,
                         testing::Values("", "V", "Vla", "eth0", "vlan10eth0", "VLAN10eth0",
                                         " Vlan10eth0", "10eth0", "Vlan", "Vlaneth0", "Vlan 10eth0",
                                         "Vlan-10eth0", "Vlan+10eth0", "Vlan0eth0", "Vlan010eth0",
                                         "Vlan0010"));

TEST(PortKeyTest, EveryKeyGivesItsTextBack) {
  for (char const* const name : {"", "eth0", "1/1", "0", "5eth0", "40941/1"}) {
    for (int vlan = VlanId::min; vlan <= VlanId::max; ++vlan) {
      auto const text = PortKey(VlanId::fromInteger(vlan), IntfId(name)).stringvalue();
      ASSERT_EQ(fromText(text).stringvalue(), text);
    }
  }
}

TEST(PortKeyTest, VlanIsTheLongestNumberThatAVlanCanHave) {
  EXPECT_EQ(fromText("Vlan40941/1"), PortKey(VlanId(4094), IntfId("1/1")));
  EXPECT_EQ(fromText("Vlan4095eth0"), PortKey(VlanId(409), IntfId("5eth0")));
  EXPECT_EQ(fromText("Vlan111/1"), PortKey(VlanId(111), IntfId("/1")));
}

TEST(PortKeyTest, NumberThatIsNoVlansIsRefusedInTheVlansWords) {
  EXPECT_THAT([] { fromText("Vlan0eth0"); },
              ThrowsMessage<Kel::RangeException>("VlanId::value < 1 or > 4094 not allowed"));
}

TEST(PortKeyTest, HashIsThatOfTheText) {
  EXPECT_EQ(PortKey(VlanId(10), IntfId("eth0")).hash(), Kel::String8("Vlan10eth0").hash());
  EXPECT_TRUE((std::is_same_v<decltype(PortKey().hash()), std::uint32_t>));
}

TEST(PortKeyTest, OrderIsByVlanNumberThenByName) {
  PortKey const key(VlanId(10), IntfId("eth1"));
  EXPECT_LT(PortKey(VlanId(9), IntfId("eth2")), key);  // though "Vlan9" comes after "Vlan10"
  EXPECT_LT(PortKey(VlanId(10), IntfId("eth0")), key);
  EXPECT_GT(PortKey(VlanId(11), IntfId("eth0")), key);
  EXPECT_EQ(key <=> PortKey(VlanId(10), IntfId("eth1")), std::strong_ordering::equal);
}

TEST(PortKeyTest, PrintsItsText) {
  std::ostringstream out;
  out << PortKey(VlanId(10), IntfId("eth0"));
  EXPECT_EQ(out.str(), "Vlan10eth0");
}

}  // namespace
