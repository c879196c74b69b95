#include <cstdlib>
#include <ostream>

#include <gtest/gtest.h>

#include "tests/agent/soak/Lan.h"
#include "tests/proxy/model/Shrinking.h"

namespace Agent::Soak {

void PrintTo(Layout const& layout, std::ostream* out) {
  *out << layout.name;
}

namespace {

// Optimised code lives through more in the same time.
#ifdef NDEBUG
constexpr std::uint64_t usualLives = 60;
#else
constexpr std::uint64_t usualLives = 8;
#endif

/// IGMPSNOOP_LAN_LIVES asks for more or fewer.
std::uint64_t lives() {
  char const* const asked = std::getenv("IGMPSNOOP_LAN_LIVES");
  return asked ? std::strtoull(asked, nullptr, 10) : usualLives;
}

class ConnectedSwitches : public testing::TestWithParam<Layout> {
 protected:
  using Events = std::vector<Event>;
  using Live = std::function<std::optional<Failure>(Events const&)>;

  static void expectAllLivesWell(Live const& live) {
    using Shrinking = Bridging::IgmpSnooping::Proxy::Model::ShrinkingOf<Event, Failure>;
    for (std::uint64_t seed = 1; seed <= lives(); ++seed)
      if (auto failure = live(Lan::someEvents(GetParam(), seed)))
        FAIL() << "Seed " << seed << ", shrunk: " << Shrinking(*failure, live).result();
  }
};

TEST_P(ConnectedSwitches, SettleForAllKindsOfListeners) {
  expectAllLivesWell([](Events const& events) { return Lan::live(GetParam(), events); });
}

TEST_P(ConnectedSwitches, KnowNothingMoreWhenEverybodyHasLeft) {
  expectAllLivesWell([](Events events) -> std::optional<Failure> {
    auto all = events;
    all.push_back(Lan::everybodyLeaves(events));
    auto failure = Lan::live(GetParam(), all);
    if (failure) failure->events = std::move(events);
    return failure;
  });
}

std::string reportsFrom(char const* address) {
  return std::string("sender-source-address = \"") + address + "\"";
}
std::string queriesFrom(char const* address) {
  return std::string("send-query = true\nquerier-source = \"") + address + "\"";
}
std::string routerAt(char const* port) {
  return std::string("static-bridge-mrouter-interface = [\"") + port + "\"]";
}

std::vector<std::vector<std::string>> const row{{"a-3", "b-3"}, {"b-4", "c-3"}};
std::vector<std::vector<std::string>> const pair{{"a-3", "b-3", "c-3"}};

INSTANTIATE_TEST_SUITE_P(
    Row, ConnectedSwitches,
    testing::Values(
        Layout{"RouterAtTheEnd", {{'a', "", ""}, {'b', "", ""}, {'c', "", ""}}, row, "c-4"},
        Layout{"RouterInTheMiddle", {{'a', "", ""}, {'b', "", ""}, {'c', "", ""}}, row, "b-2"},
        Layout{"WithAddresses",
               {{'a', reportsFrom("192.0.2.101"), ""},
                {'b', reportsFrom("192.0.2.102"), ""},
                {'c', reportsFrom("192.0.2.103"), ""}},
               row,
               "c-4"},
        Layout{"FarEndAsksAndRouterYields",
               {{'a', queriesFrom("192.0.2.1"), routerAt("a-3")},
                {'b', "", routerAt("b-4")},
                {'c', "", routerAt("c-4")}},
               row,
               "c-4"},
        Layout{"MiddleAsks",
               {{'a', "", ""}, {'b', queriesFrom("192.0.2.1"), ""}, {'c', "", ""}},
               row,
               ""},
        Layout{"EndAsksAndAllReportEverywhere",
               {{'a', queriesFrom("192.0.2.1") + "\nreport-on = \"all\"", ""},
                {'b', "report-on = \"all\"", ""},
                {'c', "report-on = \"all\"", ""}},
               row,
               ""},
        Layout{"AllAsk",
               {{'a', queriesFrom("192.0.2.3"), ""},
                {'b', queriesFrom("192.0.2.2"), ""},
                {'c', queriesFrom("192.0.2.1"), ""}},
               row,
               ""}),
    [](auto const& instance) { return instance.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Pair, ConnectedSwitches,
    testing::Values(Layout{"Router", {{'a', "", ""}, {'b', "", ""}, {'c', "", ""}}, pair, "c-4"},
                    Layout{"WithAddresses",
                           {{'a', reportsFrom("192.0.2.101"), ""},
                            {'b', reportsFrom("192.0.2.102"), ""},
                            {'c', reportsFrom("192.0.2.103"), ""}},
                           pair,
                           "c-4"},
                    Layout{"ThirdAsks",
                           {{'a', "", ""}, {'b', "", ""}, {'c', queriesFrom("192.0.2.1"), ""}},
                           pair,
                           ""},
                    Layout{"OneOfThemAsksAndRouterYields",
                           {{'a', queriesFrom("192.0.2.1"), routerAt("a-3")},
                            {'b', "", ""},
                            {'c', "", routerAt("c-4")}},
                           pair,
                           "c-4"}),
    [](auto const& instance) { return instance.param.name; });

}  // namespace
}  // namespace Agent::Soak
