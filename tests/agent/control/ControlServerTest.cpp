#include <fcntl.h>
#include <malloc.h>
#include <random>
#include <string>
#include <sys/resource.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/Log.h"
#include "agent/control/ControlServer.h"
#include "agent/text/Wording.h"
#include "framework/kel/Trace.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/SwitchTesting.h"
#include "tests/agent/control/ControlTesting.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using nlohmann::ordered_json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class ControlServerTest : public testing::Test {
 protected:
  TestClient connect() { return TestClient(test.loop, server.path()); }

  /// The lines of an answer.
  std::vector<ordered_json> ask(ordered_json const& request) {
    return connect().say(request.dump() + "\n").lines();
  }

  /// The elements of a list that is shown.
  std::vector<ordered_json> shown(std::string const& what,
                                  ordered_json more = ordered_json::object()) {
    ordered_json request{{"command", "show"}, {"what", what}};
    request.update(more);
    return elements(request, what);
  }

  /// The elements of one of the lists of "show statistics".
  std::vector<ordered_json> statistics(std::string const& list,
                                       ordered_json more = ordered_json::object()) {
    ordered_json request{{"command", "show"}, {"what", "statistics"}};
    request.update(more);
    return elements(request, list);
  }

  /// Of one list of an answer.
  std::vector<ordered_json> elements(ordered_json const& request, std::string const& list) {
    std::vector<ordered_json> elements;
    for (ordered_json const& line : ask(request))
      if (line.contains(list)) elements.push_back(line.at(list));
    return elements;
  }

  std::string errorOf(std::string const& line) {
    auto const lines = connect().say(line).lines();
    return lines.size() == 1 ? lines[0].value("error", "") : "no error";
  }

  /// Has as many groups joined on swp1.
  void join(std::uint32_t groups, IpAddr from = tv) {
    for (std::uint32_t i = 0; i < groups; ++i)
      test.hearOnly("swp1", FrameBuilder::reportV2(IpAddr(group.value() + i)).from(from));
    test.loop.endBatch();
  }

  TemporaryDirectory directory;
  TestSwitch test{
      withoutLimits(vlan10("swp[1-3]", "[[vlan]]\nid = 20\ntagged-interfaces = [\"swp1\"]\n"))};
  ControlServer server{test.loop, test.snooping, directory.file("control")};
};

// ---- What is shown

TEST_F(ControlServerTest, AnswerBeginsWithTimeAndListsAndEndsWithAnEnd) {
  test.advance(1500ms);
  auto answer = ask({{"command", "show"}, {"what", "mrouters"}});
  EXPECT_EQ(answer.front().erase("date"), 1u);
  EXPECT_THAT(answer, ElementsAre(ordered_json::parse(R"({"time":1.5,"lists":["mrouters"]})"),
                                  ordered_json::parse(R"({"end":true})")));
}

TEST_F(ControlServerTest, TimeIsCountedFromTheStart) {
  TestSwitch aged(vlan10("swp[1-2]"));
  aged.advance(100s);
  ControlServer const started(aged.loop, aged.snooping, directory.file("started"));
  aged.advance(1500ms);
  auto const client = [&](ordered_json const& request) {
    return TestClient(aged.loop, started.path()).say(request.dump() + "\n");
  };
  EXPECT_EQ(client({{"command", "show"}, {"what", "hosts"}}).lines().at(0).at("time"), 1.5);
  EXPECT_EQ(
      client({{"command", "explain"}, {"vlan", 10}, {"interface", "swp2"}, {"group", "239.1.1.1"}})
          .lines()
          .at(0)
          .at("explanation")
          .at("time"),
      1.5);
  auto monitor = client({{"command", "monitor"}});
  EXPECT_THAT(monitor.lines(), ElementsAre(ordered_json{{"time", 1.5}}));
  monitor.forgetHeard();
  aged.advance(1s);
  aged.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  auto const lines = monitor.lines();
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[0].at("membership").at("time"), 2.5);
  EXPECT_EQ(lines[1].at("record").at("time"), 2.5);
}

TEST_F(ControlServerTest, VlansTellWhetherTheyAreProxiedOrWhyNot) {
  join(2);
  auto const vlans = shown("vlans");
  ASSERT_THAT(vlans, SizeIs(2));
  EXPECT_EQ(vlans[0].at("vlan"), 10);
  EXPECT_EQ(vlans[0].at("proxy"), true);
  EXPECT_EQ(vlans[0].at("entries-count"), 2);
  EXPECT_EQ(vlans[0].at("host-count"), 2);
  EXPECT_EQ(vlans[0].at("interface-count"), 3);
  EXPECT_EQ(vlans[1].at("proxy"), false);
  EXPECT_EQ(vlans[1].at("standing"), "no-querier-configuration");
  EXPECT_THAT(shown("vlans", {{"vlan", 20}}), SizeIs(1));
}

TEST_F(ControlServerTest, InterfacesTellTheirState) {
  InterfaceState state = operationalInterface();
  state.carrier = false;
  test.snooping.interfaceStateIs(Wirex::IntfId("swp2"), state);
  auto const interfaces = shown("interfaces");
  ASSERT_THAT(interfaces, SizeIs(3));
  EXPECT_EQ(interfaces[0].at("blocked"), false);
  EXPECT_EQ(interfaces[0].at("vlan").dump(),
            R"([{"id":10,"tagged":false},{"id":20,"tagged":true}])");
  EXPECT_EQ(interfaces[1].at("carrier"), false);
  EXPECT_EQ(interfaces[1].at("blocked"), true);
  EXPECT_THAT(shown("interfaces", {{"interface", "swp2"}}), SizeIs(1));
}

TEST_F(ControlServerTest, GroupsTellEachMembershipAndWhatIsLeftOfIt) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  test.advance(10s);
  auto memberships = shown("groups");
  ASSERT_THAT(memberships, SizeIs(1));
  EXPECT_EQ(memberships[0].erase("since"), 1u);
  EXPECT_EQ(memberships[0].dump(),
            R"({"vlan":10,"address":"239.1.1.1","interface":"swp1","host":"10.0.0.1",)"
            R"("filter-mode":"include","source":["192.0.2.1"],"expire":260.0})");
}

TEST_F(ControlServerTest, GroupsAreSelected) {
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  test.hear("swp2", FrameBuilder::reportV2(otherGroup).from(tv));
  EXPECT_THAT(shown("groups"), SizeIs(2));
  EXPECT_THAT(shown("groups", {{"vlan", 10}}), SizeIs(2));
  EXPECT_THAT(shown("groups", {{"vlan", 20}}), IsEmpty());
  EXPECT_THAT(shown("groups", {{"interface", "swp1"}}), SizeIs(1));
  EXPECT_THAT(shown("groups", {{"group", "239.2.2.2"}}), SizeIs(1));
  EXPECT_THAT(shown("groups", {{"group", "239.2.2.2"}, {"interface", "swp1"}}), IsEmpty());
}

TEST_F(ControlServerTest, VlansAreSelected) {
  test.hear("swp2", FrameBuilder::reportV2(group).from(tv));
  EXPECT_THAT(shown("vlans", {{"interface", "swp1"}}), SizeIs(2));
  EXPECT_THAT(shown("vlans", {{"interface", "swp2"}}), SizeIs(1));
  EXPECT_THAT(shown("vlans", {{"interface", "swp2"}, {"vlan", 20}}), IsEmpty());
  EXPECT_THAT(shown("vlans", {{"group", "239.1.1.1"}}), SizeIs(1));
  EXPECT_THAT(shown("vlans", {{"group", "239.2.2.2"}}), IsEmpty());
}

TEST_F(ControlServerTest, InterfacesAreSelected) {
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  EXPECT_THAT(shown("interfaces", {{"vlan", 10}}), SizeIs(3));
  EXPECT_THAT(shown("interfaces", {{"vlan", 20}}), SizeIs(1));
  EXPECT_THAT(shown("interfaces", {{"vlan", 20}, {"interface", "swp2"}}), IsEmpty());
  EXPECT_THAT(shown("interfaces", {{"group", "239.1.1.1"}}), SizeIs(1));
  EXPECT_THAT(shown("interfaces", {{"group", "239.1.1.1"}, {"vlan", 10}}), SizeIs(1));
  EXPECT_THAT(shown("interfaces", {{"group", "239.1.1.1"}, {"vlan", 20}}), IsEmpty())
      << "swp1 is in VLAN 20, but has its listener in VLAN 10";
  EXPECT_THAT(shown("interfaces", {{"group", "239.2.2.2"}}), IsEmpty());
}

TEST_F(ControlServerTest, RouterPortsAreSelected) {
  IpAddr const router(10, 0, 0, 254);
  test.hear("swp1", FrameBuilder::queryV3({}).from(router));
  test.hear("swp1", FrameBuilder::queryV3({}).from(router).vlan(20));
  test.hear("swp2", FrameBuilder::queryV3({}).from(router));
  test.hear("swp3", FrameBuilder::reportV2(group).from(tv));
  EXPECT_THAT(shown("mrouters"), SizeIs(3));
  EXPECT_THAT(shown("mrouters", {{"vlan", 20}}), SizeIs(1));
  EXPECT_THAT(shown("mrouters", {{"interface", "swp1"}}), SizeIs(2));
  EXPECT_THAT(shown("mrouters", {{"group", "239.1.1.1"}}), SizeIs(2)) << "those of VLAN 10";
  EXPECT_THAT(shown("mrouters", {{"group", "239.2.2.2"}}), IsEmpty());
}

TEST_F(ControlServerTest, HostsAreFollowedByTheirGroups) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  auto const lines = ask({{"command", "show"}, {"what", "hosts"}, {"interface", "swp2"}});
  ASSERT_THAT(lines, SizeIs(4));
  EXPECT_EQ(lines[1].dump(),
            R"({"hosts":{"name":"Vlan10swp2","vlan":10,"interface":"swp2","igmp-version":3,)"
            R"("blocked":false,"direction":"both","source-address":"0.0.0.0","group":[]}})");
  EXPECT_EQ(lines[2].dump(),
            R"({"more":{"hosts":{"group":[{"address":"239.1.1.1","filter-mode":"include",)"
            R"("source":["192.0.2.1"]}]}}})");
}

TEST_F(ControlServerTest, RouterPortsTellWhyAndForHowLong) {
  test.hear("swp3", FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 254)));
  test.advance(5s);
  auto ports = shown("mrouters");
  ASSERT_THAT(ports, SizeIs(1));
  EXPECT_EQ(ports[0].erase("since"), 1u);
  EXPECT_EQ(ports[0].dump(),
            R"({"vlan":10,"interface":"swp3","static":false,"querier":"10.0.0.254",)"
            R"("querier-expire":250.0})");
}

TEST_F(ControlServerTest, StatisticsCountByTypeAndCause) {
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv).ttl(2));
  auto const interfaces = statistics("interfaces");
  ASSERT_FALSE(interfaces.empty());
  EXPECT_EQ(interfaces[0].at("name"), "swp1");
  EXPECT_EQ(interfaces[0].at("received").at("membership-report-v2-count"), 1);
  EXPECT_EQ(interfaces[0].at("ignored").dump(), R"({"bad-ttl":1})");
}

TEST_F(ControlServerTest, StatisticsTellOfTheAgentItself) {
  test.advance(1s);
  auto const agent = statistics("agent");
  ASSERT_THAT(agent, SizeIs(1));
  EXPECT_GT(agent[0].at("turn-count"), 0);
  EXPECT_EQ(agent[0].at("longest-turn"), 0.0) << "time stands still in a turn";
  EXPECT_EQ(agent[0].at("lost-log-line-count"), lostLogLines());
}

TEST_F(ControlServerTest, StatisticsCountWhatIsSent) {
  test.snooping.configurationIs(configurationIn(sendingOnce()));
  haveSent(test);
  EXPECT_THAT(statistics("vlans"),
              ElementsAre(ordered_json::parse(
                  R"({"vlan":10,"sent":{"general-query-count":3,"group-query-count":2,)"
                  R"("group-source-query-count":1}})")));
  auto const hosts = statistics("hosts");
  ASSERT_THAT(hosts, SizeIs(3));
  EXPECT_EQ(hosts[2].dump(),
            R"({"vlan":10,"name":"swp3","received":{"query-count":1},"sent":{)"
            R"("membership-report-v1-count":0,"membership-report-v2-count":1,)"
            R"("membership-report-v3-count":2,"group-record-count":3,"leave-count":1}})");
  auto const devices = statistics("devices");
  ASSERT_THAT(devices, SizeIs(3));
  EXPECT_EQ(devices[1].dump(),
            R"({"name":"swp2","received":2,"receive-dropped":0,"receive-truncated":0,)"
            R"("receive-failed":0,"sent":6,"send-dropped":0})");
}

TEST_F(ControlServerTest, StatisticsAreSelected) {
  auto const sizesOf = [&](ordered_json const& of) {
    std::vector<std::size_t> sizes;
    for (char const* const list : {"vlans", "interfaces", "hosts", "devices"})
      sizes.push_back(statistics(list, of).size());
    return sizes;
  };
  EXPECT_THAT(sizesOf(ordered_json::object()), ElementsAre(2, 7, 3, 3));
  EXPECT_THAT(sizesOf({{"vlan", 20}}), ElementsAre(1, 1, 0, 3));
  EXPECT_THAT(sizesOf({{"interface", "swp2"}}), ElementsAre(1, 2, 1, 1));
  EXPECT_THAT(sizesOf({{"group", "239.1.1.1"}}), ElementsAre(2, 7, 3, 3)) << "none has its own";
}

TEST_F(ControlServerTest, ExplainsInWordsAndAsValue) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  ordered_json request{
      {"command", "explain"}, {"vlan", 10}, {"interface", "swp2"}, {"group", "239.1.1.1"}};
  EXPECT_EQ(ask(request).at(0).at("explanation").at("rule"), "inclusion");
  request["text"] = true;
  EXPECT_THAT(ask(request).at(0).at("text").get<std::string>(),
              HasSubstr("192.0.2.1 is in the list: swp1 includes it."));
}

TEST_F(ControlServerTest, RequestInTheSameTurnAsAReportSeesItPublished) {
  auto client =
      connect().say(R"({"command":"explain","vlan":10,"interface":"swp2","group":"239.1.1.1"})"
                    "\n");
  test.hearOnly("swp1", FrameBuilder::reportV2(group).from(tv));
  auto const explanation = client.lines().at(0).at("explanation");
  EXPECT_EQ(explanation.at("record").at("filter-mode"), "exclude");
  EXPECT_EQ(explanation.at("merged"), explanation.at("record"));
}

// ---- Clearing and tracing

TEST_F(ControlServerTest, ClearForgetsMembershipsAndRecords) {
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  test.hear("swp1", FrameBuilder::reportV2(otherGroup).from(tv));
  EXPECT_EQ(ask({{"command", "clear"}, {"what", "groups"}, {"group", "239.2.2.2"}}).at(0).dump(),
            R"({"done":true})");
  EXPECT_THAT(shown("groups"), SizeIs(1));
  ask({{"command", "clear"}, {"what", "groups"}, {"vlan", 20}});
  EXPECT_THAT(shown("groups"), SizeIs(1)) << "another VLAN";
  ask({{"command", "clear"}, {"what", "groups"}});
  EXPECT_THAT(shown("groups"), IsEmpty());
  EXPECT_TRUE(test.snooping.entities().hosts->igmpHost("Vlan10swp2")->v3group().empty());
}

TEST_F(ControlServerTest, ClearOfASecondaryVlanForgetsWhatItsPrimaryKnows) {
  test.snooping.configurationIs(
      configurationIn(vlan10("swp[1-2]",
                             "[[interface]]\nname = \"swp3\"\n"
                             "[[vlan]]\nid = 20\ninterfaces = [\"swp3\"]\n"
                             "private = { type = \"isolated\", primary = 10 }\n")));
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  test.hear("swp3", FrameBuilder::reportV2(otherGroup).from(tv));
  EXPECT_THAT(shown("groups", {{"vlan", 10}}), SizeIs(2));
  EXPECT_THAT(shown("groups", {{"vlan", 20}}), IsEmpty());
  EXPECT_THAT(shown("interfaces", {{"group", "239.2.2.2"}}), SizeIs(1));
  ask({{"command", "clear"}, {"what", "groups"}, {"vlan", 20}});
  EXPECT_THAT(shown("groups"), IsEmpty());
}

TEST_F(ControlServerTest, ClearForgetsMoreGroupsThanOneTurnDoes) {
  for (std::uint8_t i = 1; i < 200; ++i)
    test.hear("swp1", FrameBuilder::reportV2(IpAddr(239, 3, 3, i)).from(tv));
  ASSERT_THAT(shown("groups"), SizeIs(199));
  ask({{"command", "clear"}, {"what", "groups"}});
  EXPECT_THAT(shown("groups"), IsEmpty());
}

TEST_F(ControlServerTest, TraceSwitchesExactlyTheNamedLevels) {
  auto& handle = Kel::traceHandle("IgmpSnoopingProxyAdapter");
  ask({{"command", "trace"}, {"handle", "IgmpSnoopingProxyAdapter"}, {"levels", "4,9"}});
  EXPECT_TRUE(handle.enabled());
  EXPECT_TRUE(handle.levelEnabled(4));
  EXPECT_FALSE(handle.levelEnabled(5));
  ask({{"command", "trace"}, {"handle", "IgmpSnoopingProxyAdapter"}, {"levels", "none"}});
  EXPECT_FALSE(handle.enabled());
  EXPECT_FALSE(handle.levelEnabled(4));
}

// ---- What cannot be done

TEST_F(ControlServerTest, WhatIsWrongWithARequestIsTold) {
  EXPECT_THAT(errorOf("nonsense\n"), HasSubstr("one line with a JSON object"));
  EXPECT_THAT(errorOf("[1]\n"), HasSubstr("JSON object"));
  EXPECT_THAT(errorOf("{}\n"), HasSubstr("no command"));
  EXPECT_THAT(errorOf(R"({"command":"jump"})"
                      "\n"),
              HasSubstr("no command \"jump\""));
  EXPECT_THAT(errorOf(R"({"command":7})"
                      "\n"),
              HasSubstr("\"command\" is no text"));
  EXPECT_THAT(errorOf(R"({"command":"show","what":"all"})"
                      "\n"),
              HasSubstr("\"all\""));
  EXPECT_THAT(errorOf(R"({"command":"show","what":"groups","vlan":4095})"
                      "\n"),
              HasSubstr("1 to 4094"));
  EXPECT_THAT(errorOf(R"({"command":"show","what":"groups","vlan":-1})"
                      "\n"),
              HasSubstr("1 to 4094"));
  EXPECT_THAT(errorOf(R"({"command":"show","what":"groups","group":"x"})"
                      "\n"),
              HasSubstr("no IPv4 address"));
  EXPECT_THAT(errorOf(R"({"command":"explain","vlan":10})"
                      "\n"),
              HasSubstr("explain takes"));
  EXPECT_THAT(errorOf(R"({"command":"clear","what":"groups","vlan":99})"
                      "\n"),
              HasSubstr("VLAN 99 is not configured"));
  EXPECT_THAT(errorOf(R"({"command":"show","what":"groups","group":"10.1.1.1"})"
                      "\n"),
              HasSubstr("10.1.1.1 is no multicast address"));
  EXPECT_THAT(errorOf(R"({"command":"monitor","what":"queries"})"
                      "\n"),
              HasSubstr("membership and record"));
  EXPECT_THAT(errorOf(R"({"command":"trace","handle":"None","levels":"1"})"
                      "\n"),
              HasSubstr("no trace handle"));
  EXPECT_THAT(errorOf(std::string(5000, 'x')), HasSubstr("too long"));
  EXPECT_THAT(errorOf("\xff\xfe{\"command\"\n"), HasSubstr("JSON object"));
  EXPECT_THAT(errorOf(R"({"command":")"
                      "\xc3"
                      R"("})"
                      "\n"),
              testing::Not(IsEmpty()));
  EXPECT_EQ(server.clients(), 0u);
}

TEST_F(ControlServerTest, RequestThatEndsWithTheInputIsComplete) {
  auto client = connect().say(R"({"command":"show","what":"mrouters"})").endOfInput();
  EXPECT_THAT(client.lines(), SizeIs(2));
}

TEST_F(ControlServerTest, WhoAsksNothingGoesUnanswered) {
  auto client = connect().endOfInput();
  EXPECT_EQ(client.hear(), "");
  EXPECT_TRUE(client.ended());
  EXPECT_EQ(server.clients(), 0u);
}

// ---- Clients that do not behave

TEST_F(ControlServerTest, HalfARequestTimesOut) {
  auto client = connect().say("{\"comm");
  client.hear();
  EXPECT_EQ(server.clients(), 1u);
  test.advance(4900ms);
  EXPECT_EQ(server.clients(), 1u);
  test.advance(200ms);
  EXPECT_EQ(server.clients(), 0u);
  EXPECT_EQ(server.counters().timedOut, 1u);
}

TEST_F(ControlServerTest, WhoDoesNotReadIsLeftAfterItsTime) {
  join(20000);
  auto client = connect().say(R"({"command":"show","what":"groups"})"
                              "\n");
  for (int i = 0; i < 200; ++i) test.loop.turn(test.loop.now());
  EXPECT_EQ(server.clients(), 1u) << "the answer does not fit into the socket's buffer";
  test.advance(29s);
  EXPECT_EQ(server.clients(), 1u);
  test.advance(2s);
  EXPECT_EQ(server.clients(), 0u);
  EXPECT_EQ(server.counters().timedOut, 1u);
}

TEST_F(ControlServerTest, LargeAnswerComesWholeInManyTurns) {
  join(20000);
  auto client = connect().say(R"({"command":"show","what":"groups"})"
                              "\n");
  EXPECT_THAT(client.lines(), SizeIs(20002));
  EXPECT_GT(client.turns(), 20);
}

TEST_F(ControlServerTest, NoMoreClientsThanThereMayBe) {
  std::vector<TestClient> clients;
  for (std::size_t i = 0; i < ControlServer::Limits().clients; ++i) {
    clients.push_back(connect().say(R"({"command":"monitor"})"
                                    "\n"));
    clients.back().hear();
  }
  auto tooMany = connect();
  EXPECT_THAT(tooMany.hear(), HasSubstr("as many clients as it may"));
  EXPECT_TRUE(tooMany.ended());
  EXPECT_EQ(server.counters().refused, 1u);
  clients.pop_back();
  test.loop.turn(test.loop.now());
  EXPECT_THAT(shown("vlans"), SizeIs(2)) << "there is room again";
}

TEST_F(ControlServerTest, SilentClientsMakeRoomForOneThatSpeaks) {
  std::vector<TestClient> silent;
  for (std::size_t i = 0; i < ControlServer::Limits().clients; ++i) {
    silent.push_back(connect());
    silent.back().hear();
  }
  EXPECT_THAT(shown("vlans"), SizeIs(2));
  EXPECT_THAT(silent.front().hear(), HasSubstr("serves another client"));
  EXPECT_TRUE(silent.front().ended()) << "the first to come is the first to go";
  silent.back().hear();
  EXPECT_FALSE(silent.back().ended());
  EXPECT_EQ(server.counters().timedOut, 1u);
}

TEST_F(ControlServerTest, ClientWhoseRequestIsNotReadYetDoesNotMakeRoom) {
  std::vector<TestClient> clients;
  for (std::size_t i = 0; i < ControlServer::Limits().clients; ++i) {
    clients.push_back(connect());
    clients.back().hear();
  }
  clients.front().say(R"({"command":"show","what":"vlans"})"
                      "\n");
  auto const next = connect();
  EXPECT_THAT(clients.front().lines(), SizeIs(4));
}

TEST_F(ControlServerTest, ClientsAreTurnedAwayWhileThereAreNoDescriptors) {
  // The sanitizers need a descriptor to look at an object of a class that they have not met yet.
  EXPECT_THAT(shown("vlans"), SizeIs(2));
  auto client = connect();
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  int const next = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(next);
  rlimit const none{static_cast<rlim_t>(next), before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  std::string const heard = client.hear();
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_THAT(heard, HasSubstr("too many files open"));
  EXPECT_THAT(shown("vlans"), SizeIs(2)) << "and served as soon as there are";
}

TEST_F(ControlServerTest, VlanThatGoesDuringAnAnswerEndsIt) {
  join(20000);
  auto client = connect().say(R"({"command":"show","what":"groups"})"
                              "\n");
  for (int i = 0; i < 5; ++i) test.loop.turn(test.loop.now());
  test.snooping.configurationIs(configurationIn("[[interface]]\nname = \"swp9\"\n"));
  auto const lines = client.lines();
  EXPECT_LT(lines.size(), 20000u);
  EXPECT_EQ(lines.back().dump(), R"({"end":true})");
}

TEST_F(ControlServerTest, GroupsThatAreClearedDuringAnAnswerAreLeftOut) {
  join(20000);
  auto hosts = connect().say(R"({"command":"show","what":"hosts"})"
                             "\n");
  for (int i = 0; i < 5; ++i) test.loop.turn(test.loop.now());
  ask({{"command", "clear"}, {"what", "groups"}});
  EXPECT_EQ(hosts.lines().back().dump(), R"({"end":true})");
}

TEST_F(ControlServerTest, SurvivesWhateverClientsDo) {
  std::vector<std::string> const requests = {
      R"({"command":"show","what":"groups"})", R"({"command":"show","what":"hosts"})",
      R"({"command":"monitor"})", R"({"command":"metrics"})",
      R"({"command":"explain","vlan":10,"interface":"swp1","group":"239.1.1.1","text":true})"};
  join(500);
  std::mt19937 random(1);
  auto const draw = [&](std::size_t below) {
    return std::uniform_int_distribution<std::size_t>(0, below - 1)(random);
  };
  std::vector<TestClient> clients;
  for (int step = 0; step < 4000; ++step) {
    std::string request = requests[draw(requests.size())] + "\n";
    switch (draw(8)) {
      case 0:
        clients.push_back(connect());
        break;
      case 1:
        if (!clients.empty())
          clients.erase(clients.begin() + static_cast<long>(draw(clients.size())));
        break;
      case 2:
        for (char& c : request)
          if (draw(20) == 0) c = static_cast<char>(draw(256));
        [[fallthrough]];
      case 3:
        if (!clients.empty())
          clients[draw(clients.size())].say(request.substr(0, draw(request.size() + 1)));
        break;
      case 4:
        if (!clients.empty()) clients[draw(clients.size())].say(request);
        break;
      case 5:
        if (!clients.empty()) clients[draw(clients.size())].readOnce();
        break;
      case 6:
        test.hearOnly("swp2", FrameBuilder::reportV2(
                                  IpAddr(group.value() + static_cast<std::uint32_t>(draw(50))))
                                  .from(tv));
        break;
      default:
        if (draw(10) == 0) test.advance(1s);
        break;
    }
    test.loop.turn(test.loop.now());
    ASSERT_LE(server.clients(), ControlServer::Limits().clients);
  }
  clients.clear();
  test.advance(60s);
  for (int i = 0; i < 500; ++i) test.loop.turn(test.loop.now());
  EXPECT_EQ(server.clients(), 0u);
  EXPECT_THAT(shown("vlans"), SizeIs(2));
}

// ---- Monitors

TEST_F(ControlServerTest, MonitorHearsMembershipsAndRecordsAsTheyChange) {
  test.hear("swp1", FrameBuilder::reportV2(otherGroup).from(tv));
  auto monitor = connect().say(R"({"command":"monitor"})"
                               "\n");
  EXPECT_THAT(monitor.lines(), ElementsAre(ordered_json{{"time", 0.0}})) << "nothing has changed";
  monitor.forgetHeard();
  test.advance(2s);
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  auto lines = monitor.lines();
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_EQ(lines[0].at("membership").erase("date"), 1u);
  EXPECT_EQ(lines[0].dump(),
            R"({"membership":{"time":2.0,"vlan":10,"interface":"swp1","address":"239.1.1.1",)"
            R"("host":"10.0.0.1","change":"added",)"
            R"("new":{"filter-mode":"include","source":["192.0.2.1"]}}})");
  EXPECT_EQ(lines[1].at("record").at("name"), "Vlan10swp2");
  EXPECT_EQ(lines[2].at("record").at("name"), "Vlan10swp3");
}

TEST_F(ControlServerTest, MonitorHearsOnlyWhatItAsksFor) {
  std::map<std::string, std::size_t> const heard{
      {R"({"command":"monitor"})", 6},
      {R"({"command":"monitor","what":"membership"})", 2},
      {R"({"command":"monitor","what":"record"})", 4},
      {R"({"command":"monitor","vlan":10,"interface":"swp1"})", 2},
      {R"({"command":"monitor","vlan":20})", 0},
      {R"({"command":"monitor","what":"record","interface":"swp2"})", 2},
      {R"({"command":"monitor","what":"membership","group":"239.2.2.2"})", 1}};
  std::map<std::string, TestClient> monitors;
  for (auto const& [request, count] : heard) {
    auto& monitor = monitors.emplace(request, connect().say(request + "\n")).first->second;
    EXPECT_THAT(monitor.lines(), SizeIs(1));
    monitor.forgetHeard();
  }
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  test.hear("swp1", FrameBuilder::reportV2(otherGroup).from(tv));
  for (auto& [request, monitor] : monitors)
    EXPECT_THAT(monitor.lines(), SizeIs(heard.at(request))) << request;
}

TEST_F(ControlServerTest, WhatNoMonitorAsksForIsNotWatched) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  auto const record = [&](char const* host) {
    return test.snooping.entities().hosts->igmpHost(host)->v3group(group);
  };
  {
    auto monitor = connect().say(R"({"command":"monitor","what":"record","interface":"swp2"})"
                                 "\n");
    monitor.hear();
    EXPECT_TRUE(record("Vlan10swp2")->watched());
    EXPECT_FALSE(record("Vlan10swp3")->watched());
    auto memberships = connect().say(R"({"command":"monitor","what":"membership"})"
                                     "\n");
    memberships.hear();
    EXPECT_FALSE(record("Vlan10swp3")->watched());
  }
  for (int i = 0; i < 5; ++i) test.loop.turn(test.loop.now());
  test.advance(10ms);
  EXPECT_FALSE(record("Vlan10swp2")->watched());
}

TEST_F(ControlServerTest, MonitorHearsWhatIsClearedUnderIt) {
  join(300);
  auto monitor = connect().say(R"({"command":"monitor"})"
                               "\n");
  monitor.hear();
  monitor.forgetHeard();
  ask({{"command", "clear"}, {"what", "groups"}});
  std::size_t removed = 0;
  for (ordered_json const& line : monitor.lines())
    if (line.contains("membership"))
      removed += line.at("membership").at("change") == "removed" ? 1 : 0;
  EXPECT_EQ(removed, 300u);
}

TEST_F(ControlServerTest, EntitiesAreWatchedOnlyWhileSomebodyMonitors) {
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  auto const record = test.snooping.entities().hosts->igmpHost("Vlan10swp2")->v3group(group);
  EXPECT_FALSE(record->watched());
  {
    auto first = connect().say(R"({"command":"monitor"})"
                               "\n");
    auto second = connect().say(R"({"command":"monitor"})"
                                "\n");
    first.hear();
    second.hear();
    EXPECT_TRUE(record->watched());
  }
  for (int i = 0; i < 5; ++i) test.loop.turn(test.loop.now());
  EXPECT_EQ(server.clients(), 0u);
  test.advance(10ms);
  EXPECT_FALSE(record->watched());
}

TEST_F(ControlServerTest, OthersAreServedWhileTheFirstMonitorOfAFullSwitchBeginsAndEnds) {
  join(1000);
  auto const host = test.snooping.entities().hosts->igmpHost("Vlan10swp2");
  auto const watched = [&] {
    std::size_t count = 0;
    for (auto const& [address, record] : host->v3group()) count += record->watched() ? 1u : 0u;
    return count;
  };
  {
    auto monitor = connect().say(R"({"command":"monitor"})"
                                 "\n");
    for (int i = 0; i < 3; ++i) test.loop.turn(test.loop.now());
    EXPECT_GT(watched(), 0u);
    EXPECT_LT(watched(), 1000u);
    auto other = connect().say(R"({"command":"show","what":"vlans"})"
                               "\n");
    for (int i = 0; i < 5; ++i) test.loop.turn(test.loop.now());
    other.readOnce();
    monitor.readOnce();
    EXPECT_EQ(monitor.heard(), "");
    EXPECT_NE(other.heard(), "");
    EXPECT_THAT(monitor.lines(), SizeIs(1));
    EXPECT_EQ(watched(), 1000u);
  }
  for (int i = 0; i < 5; ++i) test.loop.turn(test.loop.now());
  test.advance(2ms);
  EXPECT_GT(watched(), 0u);
  EXPECT_LT(watched(), 1000u);
  test.advance(100ms);
  EXPECT_EQ(watched(), 0u);
}

TEST_F(ControlServerTest, MonitorThatWaitsForItsBeginningIsNotTooSlow) {
  join(1000);
  auto monitor = connect().say(R"({"command":"monitor"})"
                               "\n");
  for (int i = 0; i < 3; ++i) test.loop.turn(test.loop.now());  // for the request
  for (int i = 0; i < 5; ++i) {
    test.loop.turn(test.loop.now());
    test.advance(10s);
  }
  EXPECT_THAT(monitor.lines(), SizeIs(1));
  EXPECT_EQ(server.counters().timedOut, 0u);
}

TEST_F(ControlServerTest, MonitorMayBeginWhileTheWatchesOfTheLastOneEnd) {
  join(1000);
  connect()
      .say(R"({"command":"monitor"})"
           "\n")
      .hear();
  for (int i = 0; i < 5; ++i) test.loop.turn(test.loop.now());
  EXPECT_EQ(server.clients(), 0u);
  auto monitor = connect().say(R"({"command":"monitor"})"
                               "\n");
  EXPECT_THAT(monitor.lines(), SizeIs(1));
  monitor.forgetHeard();
  test.hear("swp1", FrameBuilder::leave(group).from(tv));
  test.advance(5s);
  test.hear("swp3", FrameBuilder::reportV2(group).from(tv));
  EXPECT_THAT(monitor.lines(), Not(IsEmpty()));
}

TEST_F(ControlServerTest, MonitorsThatComeAndGoQuicklyAreWatchedForOnce) {
  join(1000);
  std::size_t const before = mallinfo2().uordblks;
  for (int i = 0; i < 300; ++i) {
    auto const monitor = connect().say(R"({"command":"monitor"})"
                                       "\n");
    for (int j = 0; j < 3; ++j) test.loop.turn(test.loop.now());
  }
  std::size_t const watching = 2'000'000;  // the watches of all
  EXPECT_LT(mallinfo2().uordblks, before + watching);
  auto monitor = connect().say(R"({"command":"monitor"})"
                               "\n");
  EXPECT_THAT(monitor.lines(), SizeIs(1));
}

TEST_F(ControlServerTest, MonitorThatDoesNotReadIsCutOffAndToldSo) {
  auto monitor = connect().say(R"({"command":"monitor"})"
                               "\n");
  monitor.hear();
  monitor.forgetHeard();
  auto reader = connect().say(R"({"command":"monitor"})"
                              "\n");
  for (std::uint32_t round = 0; round < 20 && server.counters().cutOff == 0; ++round) {
    join(1000, IpAddr(tv.value() + round));
    ask({{"command", "clear"}, {"what", "groups"}});
    reader.hear();
  }
  EXPECT_EQ(server.counters().cutOff, 1u);
  EXPECT_THAT(monitor.hear(), HasSubstr("reads too slowly"));
  EXPECT_TRUE(monitor.ended());
  EXPECT_FALSE(reader.ended());
}

TEST_F(ControlServerTest, MonitorMayOutliveTheServer) {
  auto own = std::make_unique<ControlServer>(test.loop, test.snooping, directory.file("own"));
  TestClient monitor(test.loop, own->path());
  monitor.say(R"({"command":"monitor"})"
              "\n");
  monitor.hear();
  own.reset();
  test.hear("swp1", FrameBuilder::reportV2(group).from(tv));
  monitor.hear();
  EXPECT_TRUE(monitor.ended());
}

}  // namespace
}  // namespace Agent
