#include <fstream>
#include <regex>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/report/HistoryWatch.h"
#include "agent/report/ReportFile.h"
#include "agent/report/ReportPage.h"
#include "agent/report/ReportTables.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/replay/CaptureTesting.h"
#include "tests/agent/report/ReportTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::HasSubstr;
using testing::Not;

/// A switch on which one listens, and what became of it.
struct ListenedTo {
  ListenedTo() {
    test.hear("swp1", FrameBuilder::reportV3({isEx(group, {})}).from(tv));
    test.advance(1s);
    test.hear("swp1", FrameBuilder::reportV3({isEx(Wirex::IpAddr(224, 0, 0, 5), {})}).from(tv));
  }

  ReportData data() const { return reportOf(test, watch.history()); }

  TestSwitch test{vlan10("swp[1-2]")};
  HistoryWatch watch{test.snooping};
};

std::size_t count(std::string const& text, std::string const& part) {
  std::size_t times = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++times;
  return times;
}

TEST(ReportPageTest, HasPicturesTimeLineTablesAndWhatWasIgnored) {
  std::string const page = pageOf(ListenedTo().data());
  EXPECT_THAT(page, HasSubstr("<svg class=\"flows\" id=\"vlan-10-flows\""));
  EXPECT_THAT(page, HasSubstr("239.1.1.1: swp2 reports every source, from swp1."));
  EXPECT_THAT(page, HasSubstr("<svg class=\"time\" id=\"vlan-10-time\""));
  EXPECT_THAT(page, HasSubstr("<caption>Memberships: who listens to what</caption>"));
  EXPECT_THAT(page, HasSubstr("<caption>Records: what the hosts on the ports report</caption>"));
  EXPECT_THAT(page, HasSubstr("<td class=n>10<td>swp1<td>group-link-local<td class=n>1"));
  EXPECT_THAT(page, HasSubstr("No querier is heard in VLAN 10."));
}

TEST(ReportPageTest, OfARunningAgentTellsSinceWhenAndWhatTheBridgeIsToHave) {
  ReportData data = ListenedTo().data();
  std::string const since = "<th scope=\"col\">Since</th>";
  std::string const forwarding = "<caption>Forwarding: what the bridge is to have";
  EXPECT_THAT(pageOf(data), Not(HasSubstr(since)));
  EXPECT_THAT(pageOf(data), Not(HasSubstr(forwarding)));
  data.isReplay = false;
  data.date = "2026-11-22T21:05:09+00:00";
  data.memberships.at(0).since = "2026-11-22T20:00:01+00:00";
  data.routerPorts = {{10, "swp2", "2026-11-21T07:08:09+00:00", true, {}, {}, {}, {}}};
  data.entries = {{10, group, "swp1", "missing", {Gmp::Igmp::IgmpFilterMode::exclude, {}}}};
  std::string const page = pageOf(data);
  EXPECT_THAT(page, HasSubstr("It was 2026-11-22 21:05:09 +00:00."));
  EXPECT_EQ(count(page, since), 2u);
  EXPECT_THAT(page, HasSubstr("<td>10.0.0.1<td>20:00:01<td class=n>"));
  EXPECT_THAT(page, HasSubstr("<td>swp2<td>11-21 07:08<td>yes"));
  EXPECT_THAT(page, HasSubstr(forwarding));
  EXPECT_THAT(page, HasSubstr("<td>239.1.1.1<td>swp1<td>missing<td>exclude"));
}

TEST(ReportPageTest, NeedsNothingButItself) {
  std::string const page = pageOf(ListenedTo().data());
  EXPECT_THAT(page, HasSubstr("content=\"default-src 'none';"));
  EXPECT_THAT(page, Not(HasSubstr("<script")));
  EXPECT_THAT(page, Not(HasSubstr("http:")));
  EXPECT_THAT(page, Not(HasSubstr("https:")));
}

TEST(ReportPageTest, IsTheSameForTheSameData) {
  EXPECT_EQ(pageOf(ListenedTo().data()), pageOf(ListenedTo().data()));
}

TEST(ReportPageTest, EveryPictureIsLabelled) {
  std::string const page = pageOf(ListenedTo().data());
  std::regex const labelled(
      "<svg [^>]*id=\"([^\"]+)\"[^>]*role=\"img\" aria-labelledby=\"\\1-t \\1-d\"><title "
      "id=\"\\1-t\">[^<]+</title><desc id=\"\\1-d\">[^<]+</desc>");
  auto const pictures = std::distance(std::sregex_iterator(page.begin(), page.end(), labelled),
                                      std::sregex_iterator());
  EXPECT_EQ(static_cast<std::size_t>(pictures), count(page, "<svg "));
  EXPECT_GE(pictures, 2);
}

TEST(ReportPageTest, EveryTableHasACaptionAndHeaders) {
  std::string const page = pageOf(ListenedTo().data());
  EXPECT_GE(count(page, "<table>"), 8u);
  EXPECT_EQ(count(page, "<table>"), count(page, "<table><caption>"));
  EXPECT_EQ(count(page, "<table>"), count(page, "<thead><tr><th scope=\"col\""));
}

/// Names are the text that comes from elsewhere: all else is numbers, addresses and our own words.
TEST(ReportPageTest, HostileTextIsEscapedWhereverItStands) {
  std::string const hostile = "\"><script>alert(1)</script>&'";
  ReportData data = ListenedTo().data();
  data.subject = hostile;
  data.vlans[0].ports = {hostile};
  data.vlans[0].otherQuerier = data.vlans[0].standing = hostile;
  for (ReportedInterface& each : data.interfaces)
    each.name = each.state = each.because = each.direction = each.vlans = hostile;
  for (ReportedMembership& each : data.memberships) each.interface = hostile;
  for (HostRecords& each : data.hosts) each.name = each.interface = hostile;
  data.routerPorts.push_back({10, hostile, hostile, true, {}, {}, {}, {}});
  for (ReportedRefusals& each : data.ignored) each.vlan = each.interface = each.cause = hostile;
  data.ignored.push_back({hostile, hostile, "too-many-groups" + hostile, 1});
  for (HistoryRow& row : data.history.rows) {
    row.interface = hostile;
    for (Span& span : row.spans) span.text = hostile;
  }
  for (std::string const& standing : {std::string("has-host"), hostile}) {
    data.vlans[0].standing = standing;
    std::string const page = pageOf(data);
    EXPECT_THAT(page, Not(HasSubstr("<script")));
    EXPECT_THAT(page, Not(HasSubstr("&'")));
    EXPECT_THAT(page, HasSubstr("&quot;&gt;&lt;script&gt;"));
  }
}

TEST(ReportPageTest, AnEmptySwitchHasAPage) {
  TestSwitch const test("");
  std::string const page = pageOf(reportOf(test));
  EXPECT_THAT(page, HasSubstr("No VLAN is configured."));
  EXPECT_THAT(page, HasSubstr("Nothing was ignored."));
  EXPECT_THAT(page, HasSubstr("</html>"));
}

TEST(ReportPageTest, ManyRowsAreSummedUpAndClosed) {
  TestSwitch test(vlan10("swp[1-20]"));
  HistoryWatch const watch(test.snooping);
  for (unsigned i = 0; i < 100; ++i) {
    Wirex::IpAddr const each(group.value() + i);
    test.hear("swp1",
              FrameBuilder::reportV3({isIn(each, {Wirex::IpAddr(a.value() + i)})}).from(tv));
  }
  std::string const page = pageOf(reportOf(test, watch.history()));
  EXPECT_THAT(page, HasSubstr("id=\"vlan-10-ports\""));
  EXPECT_THAT(page, HasSubstr("<summary>52 of 92 more pictures of groups</summary>"));
  EXPECT_THAT(page, HasSubstr("id=\"vlan-10-counts\""));
  EXPECT_THAT(page, HasSubstr("At most 100 memberships and 1900 records."));
  EXPECT_THAT(page, HasSubstr("<details><summary>Memberships: who listens to what"));
}

TEST(PageTableTest, OfMoreRowsThanPaperTakesStaysClosedInPrint) {
  auto const beginning = [](std::size_t rows) {
    PageTable table("Rows", {{"ROW"}});
    for (std::size_t i = 0; i < rows; ++i) table.row({"one"});
    std::ostringstream out;
    table.print(out);
    return out.str().substr(0, out.str().find("<summary>"));
  };
  EXPECT_EQ(beginning(PageTable::many), "<details open>");
  EXPECT_EQ(beginning(PageTable::tooManyForPaper), "<details>");
  EXPECT_EQ(beginning(PageTable::tooManyForPaper + 1), "<details class=vast>");
}

TEST(ReportPageTest, ARunningAgentsTimeLineIsOfTheTimeToCome) {
  ReportData data = ListenedTo().data();
  data.isReplay = false;
  data.history = outlook(data);
  std::string const page = pageOf(data);
  EXPECT_THAT(page, HasSubstr("A running agent remembers no past"));
  EXPECT_THAT(page, HasSubstr("<h3>The time to come</h3>"));
}

// ---- The file

class ReportFileTest : public testing::Test {
 protected:
  std::string contents(std::string const& name) const {
    std::ostringstream text;
    text << std::ifstream(directory.file(name)).rdbuf();
    return text.str();
  }
  bool exists(std::string const& name) const {
    return std::filesystem::exists(directory.file(name));
  }

  TemporaryDirectory directory;
  ReportData data = ListenedTo().data();
};

TEST_F(ReportFileTest, HoldsThePage) {
  ReportFile(directory.file("page.html"), {}).write(data);
  EXPECT_EQ(contents("page.html"), pageOf(data));
  EXPECT_FALSE(exists("page.html.part"));
}

TEST_F(ReportFileTest, StaysAsItWasUntilItIsWritten) {
  std::ofstream(directory.file("page.html")) << "former";
  {
    ReportFile const file(directory.file("page.html"), {});
    EXPECT_EQ(contents("page.html"), "former");
  }
  EXPECT_EQ(contents("page.html"), "former");
  EXPECT_FALSE(exists("page.html.part"));
}

TEST_F(ReportFileTest, IsNoneOfThoseThatItIsMadeFrom) {
  std::ofstream(directory.file("swp1.pcap")) << "captured";
  std::filesystem::create_hard_link(directory.file("swp1.pcap"), directory.file("page.html"));
  try {
    ReportFile const file(directory.file("page.html"), {directory.file("swp1.pcap")});
    ADD_FAILURE() << "it is";
  } catch (std::runtime_error const& error) {
    EXPECT_THAT(error.what(), HasSubstr("page.html would destroy "));
  }
  EXPECT_EQ(contents("swp1.pcap"), "captured");
}

TEST_F(ReportFileTest, ThatCannotBeMadeIsToldAtOnce) {
  EXPECT_THROW(ReportFile(directory.file("none/page.html"), {}), std::runtime_error);
  EXPECT_THROW(ReportFile(directory.file(""), {}), std::runtime_error);
}

}  // namespace
}  // namespace Agent
