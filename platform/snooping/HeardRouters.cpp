#include "platform/snooping/HeardRouters.h"

#include <algorithm>

namespace Bridging::IgmpSnooping {

namespace {

bool endsEarlier(HeardRouters::Router const& a, HeardRouters::Router const& b) {
  return a.until < b.until;
}

}  // namespace

void HeardRouters::heard(Router const& router) {
  gone(router.address);
  if (routers_.size() == most)
    routers_.erase(std::min_element(routers_.begin(), routers_.end(), endsEarlier));
  routers_.push_back(router);
}

void HeardRouters::gone(Wirex::IpAddr router) {
  std::erase_if(routers_, [&](Router const& other) { return other.address == router; });
}

void HeardRouters::nowIs(Horix::Time now) {
  std::erase_if(routers_, [&](Router const& router) { return router.until <= now; });
}

HeardRouters::Router HeardRouters::latest() const {
  auto const latest = std::max_element(routers_.begin(), routers_.end(), endsEarlier);
  return latest == routers_.end() ? Router() : *latest;
}

Horix::Time HeardRouters::nextEnd() const {
  auto const next = std::min_element(routers_.begin(), routers_.end(), endsEarlier);
  return next == routers_.end() ? Horix::Time::max() : next->until;
}

}  // namespace Bridging::IgmpSnooping
