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
  EXPECT_EQ(json(snapshot), R"({
  "time": 12.5,
  "hosts": [
    {
      "name": "Vlan10swp3",
      "vlan": 10,
      "interface": "swp3",
      "igmp-version": 3,
      "blocked": false,
      "direction": "both",
      "source-address": "0.0.0.0",
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
  EXPECT_EQ(json(Snapshot()), "{\n  \"time\": 0.0,\n  \"hosts\": [],\n  \"ignored\": {}\n}\n");
}

TEST(Json, HostsTellTheirAttributes) {
  Snapshot snapshot;
  snapshot.hosts = {hostOn(4094, "port-with-name_")};
  snapshot.hosts[0].blocked = true;
  snapshot.hosts[0].igmpVersion = Igmp::IgmpVersion::v2;
  snapshot.hosts[0].direction = Bridging::AllowedTrafficDirection::egress;
  auto const host = nlohmann::json::parse(json(snapshot)).at("hosts").at(0);
  EXPECT_EQ(host.at("blocked"), true);
  EXPECT_EQ(host.at("igmp-version"), 2);
  EXPECT_EQ(host.at("direction"), "egress");
  EXPECT_EQ(host.at("group"), nlohmann::json::array());
}

TEST(Json, IgnoredInputIsCountedByInterfaceAndCause) {
  Snapshot snapshot;
  snapshot.ignored = {{"swp2", {{Igmp::IgnoreReason::notIgmp, 7}, {Igmp::IgnoreReason::badTtl, 1}}},
                      {"swp10", {{Igmp::IgnoreReason::fragment, 2}}}};
  EXPECT_EQ(nlohmann::ordered_json::parse(json(snapshot)).at("ignored").dump(),
            R"({"swp2":{"not-igmp":7,"bad-ttl":1},"swp10":{"fragment":2}})");
}

}  // namespace
}  // namespace Agent
