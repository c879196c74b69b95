#include <algorithm>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/control/Listing.h"
#include "agent/control/ShowAnswers.h"
#include "agent/text/Wording.h"
#include "tests/agent/SwitchTesting.h"

namespace Agent {
namespace {

constexpr std::size_t vlans = 100;
constexpr std::size_t ports = 24;

std::string trunks(std::string_view range) {
  return message("[[interface]]\nname = \"swp[1-", ports, "]\"\n[[vlan]]\nid = \"", range,
                 "\"\nquerier = { igmp-version = 3 }\ntagged-interfaces = [\"swp[1-", ports,
                 "]\"]\nstatic-bridge-mrouter-interface = [\"swp1\"]\n");
}

/// How many elements each list of an answer has.
std::map<std::string, std::size_t> elementsOf(std::string const& answer) {
  std::map<std::string, std::size_t> counts;
  std::istringstream lines(answer);
  for (std::string line; std::getline(lines, line);) {
    Json const element = Json::parse(line);
    for (auto const& [key, value] : element.items())
      if (value.is_object()) ++counts[key];
  }
  return counts;
}

class ListingTest : public testing::TestWithParam<char const*> {
 protected:
  std::unique_ptr<Answer> ask() {
    Request request;
    request.command = "show";
    request.what = GetParam();
    return showAnswer(test.snooping, request, {});
  }

  TestSwitch test{trunks(message("1-", vlans))};
};

struct InPieces {
  std::string text;
  std::size_t longest = 0;
};

InPieces inPieces(Answer& answer) {
  InPieces made;
  for (Answer::Progress progress = Answer::Progress::more; progress == Answer::Progress::more;) {
    std::string piece;
    progress = answer.advance(piece);
    made.longest = std::max(made.longest, piece.size());
    made.text += piece;
  }
  return made;
}

TEST_P(ListingTest, EveryVlanAndPortIsToldInSmallPieces) {
  constexpr std::size_t mostOfOneVlanOrPort = 20'000;
  auto const answer = ask();
  InPieces const told = inPieces(*answer);
  EXPECT_LT(told.longest, bytesAtOnce + mostOfOneVlanOrPort);
  auto const counts = elementsOf(told.text);
  if (std::string(GetParam()) == "statistics") {
    EXPECT_GT(told.text.size(), 5 * bytesAtOnce) << "one piece would do";
    EXPECT_EQ(counts.at("vlans"), vlans);
    EXPECT_EQ(counts.at("interfaces"), (vlans + 1) * ports);
    EXPECT_EQ(counts.at("devices"), ports);
  } else {
    EXPECT_EQ(counts.at(GetParam()), std::string(GetParam()) == "interfaces" ? ports : vlans);
  }
}

TEST_P(ListingTest, WhatGoesMeanwhileIsNotTold) {
  auto const answer = ask();
  std::string text;
  answer->advance(text);
  test.snooping.configurationIs(configurationIn("[[interface]]\nname = \"swp[1-24]\"\n"));
  text += inPieces(*answer).text;
  EXPECT_TRUE(text.ends_with("{\"end\":true}\n"));
}

INSTANTIATE_TEST_SUITE_P(Show, ListingTest,
                         testing::Values("vlans", "interfaces", "mrouters", "statistics"),
                         [](auto const& tested) { return std::string(tested.param); });

}  // namespace
}  // namespace Agent
