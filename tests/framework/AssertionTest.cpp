#include <csignal>

#include <gtest/gtest.h>

#include "framework/kel/Assertion.h"

namespace {

constexpr char const* kelSourceFile = "AssertionTest";

void handleVlan(bool adapterExists) {
  KEL_ASSERT(adapterExists, "adapterConfig(vlan) != 0");
}

TEST(AssertionDeathTest, PrintsTheExpressionAndItsPlaceAndAborts) {
  EXPECT_EXIT(handleVlan(false), testing::KilledBySignal(SIGABRT),
              "AssertionTest:[0-9]+: handleVlan: assertion failed: adapterConfig\\(vlan\\) != 0");
}

TEST(AssertionTest, PassesWhereTheExpressionHolds) {
  handleVlan(true);
}

TEST(AssertionTest, EvaluatesTheExpressionOnce) {
  int evaluated = 0;
  KEL_ASSERT(++evaluated == 1, "++evaluated == 1");
  EXPECT_EQ(evaluated, 1);
}

TEST(AssertionTest, TakesWhateverConvertsToBoolInItsContext) {
  int const object = 1;
  KEL_ASSERT(&object, "&object");
}

}  // namespace
