#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/compare/Comparison.h"

namespace Agent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A host of VLAN 10 with these records.
Json host(char const* interface, char const* records) {
  Json object = Json::parse(R"({"vlan": 10, "igmp-version": 3, "blocked": false,
                                "direction": "both", "source-address": "0.0.0.0"})");
  object["name"] = std::string("Vlan10") + interface;
  object["interface"] = interface;
  object["group"] = Json::parse(records);
  return object;
}

/// Compilers do not agree on whether a single value in braces is a list.
Json listOfOne(Json element) {
  Json list = Json::array();
  list.push_back(std::move(element));
  return list;
}

Json hosts(std::vector<Json> const& all) {
  return {{"time", 1.5}, {"hosts", all}};
}

Comparison comparisonOf(Json const& a, Json const& b) {
  return compared(comparedStateIn(a), comparedStateIn(b));
}

std::string textOf(Json const& a, Json const& b) {
  return comparisonText(comparisonOf(a, b), "a.json", "b.json");
}

std::string refusalOf(Json const& document) {
  try {
    comparedStateIn(document);
  } catch (std::invalid_argument const& error) {
    return error.what();
  }
  return "none";
}

constexpr char const* includes =
    R"([{"address": "239.1.1.1", "filter-mode": "include", "source": ["192.0.2.1"]}])";
constexpr char const* excludes =
    R"([{"address": "239.1.1.1", "filter-mode": "exclude", "source": []}])";

TEST(Comparison, TimesAndTheVersionSpokenDoNotMatter) {
  Json a = hosts({host("swp1", includes)});
  Json b = a;
  b["time"] = 99;
  b["hosts"][0]["spoken-igmp-version"] = 2;
  EXPECT_EQ(textOf(a, b), "No difference in hosts.\n");
}

TEST(Comparison, RecordsThatDifferStandSideBySide) {
  EXPECT_EQ(textOf(hosts({host("swp1", includes)}), hosts({host("swp1", excludes)})),
            "A: a.json\nB: b.json\n\nRecords: what the hosts on the ports report\n\n"
            "VLAN  INTERFACE  GROUP      A                  B\n"
            "  10  swp1       239.1.1.1  include 192.0.2.1  exclude\n");
}

TEST(Comparison, WhatOneAloneHasIsADashInTheOther) {
  Json const a = hosts({host("swp2", includes), host("swp10", "[]")});
  Json const b = hosts({host("swp2", "[]")});
  EXPECT_THAT(textOf(a, b), HasSubstr("  10  swp2       239.1.1.1  include 192.0.2.1  -\n"
                                      "  10  swp10      -          host of IGMPv3     -\n"));
  EXPECT_THAT(textOf(b, a), HasSubstr("  10  swp2       239.1.1.1  -  include 192.0.2.1\n"));
}

TEST(Comparison, HostThatIsBlockedDiffers) {
  Json b = hosts({host("swp1", "[]")});
  Json const a = b;
  b["hosts"][0]["blocked"] = true;
  b["hosts"][0]["direction"] = "egress";
  EXPECT_THAT(textOf(a, b), HasSubstr("-      host of IGMPv3  host of IGMPv3, blocked, egress\n"));
}

TEST(Comparison, MembershipsAreComparedByReporterWithoutTheirTimes) {
  Json const a = {
      {"groups", listOfOne(Json::parse(R"({"vlan": 10, "address": "239.1.1.1", "interface":
      "swp1", "host": "10.0.0.1", "filter-mode": "exclude", "source": [], "expire": 200.5})"))}};
  Json b = a;
  b["groups"][0]["expire"] = 3;
  EXPECT_TRUE(comparisonOf(a, b).differences.empty());
  b["groups"][0]["host"] = "10.0.0.2";
  auto const comparison = comparisonOf(a, b);
  ASSERT_EQ(comparison.differences.size(), 2u);
  EXPECT_EQ(comparison.differences[0].place.reporter, Wirex::IpAddr(10, 0, 0, 1));
  EXPECT_EQ(comparison.differences[0].b, std::nullopt);
  EXPECT_EQ(comparison.differences[1].a, std::nullopt);
}

TEST(Comparison, RouterPortsAreComparedByWhatMakesThem) {
  Json const a = {
      {"mrouters", listOfOne(Json::parse(R"({"vlan": 10, "interface": "swp4", "static": true,
      "querier": "10.0.0.100", "querier-expire": 200.5})"))}};
  Json b = a;
  b["mrouters"][0].erase("querier");
  EXPECT_THAT(textOf(a, b), HasSubstr("  10  swp4       configured and querier 10.0.0.100  "
                                      "configured\n"));
}

TEST(Comparison, OnlyListsThatBothHaveAreCompared) {
  Json a = hosts({host("swp1", includes)});
  Json const b = a;
  a["mrouters"] = listOfOne(Json::parse(R"({"vlan": 10, "interface": "swp4", "static": true})"));
  EXPECT_THAT(comparisonOf(a, b).lists, ElementsAre("hosts"));
  EXPECT_TRUE(comparisonOf(b, a).differences.empty());
}

TEST(Comparison, StatesWithNothingInCommonAreRefused) {
  Json const a = hosts({});
  EXPECT_THROW(comparisonOf(a, {{"groups", Json::array()}}), std::invalid_argument);
}

TEST(Comparison, DocumentOfAnotherFormIsRefused) {
  EXPECT_EQ(refusalOf(Json::array()), "it is no JSON object");
  EXPECT_EQ(refusalOf({{"time", 1}}), "it has none of hosts, groups and mrouters");
  EXPECT_THAT(refusalOf({{"hosts", listOfOne(1)}}), HasSubstr("it has another form: "));
  EXPECT_THAT(refusalOf(hosts({host("swp1", "[{}]")})), HasSubstr("it has another form: "));
}

TEST(Comparison, JsonNamesThePlaceAndBothSides) {
  auto const comparison =
      comparisonOf(hosts({host("swp1", includes)}), hosts({host("swp1", "[]")}));
  EXPECT_EQ(Json::parse(comparisonJson(comparison)),
            Json::parse(R"({"compared": ["hosts"], "differences": [{"list": "hosts", "vlan": 10,
                            "interface": "swp1", "address": "239.1.1.1",
                            "a": "include 192.0.2.1", "b": null}]})"));
}

}  // namespace
}  // namespace Agent
