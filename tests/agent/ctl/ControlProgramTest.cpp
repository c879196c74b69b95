#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/compare/Comparison.h"
#include "agent/control/ControlServer.h"
#include "agent/text/Wording.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/SwitchTesting.h"
#include "tests/agent/control/ControlTesting.h"
#include "tests/agent/replay/CaptureTesting.h"

/// Runs the real igmpsnoopctl against a server in this process.
namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

constexpr IpAddr watched{239, 9, 9, 9};

class ControlProgramTest : public testing::Test {
 protected:
  struct Outcome {
    int status;
    std::string out;
    std::string err;
  };

  /// @param arguments as a shell reads them.
  /// @param meanwhile is called again and again while the program runs.
  Outcome run(
      std::string const& arguments, std::function<void()> const& meanwhile = [] {}) {
    Outcome outcome{};
    std::atomic<bool> done = false;
    std::thread program([&] {
      std::string const command = std::string("{ ") + IGMPSNOOPCTL + " --socket " + path + " " +
                                  arguments + "; } 2>" + directory.file("err");
      FILE* const pipe = popen(command.c_str(), "r");
      char bytes[4096];
      while (std::size_t const count = fread(bytes, 1, sizeof bytes, pipe))
        outcome.out.append(bytes, count);
      int const status = pclose(pipe);
      outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      done = true;
    });
    while (!done) {
      test.loop.turn(test.loop.now() + 5ms);
      meanwhile();
    }
    program.join();
    std::ostringstream err;
    err << std::ifstream(directory.file("err")).rdbuf();
    outcome.err = err.str();
    return outcome;
  }

  /// What a monitor prints of a membership that is added, changed and removed.
  std::vector<std::string> monitored(std::string const& arguments) {
    test.hear("swp3", FrameBuilder::reportV2(watched).from(tv));
    auto const record = test.snooping.entities().hosts->igmpHost("Vlan10swp1")->v3group(watched);
    bool changed = false;
    auto const outcome = run(arguments + " | head -n 9", [&] {
      if (changed || !record->watched()) return;
      changed = true;
      for (Record const& each : {isIn(group, {a}), isIn(group, {a, b}), toIn(group)})
        test.hear("swp1", FrameBuilder::reportV3({each}).from(tv));
    });
    std::vector<std::string> lines;
    std::istringstream text(outcome.out);
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }

  std::string out(std::string const& arguments) {
    Outcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    if (arguments.ends_with("-j")) return outcome.out;
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 100u) << line;
    return outcome.out;
  }

  TemporaryDirectory directory;
  std::string path = directory.file("control");
  TestSwitch test{vlan10("swp[1-3]"), Kel::make<Horix::MonotonicClock>()};
  std::unique_ptr<ControlServer> server =
      std::make_unique<ControlServer>(test.loop, test.snooping, path);
};

TEST_F(ControlProgramTest, ShowsTables) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  EXPECT_EQ(out("show vlans"),
            "VLAN  PROXIED  QUERIER  PORTS  GROUPS  MEMBERS  MROUTERS\n"
            "  10  yes      off          3       1        1  -\n");
  EXPECT_EQ(out("show interfaces"),
            "INTERFACE  STATE  DIRECTION   MTU  VLANS\n"
            "swp1       up     both       1500  10\n"
            "swp2       up     both       1500  10\n"
            "swp3       up     both       1500  10\n");
  EXPECT_THAT(
      out("show hosts --interface swp2"),
      MatchesRegex("Records at [0-9]+\\.[0-9]*[1-9][0-9]* s\n"
                   "\n"
                   "VLAN  INTERFACE  IGMP  BLOCKED  DIRECTION  GROUP      MODE     SOURCES\n"
                   "  10  swp2          3  no       both       239.1.1.1  include  192.0.2.1\n"));
  EXPECT_THAT(out("show groups"), HasSubstr("  10  239.1.1.1  swp1       10.0.0.1"));
  EXPECT_EQ(out("show mrouters"), "There are no mrouters to show.\n");
}

TEST_F(ControlProgramTest, ShowsTheOneReasonWhyAnInterfaceIsNotInUse) {
  test.snooping.configurationIs(configurationIn(R"(
    [[interface]]
    name = "swp[1-4]"
    [[interface]]
    name = "swp5"
    blocked = true
    [[interface]]
    name = "swp6"
    direction = "ingress"
    [[interface]]
    name = "swp7"
    direction = "none"
    [[interface]]
    name = "swp8"
    [[vlan]]
    id = 10
    interfaces = ["swp[1-7]"]
  )"));
  for (char const* const name : {"swp4", "swp5", "swp6", "swp7", "swp8"})
    test.snooping.interfaceStateIs(Wirex::IntfId(name), operationalInterface());
  InterfaceState state = operationalInterface();
  state.forwarding = false;
  test.snooping.interfaceStateIs(Wirex::IntfId("swp3"), state);
  state.carrier = false;
  test.snooping.interfaceStateIs(Wirex::IntfId("swp2"), state);
  test.snooping.interfaceStateIs(Wirex::IntfId("swp1"), {});
  EXPECT_EQ(
      out("show interfaces"),
      "INTERFACE  STATE           DIRECTION   MTU  VLANS\n"
      "swp1       absent          both          0  10\n"
      "swp2       no carrier      both       1500  10\n"
      "swp3       not forwarding  both       1500  10\n"
      "swp4       up              both       1500  10\n"
      "swp5       blocked         both       1500  10\n"
      "swp6       one way         ingress    1500  10\n"
      "swp7       closed          none       1500  10\n"
      "swp8       no vlan         both       1500  -\n"
      "\n"
      "swp1: absent: the system has no interface of this name; create it, or mend the name.\n"
      "swp2: no carrier: it is down, or nothing answers at the other end of its cable.\n"
      "swp3: not forwarding: its bridge keeps it from forwarding (spanning tree); the bridge's own "
      "tools\nsay why.\n"
      "swp5: blocked: its configuration says blocked = true.\n"
      "swp6: one way: its configuration says direction = \"ingress\": its hosts are silent.\n"
      "swp7: closed: its configuration says direction = \"none\".\n"
      "swp8: no vlan: no [[vlan]] names it; add it to interfaces or tagged-interfaces of one.\n");
  auto const list = nlohmann::json::parse(out("show interfaces -j")).at("interfaces");
  EXPECT_EQ(list.at(1).at("state"), "no-carrier");
  EXPECT_EQ(list.at(3).at("state"), "up");
  EXPECT_FALSE(list.at(3).contains("because"));
}

TEST_F(ControlProgramTest, InterfacesWithTheSameReasonShareALine) {
  test.snooping.configurationIs(
      configurationIn("[[interface]]\nname = \"swp[1-3]\"\nblocked = true\n"));
  EXPECT_THAT(
      out("show interfaces"),
      EndsWith("\n\nswp1, swp2 and swp3: blocked: its configuration says blocked = true.\n"));
}

TEST_F(ControlProgramTest, ShowsPrivateRolesAndTheirPartners) {
  test.snooping.configurationIs(configurationIn(R"(
    [[interface]]
    name = "swp[1-3]"
    [[vlan]]
    id = 10
    querier = { igmp-version = 3 }
    interfaces = ["swp1"]
    [[vlan]]
    id = 20
    private = { type = "isolated", primary = 10 }
    querier = { igmp-version = 3 }
    interfaces = ["swp2"]
    [[vlan]]
    id = 30
    private = { type = "community", primary = 10 }
    querier = { igmp-version = 3 }
    interfaces = ["swp3"]
    [[vlan]]
    id = 40
  )"));
  EXPECT_EQ(
      out("show vlans"),
      "VLAN  PRIVATE            PROXIED                   QUERIER  PORTS  GROUPS  MEMBERS  "
      "MROUTERS\n"
      "  10  primary of 20, 30  yes                       off          1       0        0  -\n"
      "  20  isolated in 10     yes                       off          1       0        0  -\n"
      "  30  community in 10    yes                       off          1       0        0  -\n"
      "  40  -                  no-querier-configuration  off          0       0        0  -\n");
  auto const list = nlohmann::json::parse(out("show vlans -j")).at("vlans");
  EXPECT_EQ(list.at(0).at("private-type"), "primary");
  EXPECT_EQ(list.at(0).at("secondary-vlan"), (std::vector{20, 30}));
  EXPECT_EQ(list.at(2).at("private-type"), "community");
  EXPECT_EQ(list.at(2).at("primary-vlan"), 10);
  EXPECT_FALSE(list.at(3).contains("private-type"));
}

TEST_F(ControlProgramTest, UnknownNamesAreRefusedAlikeByEveryCommand) {
  test.snooping.configurationIs(
      configurationIn("[[interface]]\nname = \"swp[1-3]\"\n[[vlan]]\nid = \"10,20-29\"\n"
                      "tagged-interfaces = [\"swp[1-3]\"]\n"));
  for (std::string const what :
       {"vlans", "interfaces", "groups", "hosts", "mrouters", "statistics"}) {
    EXPECT_EQ(run("show " + what + " --vlan 99").err,
              "igmpsnoopctl: VLAN 99 is not configured; there are 10 and 20-29\n");
    EXPECT_EQ(
        run("show " + what + " --interface swp4").err,
        "igmpsnoopctl: interface \"swp4\" is not configured; there are swp1, swp2 and swp3\n");
  }
  for (std::string const command :
       {"explain --interface swp1 --group 239.1.1.1", "clear groups", "monitor"}) {
    auto const outcome = run(command + " --vlan 30");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "igmpsnoopctl: VLAN 30 is not configured; there are 10 and 20-29\n");
  }
}

TEST_F(ControlProgramTest, OfManyInterfacesTheOneThatWasMeantIsNamed) {
  test.snooping.configurationIs(configurationIn("[[interface]]\nname = \"swp[1-48]\"\n"));
  EXPECT_EQ(run("show groups --interface Swp48").err,
            "igmpsnoopctl: interface \"Swp48\" is not configured; did you mean swp48?\n");
  EXPECT_THAT(run("show groups --interface lan-of-the-east").err,
              HasSubstr("there are swp1, swp2, swp3, swp4, swp5, swp6, swp7, swp8, swp9, swp10, "
                        "swp11, swp12, swp13, swp14, swp15, swp16 and 32 more\n"));
}

TEST_F(ControlProgramTest, TraceWithoutLevelsListsThem) {
  out("trace IgmpSnoopingProxyAdapter 0,4-9");
  EXPECT_THAT(out("trace"), StartsWith("HANDLE "));
  EXPECT_THAT(out("trace"), MatchesRegex("(.|\n)*\nIgmpSnoopingProxyAdapter +0,4-9\n(.|\n)*"));
  EXPECT_EQ(out("trace IgmpSnoopingProxyAdapter"),
            "HANDLE                    LEVELS\nIgmpSnoopingProxyAdapter  0,4-9\n");
  EXPECT_EQ(nlohmann::json::parse(out("trace IgmpSnoopingProxyAdapter -j"))
                .at("trace")
                .at(0)
                .at("levels"),
            "0,4-9");
  out("trace IgmpSnoopingProxyAdapter none");
  EXPECT_THAT(out("trace IgmpSnoopingProxyAdapter"), HasSubstr("Adapter  none\n"));
  EXPECT_THAT(run("trace Nothing").err, HasSubstr("there is no trace handle \"Nothing\", but "));
}

TEST_F(ControlProgramTest, ShowsStatisticsAsTables) {
  test.snooping.configurationIs(configurationIn(sendingOnce()));
  haveSent(test);
  test.hear("swp2", FrameBuilder::reportV2(group).ttl(2));
  std::string const statistics = out("show statistics");
  std::size_t const ofAgent = statistics.find("\nAgent\n");
  EXPECT_EQ(statistics.substr(0, ofAgent),
            "Received\n"
            "\n"
            "VLAN  INTERFACE  QUERIES  V1  V2  V3  LEAVES  HELLOS\n"
            "  10  swp1             0   0   1   3       1       0\n"
            "  10  swp2             0   0   1   0       1       0\n"
            "  10  swp3             1   0   0   0       0       0\n"
            "\n"
            "Ignored\n"
            "\n"
            "VLAN  INTERFACE  IGNORED  CAUSE\n"
            "  10  swp2             1  bad-ttl\n"
            "\n"
            "Reported by hosts\n"
            "\n"
            "VLAN  INTERFACE  V1  V2  V3  RECORDS  LEAVES\n"
            "  10  swp1        0   0   0        0       0\n"
            "  10  swp2        0   1   2        3       1\n"
            "  10  swp3        0   1   2        3       1\n"
            "\n"
            "Queries sent\n"
            "\n"
            "VLAN  GENERAL  GROUP  SOURCE\n"
            "  10        3      2       1\n"
            "\n"
            "Devices\n"
            "\n"
            "INTERFACE  RECEIVED  DROPPED  TRUNCATED  FAILED  SENT  NOT SENT\n"
            "swp1              5        0          0       0     3         0\n"
            "swp2              3        0          0       0     6         0\n"
            "swp3              1        0          0       0     5         0\n");
  EXPECT_THAT(statistics.substr(std::min(ofAgent, statistics.size())),
              MatchesRegex("\nAgent\n\nTURNS  LONGEST MS  LOG LOST  REFUSED\n +[0-9]+ "
                           "+[0-9]+\\.[0-9] +[0-9]+ +-\n"));
}

TEST_F(ControlProgramTest, WhatIsNotShownIsNotDenied) {
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  EXPECT_THAT(out("show hosts --interface swp1"), EndsWith("\n\nThere are no records to show.\n"))
      << "somebody listens, but on swp1 itself";
  test.snooping.configurationIs(configurationIn("[[vlan]]\nid = 10\n"));
  EXPECT_EQ(out("show hosts --vlan 10"), "There are no hosts to show.\n");
  EXPECT_THAT(out("show hosts"), HasSubstr("There are no hosts: each takes an interface"));
}

TEST_F(ControlProgramTest, HostsAsJsonAreInTheFormatOfAReplay) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  test.hear("swp1", FrameBuilder::reportV2(IpAddr(239, 0, 0, 1)).from(tv));
  auto const document = nlohmann::ordered_json::parse(out("show hosts -j"));
  EXPECT_TRUE(document.at("time").is_number());
  EXPECT_EQ(document.at("hosts").size(), 3u);
  EXPECT_EQ(document.at("hosts").at(1).dump(),
            R"({"name":"Vlan10swp2","vlan":10,"interface":"swp2","igmp-version":3,)"
            R"("blocked":false,"direction":"both","source-address":"0.0.0.0","group":[)"
            R"({"address":"239.0.0.1","filter-mode":"exclude","source":[]},)"
            R"({"address":"239.1.1.1","filter-mode":"include","source":["192.0.2.1"]}]})");
}

TEST_F(ControlProgramTest, AgentIsComparedWithWhatItSaidBefore) {
  auto const before = Json::parse(out("show hosts -j"));
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  auto asked = std::async(std::launch::async, [this] { return comparedStateOf("ctl:" + path); });
  while (asked.wait_for(0s) != std::future_status::ready) test.loop.turn(test.loop.now() + 5ms);
  ComparedState const now = asked.get();
  EXPECT_THAT(now.lists, ElementsAre("hosts", "groups", "mrouters"));
  auto const comparison = compared(comparedStateIn(before), now);
  ASSERT_THAT(comparison.differences, SizeIs(2));
  EXPECT_EQ(comparison.differences[0].place.interface, "swp2");
  EXPECT_EQ(comparison.differences[0].a, std::nullopt);
  EXPECT_EQ(comparison.differences[0].b, message("include ", a));
}

TEST_F(ControlProgramTest, ShowsVersionUptimeAndConfiguration) {
  ConfigurationState configuration("switch.toml");
  server->configurationStateIs(configuration);
  std::string const date = "[0-9-]+ [0-9:]+ [+-][0-9:]+";
  std::string const whole = "igmpsnoopd [0-9.]+\nRunning for [0-9]+ s, since " + date + "; it is " +
                            date + " now.\nConfiguration switch.toml, in use since " + date +
                            "\\.\n";
  EXPECT_THAT(out("show version"), MatchesRegex(whole));
  EXPECT_THAT(out("show statistics"), MatchesRegex("(.|\n)*LOG LOST  REFUSED\n[^\n]* 0\n"));
  configuration.wasRefused("switch.toml:1:1: unknown key");
  EXPECT_THAT(out("show version"), MatchesRegex(whole + "Read again at " + date +
                                                " and refused: switch.toml:1:1: unknown key\n"));
  auto const document = nlohmann::json::parse(out("show version -j")).at("version").at(0);
  EXPECT_EQ(document.at("configuration").at("state"), "refused");
  EXPECT_THAT(out("metrics"), HasSubstr("igmpsnoop_configuration_refused 1\n"));
  EXPECT_THAT(out("metrics"), HasSubstr("igmpsnoop_configuration_refusals_total 1\n"));
  configuration.taken();
  EXPECT_THAT(out("metrics"), HasSubstr("igmpsnoop_configuration_refused 0\n"));
}

TEST_F(ControlProgramTest, ShowsSinceWhen) {
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  test.hear("swp2", FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 254)));
  std::string const when = "([0-9:]{8}|[0-9-]{5} [0-9:]{5}|[0-9-]{10})";  // about midnight, too
  EXPECT_THAT(out("show groups"),
              MatchesRegex("VLAN  GROUP      INTERFACE  REPORTER  SINCE [^\n]*\n"
                           "  10  239.1.1.1  swp1       10.0.0.1  " +
                           when + " +[0-9]+ s  exclude  -\n"));
  EXPECT_THAT(out("show mrouters"), MatchesRegex("VLAN  INTERFACE  SINCE [^\n]*\n"
                                                 "  10  swp2       " +
                                                 when + " +no .*\n"));
  std::string const iso = "[0-9-]{10}T[0-9:]{8}[+-][0-9:]{5}";
  auto const groups = nlohmann::json::parse(out("show groups -j"));
  EXPECT_THAT(groups.at("date").get<std::string>(), MatchesRegex(iso));
  EXPECT_THAT(groups.at("groups").at(0).at("since").get<std::string>(), MatchesRegex(iso));
  auto const routers = nlohmann::json::parse(out("show mrouters -j"));
  EXPECT_THAT(routers.at("mrouters").at(0).at("since").get<std::string>(), MatchesRegex(iso));
  test.snooping.leave();
  auto const hosts = nlohmann::json::parse(out("show hosts -j --interface swp2"));
  EXPECT_THAT(hosts.at("hosts").at(0).at("last-sent").get<std::string>(), MatchesRegex(iso));
}

TEST_F(ControlProgramTest, HostsAreShownWithTheVersionThatTheySpeak) {
  test.hear("swp2", FrameBuilder::queryV2({}, 10).from(IpAddr(10, 0, 0, 254)));
  EXPECT_THAT(out("show hosts"), HasSubstr("  10  swp2       2, not 3  no "));
  auto const document = nlohmann::json::parse(out("show hosts -j --interface swp2"));
  EXPECT_EQ(document.at("hosts").at(0).at("igmp-version"), 3);
  EXPECT_EQ(document.at("hosts").at(0).at("spoken-igmp-version"), 2);
}

TEST_F(ControlProgramTest, WritesTheReportPage) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  EXPECT_EQ(out("report " + directory.file("page.html")), "");
  std::ostringstream page;
  page << std::ifstream(directory.file("page.html")).rdbuf();
  EXPECT_THAT(page.str(), HasSubstr("A running agent, "));
  EXPECT_THAT(page.str(), HasSubstr("239.1.1.1: swp2 reports only 192.0.2.1, from swp1."));
  EXPECT_THAT(page.str(), HasSubstr("hosts send from 0.0.0.0: swp1, swp2, swp3."));
  EXPECT_THAT(page.str(), HasSubstr("</html>"));
}

TEST_F(ControlProgramTest, ExplainsInTextAndJson) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  std::string const of = "explain --vlan 10 --interface swp2 --group 239.1.1.1";
  EXPECT_THAT(out(of),
              StartsWith("The host on swp2 in VLAN 10 would report 239.1.1.1: 192.0.2.1 "));
  EXPECT_EQ(nlohmann::json::parse(out(of + " -j")).at("rule"), "inclusion");
}

TEST_F(ControlProgramTest, ClearsAndTracesInSilence) {
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  EXPECT_EQ(out("clear groups"), "");
  EXPECT_EQ(out("show groups"), "There are no memberships to show.\n");
  EXPECT_EQ(out("trace IgmpSnoopingProxyAdapter none"), "");
}

TEST_F(ControlProgramTest, MetricsAreTextThatCollectorsTake) {
  std::string const text = out("metrics");
  EXPECT_THAT(text, HasSubstr("# TYPE igmpsnoop_turns_total counter\n"));
  if (std::system("command -v promtool >/dev/null") != 0)
    GTEST_SKIP() << "'promtool' is missing: apt-get install prometheus";
  std::string const file = directory.file("igmpsnoop.prom");
  std::ofstream(file) << text;
  EXPECT_EQ(std::system(("promtool check metrics <" + file).c_str()), 0);
}

TEST_F(ControlProgramTest, LargeAnswersComeWholeAndSorted) {
  test.snooping.configurationIs(configurationIn(withoutLimits(vlan10("swp[1-3]"))));
  for (std::uint32_t i = 3000; i-- > 0;)
    test.hearOnly("swp1", FrameBuilder::reportV2(IpAddr(group.value() + i)).from(tv));
  test.loop.endBatch();
  auto const groups = nlohmann::json::parse(out("show groups -j")).at("groups");
  ASSERT_EQ(groups.size(), 3000u);
  EXPECT_EQ(groups.front().at("address"), "239.1.1.1");
  EXPECT_EQ(groups.back().at("address"), "239.1.12.184");
}

TEST_F(ControlProgramTest, HostsAreSortedByVlanAndThenByInterfaceInNaturalOrder) {
  test.snooping.configurationIs(configurationIn(R"(
    [[interface]]
    name = "swp[2,10]"
    [[vlan]]
    id = 20
    querier = { igmp-version = 3 }
    interfaces = ["swp[2,10]"]
    [[vlan]]
    id = 100
    querier = { igmp-version = 3 }
    tagged-interfaces = ["swp[2,10]"]
  )"));
  test.snooping.interfaceStateIs(Wirex::IntfId("swp10"), operationalInterface());
  std::vector<std::string> names;
  auto const document = nlohmann::json::parse(out("show hosts -j"));
  for (auto const& host : document.at("hosts")) names.push_back(host.at("name"));
  EXPECT_THAT(names, ElementsAre("Vlan20swp2", "Vlan20swp10", "Vlan100swp2", "Vlan100swp10"));
  EXPECT_THAT(out("show hosts"), HasSubstr("\n"
                                           "  20  swp2          3  no       both       -\n"
                                           "  20  swp10         3  no       both       -\n"
                                           " 100  swp2          3  no       both       -\n"
                                           " 100  swp10         3  no       both       -\n"));
}

TEST_F(ControlProgramTest, MonitorTellsChangesInWords) {
  std::vector<std::string> lines = monitored("monitor");
  ASSERT_THAT(lines, SizeIs(9));
  for (std::string& line : lines) {
    EXPECT_THAT(line, MatchesRegex("[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} .*"));
    line.erase(0, line.find(' ') + 1);
  }
  EXPECT_EQ(lines[0], "vlan 10 swp1 239.1.1.1 membership of 10.0.0.1 added: include 192.0.2.1");
  EXPECT_EQ(lines[4],
            "vlan 10 swp2 239.1.1.1 record changed: include 192.0.2.1, 192.0.2.2 "
            "(was include 192.0.2.1)");
  EXPECT_EQ(lines[6],
            "vlan 10 swp1 239.1.1.1 membership of 10.0.0.1 removed "
            "(was include 192.0.2.1, 192.0.2.2)");
}

TEST_F(ControlProgramTest, MonitorTellsChangesAsObjects) {
  std::vector<std::string> lines = monitored("monitor -j");
  ASSERT_THAT(lines, SizeIs(9));
  for (std::string& line : lines) {
    auto object = nlohmann::ordered_json::parse(line);
    EXPECT_TRUE(object.at("time").is_number());
    object.erase("time");
    EXPECT_THAT(object.at("date").get<std::string>(), MatchesRegex("[0-9-]{10}T[0-9:.]{15}.*"));
    object.erase("date");
    line = object.dump();
  }
  EXPECT_EQ(lines[0], R"({"event":"membership","vlan":10,"interface":"swp1","address":"239.1.1.1",)"
                      R"("host":"10.0.0.1","change":"added",)"
                      R"("new":{"filter-mode":"include","source":["192.0.2.1"]}})");
  EXPECT_EQ(lines[4], R"({"event":"record","name":"Vlan10swp2","vlan":10,"interface":"swp2",)"
                      R"("address":"239.1.1.1","change":"changed",)"
                      R"("old":{"filter-mode":"include","source":["192.0.2.1"]},)"
                      R"("new":{"filter-mode":"include","source":["192.0.2.1","192.0.2.2"]}})");
  EXPECT_EQ(lines[6], R"({"event":"membership","vlan":10,"interface":"swp1","address":"239.1.1.1",)"
                      R"("host":"10.0.0.1","change":"removed",)"
                      R"("old":{"filter-mode":"include","source":["192.0.2.1","192.0.2.2"]}})");
}

TEST_F(ControlProgramTest, WhatTheAgentRefusesIsOneLine) {
  auto const outcome = run("clear groups --vlan 99");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "igmpsnoopctl: VLAN 99 is not configured; there is 10\n");
}

TEST_F(ControlProgramTest, NoAgentIsToldWithHowToStartOne) {
  server.reset();
  auto const outcome = run("show vlans");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, StartsWith("igmpsnoopctl: no igmpsnoopd listens on " + path));
  EXPECT_THAT(outcome.err, HasSubstr("igmpsnoopd live --config FILE"));
  EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1);
}

TEST_F(ControlProgramTest, SocketsBesideOneThatNobodyListensOnAreNamed) {
  path = directory.file("other");
  EXPECT_THAT(run("show vlans").err, EndsWith("; beside it there is control\n"));
}

TEST_F(ControlProgramTest, WatchAsksAgainAndAgainUntilNobodyReads) {
  auto const outcome = run("show vlans --watch 0.1 | head -n 9");
  EXPECT_EQ(outcome.status, 0);
  std::string const once =
      "VLAN  PROXIED  QUERIER  PORTS  GROUPS  MEMBERS  MROUTERS\n"
      "  10  yes      off          3       0        0  -\n"
      "\n";
  EXPECT_EQ(outcome.out, once + once + once);
}

TEST_F(ControlProgramTest, EarlyErrorsOfAllCommandsAreOneLineInTheProgramsName) {
  path = directory.file("none");
  for (char const* const arguments :
       {"", "show", "listen", "explain", "show groups",
        "explain --vlan 10 --interface swp1 --group 239.1.1.1", "monitor", "report page.html",
        "clear groups", "trace", "trace Snooping 0-9", "restart", "metrics"}) {
    auto const outcome = run(arguments);
    EXPECT_NE(outcome.status, 0) << arguments;
    EXPECT_EQ(outcome.out, "") << arguments;
    EXPECT_THAT(outcome.err, MatchesRegex("igmpsnoopctl: [^\n]+\n")) << arguments;
  }
}

TEST_F(ControlProgramTest, WrongUsageIsTwo) {
  auto const outcome = run("show everything");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.err, HasSubstr("--help"));
}

TEST_F(ControlProgramTest, OutputThatCannotBeWrittenIsAnError) {
  auto const outcome = run("show vlans >/dev/full");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("cannot write to standard output"));
}

TEST_F(ControlProgramTest, MonitorEndsWithItsReader) {
  auto const outcome = run("monitor | true");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err,
            "igmpsnoopctl: nobody reads standard output any more; keep its reader running\n");
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  for (int i = 0; i < 5; ++i) test.loop.turn(test.loop.now() + 1ms);
}

}  // namespace
}  // namespace Agent
