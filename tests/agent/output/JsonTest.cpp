#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/output/Json.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/output/OutputTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using Wirex::IpAddr;

TEST(Json, IsWhatIsPromised) {
  Snapshot snapshot;
  snapshot.time = 12500ms;
  snapshot.hosts = {hostOn(10, "swp3", {{group, include({a})}, {otherGroup, exclude({})}})};
  EXPECT_EQ(json(snapshot, nullptr), R"({
  "time": 12.5,
  "hosts": [
    {
      "name": "Vlan10swp3",
      "vlan": 10,
      "interface": "swp3",
      "igmp-version": 3,
      "blocked": false,
      "direction": "both",
      "group": [
        {
          "address": "239.1.1.1",
          "filter-mode": "include",
          "source": [
            "192.0.2.1"
          ]
        },
        {
          "address": "239.2.2.2",
          "filter-mode": "exclude",
          "source": []
        }
      ]
    }
  ],
  "ignored": {}
}
)");
}

TEST(Json, NothingIsEmptyLists) {
  EXPECT_EQ(json({}, nullptr), "{\n  \"time\": 0.0,\n  \"hosts\": [],\n  \"ignored\": {}\n}\n");
  std::vector<RecordEvent> const none;
  EXPECT_EQ(json({}, &none),
            "{\n  \"time\": 0.0,\n  \"events\": [],\n  \"hosts\": [],\n  \"ignored\": {}\n}\n");
}

TEST(Json, HostsTellTheirAttributes) {
  Snapshot snapshot;
  snapshot.hosts = {hostOn(4094, "port-with-name_")};
  snapshot.hosts[0].blocked = true;
  snapshot.hosts[0].igmpVersion = Igmp::IgmpVersion::v2;
  snapshot.hosts[0].direction = Bridging::AllowedTrafficDirection::egress;
  auto const host = nlohmann::json::parse(json(snapshot, nullptr)).at("hosts").at(0);
  EXPECT_EQ(host.at("blocked"), true);
  EXPECT_EQ(host.at("igmp-version"), 2);
  EXPECT_EQ(host.at("direction"), "egress");
  EXPECT_EQ(host.at("group"), nlohmann::json::array());
}

TEST(Json, EventsComeBeforeHosts) {
  std::vector<RecordEvent> const events{
      event(1500ms, "Vlan10swp1", group, {}, include({a})),
      event(2s, "Vlan10swp1", group, include({a}), exclude({a, b})),
      event(3s, "Vlan10swp1", group, exclude({a, b}), {})};
  std::string const text = json({}, &events);
  EXPECT_LT(text.find("\"events\""), text.find("\"hosts\""));
  auto const all = nlohmann::ordered_json::parse(text).at("events");
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].dump(), R"({"time":1.5,"name":"Vlan10swp1","vlan":10,"interface":"swp1",)"
                           R"("address":"239.1.1.1","change":"added",)"
                           R"("new":{"filter-mode":"include","source":["192.0.2.1"]}})");
  EXPECT_EQ(all[1].at("change"), "changed");
  EXPECT_EQ(all[1].at("old").dump(), R"({"filter-mode":"include","source":["192.0.2.1"]})");
  EXPECT_EQ(all[1].at("new").dump(),
            R"({"filter-mode":"exclude","source":["192.0.2.1","192.0.2.2"]})");
  EXPECT_EQ(all[2].at("change"), "removed");
  EXPECT_FALSE(all[2].contains("new"));
}

TEST(Json, IgnoredInputIsCountedByInterfaceAndCause) {
  Snapshot snapshot;
  snapshot.ignored = {{"swp2", {{Igmp::IgnoreReason::notIgmp, 7}, {Igmp::IgnoreReason::badTtl, 1}}},
                      {"swp10", {{Igmp::IgnoreReason::fragment, 2}}}};
  EXPECT_EQ(nlohmann::ordered_json::parse(json(snapshot, nullptr)).at("ignored").dump(),
            R"({"swp2":{"not-igmp":7,"bad-ttl":1},"swp10":{"fragment":2}})");
}

}  // namespace
}  // namespace Agent
