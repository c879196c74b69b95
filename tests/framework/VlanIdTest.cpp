#include <limits>
#include <sstream>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "framework/types/VlanId.h"

namespace {

using Bridging::VlanId;
using testing::ThrowsMessage;

constexpr char const* refusal = "VlanId::value < 1 or > 4094 not allowed";

TEST(VlanIdTest, DefaultIsOne) {
  EXPECT_EQ(VlanId().value(), 1);
}

TEST(VlanIdTest, HoldsEveryNumberFromOneTo4094AndNoOther) {
  for (unsigned number = 0; number <= std::numeric_limits<std::uint16_t>::max(); ++number) {
    auto const value = static_cast<std::uint16_t>(number);
    if (number >= 1 && number <= 4094)
      EXPECT_EQ(VlanId(value).value(), number);
    else
      EXPECT_THROW(VlanId{value}, Kel::RangeException) << number;
  }
}

TEST(VlanIdTest, RefusalHasItsFixedText) {
  EXPECT_THAT([] { VlanId(0); }, ThrowsMessage<Kel::RangeException>(refusal));
  EXPECT_THAT([] { VlanId(4095); }, ThrowsMessage<Kel::RangeException>(refusal));
}

TEST(VlanIdTest, WiderNumberIsTestedByItsLow16Bits) {
  EXPECT_EQ(VlanId::fromInteger(10).value(), 10);
  EXPECT_EQ(VlanId::fromInteger(65536 + 1).value(), 1);
  EXPECT_EQ(VlanId::fromInteger(65536 + 4094).value(), 4094);
  EXPECT_EQ(VlanId::fromInteger(-65535).value(), 1);
  for (std::int64_t const value : {0L, -1L, 4095L, 65535L, 65536L, 65536L + 4095L})
    EXPECT_THAT([value] { VlanId::fromInteger(value); },
                ThrowsMessage<Kel::RangeException>(refusal));
}

TEST(VlanIdTest, IsNotMadeOfANumberUnasked) {
  EXPECT_FALSE((std::is_convertible_v<std::uint16_t, VlanId>));
}

TEST(VlanIdTest, ComparesByNumber) {
  EXPECT_EQ(VlanId(10), VlanId(10));
  EXPECT_NE(VlanId(10), VlanId(11));
  EXPECT_LT(VlanId(9), VlanId(10));
  EXPECT_GT(VlanId(4094), VlanId(10));
}

TEST(VlanIdTest, EqualNumbersHashEqually) {
  EXPECT_EQ(VlanId(10).hash(), VlanId(10).hash());
  EXPECT_NE(VlanId(10).hash(), VlanId(11).hash());
  EXPECT_TRUE((std::is_same_v<decltype(VlanId().hash()), std::uint32_t>));
}

TEST(VlanIdTest, PrintsInDecimal) {
  std::ostringstream out;
  out << VlanId(1) << ' ' << VlanId(4094);
  EXPECT_EQ(out.str(), "1 4094");
}

}  // namespace
