#include "platform/igmp/VlanQueries.h"

#include <utility>

namespace Igmp {

VlanQueries::VlanQueries(Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : versions_(std::move(timerWheel), [this] { notify<&NotifieeConst::onOldestVersion>(); }) {}

void VlanQueries::heard(Heard const& query) {
  IgmpVersion const former = versions_.oldest();
  versions_.heard(query.source, query.query);
  // Before the query, which is to be answered in the version that it asks for.
  if (versions_.oldest() != former) notify<&NotifieeConst::onOldestVersion>();
  tell(query);
}

void VlanQueries::sent(Query const& query) {
  tell({Wirex::IntfId(), Wirex::IpAddr(), query});
}

void VlanQueries::olderQuerierIs(QuerierVersions::Present const& querier) {
  versions_.presentIs(querier);
  notify<&NotifieeConst::onOldestVersion>();
}

void VlanQueries::tell(Heard const& query) {
  Kel::Ptr<VlanQueries const> const self(this);
  Heard const* const former = std::exchange(query_, &query);
  notify<&NotifieeConst::onQuery>();
  query_ = former;
}

}  // namespace Igmp
