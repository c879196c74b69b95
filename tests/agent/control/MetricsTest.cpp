#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/Log.h"
#include "agent/control/MetricsServer.h"
#include "agent/output/Counters.h"
#include "agent/text/Wording.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/SwitchTesting.h"
#include "tests/agent/control/ControlTesting.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::HasSubstr;
using testing::StartsWith;

/// Reads OpenMetrics text as strictly as its grammar, and fails the test at what is not of it.
class Exposition {
 public:
  explicit Exposition(std::string const& text) {
    std::istringstream lines(text);
    EXPECT_TRUE(text.ends_with("# EOF\n")) << text;
    for (std::string line; std::getline(lines, line);) {
      EXPECT_FALSE(ended_) << "after the end: " << line;
      if (line == "# EOF")
        ended_ = true;
      else if (line.starts_with("# "))
        readMetadata(line);
      else
        readSample(line);
    }
  }

  /// "name{labels}": the value, or nothing.
  std::string sample(std::string const& series) const {
    auto const found = samples_.find(series);
    return found == samples_.end() ? "none" : found->second;
  }
  std::set<std::string> const& labels() const { return labels_; }
  std::size_t size() const { return samples_.size(); }

 private:
  void readMetadata(std::string const& line) {
    static std::regex const metadata("# (TYPE|HELP|UNIT) ([a-zA-Z_:][a-zA-Z0-9_:]*) (.+)");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, metadata)) << line;
    if (match[2] != family_) {
      family_ = match[2];
      type_.clear();
      EXPECT_TRUE(families_.insert(family_).second) << "interleaved: " << line;
    }
    if (match[1] != "TYPE") return;
    EXPECT_TRUE(type_.empty()) << "twice: " << line;
    type_ = match[3];
    EXPECT_TRUE(type_ == "gauge" || type_ == "counter") << line;
  }

  void readSample(std::string const& line) {
    static std::regex const sample(
        R"re(([a-zA-Z_:][a-zA-Z0-9_:]*)(\{(.*)\})? ([0-9]+(\.[0-9]+)?))re");
    static std::regex const label(R"re(([a-zA-Z_][a-zA-Z0-9_]*)="(([^"\\\n]|\\["\\n])*)"(,|$))re");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, sample)) << line;
    EXPECT_EQ(match[1], family_ + (type_ == "counter" ? "_total" : "")) << line;
    std::string rest = match[3];
    std::set<std::string> own;
    while (!rest.empty()) {
      std::smatch each;
      ASSERT_TRUE(std::regex_search(rest, each, label, std::regex_constants::match_continuous))
          << line;
      EXPECT_TRUE(own.insert(each[1]).second) << line;
      labels_.insert(each[1]);
      rest = each.suffix();
    }
    std::string const series = match[1].str() + match[2].str();
    EXPECT_TRUE(samples_.emplace(series, match[4]).second) << "twice: " << line;
  }

  std::string family_;
  std::string type_;
  std::set<std::string> families_;
  std::set<std::string> labels_;
  std::map<std::string, std::string> samples_;
  bool ended_ = false;
};

class MetricsTest : public testing::Test {
 protected:
  TestClient connect() { return TestClient(test.loop, metrics.path()); }

  std::string scrape() {
    auto client = connect();
    client.hear();
    test.advance(300ms);
    return client.hear();
  }

  TemporaryDirectory directory;
  TestSwitch test{vlan10("swp[1-3]")};
  ControlServer control{test.loop, test.snooping, directory.file("control")};
  MetricsServer metrics{test.loop, test.snooping, control, directory.file("metrics")};
};

TEST_F(MetricsTest, TextIsOpenMetricsAndCounts) {
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  test.hear("swp1", FrameBuilder::reportV2(group).from(IpAddr(10, 0, 0, 2)));
  test.hear("swp2", FrameBuilder::reportV2(group).from(tv).ttl(2));
  test.hear("swp3", FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 254)));
  Exposition const read(scrape());
  EXPECT_EQ(read.sample(R"(igmpsnoop_groups{vlan="10"})"), "1");
  EXPECT_EQ(read.sample(R"(igmpsnoop_memberships{vlan="10",interface="swp1"})"), "2");
  EXPECT_EQ(read.sample(R"(igmpsnoop_memberships{vlan="10",interface="swp2"})"), "0");
  EXPECT_EQ(read.sample(R"(igmpsnoop_mrouter_ports{vlan="10"})"), "1");
  EXPECT_EQ(read.sample(R"(igmpsnoop_hosts{vlan="10"})"), "3");
  EXPECT_EQ(read.sample(R"(igmpsnoop_records{vlan="10",interface="swp2"})"), "1");
  EXPECT_EQ(
      read.sample(
          R"(igmpsnoop_messages_received_total{vlan="10",interface="swp1",type="membership-report-v2"})"),
      "2");
  EXPECT_EQ(read.sample(R"(igmpsnoop_ignored_total{vlan="10",interface="swp2",cause="bad-ttl"})"),
            "1");
  EXPECT_EQ(read.sample(R"(igmpsnoop_frames_dropped_total{interface="swp1"})"), "0");
  EXPECT_EQ(read.sample("igmpsnoop_clients"), "0");
}

TEST_F(MetricsTest, AgentTellsHowLongItHeldEverythingUp) {
  scrape();
  Exposition const read(scrape());
  EXPECT_EQ(read.sample("igmpsnoop_longest_turn_seconds"), "0") << "time stands still in a turn";
  EXPECT_NE(read.sample("igmpsnoop_turns_total"), "0");
  EXPECT_EQ(read.sample("igmpsnoop_log_lines_lost_total"), std::to_string(lostLogLines()));
}

TEST_F(MetricsTest, WhatIsSentAndWhoIsServedIsCounted) {
  TestSwitch querying(
      vlan10("swp[1-2]", "robustness-variable = 1\nsend-query = true\nreport-on = \"all\"\n"));
  ControlServer const server(querying.loop, querying.snooping, directory.file("querying"),
                             {.clients = 1});
  MetricsServer const scraped(querying.loop, querying.snooping, server, directory.file("scraped"));
  querying.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  querying.hear("swp1", FrameBuilder::reportV2(group).from(tv).vlan(99));
  TestClient served(querying.loop, server.path());
  served.say(R"({"command":"monitor"})"
             "\n");
  served.hear();
  TestClient(querying.loop, server.path()).hear();
  TestClient client(querying.loop, scraped.path());
  client.hear();
  querying.advance(300ms);
  Exposition const read(client.hear());
  EXPECT_EQ(read.sample(R"(igmpsnoop_querier{vlan="10"})"), "1");
  EXPECT_EQ(read.sample(R"(igmpsnoop_queries_sent_total{vlan="10",type="general"})"), "2");
  EXPECT_EQ(read.sample(R"(igmpsnoop_queries_sent_total{vlan="10",type="group"})"), "0");
  EXPECT_EQ(
      read.sample(
          R"(igmpsnoop_messages_sent_total{vlan="10",interface="swp2",type="membership-report-v3"})"),
      "1");
  EXPECT_EQ(
      read.sample(
          R"(igmpsnoop_messages_sent_total{vlan="10",interface="swp1",type="membership-report-v3"})"),
      "0");
  EXPECT_EQ(
      read.sample(R"(igmpsnoop_ignored_total{vlan="none",interface="swp1",cause="not-in-vlan"})"),
      "1");
  EXPECT_EQ(read.sample(R"(igmpsnoop_frames_received_total{interface="swp1"})"), "2");
  EXPECT_EQ(read.sample("igmpsnoop_clients"), "1");
  EXPECT_EQ(read.sample(R"(igmpsnoop_connections_total{outcome="accepted"})"), "1");
  EXPECT_EQ(read.sample(R"(igmpsnoop_connections_total{outcome="refused"})"), "1");
}

TEST_F(MetricsTest, EveryCountOfADeviceHasAFamily) {
  Exposition const read(scrape());
  for (auto const& counter : deviceFrames)
    EXPECT_EQ(read.sample(message("igmpsnoop_", counter.metric, "_total{interface=\"swp1\"}")),
              "0");
}

TEST_F(MetricsTest, NoLabelTellsGroupsSourcesOrHosts) {
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  EXPECT_THAT(Exposition(scrape()).labels(),
              testing::IsSubsetOf({"vlan", "interface", "type", "cause", "outcome"}));
}

TEST_F(MetricsTest, NamesOfInterfacesAreEscaped) {
  TestSwitch odd(vlan10(R"(od\"d\\\u00fc)"));
  ControlServer const server(odd.loop, odd.snooping, directory.file("odd"));
  MetricsServer const scraped(odd.loop, odd.snooping, server, directory.file("odd-metrics"));
  TestClient client(odd.loop, scraped.path());
  client.hear();
  odd.advance(300ms);
  Exposition const read(client.hear());
  EXPECT_EQ(read.sample(R"(igmpsnoop_memberships{vlan="10",interface="od\"d\\\\xc3\\xbc"})"), "0");
}

std::string bodyOf(std::string const& response) {
  auto const body = response.find("\r\n\r\n");
  return body == std::string::npos ? "no body" : response.substr(body + 4);
}

TEST_F(MetricsTest, WhoAcceptsOpenMetricsGetsItOverHttp) {
  std::string const response = connect()
                                   .say(
                                       "GET /metrics HTTP/1.1\r\nHost: x\r\n"
                                       "aCCEPT: application/openmetrics-text;version=1.0.0,"
                                       "text/plain;version=0.0.4;q=0.5\r\n\r\n")
                                   .hear();
  EXPECT_THAT(response, StartsWith("HTTP/1.0 200 OK\r\nContent-Type: application/openmetrics-text; "
                                   "version=1.0.0; charset=utf-8\r\n"));
  EXPECT_GT(Exposition(bodyOf(response)).size(), 10u);
}

TEST_F(MetricsTest, OthersGetTheOlderTextOverHttp) {
  std::string const response = connect().say("GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n").hear();
  EXPECT_THAT(response, StartsWith("HTTP/1.0 200 OK\r\nContent-Type: text/plain; version=0.0.4"));
  EXPECT_THAT(response, HasSubstr("\n# TYPE igmpsnoop_turns_total counter\n"
                                  "# HELP igmpsnoop_turns_total Turns of the event loop.\n"
                                  "igmpsnoop_turns_total "));
  EXPECT_THAT(response, testing::Not(HasSubstr("# EOF")));
}

TEST_F(MetricsTest, HeadGetsTheHeadingAlone) {
  std::string const response = connect().say("HEAD /metrics HTTP/1.1\r\nHost: x\r\n\r\n").hear();
  EXPECT_THAT(response, StartsWith("HTTP/1.0 200 OK\r\n"));
  EXPECT_EQ(bodyOf(response), "");
}

TEST_F(MetricsTest, OtherPathsAreNotFound) {
  for (char const* const path :
       {"/", "/metrics/", "/metric", "/metrics2", "http://x", "/?/metrics"})
    EXPECT_THAT(connect().say(message("GET ", path, " HTTP/1.1\r\n\r\n")).hear(),
                StartsWith("HTTP/1.0 404 "))
        << path;
  EXPECT_EQ(bodyOf(connect().say("HEAD / HTTP/1.1\r\n\r\n").hear()), "");
}

TEST_F(MetricsTest, QueriesAndAbsoluteTargetsAreUnderstood) {
  for (char const* const target : {"/metrics?", "/metrics?name=x/y", "http://x:1/metrics"})
    EXPECT_THAT(connect().say(message("GET ", target, " HTTP/1.1\r\n\r\n")).hear(),
                StartsWith("HTTP/1.0 200 "))
        << target;
}

TEST_F(MetricsTest, OtherMethodsAreRefused) {
  std::string const response = connect().say("POST /metrics HTTP/1.1\r\n\r\n").hear();
  EXPECT_THAT(response, StartsWith("HTTP/1.0 405 "));
  EXPECT_THAT(response, HasSubstr("\r\nAllow: GET, HEAD\r\n"));
}

TEST_F(MetricsTest, WhatIsNoHttpIsABadRequest) {
  for (char const* const text : {"hello\n\n", "GET\r\n\r\n", "GET /metrics\r\n\r\n", "\r\n\r\n",
                                 "GET metrics HTTP/1.1\r\n\r\n", "GET /metrics HTTP/2\r\n\r\n"})
    EXPECT_THAT(connect().say(text).hear(), StartsWith("HTTP/1.0 400 ")) << text;
}

TEST_F(MetricsTest, EndlessHeadersAreCutShort) {
  std::string request = "GET /metrics HTTP/1.1\r\n";
  while (request.size() < 5000) request += "X: y\r\n";
  auto client = connect().say(request);
  EXPECT_THAT(client.hear(), StartsWith("HTTP/1.0 503 "));
  EXPECT_TRUE(client.ended());
}

TEST_F(MetricsTest, HalfAnHttpRequestGoesUnanswered) {
  auto client = connect().say("GET / HT");
  client.hear();
  test.advance(300ms);
  EXPECT_EQ(client.hear(), "");
  EXPECT_TRUE(client.ended());
}

TEST_F(MetricsTest, ManyMembershipsAreCountedInManyTurns) {
  test.snooping.configurationIs(configurationIn(withoutLimits(vlan10("swp[1-3]"))));
  for (std::uint32_t i = 0; i < 5000; ++i)
    test.hearOnly("swp1", FrameBuilder::reportV2(IpAddr(group.value() + i)).from(tv));
  test.loop.endBatch();
  auto client = connect().say("GET /metrics HTTP/1.1\r\n\r\n");
  EXPECT_THAT(client.hear(),
              HasSubstr(R"(igmpsnoop_memberships{vlan="10",interface="swp1"} 5000)"));
}

}  // namespace
}  // namespace Agent
