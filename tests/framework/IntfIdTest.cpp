#include <sstream>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "framework/types/IntfId.h"

namespace {

using Wirex::IntfId;

TEST(IntfIdTest, IsKnownByItsName) {
  EXPECT_EQ(IntfId("eth0").stringValue(), "eth0");
  EXPECT_EQ(IntfId(Kel::String8("eth0")), IntfId("eth0"));
  EXPECT_EQ(IntfId().stringValue(), "");
}

TEST(IntfIdTest, ComparesByName) {
  EXPECT_EQ(IntfId("eth0"), IntfId("eth0"));
  EXPECT_NE(IntfId("eth0"), IntfId("eth1"));
  EXPECT_LT(IntfId("eth0"), IntfId("eth1"));
  EXPECT_LT(IntfId("eth10"), IntfId("eth2"));
}

TEST(IntfIdTest, EqualNamesHashEqually) {
  EXPECT_EQ(IntfId("eth0").hash(), IntfId("eth0").hash());
  EXPECT_NE(IntfId("eth0").hash(), IntfId("eth1").hash());
  EXPECT_TRUE((std::is_same_v<decltype(IntfId().hash()), std::uint32_t>));
}

TEST(IntfIdTest, CopiesShareTheName) {
  IntfId const intf("eth0");
  std::vector<IntfId> const copies(2, intf);
  EXPECT_EQ(copies[0].stringValue().c_str(), intf.stringValue().c_str());
  EXPECT_EQ(copies[1].stringValue().c_str(), intf.stringValue().c_str());
}

TEST(IntfIdTest, PrintsItsName) {
  std::ostringstream out;
  out << IntfId("eth0");
  EXPECT_EQ(out.str(), "eth0");
}

}  // namespace
