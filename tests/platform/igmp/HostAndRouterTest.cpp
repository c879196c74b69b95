#include <random>

#include "tests/platform/igmp/RouterModel.h"

/// A host and a router: however its records change, and whatever the link loses of what is repeated
/// often enough, the router ends up with exactly the host's records.
namespace IgmpTest {

class HostAndRouter : public HostTest, public testing::WithParamInterface<int> {
 protected:
  static constexpr unsigned groups = 4;
  static constexpr unsigned mostSources = 4;

  HostAndRouter() { robustnessIs(static_cast<std::uint8_t>(GetParam())); }

  unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

  std::vector<IpAddr> someSources() {
    std::vector<IpAddr> some;
    for (unsigned i = 1; i <= mostSources; ++i)
      if (below(2) == 0) some.push_back(source(i));
    return some;
  }

  void changeSomething() {
    IpAddr const which = group(1 + below(groups));
    switch (below(8)) {
      case 0:
        host->v3groupDel(which);
        break;
      case 1:
      case 2:
        writeExclude(which, someSources());
        break;
      case 3:
        writeExclude(which);
        break;
      case 4:
        host->blockedIs(!host->blocked());
        break;
      default:
        writeInclude(which, someSources());
    }
    if (below(3) != 0) Kel::runActivities();
  }

  /// Lets time pass, and the router and the host speak. The link loses some of the host's frames,
  /// but in all no more than `losses_`.
  void live(Horix::Time time) {
    constexpr milliseconds step(20);
    Kel::runActivities();
    for (Horix::Time const end = loop.now() + time; loop.now() < end;) {
      pass(step);
      for (RouterModel::Query const& query : router_.advance(loop.now()))
        hearsQuery(query.group, {query.sources.begin(), query.sources.end()}, 10);
      for (Sent const& report : takeSent()) {
        if (losses_ > 0 && below(2) == 0) {
          --losses_;
          continue;
        }
        for (Record const& record : report.records()) router_.hears(record);
      }
    }
  }

  std::string state(IpAddr address) const {
    auto const record = host->v3group(address);
    if (!record) return "nothing";
    bool const excludes = record->filterMode() == Wirex::IgmpV3GroupRecordType::modeIsExclude;
    std::vector<IpAddr> sources;
    for (auto const [source, value] : record->source()->sourceIp()) sources.push_back(source);
    std::sort(sources.begin(), sources.end());
    if (!excludes && sources.empty()) return "nothing";
    return text(excludes ? 2 : 1, address, sources);
  }

  std::mt19937 random_{20261121};
  RouterModel router_{GetParam()};
  int losses_ = 0;
};

TEST_P(HostAndRouter, AgreeAtEveryRest) {
  for (int epoch = 0; epoch < 150; ++epoch) {
    losses_ = GetParam() - 1;
    for (unsigned changes = 1 + below(6); changes > 0; --changes) {
      changeSomething();
      if (below(2) == 0) live(milliseconds(below(1500)));
    }
    host->blockedIs(false);
    if (below(3) == 0) hearsGeneralQuery();
    live(seconds(30));
    for (unsigned i = 1; i <= groups; ++i)
      ASSERT_EQ(router_.state(group(i)), state(group(i))) << "at rest " << epoch;
    losses_ = 0;
    hearsGeneralQuery();  // or the router's timers would run out
    live(seconds(11));
  }
}

INSTANTIATE_TEST_SUITE_P(OfRobustness, HostAndRouter, testing::Values(1, 2, 3, 7),
                         testing::PrintToStringParamName());

}  // namespace IgmpTest
