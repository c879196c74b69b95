#include "platform/igmp/host/QuerierVersions.h"

namespace Igmp {

namespace {

/// RFC 9776 section 8.12. An older querier tells neither its robustness variable nor its query
/// interval, so both have their default values, and its response time counts tenfold.
Horix::Time olderVersionQuerierPresentTimeout(Query const& query) {
  constexpr int robustnessVariable = 2;
  constexpr std::chrono::seconds queryInterval(125);
  return robustnessVariable * queryInterval + 10 * query.maxResponseTime;
}

}  // namespace

QuerierVersions::QuerierVersions(Kel::Ptr<Horix::TimerWheel const> timerWheel,
                                 std::function<void()> onChange)
    : timerWheel_(std::move(timerWheel)), onChange_(std::move(onChange)) {}

void QuerierVersions::heard(Wirex::IpAddr querier, Query const& query) {
  // Only general queries say what the querier speaks; all of IGMPv1's are.
  if (!query.isGeneral() || query.version == IgmpVersion::v3) return;
  PresentTimer& timer = query.version == IgmpVersion::v1 ? v1_ : v2_;
  timer.querier = querier;
  timerWheel_->schedule(timer, olderVersionQuerierPresentTimeout(query));
}

std::vector<QuerierVersions::Present> QuerierVersions::present() const {
  std::vector<Present> present;
  for (auto const& [version, timer] : {std::pair(IgmpVersion::v1, &v1_), {IgmpVersion::v2, &v2_}})
    if (timer->scheduled()) present.push_back({version, timer->querier, timer->deadline()});
  return present;
}

void QuerierVersions::presentIs(Present const& present) {
  PresentTimer& timer = present.version == IgmpVersion::v1 ? v1_ : v2_;
  timer.querier = present.querier;
  timerWheel_->scheduleAt(timer, present.until);
}

//   Host Compatibility Mode       Timer State
//   IGMPv3 (default)              IGMPv2 Querier Present not running
//                                 and IGMPv1 Querier Present not running
//   IGMPv2                        IGMPv2 Querier Present running
//                                 and IGMPv1 Querier Present not running
//   IGMPv1                        IGMPv1 Querier Present running
IgmpVersion QuerierVersions::oldest() const noexcept {
  if (v1_.scheduled()) return IgmpVersion::v1;
  if (v2_.scheduled()) return IgmpVersion::v2;
  return IgmpVersion::v3;
}

Wirex::IpAddr QuerierVersions::oldestQuerier() const noexcept {
  if (v1_.scheduled()) return v1_.querier;
  if (v2_.scheduled()) return v2_.querier;
  return {};
}

}  // namespace Igmp
