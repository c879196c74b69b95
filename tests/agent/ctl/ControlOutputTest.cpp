#include <stdexcept>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/ctl/ControlOutput.h"

namespace Agent {
namespace {

TEST(ShownLists, ElementGoesOnInFurtherLines) {
  ShownLists lists;
  lists.add(Json::parse(R"({"time":1.5,"lists":["hosts"]})"));
  lists.add(Json::parse(R"({"hosts":{"name":"Vlan10swp1","group":[]}})"));
  lists.add(Json::parse(R"({"more":{"hosts":{"group":[{"address":"239.1.1.1"}]}}})"));
  EXPECT_EQ(lists.takeDocument().dump(),
            R"({"time":1.5,"hosts":[{"name":"Vlan10swp1","group":[{"address":"239.1.1.1"}]}]})");
}

TEST(ShownLists, WhatGoesOnWithoutABeginningIsRefused) {
  ShownLists lists;
  lists.add(Json::parse(R"({"lists":["hosts"]})"));
  EXPECT_THROW(lists.add(Json::parse(R"({"more":{"hosts":{"group":[{"address":"239.1.1.1"}]}}})")),
               std::invalid_argument);
}

TEST(Redrawn, LeavesNothingOfWhatTheTerminalHasShown) {
  EXPECT_EQ(redrawn("a\nb\n"), "\x1b[Ha\x1b[K\nb\x1b[K\n\x1b[J");
}

TEST(MonitorText, TimeThatIsNoneIsShownAsTheNearest) {
  Json const event = Json::parse(
      R"({"record":{"time":1e300,"vlan":10,"interface":"swp1","address":"239.1.1.1","change":"removed"}})");
  EXPECT_EQ(monitorText(event).find("1000000000"), 0u);
}

}  // namespace
}  // namespace Agent
