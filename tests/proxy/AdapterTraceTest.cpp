#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Trace.h"
#include "proxy/ProxyAdapterSm.h"
#include "tests/TraceCapture.h"
#include "tests/proxy/SnoopedVlan.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;

using AdapterTrace = SnoopedVlan;

TEST_F(AdapterTrace, TellsTheWholeStoryOfOneListener) {
  proxyOn("up");
  TraceCapture trace = TraceCapture::ofEveryLevel();
  auto const reporter = port("swp1").reports(g1);
  EXPECT_THAT(trace.texts(),
              ElementsAre("9 KelIgmpGroup::handleInitialized",
                          "9 KelMembership::handleInitialized 10.0.0.1 intf swp1 group 239.1.1.1",
                          "4 KelIgmpIntf::handleStarG swp1 group 239.1.1.1 global starGCount 0",
                          "4 KelIgmpIntf::handleStarG Increment global *,G refcount",
                          "4 KelIgmpIntf::handleStarG Set host changed 1"));
  trace.clear();
  reporter.include({s1});
  EXPECT_THAT(
      trace.texts(),
      ElementsAre("9 KelMembership::handleFilterMode",
                  "4 KelIgmpIntf::processPort swp1 group 239.1.1.1 numMember 1",
                  "4 KelIgmpIntf::handleStarG swp1 group 239.1.1.1 global starGCount 1",
                  "4 KelIgmpIntf::handleStarG Decrement global *,G refcount",
                  "4 KelIgmpIntf::handleStarG Set host changed 0", "4 Add include 192.0.2.1",
                  "4 KelIgmpIntf::handleIncludeSource swp1 group 239.1.1.1",
                  "4 handleIncludeSource Increment global refcount s: 192.0.2.1",
                  "9 KelMembership::handleSource",
                  "4 KelIgmpIntf::processPort swp1 group 239.1.1.1 numMember 1",
                  "4 Add include 192.0.2.1"));
  trace.clear();
  publish();
  EXPECT_THAT(trace.texts(),
              ElementsAre("9 AdapterSm::updateIgmpHost", "4 AdapterSm::updateIgmpHost key Vlan10up",
                          "8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.1 hostKey Vlan10up",
                          "4 SplitHorizon Adding to include s: 192.0.2.1"));
  trace.clear();
  reporter.include({});
  publish();
  EXPECT_THAT(trace.texts(),
              ElementsAre("9 KelMembership::handleSource",
                          "4 KelIgmpIntf::processPort swp1 group 239.1.1.1 numMember 1",
                          "4 Delete old include 192.0.2.1",
                          "4 KelIgmpIntf::handleIncludeSource swp1 group 239.1.1.1",
                          "4 handleIncludeSource Decrement global refcount s: 192.0.2.1",
                          "9 AdapterSm::updateIgmpHost", "4 AdapterSm::updateIgmpHost key Vlan10up",
                          "8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.1 hostKey Vlan10up",
                          "4 SplitHorizon includes == 0"));
  trace.clear();
  status->groupDel(g1);
  EXPECT_THAT(trace.texts(), ElementsAre("9 KelIgmpGroup::handleDelete 239.1.1.1",
                                         "9 AdapterSm::clearGroup 239.1.1.1",
                                         "4 AdapterSm::clearGroup key Vlan10up"));
}

TEST_F(AdapterTrace, TellsTheWholeStoryOfAHost) {
  port("swp1").reports(g1).exclude({s1});
  publish();
  host("up");
  TraceCapture trace = TraceCapture::ofEveryLevel();
  config->hostKeyIs(key("up"), true);
  EXPECT_THAT(
      trace.texts(),
      ElementsAre("9 AdapterSm::newIgmpHost key Vlan10up",
                  "8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.1 hostKey Vlan10up",
                  "4 SplitHorizon exclude mode", "4 SplitHorizon Adding to exclude s: 192.0.2.1"));
  trace.clear();
  config->hostKeyDel(key("up"));
  EXPECT_THAT(trace.texts(), ElementsAre("9 AdapterSm::newIgmpHost key Vlan10up"));
}

TEST_F(AdapterTrace, GivesHandleSourceFileAndObjectWithEveryMessage) {
  TraceCapture const trace = TraceCapture::ofEveryLevel();
  adapter = nullptr;
  adapter = adapterSmFactory(vlanId, config, hosts, status);
  proxyOn("up");
  port("swp1").reports(g1).include({s1});
  publish();
  status->groupDel(g1);
  ASSERT_FALSE(trace.lines().empty());
  EXPECT_THAT(trace.lines(),
              Each(AllOf(Field(&TraceCapture::Line::handle, "IgmpSnoopingProxyAdapter"),
                         Field(&TraceCapture::Line::sourceFile, "ProxyAdapterSm"),
                         Field(&TraceCapture::Line::object, "<unknown>"))));
}

TEST_F(AdapterTrace, GivesTheHandlersShortNameWithEachMessage) {
  TraceCapture const trace = TraceCapture::ofEveryLevel();
  adapter = nullptr;
  adapter = adapterSmFactory(vlanId, config, hosts, status);
  for (auto const* const name : {"up", "swp1", "swp3"}) proxyOn(name);
  port("swp1").reports(g1, r1).exclude({s1, s2});
  port("swp1").reports(g1, r2).include({s1});
  port("swp2").reports(g1).include({s1, s2}).exclude({s3, s2});
  port("swp3").reports(g1).exclude({s3, s4}).include({s4}).include({s3, s4}).include({s4});
  publish();
  status->groupDel(g1);
  std::map<std::string, std::string> const handlerOfText{
      {"AdapterSm::handleInitialized", "handleInitialized"},
      {"AdapterSm::updateIgmpHost", "updateIgmpHost"},
      {"AdapterSm::newIgmpHost", "newIgmpHost"},
      {"AdapterSm::clearGroup", "clearGroup"},
      {"KelIgmpIntf::processSplitHorizon", "processSplitHorizon"},
      {"KelIgmpGroup::handleInitialized", "handleInitialized"},
      {"KelIgmpGroup::handleDelete", "handleDelete"},
      {"KelMembership::handleInitialized", "handleInitialized"},
      {"KelMembership::handleFilterMode", "handleFilterMode"},
      {"KelMembership::handleSource", "handleSource"},
      {"KelIgmpIntf::handleStarG", "handleStarG"},
      {"KelIgmpIntf::handleIncludeSource", "handleIncludeSource"},
      {"handleIncludeSource", "handleIncludeSource"},
      {"KelIgmpIntf::handleExcludeSource", "handleExcludeSource"},
      {"handleExcludeSource", "handleExcludeSource"},
      {"KelIgmpIntf::processPort", "processPort"},
      {"KelIgmpIntf::subtract", "subtract"},
  };
  std::set<std::string> seen;
  for (auto const& line : trace.lines()) {
    auto const entry =
        std::find_if(handlerOfText.begin(), handlerOfText.end(),
                     [&line](auto const& each) { return line.text.starts_with(each.first); });
    if (entry == handlerOfText.end()) continue;
    EXPECT_EQ(line.function, entry->second) << line.text;
    seen.insert(entry->first);
  }
  EXPECT_EQ(seen.size(), handlerOfText.size()) << "the story leaves a handler out";
}

TEST_F(AdapterTrace, GivesTheHandlersNameWithTheMessagesOfItsHelpersToo) {
  TraceCapture const trace = TraceCapture::ofEveryLevel();
  for (auto const* const name : {"up", "swp1", "swp3"}) proxyOn(name);
  port("swp1").reports(g1, r1).exclude({s1, s2});
  port("swp1").reports(g1, r2).include({s1});
  port("swp2").reports(g1).include({s1, s2}).exclude({s3, s2});
  port("swp3").reports(g1).exclude({s3, s4}).include({s4}).include({s3, s4}).include({s4});
  publish();
  port("swp1").reports(g2, r1).include({s1, s2});
  publish();
  port("swp1").reports(g2, r1).include({s2, s3});
  publish();
  port("swp1").reports(g2, r1).exclude({s2});
  publish();
  port("swp1").reports(g2, r2).exclude({s3});
  publish();
  port("swp1").reports(g2, r2).exclude({});
  publish();
  port("swp1").reports(g2, r1).include({});
  port("swp1").reports(g2, r2).include({});
  port("swp1").reports(g3).exclude({s1});
  port("swp3").reports(g3).include({s2});
  publish();
  std::map<std::string, std::string> const handlerOfText{
      {"SplitHorizon Put *,G into igmpHost", "processSplitHorizon"},
      {"SplitHorizon exclude mode", "processSplitHorizon"},
      {"SplitHorizon includes == 0", "processSplitHorizon"},
      {"SplitHorizon Removing old source", "processSplitHorizon"},
      {"SplitHorizon Adding to include", "processSplitHorizon"},
      {"SplitHorizon Adding to exclude", "processSplitHorizon"},
      {"AdapterSm::updateIgmpHost key", "updateIgmpHost"},
      {"processPort in exclude mode", "processPort"},
      {"Include case, delete any exclude", "processPort"},
      {"Delete old include", "processPort"},
      {"Add include", "processPort"},
      {"Start off by deleting include", "processPort"},
      {"All reporters want to exclude", "processPort"},
      {"Some reporter does not want to", "processPort"},
      {"Deleting include source from exclude", "processPort"},
      {"Deleting exclude list source", "processPort"},
      {"processPort: starGThere is true", "processPort"},
      {"subtract: all ports want to", "subtract"},
      {"subtract: some port wants", "subtract"},
      {"subtract: all ports except ours", "subtract"},
      {"subtract: some port does not", "subtract"},
      {"subtract: portInclude has", "subtract"},
      {"subtract: put it in include", "subtract"},
  };
  for (auto const& [text, handler] : handlerOfText) {
    bool seen = false;
    for (auto const& line : trace.lines()) {
      if (!line.text.starts_with(text)) continue;
      seen = true;
      EXPECT_EQ(line.function, handler) << line.text;
    }
    EXPECT_TRUE(seen) << "the story leaves out: " << text;
  }
}

TEST_F(AdapterTrace, LevelsThatAreOffWriteNothing) {
  TraceCapture const trace({});
  proxyOn("up");
  port("swp1").reports(g1).include({s1});
  publish();
  EXPECT_THAT(trace.lines(), IsEmpty());
}

TEST_F(AdapterTrace, EveryStatementCountsOnItsHandle) {
  Kel::TraceHandle& handle = Kel::traceHandle("IgmpSnoopingProxyAdapter");
  auto const before = handle.hits();
  adapter->clearGroup(g1);
  EXPECT_EQ(handle.hits() - before, 1u);
  TraceCapture const trace({});
  adapter->clearGroup(g1);
  EXPECT_EQ(handle.hits() - before, 3u) << "twice while the handle is enabled";
}

TEST_F(AdapterTrace, CoverageStreamGetsEveryLevelAndNoEvaluationIsSkipped) {
  port("swp1").reports(g1).exclude({s1});
  std::ostringstream coverage;
  Kel::TraceHandle::coverageStreamIs(&coverage);
  for (int i = 0; i < 2; ++i) intf("swp1")->portChangedInc(1);
  Kel::TraceHandle::coverageStreamIs(nullptr);
  std::string const text = coverage.str();
  char const* const evaluation = "All reporters want to exclude this source 192.0.2.1";
  auto const first = text.find(evaluation);
  ASSERT_NE(first, std::string::npos);
  EXPECT_NE(text.find(evaluation, first + 1), std::string::npos);
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
