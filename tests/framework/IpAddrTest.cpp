#include <sstream>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "framework/types/IpAddr.h"

namespace {

using Wirex::IpAddr;

std::string text(IpAddr address) {
  std::ostringstream out;
  out << address;
  return out.str();
}

TEST(IpAddrTest, IsMadeOfANumberOrItsOctets) {
  EXPECT_EQ(IpAddr(0xe0000001), IpAddr(224, 0, 0, 1));
  EXPECT_EQ(IpAddr(10, 1, 2, 3).value(), 0x0a010203u);
  EXPECT_EQ(IpAddr(), IpAddr(0, 0, 0, 0));
}

TEST(IpAddrTest, PrintsInDottedDecimal) {
  EXPECT_EQ(text(IpAddr(10, 1, 2, 3)), "10.1.2.3");
  EXPECT_EQ(text(IpAddr()), "0.0.0.0");
  EXPECT_EQ(text(IpAddr(255, 255, 255, 255)), "255.255.255.255");
}

TEST(IpAddrTest, ReadsWhatItPrints) {
  for (IpAddr const address :
       {IpAddr(), IpAddr(10, 0, 0, 1), IpAddr(239, 1, 20, 255), IpAddr(255, 255, 255, 255)})
    EXPECT_EQ(IpAddr::fromText(text(address)), address);
}

TEST(IpAddrTest, ReadsNothingElse) {
  for (char const* const wrong :
       {"", ".", "10", "10.0.0", "10.0.0.", "10.0.0.1.", "10.0.0.1.2", "10..0.1", "256.0.0.1",
        "10.0.0.1000", "01.0.0.1", "10.0.0.00", " 10.0.0.1", "10.0.0.1 ", "10.0.0.-1", "10.0.0.+1",
        "0x10.0.0.1", "10.0.0.a", "10,0,0,1"})
    EXPECT_EQ(IpAddr::fromText(wrong), std::nullopt) << wrong;
}

TEST(IpAddrTest, ReadsNothingBeyondTheTextItIsGiven) {
  EXPECT_EQ(IpAddr::fromText(std::string_view("10.0.0.12", 8)), IpAddr(10, 0, 0, 1));
  EXPECT_EQ(IpAddr::fromText(std::string_view("10.0.0.1", 7)), std::nullopt);
}

TEST(IpAddrTest, ComparesByNumber) {
  EXPECT_EQ(IpAddr(10, 0, 0, 1), IpAddr(10, 0, 0, 1));
  EXPECT_NE(IpAddr(10, 0, 0, 1), IpAddr(10, 0, 1, 0));
  EXPECT_LT(IpAddr(9, 255, 255, 255), IpAddr(10, 0, 0, 0));
  EXPECT_GT(IpAddr(224, 0, 0, 1), IpAddr(10, 0, 0, 1));
}

TEST(IpAddrTest, EqualAddressesHashEqually) {
  EXPECT_EQ(IpAddr(10, 0, 0, 1).hash(), IpAddr(10, 0, 0, 1).hash());
  EXPECT_NE(IpAddr(10, 0, 0, 1).hash(), IpAddr(10, 0, 0, 2).hash());
  EXPECT_TRUE((std::is_same_v<decltype(IpAddr().hash()), std::uint32_t>));
}

TEST(IpAddrTest, MulticastIsClassD) {
  EXPECT_FALSE(IpAddr(223, 255, 255, 255).isMulticast());
  EXPECT_TRUE(IpAddr(224, 0, 0, 0).isMulticast());
  EXPECT_TRUE(IpAddr(239, 255, 255, 255).isMulticast());
  EXPECT_FALSE(IpAddr(240, 0, 0, 0).isMulticast());
}

TEST(IpAddrTest, LinkLocalMulticastIs224_0_0_0_24) {
  EXPECT_TRUE(IpAddr(224, 0, 0, 0).isLinkLocalMulticast());
  EXPECT_TRUE(IpAddr(224, 0, 0, 255).isLinkLocalMulticast());
  EXPECT_FALSE(IpAddr(224, 0, 1, 0).isLinkLocalMulticast());
  EXPECT_FALSE(IpAddr(225, 0, 0, 1).isLinkLocalMulticast());
}

}  // namespace
