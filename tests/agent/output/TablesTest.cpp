#include <algorithm>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/output/Tables.h"
#include "agent/text/TextTable.h"
#include "agent/text/TimeText.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/output/OutputTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using Wirex::IpAddr;

std::string printed(Snapshot const& snapshot) {
  std::ostringstream out;
  printSnapshot(out, snapshot);
  return out.str();
}

std::size_t longestLine(std::string const& text) {
  std::size_t longest = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) longest = std::max(longest, line.size());
  return longest;
}

/// As wide as a value can be, in every column.
std::vector<IpAddr> manySources() {
  std::vector<IpAddr> sources;
  for (std::uint32_t i = 0; i < 365; ++i) sources.emplace_back(0xc8c8c864 + i);  // 200.200.200.100
  return sources;
}

TEST(Tables, SnapshotShowsHostsRecordsAndWhatWasIgnored) {
  Snapshot snapshot;
  snapshot.time = 46'293'556us;
  snapshot.hosts = {hostOn(10, "swp1", {{group, include({a, b})}, {otherGroup, exclude({})}}),
                    hostOn(10, "swp10"), hostOn(200, "swp1", {{group, exclude({a})}})};
  snapshot.hosts[1].blocked = true;
  snapshot.hosts[1].direction = Bridging::AllowedTrafficDirection::ingress;
  snapshot.ignored = {
      {"swp1", {{Igmp::IgnoreReason::notIgmp, 12}, {Igmp::IgnoreReason::badIpChecksum, 3}}},
      {"swp10", {{Igmp::IgnoreReason::badTtl, 1}}}};
  EXPECT_EQ(printed(snapshot),
            "Records at 46.293556 s\n"
            "\n"
            "VLAN  INTERFACE  IGMP  BLOCKED  DIRECTION  GROUP      MODE     SOURCES\n"
            "  10  swp1          3  no       both       239.1.1.1  include  192.0.2.1, 192.0.2.2\n"
            "                                           239.2.2.2  exclude  -\n"
            "  10  swp10         3  yes      ingress    -\n"
            " 200  swp1          3  no       both       239.1.1.1  exclude  192.0.2.1\n"
            "\n"
            "INTERFACE  IGNORED  CAUSE\n"
            "swp1            12  not-igmp\n"
            "                 3  bad-ip-checksum\n"
            "swp10            1  bad-ttl\n");
}

TEST(Tables, NothingIsSaidInWords) {
  EXPECT_THAT(printed(Snapshot{}), HasSubstr("There are no hosts: each takes an interface "));
  Snapshot silent;
  silent.hosts = {hostOn(10, "swp1")};
  EXPECT_THAT(printed(silent), HasSubstr("\n\nThere are no records to show.\n"));
}

TEST(Tables, FitOneHundredColumnsWhateverTheyHold) {
  Snapshot snapshot;
  snapshot.hosts = {
      hostOn(4094, "interface-of-15", {{IpAddr(239, 200, 200, 200), include(manySources())}})};
  snapshot.hosts[0].direction = Bridging::AllowedTrafficDirection::ingress;
  snapshot.ignored = {{"interface-of-15", {{Igmp::IgnoreReason::inconsistentLength, UINT64_MAX}}}};
  EXPECT_LE(longestLine(printed(snapshot)), 100u);
  EXPECT_THAT(printed(snapshot), HasSubstr(" 200.200.200.100"));
  EXPECT_THAT(printed(snapshot), HasSubstr(" 200.200.201.208\n")) << "the last one";
}

TEST(Tables, NamesThatAreTooLongGoOnBelow) {
  Snapshot snapshot;
  snapshot.hosts = {hostOn(10, std::string(150, 'x'), {{group, include(manySources())}})};
  EXPECT_LE(longestLine(printed(snapshot)), 100u);
  std::string const text = printed(snapshot);
  EXPECT_EQ(std::count(text.begin(), text.end(), 'x'), 150);
}

TEST(TextTable, BreaksAtBlanksAndWithinWordsThatAreTooLong) {
  TextTable table({{"A", TextTable::Align::left, 5}, {"B"}});
  table.row({"abc de fghijklm", "right"});
  std::ostringstream out;
  table.print(out);
  EXPECT_EQ(out.str(),
            "A      B\n"
            "abc    right\n"
            "de\n"
            "fghij\n"
            "klm\n");
}

TEST(TextTable, LastColumnIsNoWiderThanWhatStandsInIt) {
  TextTable table({{"NAME"}, {"N", TextTable::Align::right}});
  table.row({"swp1", "10"});
  table.row({"swp2", "5"});
  std::ostringstream out;
  table.print(out);
  EXPECT_EQ(out.str(), "NAME   N\nswp1  10\nswp2   5\n");
}

/// Columns before the last one that take so much with the gaps behind them.
void expectLastColumnIsReadable(std::size_t used) {
  std::size_t const widest = used / 5 - 2;
  using Column = TextTable::Column;
  TextTable table(
      {Column{"A", TextTable::Align::left, widest}, Column{"B", TextTable::Align::left, widest},
       Column{"C", TextTable::Align::left, widest}, Column{"D", TextTable::Align::left, widest},
       Column{"E", TextTable::Align::left, widest}, Column{"LAST"}});
  std::vector<std::string> cells(6, std::string(widest, 'x'));
  cells.back() = "twelve words";
  table.row(cells);
  std::ostringstream out;
  table.print(out);
  EXPECT_THAT(out.str(), testing::HasSubstr("  twelve\n"));
  EXPECT_THAT(out.str(), testing::EndsWith("  words\n"));
}

TEST(TextTable, LastColumnCanBeReadWhereTheOthersTakeAllThereIs) {
  expectLastColumnIsReadable(TextTable::width);
}

TEST(TextTable, LastColumnCanBeReadWhereTheOthersTakeMore) {
  expectLastColumnIsReadable(TextTable::width + 10);
}

TEST(TextTable, CountsCharactersNotBytes) {
  TextTable table({{"NAME", TextTable::Align::left, 4}, {"X"}});
  table.row({"\u00fcber", "1"});
  table.row({"\u00e4\u00f6\u00fc\u00e4\u00f6\u00fc", "2"});
  std::ostringstream out;
  table.print(out);
  EXPECT_EQ(out.str(),
            "NAME  X\n"
            "\u00fcber  1\n"
            "\u00e4\u00f6\u00fc\u00e4  2\n"
            "\u00f6\u00fc\n");
}

TEST(TimeText, ShowsMicrosecondsAndNanosecondsWhereThereAreAny) {
  EXPECT_EQ(timeText(0s), "0.000000");
  EXPECT_EQ(timeText(12500ms), "12.500000");
  EXPECT_EQ(timeText(1s + 1us), "1.000001");
  EXPECT_EQ(timeText(1s + 1ns), "1.000000001");
  EXPECT_EQ(timeText(1s + 100us + 100ns), "1.000100100");
}

}  // namespace
}  // namespace Agent
