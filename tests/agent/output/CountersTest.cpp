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

template <class Counters>
using Values = std::array<std::uint64_t, sizeof(Counters) / sizeof(std::uint64_t)>;

/// Counters that are all different, in the order in which they are declared.
template <class Counters>
Counters numbered() {
  Values<Counters> values{};
  std::iota(values.begin(), values.end(), 1u);
  return std::bit_cast<Counters>(values);
}

/// All values of counters, in the order in which they are declared.
template <class Counters>
std::vector<std::uint64_t> allOf(Counters const& counters) {
  auto const values = std::bit_cast<Values<Counters>>(counters);
  return {values.begin(), values.end()};
}

template <class Table, class Counters>
std::vector<std::uint64_t> valuesIn(Table const& table, Counters const& counters) {
  std::vector<std::uint64_t> values;
  values.reserve(table.size());
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
  auto const counters = numbered<HostCounters>();
  std::vector<std::uint64_t> expected = allOf(counters);
  std::erase(expected, counters.queriesHeard);
  EXPECT_THAT(valuesIn(messagesSent, counters), testing::UnorderedElementsAreArray(expected));
}

TEST(Counters, EveryCountOfADeviceIsTold) {
  auto const counters = numbered<DeviceCounters>();
  EXPECT_THAT(valuesIn(deviceFrames, counters),
              testing::UnorderedElementsAreArray(allOf(counters)));
}

TEST(Counters, EveryCountOfAQuerierIsTold) {
  auto const counters = numbered<QueriesSent>();
  EXPECT_THAT(valuesIn(queriesSent, counters), testing::UnorderedElementsAreArray(allOf(counters)));
}

TEST(Counters, EveryMessageThatIsHeardIsTold) {
  auto const counters = numbered<ReceiveCounters>();
  std::vector<std::uint64_t> expected = allOf(counters);
  for (std::uint64_t const ofOneCause : counters.ignored) std::erase(expected, ofOneCause);
  EXPECT_EQ(valuesIn(messagesReceived, counters), expected);
}

TEST(Counters, EveryCountOfAPortIsInTheSumOverItsVlans) {
  auto sum = numbered<ReceiveCounters>();
  sum += numbered<ReceiveCounters>();
  std::vector<std::uint64_t> expected = allOf(numbered<ReceiveCounters>());
  for (std::uint64_t& count : expected) count *= 2;
  EXPECT_EQ(allOf(sum), expected);
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
