#include "platform/wirex/PktManager.h"
#include "tests/platform/igmp/HostTesting.h"

/// How a host packs what it says into frames (RFC 9776 sections 4 and 4.2.16).
namespace IgmpTest {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;
using testing::StartsWith;

class HostReportSize : public HostTest {
 protected:
  // 1500 - 24 - 8 bytes hold so many records without sources, and one record so many sources.
  static constexpr unsigned recordsPerReport = 183;
  static constexpr unsigned sourcesPerRecord = 365;

  void mtuIs(std::uint16_t mtu) {
    changeSettings([&](Igmp::HostSettings& settings) { settings.mtu = mtu; });
  }

  /// So many groups that their reports are sent over several ticks.
  static constexpr unsigned reportsOfVeryMany = 200;
  static constexpr unsigned veryMany = reportsOfVeryMany * recordsPerReport;

  void excludeVeryMany() {
    for (unsigned i = 1; i <= veryMany; ++i) writeExclude(group(i));
    Kel::runActivities();
  }
  void dropVeryMany() {
    host->v3groupDelAll();
    Kel::runActivities();
  }
  static void addGroupsTo(std::set<IpAddr>& groups, std::vector<Sent> const& reports) {
    for (Sent const& each : reports)
      for (Record const& record : each.records()) groups.insert(record.group);
  }

  static std::set<IpAddr> sourcesOf(std::vector<Sent> const& reports) {
    std::set<IpAddr> all;
    for (Sent const& each : reports)
      for (Record const& record : each.records())
        all.insert(record.sources.begin(), record.sources.end());
    return all;
  }
  static std::size_t ipSize(Sent const& sent) { return sent.frame.size() - 14; }
};

TEST_F(HostReportSize, FrameIsThatOfAHost) {
  changeSettings(
      [](Igmp::HostSettings& settings) { settings.sourceAddress = IpAddr(192, 0, 2, 5); });
  include(group(1), {source(2)});
  ASSERT_THAT(wire->sent, SizeIs(1));
  EXPECT_THAT(wire->sent[0].bytes,
              testing::ElementsAreArray(ByteVector{
                  0x01, 0x00, 0x5e, 0x00, 0x00, 0x16, 0x02, 0x00, 0x00, 0x00, 0x00, 0x01, 0x08,
                  0x00, 0x46, 0xc0, 0x00, 0x2c, 0x00, 0x00, 0x40, 0x00, 0x01, 0x02, 0x41, 0xf0,  //
                  192,  0,    2,    5,    224,  0,    0,    22,   0x94, 0x04, 0x00, 0x00,        //
                  0x22, 0x00, 0xdf, 0xf8, 0x00, 0x00, 0x00, 0x01,                                //
                  0x05, 0x00, 0x00, 0x01, 239,  1,    0,    1,    10,   0,    0,    2}));
}

TEST_F(HostReportSize, HostWithoutAddressSendsFromNone) {
  exclude(group(1));
  EXPECT_EQ(takeSent().at(0).packet.source, IpAddr());
}

TEST_F(HostReportSize, ReportsAreFilledUpToTheMtu) {
  for (unsigned i = 1; i <= recordsPerReport + 1; ++i) writeExclude(group(i));
  Kel::runActivities();
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_THAT(all[0].records(), SizeIs(recordsPerReport));
  EXPECT_THAT(all[1].records(), SizeIs(1));
  EXPECT_THAT(ipSize(all[0]), Le(1500u));
}

TEST_F(HostReportSize, MtuThatChangesTakesEffect) {
  mtuIs(24 + 8 + 2 * 8);
  for (unsigned i = 1; i <= 4; ++i) writeExclude(group(i));
  Kel::runActivities();
  auto const small = takeSent();
  ASSERT_THAT(small, SizeIs(1)) << "an MTU below that of any IPv4 link is not believed";
  mtuIs(24 + 8 + 5 * 8);
  for (unsigned i = 11; i <= 17; ++i) writeExclude(group(i));
  Kel::runActivities();
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_THAT(all[0].records(), SizeIs(5));
  EXPECT_THAT(all[1].records(), SizeIs(2));
}

TEST_F(HostReportSize, AllowThatFitsExactlyIsNotSplit) {
  include(group(1), sources(1, sourcesPerRecord));
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_EQ(ipSize(all[0]), 1500u);
}

TEST_F(HostReportSize, AllowAndBlockTooLargeAreSplitOverReports) {
  for (bool const blocks : {false, true}) {
    include(group(1), blocks ? std::vector<IpAddr>() : sources(1, 2 * sourcesPerRecord + 1));
    auto const all = takeSent();
    ASSERT_THAT(all, SizeIs(3));
    for (Sent const& each : all) {
      ASSERT_THAT(each.records(), SizeIs(1));
      EXPECT_EQ(each.records()[0].type, blocks ? 6u : 5u);
    }
    EXPECT_THAT(sourcesOf(all), SizeIs(2 * sourcesPerRecord + 1));
    rest();
  }
}

TEST_F(HostReportSize, RestOfASplitRecordSharesItsReport) {
  writeInclude(group(1), sources(1, sourcesPerRecord + 1));
  writeExclude(group(2));
  Kel::runActivities();
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_EQ(all[1].text(),
            report({allow(group(1), {source(sourcesPerRecord + 1)}), toEx(group(2))}));
}

TEST_F(HostReportSize, ToInTooLargeGoesOnAsAllow) {
  exclude(group(1));
  rest();
  include(group(1), sources(1, sourcesPerRecord + 2));
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_EQ(all[0].text(), report({toIn(group(1), sources(1, sourcesPerRecord))}));
  EXPECT_EQ(all[1].text(),
            report({allow(group(1), sources(sourcesPerRecord + 1, sourcesPerRecord + 2))}));
}

TEST_F(HostReportSize, IsInTooLargeIsSplit) {
  include(group(1), sources(1, sourcesPerRecord + 2));
  rest();
  hearsGeneralQuery();
  pass(seconds(10));
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_EQ(all[0].text(), report({isIn(group(1), sources(1, sourcesPerRecord))}));
  EXPECT_EQ(all[1].text(),
            report({isIn(group(1), sources(sourcesPerRecord + 1, sourcesPerRecord + 2))}));
}

TEST_F(HostReportSize, ExcludeListTooLargeIsCutToTheSameSourcesEachTime) {
  std::vector<IpAddr> many = sources(1, sourcesPerRecord + 100);
  std::reverse(many.begin(), many.end());
  exclude(group(1), many);
  auto const lowest = sources(1, sourcesPerRecord);
  EXPECT_THAT(sentWithin(seconds(10)),
              testing::AllOf(SizeIs(2), Each(report({toEx(group(1), lowest)}))));
  hearsGeneralQuery();
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(report({isEx(group(1), lowest)})));
  hearsQuery(group(1));
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(report({isEx(group(1), lowest)})));
}

TEST_F(HostReportSize, RecordThatDoesNotFitBesideOthersHasAReportOfItsOwn) {
  writeExclude(group(1));
  writeInclude(group(2), sources(1, sourcesPerRecord));
  writeExclude(group(3));
  Kel::runActivities();
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(3));
  EXPECT_EQ(all[0].text(), report({toEx(group(1))}));
  EXPECT_THAT(all[1].records(), SizeIs(1));
  EXPECT_EQ(all[2].text(), report({toEx(group(3))}));
}

TEST_F(HostReportSize, LargeMtuIsUsedAsFarAsPacketsReach) {
  std::size_t const former = Wirex::PktManager::instance().bufferSize();
  mtuIs(9000);
  include(group(1), sources(1, 1000));
  EXPECT_THAT(takeSent(), SizeIs(2)) << "packets of " << former << " bytes";
  rest();
  Wirex::PktManager::instance().bufferSizeIs(10004);
  include(group(2), sources(1, 1000));
  auto const all = takeSent();
  Wirex::PktManager::instance().bufferSizeIs(former);
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_EQ(all[0].text(), report({allow(group(2), sources(1, 1000))}));
}

TEST_F(HostReportSize, TenThousandGroupsAreAnsweredInFullReports) {
  reportsUnaskedIs(false);
  for (unsigned i = 1; i <= 10'000; ++i) writeExclude(group(i));
  hearsGeneralQuery();
  pass(seconds(11));
  auto const all = takeSent();
  EXPECT_THAT(all, SizeIs((10'000 + recordsPerReport - 1) / recordsPerReport));
  std::set<IpAddr> groups;
  addGroupsTo(groups, all);
  EXPECT_THAT(groups, SizeIs(10'000));
}

TEST_F(HostReportSize, VeryManyReportsAreSpreadOverTicksInTheirOrder) {
  robustnessIs(1);
  excludeVeryMany();
  std::size_t const atOnce = wire->sent.size();
  EXPECT_LT(atOnce, reportsOfVeryMany / 2);
  drop(group(1));
  pass(milliseconds(10));
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(reportsOfVeryMany + 1));
  EXPECT_EQ(all[reportsOfVeryMany - 1].records().back().group, group(veryMany));
  EXPECT_EQ(all[reportsOfVeryMany].text(), report({toIn(group(1))}));
  std::map<Horix::Time, std::size_t> perTick;
  for (Sent const& each : all) ++perTick[each.time];
  for (auto const& [time, count] : perTick) EXPECT_LE(count, atOnce);
}

TEST_F(HostReportSize, AnswerOfVeryManyReportsIsSpreadOverTicks) {
  reportsUnaskedIs(false);
  excludeVeryMany();
  hearsGeneralQuery();
  pass(seconds(11));
  auto const all = takeSent();
  EXPECT_THAT(all, SizeIs(reportsOfVeryMany));
  std::map<Horix::Time, std::size_t> perTick;
  for (Sent const& each : all) ++perTick[each.time];
  for (auto const& [time, count] : perTick) EXPECT_LE(count, reportsOfVeryMany / 2);
  std::set<IpAddr> groups;
  addGroupsTo(groups, all);
  EXPECT_THAT(groups, SizeIs(veryMany));
}

TEST_F(HostReportSize, RestOfAnAnswerIsNotGivenInAnotherVersion) {
  reportsUnaskedIs(false);
  excludeVeryMany();
  hearsGeneralQuery();
  while (wire->sent.empty()) pass(milliseconds(1));
  wire->sent.clear();
  hears(FrameBuilder::queryV2(IpAddr(), 100));
  EXPECT_THAT(sentWithin(seconds(11)), testing::AllOf(SizeIs(veryMany), Each(StartsWith("v2("))));
}

TEST_F(HostReportSize, RestOfAnAnswerIsDroppedWhenTheHostIsBlocked) {
  reportsUnaskedIs(false);
  excludeVeryMany();
  hearsGeneralQuery();
  while (wire->sent.empty()) pass(milliseconds(1));
  host->blockedIs(true);
  pass(seconds(1));
  host->blockedIs(false);
  wire->sent.clear();
  hearsQuery(group(1));
  EXPECT_THAT(sentWithin(seconds(100)), ElementsAre(report({isEx(group(1))})));
}

TEST_F(HostReportSize, JoinsStillToBeSentAreSentInTheVersionOfAnOlderQuerier) {
  excludeVeryMany();
  std::set<IpAddr> groups;
  addGroupsTo(groups, takeSent());
  hears(FrameBuilder::queryV2(IpAddr(), 100));
  pass(seconds(1));
  for (Sent const& each : takeSent()) {
    ASSERT_THAT(each.text(), StartsWith("v2("));
    groups.insert(each.packet.destination);
  }
  EXPECT_THAT(groups, SizeIs(veryMany));
}

TEST_F(HostReportSize, LeavesStillToBeSentWhenTheHostIsBlockedAreSentAfterIt) {
  robustnessIs(1);
  excludeVeryMany();
  rest();
  dropVeryMany();
  std::set<IpAddr> groups;
  addGroupsTo(groups, takeSent());
  host->blockedIs(true);
  EXPECT_THAT(sentWithin(seconds(1)), IsEmpty());
  host->blockedIs(false);
  Kel::runActivities();
  pass(seconds(1));
  addGroupsTo(groups, takeSent());
  EXPECT_THAT(groups, SizeIs(veryMany));
}

TEST_F(HostReportSize, LeavesStillToBeSentAreSentBeforeTheHostGoes) {
  robustnessIs(1);
  for (auto const& go : std::vector<std::function<void()>>{
           [this] { host->enabledIs(false); },
           [this] { hosts->igmpHostDel(host->name()); },
       }) {
    host->enabledIs(true);
    excludeVeryMany();
    rest();
    dropVeryMany();
    go();
    std::set<IpAddr> groups;
    addGroupsTo(groups, takeSent());
    EXPECT_THAT(groups, SizeIs(veryMany));
  }
}

TEST_F(HostReportSize, ReportsStillToBeSentAreDroppedWhenTheHostIsBlocked) {
  excludeVeryMany();
  EXPECT_EQ(status().counters().reportsSentV3, wire->sent.size());
  wire->sent.clear();
  host->blockedIs(true);
  EXPECT_THAT(sentWithin(milliseconds(10)), IsEmpty());
  host->blockedIs(false);
  Kel::runActivities();
  EXPECT_EQ(takeSent().at(0).records().front().group, group(1));
}

TEST_F(HostReportSize, LeavesAreSentAtOnceHoweverMany) {
  excludeVeryMany();
  rest();
  host->enabledIs(false);
  EXPECT_THAT(wire->sent, SizeIs(reportsOfVeryMany));
}

}  // namespace IgmpTest
