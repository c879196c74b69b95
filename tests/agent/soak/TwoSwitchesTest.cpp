#include <chrono>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "tests/agent/config/ConfigurationTesting.h"
#include "tests/agent/soak/Model.h"

/// Two switches of ours, connected to each other.
namespace Agent::Soak {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr unsigned vlan = 10;
constexpr Address group(239, 1, 1, 1);
constexpr Address otherGroup(239, 1, 1, 2);
constexpr Address source(198, 51, 100, 1);
constexpr Address otherSource(198, 51, 100, 2);

/// From the last report on, a membership lives no longer; and nothing takes longer to settle.
constexpr auto membershipLife = robustness * queryInterval + 2 * queryResponseTime;

/// Ports a-1 to a-3 and b-1 to b-3; the third ones are connected.
Configuration switchNamed(char name, std::string const& settings) {
  std::string const ports = std::string("\"") + name + "-[1-3]\"";
  return configurationIn("[defaults]\n" + settings + "\n[[interface]]\nname = " + ports +
                         "\n[[vlan]]\nid = 10\nquerier = { igmp-version = 3 }\ninterfaces = [" +
                         ports + "]\n");
}

/// How the switches are set up.
struct Setting {
  char const* name;
  char const* a;
  char const* b;
  bool hasRouter;  // at a-2

  friend void PrintTo(Setting const& setting, std::ostream* out) { *out << setting.name; }
};

constexpr char const* reportsOnAll = "report-on = \"all\"";
constexpr char const* queries = "send-query = true\nquerier-source = \"192.0.2.1\"";
constexpr char const* queriesFromNoAddress = "send-query = true";
constexpr char const* queriesAndReportsOnAll =
    "send-query = true\nquerier-source = \"192.0.2.1\"\nreport-on = \"all\"";
constexpr char const* queriesFromNoAddressAndReportsOnAll =
    "send-query = true\nreport-on = \"all\"";

class TwoSwitches : public testing::TestWithParam<Setting> {
 protected:
  TwoSwitches()
      : a_(network_.boxIs(switchNamed('a', GetParam().a))),
        b_(network_.boxIs(switchNamed('b', GetParam().b))) {
    network_.linkIs("a-3", "b-3");
    if (GetParam().hasRouter) network_.routerIs({"a-2", vlan}, {192, 0, 2, 9}).runsIs(true);
  }

  ~TwoSwitches() override { EXPECT_EQ(network_.complaints(), ""); }

  Listener& listenerAt(char const* port, int version = 3) {
    return network_.listenerIs({port, vlan}, {192, 0, 0, ++lastListener_}, version);
  }

  bool somebodyAsks() const {
    return GetParam().hasRouter || a_.configuration().vlans[0].settings.sendQuery ||
           b_.configuration().vlans[0].settings.sendQuery;
  }

  /// What the switch has learned on a port from its own listeners and from the other switch.
  static Filter learned(Box const& box, std::string const& port, Address address) {
    std::vector<Filter> reporters;
    for (auto const& [key, filter] : membershipsOf(box.agent()))
      if (key.port == port && key.group == address) reporters.push_back(filter);
    EXPECT_LE(reporters.size(), 1U);
    return reporters.empty() ? Filter() : reporters.front();
  }

  static Filter reported(Box const& box, std::string const& port, Address address) {
    Records const all = recordsOf(box.agent());
    auto const host = all.find({port, vlan});
    if (host == all.end()) return {};
    auto const& records = host->second;
    auto const found = records.find(address);
    return found == records.end() ? Filter() : found->second;
  }

  std::uint64_t reportsBetween() {
    Tally const& a = network_.sent({"a-3", vlan});
    Tally const& b = network_.sent({"b-3", vlan});
    return a.reports[1] + a.reports[2] + a.reports[3] + a.leaves + b.reports[1] + b.reports[2] +
           b.reports[3] + b.leaves;
  }

  void expectNothingLearned() {
    EXPECT_EQ(difference(membershipsOf(a_.agent()), {}), "");
    EXPECT_EQ(difference(membershipsOf(b_.agent()), {}), "");
    for (Box const* const box : {&a_, &b_})
      for (auto const& [place, records] : recordsOf(box->agent()))
        EXPECT_TRUE(records.empty()) << place << " reports " << records.begin()->first;
  }

  Network network_{1};
  Box& a_;
  Box& b_;

 private:
  std::uint8_t lastListener_ = 0;
};

TEST_P(TwoSwitches, LeaveNothingBehindWhenTheLastListenerHasLeft) {
  Listener& atA = listenerAt("a-1");
  Listener& atB = listenerAt("b-1");
  Listener& old = listenerAt("b-2", 2);
  network_.advance(minutes(5));
  atA.wantedIs(group, {true, {source}});
  atB.wantedIs(group, {true, {source, otherSource}});
  atA.wantedIs(otherGroup, {false, {source}});
  old.wantedIs(otherGroup, Filter::everySource());
  network_.advance(minutes(30));
  if (somebodyAsks()) {
    EXPECT_EQ(learned(a_, "a-1", group), (Filter{true, {source}}));
    EXPECT_EQ(learned(b_, "b-1", group), (Filter{true, {source, otherSource}}));
  }

  atA.wantedIs(group, {});
  network_.advance(minutes(10));
  atB.wantedIs(group, {});
  old.wantedIs(otherGroup, {});
  network_.advance(minutes(10));
  atA.wantedIs(otherGroup, {});
  network_.advance(seconds(2) * robustness + membershipLife);
  expectNothingLearned();
}

TEST_P(TwoSwitches, LeaveNothingBehindWhenTheLastListenerHasVanished) {
  Listener& atA = listenerAt("a-1");
  Listener& atB = listenerAt("b-1");
  atA.wantedIs(group, {true, {source}});
  atB.wantedIs(group, {true, {source}});
  atB.wantedIs(otherGroup, {false, {source}});
  network_.advance(minutes(30));
  atA.vanish();
  atB.vanish();
  // Each switch may learn of it from the other when that one's memberships are over.
  network_.advance(2 * membershipLife);
  expectNothingLearned();
}

TEST_P(TwoSwitches, ReportNoMoreThanTheyAreAskedForWhenNothingChanges) {
  listenerAt("a-1").wantedIs(group, {true, {source}});
  listenerAt("b-1").wantedIs(group, {true, {otherSource}});
  listenerAt("b-2").wantedIs(otherGroup, {false, {source}});
  network_.advance(minutes(30));

  std::uint64_t const before = reportsBetween();
  constexpr unsigned rounds = 100;
  network_.advance(rounds * queryInterval);
  // In IGMPv3, one report answers a general query. Who is asked by nobody says nothing.
  std::uint64_t const reports = reportsBetween() - before;
  EXPECT_LE(reports, somebodyAsks() ? 2 * (rounds + 1) : 0);
  RecordProperty("reports", static_cast<int>(reports));
}

TEST_P(TwoSwitches, PassAChangeOnNoMoreOftenThanRobustnessAsks) {
  Listener& listener = listenerAt("a-1");
  listenerAt("b-1").wantedIs(group, {true, {source}});
  network_.advance(minutes(30));

  std::uint64_t const before = reportsBetween();
  constexpr unsigned changes = 100;
  constexpr auto between = seconds(5);
  for (unsigned change = 0; change < changes; ++change) {
    listener.wantedIs(group, {true, {change % 2 == 0 ? source : otherSource}});
    network_.advance(between);
  }
  // One switch passes it on, the other may pass on what it means for its own port, and a querier's
  // specific queries are answered; besides, general queries are.
  constexpr auto rounds = changes * between / queryInterval + 1;
  EXPECT_LE(reportsBetween() - before, (2 + 1) * robustness * changes + 2 * rounds);
  RecordProperty("reports", static_cast<int>(reportsBetween() - before));
}

TEST_P(TwoSwitches, TellEachOtherWhatListenersWant) {
  if (!somebodyAsks()) GTEST_SKIP() << "memberships do not last where nobody asks";
  Listener& atA = listenerAt("a-1");
  Listener& atB = listenerAt("b-1");
  network_.advance(minutes(5));
  atA.wantedIs(group, {false, {source}});
  atB.wantedIs(group, {false, {otherSource}});
  // A query from no address makes no router port: the next one has to be awaited.
  bool const hearsAtOnce = GetParam().hasRouter ||
                           a_.configuration().vlans[0].settings.querierSource.has_value() ||
                           b_.configuration().vlans[0].settings.reportOn == ReportOn::all;
  network_.advance(hearsAtOnce ? Time(seconds(5)) : queryInterval + queryResponseTime);
  bool const querierAtA = GetParam().hasRouter || a_.configuration().vlans[0].settings.sendQuery;
  Box& asking = querierAtA ? a_ : b_;
  EXPECT_EQ(learned(asking, querierAtA ? "a-3" : "b-3", group),
            (Filter{false, {querierAtA ? otherSource : source}}));
  if (GetParam().hasRouter) {
    EXPECT_EQ(reported(a_, "a-2", group), (Filter{false, {source, otherSource}}));
    EXPECT_EQ(network_.routers()[0].second->belief().at(group),
              (Filter{false, {source, otherSource}}));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Soak, TwoSwitches,
    testing::Values(
        Setting{"NoQuerier", "", "", false},
        Setting{"NoQuerierReportsOnAll", reportsOnAll, reportsOnAll, false},
        Setting{"Router", "", "", true},
        Setting{"RouterReportsOnAll", reportsOnAll, reportsOnAll, true},
        Setting{"OneQueries", queries, "", false},
        Setting{"OneQueriesBothReportOnAll", queriesAndReportsOnAll, reportsOnAll, false},
        Setting{"OneQueriesFromNoAddress", queriesFromNoAddress, "", false},
        Setting{"OneQueriesFromNoAddressBothReportOnAll", queriesFromNoAddressAndReportsOnAll,
                reportsOnAll, false},
        Setting{"BothQueryFromNoAddress", queriesFromNoAddress, queriesFromNoAddress, false},
        Setting{"BothQueryFromNoAddressAndReportOnAll", queriesFromNoAddressAndReportsOnAll,
                queriesFromNoAddressAndReportsOnAll, false}),
    [](auto const& instance) { return instance.param.name; });

}  // namespace
}  // namespace Agent::Soak
