#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/text/NaturalOrder.h"

namespace Agent {
namespace {

TEST(NaturalOrder, SortsNumbersInNamesByTheirValue) {
  std::vector<std::string> const sorted{"",
                                        "eth0",
                                        "eth0.5",
                                        "eth0.10",
                                        "eth1",
                                        "swp",
                                        "swp1",
                                        "swp01",
                                        "swp2",
                                        "swp2s1",
                                        "swp2s10",
                                        "swp10",
                                        "swpA",
                                        "swpa",
                                        "vlan9",
                                        "vlan10",
                                        "vlan99999999999999999999",
                                        "vlan100000000000000000000"};
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    for (std::size_t j = 0; j < sorted.size(); ++j) {
      if (sorted[i] == "swp1" && sorted[j] == "swp01") continue;
      if (sorted[i] == "swp01" && sorted[j] == "swp1") continue;
      EXPECT_EQ(precedesNaturally(sorted[i], sorted[j]), i < j)
          << sorted[i] << " and " << sorted[j];
    }
  }
}

TEST(NaturalOrder, NamesThatDifferInLeadingZerosOnlyHaveAnOrder) {
  EXPECT_NE(precedesNaturally("swp1", "swp01"), precedesNaturally("swp01", "swp1"));
  EXPECT_FALSE(precedesNaturally("swp01", "swp01"));
}

}  // namespace
}  // namespace Agent
