#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/forwarding/MdbEntry.h"
#include "tests/agent/Addresses.h"

namespace Agent {
namespace {

using Gmp::Igmp::IgmpFilterMode;
using testing::ElementsAre;
using Wirex::IpAddr;

SourceFilter const everySource{IgmpFilterMode::exclude, {}};

std::vector<IpAddr> manySources(std::uint32_t count) {
  std::vector<IpAddr> sources;
  for (std::uint32_t i = 1; i <= count; ++i) sources.emplace_back(0xc0000200 + i);
  return sources;
}

std::size_t requests(std::optional<SourceFilter> const& before,
                     std::optional<SourceFilter> const& after, EntryKind kind) {
  NetlinkBatch batch;
  addChange(batch, {1, 2, 10, group}, before, after, kind);
  return batch.count();
}

TEST(KernelEntries, OneEntryHoldsModeAndSourcesWhereTheKernelCan) {
  SourceFilter const filter{IgmpFilterMode::include, {a, b}};
  EXPECT_THAT(kernelEntries(filter, EntryKind::sourceLists),
              ElementsAre(KernelEntry{IpAddr(), filter}));
  SourceFilter const blocking{IgmpFilterMode::exclude, {a}};
  EXPECT_THAT(kernelEntries(blocking, EntryKind::sourceLists),
              ElementsAre(KernelEntry{IpAddr(), blocking}));
}

TEST(KernelEntries, OlderKernelsTakeOneForEachSource) {
  EXPECT_THAT(kernelEntries({IgmpFilterMode::include, {a, b}}, EntryKind::singleSources),
              ElementsAre(KernelEntry{a, everySource}, KernelEntry{b, everySource}));
}

TEST(KernelEntries, OlderKernelsLetExcludedSourcesThrough) {
  EXPECT_THAT(kernelEntries({IgmpFilterMode::exclude, {a}}, EntryKind::singleSources),
              ElementsAre(KernelEntry{IpAddr(), everySource}));
}

TEST(KernelEntries, MoreSourcesThanAListHoldsBecomeSingleOnes) {
  auto const kind = EntryKind::sourceLists;
  EXPECT_EQ(kernelEntries({IgmpFilterMode::include, manySources(32)}, kind).size(), 1);
  EXPECT_EQ(kernelEntries({IgmpFilterMode::include, manySources(33)}, kind).size(), 33);
  EXPECT_THAT(kernelEntries({IgmpFilterMode::exclude, manySources(33)}, kind),
              ElementsAre(KernelEntry{IpAddr(), everySource}));
}

TEST(KernelEntries, MoreSingleSourcesThanCanBeWrittenAreAllLetThrough) {
  EXPECT_THAT(kernelEntries({IgmpFilterMode::include, manySources(1025)}, EntryKind::sourceLists),
              ElementsAre(KernelEntry{IpAddr(), everySource}));
}

TEST(EntryChange, WritesOnlyWhatDiffers) {
  SourceFilter const ab{IgmpFilterMode::include, {a, b}};
  SourceFilter const bc{IgmpFilterMode::include, {b, c}};
  EXPECT_EQ(requests(ab, ab, EntryKind::sourceLists), 0);
  EXPECT_EQ(requests(ab, bc, EntryKind::sourceLists), 1);
  EXPECT_EQ(requests(ab, bc, EntryKind::singleSources), 2);
  EXPECT_EQ(requests(ab, std::nullopt, EntryKind::singleSources), 2);
  EXPECT_EQ(requests(std::nullopt, everySource, EntryKind::singleSources), 1);
  EXPECT_EQ(requests(everySource, ab, EntryKind::singleSources), 3);
}

TEST(EntryChange, TakesAnyNumberOfRequests) {
  EXPECT_EQ(requests(std::nullopt, SourceFilter{IgmpFilterMode::include, manySources(1024)},
                     EntryKind::singleSources),
            1024);
}

}  // namespace
}  // namespace Agent
