#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/output/Counters.h"

namespace Agent {
namespace {

/// Counters that are all different, in the order in which they are declared.
template <class Counters>
Counters numbered() {
  std::array<std::uint64_t, sizeof(Counters) / sizeof(std::uint64_t)> values{};
  std::iota(values.begin(), values.end(), 1u);
  return std::bit_cast<Counters>(values);
}

template <class Table, class Counters>
std::vector<std::uint64_t> valuesIn(Table const& table, Counters const& counters) {
  std::vector<std::uint64_t> values;
  for (auto const& counter : table) values.push_back(counter.value(counters));
  return values;
}

template <class Table>
void expectNamesOfTheirOwn(Table const& table) {
  std::vector<std::string> keys;
  std::vector<std::string> columns;
  std::vector<std::string> metrics;
  for (auto const& counter : table) {
    keys.emplace_back(counter.key);
    columns.emplace_back(counter.column);
    if (counter.metric) metrics.emplace_back(counter.metric);
  }
  for (auto* const names : {&keys, &columns, &metrics}) {
    std::sort(names->begin(), names->end());
    EXPECT_EQ(std::adjacent_find(names->begin(), names->end()), names->end());
  }
}

TEST(Counters, EveryCountOfAHostButQueriesHeardIsTold) {
  EXPECT_THAT(valuesIn(messagesSent, numbered<HostCounters>()),
              testing::UnorderedElementsAre(2, 3, 4, 5, 6));
}

TEST(Counters, EveryCountOfADeviceIsTold) {
  EXPECT_THAT(valuesIn(deviceFrames, numbered<DeviceCounters>()),
              testing::UnorderedElementsAre(1, 2, 3, 4, 5, 6));
}

TEST(Counters, EveryCountOfAQuerierIsTold) {
  EXPECT_THAT(valuesIn(queriesSent, numbered<QueriesSent>()),
              testing::UnorderedElementsAre(1, 2, 3));
}

TEST(Counters, EveryMessageThatIsHeardIsTold) {
  ReceiveCounters const counters = numbered<ReceiveCounters>();
  std::vector<std::uint64_t> expected(counters.received.begin(), counters.received.end());
  expected.push_back(counters.pimHellos);
  EXPECT_EQ(valuesIn(messagesReceived, counters), expected);
}

TEST(Counters, NamesAreOfOneEach) {
  expectNamesOfTheirOwn(messagesReceived);
  expectNamesOfTheirOwn(messagesSent);
  expectNamesOfTheirOwn(queriesSent);
  expectNamesOfTheirOwn(deviceFrames);
}

TEST(Counters, FamiliesOfDevicesSayWhatTheyAre) {
  for (auto const& counter : deviceFrames) {
    EXPECT_NE(counter.metric, nullptr) << counter.key;
    EXPECT_NE(counter.help, nullptr) << counter.key;
  }
}

}  // namespace
}  // namespace Agent
