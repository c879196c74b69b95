#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/replay/EventOutput.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/output/OutputTesting.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;

ReplayEvent replayEvent(RecordEvent record, std::vector<EventCause> causes = {}) {
  Horix::Time const date = someTime + record.time;
  return {std::move(record), date, std::move(causes)};
}

TEST(EventOutput, LineTellsWhatWasBeforeAndWhoCausedIt) {
  auto const added = replayEvent(event(1500ms, "Vlan10swp1", group, {}, include({a})),
                                 {{Wirex::IntfId("swp2"), tv, 7}});
  EXPECT_EQ(eventLine(added, false),
            "1.500000 vlan 10 swp1 239.1.1.1 added: include 192.0.2.1; by swp2 10.0.0.1 (frame 7)");
  EXPECT_EQ(eventLine(added, true).substr(0, 36), "2023-11-14T22:13:21.500000Z vlan 10 ");
  EXPECT_EQ(
      eventLine(replayEvent(event(10s, "Vlan10swp1", group, include({a}), exclude({}))), false),
      "10.000000 vlan 10 swp1 239.1.1.1 changed: exclude nothing (was include 192.0.2.1)");
  EXPECT_EQ(eventLine(replayEvent(event(11s, "Vlan10swp1", group, exclude({}), {}),
                                  {{Wirex::IntfId("swp2"), tv, {}}}),
                      false),
            "11.000000 vlan 10 swp1 239.1.1.1 removed (was exclude nothing); by swp2 10.0.0.1 "
            "(timer)");
}

TEST(EventOutput, CrowdOfCausesIsToldInPart) {
  std::vector<EventCause> const crowd(5, {Wirex::IntfId("swp2"), tv, 7});
  auto const line =
      eventLine(replayEvent(event(1s, "Vlan10swp1", group, {}, include({a})), crowd), false);
  EXPECT_TRUE(line.ends_with("swp2 10.0.0.1 (frame 7) and 2 more")) << line;
}

TEST(EventOutput, JsonBeginsWithTheEvents) {
  EventOutput output(EventOutput::Form::json);
  std::string text = output.text({replayEvent(event(1s, "Vlan10swp1", group, {}, include({a})),
                                              {{Wirex::IntfId("swp2"), tv, 7}})});
  text += output.text({replayEvent(event(2s, "Vlan10swp1", group, include({a}), {}))});
  text += output.end("{\n  \"time\": 2.0\n}\n");
  auto const document = nlohmann::ordered_json::parse(text);
  EXPECT_EQ(document.at("time"), 2.0);
  auto const& events = document.at("events");
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].dump(), R"({"time":1.0,"name":"Vlan10swp1","vlan":10,"interface":"swp1",)"
                              R"("address":"239.1.1.1","change":"added",)"
                              R"("new":{"filter-mode":"include","source":["192.0.2.1"]},)"
                              R"("date":"2023-11-14T22:13:21.000000Z",)"
                              R"("cause":[{"interface":"swp2","host":"10.0.0.1","frame":7}]})");
  EXPECT_EQ(events[1].at("old").at("filter-mode"), "include");
  EXPECT_FALSE(events[1].contains("new"));
}

TEST(EventOutput, NothingIsSaidInWordsAndAsAnEmptyList) {
  EXPECT_EQ(EventOutput(EventOutput::Form::relativeTimes).end("Records\n"),
            "No record has changed.\n\nRecords\n");
  EXPECT_EQ(EventOutput(EventOutput::Form::json).end("{\n  \"time\": 2.0\n}\n"),
            "{\n  \"events\": [],\n  \"time\": 2.0\n}\n");
}

}  // namespace
}  // namespace Agent
